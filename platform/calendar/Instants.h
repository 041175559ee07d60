// The two kinds of time that the platform uses: instants of real time, and local dates and times of day.
#pragma once

#include <chrono>

namespace keldan {

using Milliseconds = std::chrono::milliseconds;
// A point in real time (UTC), independent of daylight saving.
using Instant = std::chrono::sys_time<Milliseconds>;
// A local date and time; some occur twice a year, some do not occur.
using LocalTime = std::chrono::local_time<Milliseconds>;

// "Never": later than every date of the calendar functions.
inline constexpr Instant NEVER = Instant::max();

// The values of both clocks at one moment.
struct Now {
    Instant wall;
    // Not affected when the wall clock is set; only differences have a meaning.
    Milliseconds steady{};
};

} // namespace keldan
