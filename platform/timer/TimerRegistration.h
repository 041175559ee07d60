// One registration and its records on disk: the schedule and its progress.
#pragma once

#include "platform/timer/Schedule.h"

#include <optional>
#include <string>
#include <string_view>

namespace keldan {

// The part of a registration that ticks change.
struct Progress {
    // The number of the next tick to deliver.
    std::int64_t next = 0;
    // The due time of the last delivered tick; before the first one, the time of the registration.
    Instant anchor{};
    bool ticked = false;
    std::int64_t deliveries = 0;
    // One bit for each entry: set if the tick `next` has been delivered to it, while others are still tried.
    std::uint64_t reached = 0;

    bool operator==(const Progress&) const = default;
};

// The largest number of entries in one schedule; Progress has one bit for each.
inline constexpr std::size_t MAXIMUM_ENTRIES = 64;

struct TimerRegistration {
    std::wstring id;
    std::wstring ticket;
    Schedule schedule;
    Progress progress;

    bool operator==(const TimerRegistration&) const = default;
};

// The records of the store. Reading returns nothing if the bytes are not a valid record.
std::string WriteTimerRegistration(const TimerRegistration& registration);
std::optional<TimerRegistration> ReadTimerRegistration(std::string_view bytes);
std::string WriteProgress(const Progress& progress);
std::optional<Progress> ReadProgress(std::string_view bytes);

} // namespace keldan
