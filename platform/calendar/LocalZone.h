// Converts between instants and local times.
//
// Thread-safe. Years 1601 to 9999, as local time.
#pragma once

#include "platform/calendar/Instants.h"

#include <windows.h>

#include <optional>

namespace keldan {

class LocalZone {
  public:
    // The machine's own zone, whose rules are read at every conversion.
    LocalZone() = default;
    explicit LocalZone(const TIME_ZONE_INFORMATION& rules) : rules_(rules) {}

    LocalTime ToLocal(Instant instant) const;
    // For a time that occurs twice, the first occurrence. A time that is skipped is as long after the clock change as
    // it would be without the change.
    Instant ToInstant(LocalTime local) const;

  private:
    Milliseconds OffsetAt(Instant instant) const;

    std::optional<TIME_ZONE_INFORMATION> rules_;
};

} // namespace keldan
