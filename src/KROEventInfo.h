// A subscription to a named event of the event manager.
#pragma once

#include "src/DataSource.h"

#include <string>
#include <vector>

namespace vorna {

// An event property and the value it must have.
struct EventFilter {
    std::wstring name;
    std::wstring value;

    bool operator==(const EventFilter&) const = default;
};

// The two documents that the event manager expects; both are empty if they could not be built.
struct KROEventDocuments {
    std::wstring subscription;
    std::wstring filter;
};

struct KROEventInfo {
    std::wstring name;
    DataSource source;
    // In document order; an entry without a name filters nothing.
    std::vector<EventFilter> filters;
    std::wstring clientCookie;

    // Names, values and the cookie are escaped as character data. Never throws.
    KROEventDocuments ToXML() const;
};

} // namespace vorna
