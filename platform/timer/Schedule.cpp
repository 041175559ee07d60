#include "platform/timer/Schedule.h"

#include "platform/calendar/FloorDivide.h"

namespace keldan {

using namespace std::chrono;

Instant Schedule::TickAt(std::int64_t index, const LocalZone& zone) const {
    return frequency.After(start, origin, index, zone);
}

std::int64_t Schedule::FirstAfter(Instant instant, const LocalZone& zone) const {
    if (!frequency.HasCalendarPart())
        return FloorDivide((instant - origin).count(), frequency.Elapsed().count()) + 1;
    // The average length gives the number to within a tick or two; the loops find the exact one.
    std::int64_t index = FloorDivide((instant - TickAt(0, zone)).count(), frequency.RoughLength().count());
    while (TickAt(index, zone) > instant)
        --index;
    while (TickAt(index, zone) <= instant)
        ++index;
    return index;
}

} // namespace keldan
