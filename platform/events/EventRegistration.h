// One registration of the event manager: which events, and whom to call.
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

    auto operator<=>(const EventProperty&) const = default;
};

// The properties that an event was raised with; one name may have several values.
using EventProperties = std::set<EventProperty>;

struct EventRegistration {
    std::wstring id;
    std::wstring eventName;
    std::wstring cookie;
    // The ProgID of the class to call.
    std::wstring client;
    std::vector<EventProperty> filters;

    // Whether an event of the name, with these properties, is wanted: every filter finds its name and value.
    bool Wants(const EventProperties& properties) const;

    bool operator==(const EventRegistration&) const = default;
};

// The record of the journal. Reading gives nothing where the bytes are not such a record.
std::string WriteEventRegistration(const EventRegistration& registration);
std::optional<EventRegistration> ReadEventRegistration(std::string_view bytes);

} // namespace keldan
