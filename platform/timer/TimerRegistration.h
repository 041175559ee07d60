// One registration as it lies on disk: the schedule, and how far it has come.
#pragma once

#include "platform/timer/Schedule.h"

#include <optional>
#include <string>
#include <string_view>

namespace keldan {

// Everything of a registration that a tick changes.
struct Progress {
    // The number of the tick that is to be delivered next.
    std::int64_t next = 0;
    // When the last delivered tick was due; before the first one, when the registration was made.
    Instant anchor{};
    bool ticked = false;
    std::int64_t deliveries = 0;
    // One bit an entry: those that the tick `next` has reached already, while others are still tried.
    std::uint64_t reached = 0;

    bool operator==(const Progress&) const = default;
};

// Entries of one schedule, at most; Progress holds one bit for each.
inline constexpr std::size_t MAXIMUM_ENTRIES = 64;

struct TimerRegistration {
    std::wstring id;
    std::wstring ticket;
    Schedule schedule;
    Progress progress;

    bool operator==(const TimerRegistration&) const = default;
};

// The records of the store. Reading gives nothing where the bytes are not such a record, whole and in range.
std::string WriteTimerRegistration(const TimerRegistration& registration);
std::optional<TimerRegistration> ReadTimerRegistration(std::string_view bytes);
std::string WriteProgress(const Progress& progress);
std::optional<Progress> ReadProgress(std::string_view bytes);

} // namespace keldan
