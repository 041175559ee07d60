#include "platform/timer/Schedule.h"

namespace keldan {

namespace {

// Rounds towards negative infinity; by is positive.
constexpr std::int64_t FloorDivide(Milliseconds value, Milliseconds by) {
    return value / by - (value % by < Milliseconds(0) ? 1 : 0);
}

} // namespace

Instant Schedule::TickAt(std::int64_t index, const LocalZone& zone) const {
    return frequency.After(start, origin, index, zone);
}

std::int64_t Schedule::FirstAfter(Instant instant, const LocalZone& zone) const {
    if (!frequency.HasCalendarPart())
        return FloorDivide(instant - origin, frequency.Elapsed()) + 1;
    // The average length gives the number to within a tick or two; the loops find the exact one.
    std::int64_t index = FloorDivide(instant - TickAt(0, zone), frequency.RoughLength());
    while (TickAt(index, zone) > instant)
        --index;
    while (TickAt(index, zone) <= instant)
        ++index;
    return index;
}

} // namespace keldan
