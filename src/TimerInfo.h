// A subscription whose data is captured on a schedule of the timer.
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
    // The subscription's aging, at whose end the schedule ends; all zeros: no end.
    Duration aging;
    std::wstring clientCookie;
    // Always a data model.
    DataSource source;

    // The schedule document, with dates relative to the time of the call; empty if it cannot be built. Never throws.
    std::wstring ToXML() const;
};

} // namespace vorna
