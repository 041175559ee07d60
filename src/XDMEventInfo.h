// A subscription to changes in a data model, watched by event access.
#pragma once

#include "common/time/DateTime.h"
#include "src/DataSource.h"

#include <string>
#include <vector>

namespace vorna {

// One watched event; trigger and reset may be empty.
struct DataModelEvent {
    std::wstring xpath;
    std::wstring trigger;
    std::wstring reset;

    bool operator==(const DataModelEvent&) const = default;
};

struct XDMEventInfo {
    // In document order, never empty after a successful parse.
    std::vector<DataModelEvent> events;
    DataSource source;
    // The subscription's aging.
    Duration duration;
    std::wstring clientCookie;

    // The subscription document of event access; empty if there is no event or the document is not well-formed. XPaths,
    // triggers, resets and the cookie are escaped as character data. Never throws.
    std::wstring ToXML() const;
};

} // namespace vorna
