// One registration of the event manager: an event, and the class to call.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace keldan {

struct EventProperty {
    std::wstring name;
    std::wstring value;

    // NOLINTNEXTLINE(modernize-use-nullptr): the check misreads the generated comparison with zero
    auto operator<=>(const EventProperty&) const = default;
};

// The properties of a raised event; one name may have several values.
using EventProperties = std::set<EventProperty>;

struct EventRegistration {
    std::wstring id;
    std::wstring eventName;
    std::wstring cookie;
    // The ProgID of the class to call.
    std::wstring client;
    std::vector<EventProperty> filters;

    // Whether an event with these properties passes: every filter matches one of them.
    bool Wants(const EventProperties& properties) const;

    bool operator==(const EventRegistration&) const = default;
};

// The record in the journal. Reading returns nothing if the bytes are not a valid record.
std::string WriteEventRegistration(const EventRegistration& registration);
std::optional<EventRegistration> ReadEventRegistration(std::string_view bytes);

} // namespace keldan
