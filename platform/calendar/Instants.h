// The two kinds of time that the platform works with: instants that real time moves through, and what the local
// calendar and clock call them.
#pragma once

#include <chrono>

namespace keldan {

using Milliseconds = std::chrono::milliseconds;
// A point of real time (UTC); no change of daylight saving moves it.
using Instant = std::chrono::sys_time<Milliseconds>;
// What a clock on the wall shows; some are shown twice a year, some never.
using LocalTime = std::chrono::local_time<Milliseconds>;

// "Never": beyond every date that the calendar functions know.
inline constexpr Instant NEVER = Instant::max();

// One reading of both clocks.
struct Now {
    Instant wall;
    // Runs evenly whatever is done to the wall clock; its zero has no meaning.
    Milliseconds steady{};
};

} // namespace keldan
