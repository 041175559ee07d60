// A subscription whose data are gathered on a schedule of the timer.
#pragma once

#include "src/DataSource.h"
#include "src/ScheduleDocuments.h"

#include <cstdint>
#include <string>

namespace vorna {

struct TimerInfo {
    Duration frequency;
    // Its mode applies to the schedule; ToXML adds the entry that calls this component.
    NotificationInfo notification;
    std::int32_t retries = 0;
    // The subscription's aging, which bounds the schedule; all zeros: no bound.
    Duration aging;
    std::wstring clientCookie;
    // Always of the data model.
    DataSource source;

    // The schedule document, counted from the moment of the call; empty where it cannot be built. Never throws.
    std::wstring ToXML() const;
};

} // namespace vorna
