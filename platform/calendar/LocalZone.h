// The rules by which instants and local times turn into each other.
//
// Thread-safe. Years 1601 to 9999.
#pragma once

#include "platform/calendar/Instants.h"

#include <windows.h>

#include <optional>

namespace keldan {

class LocalZone {
  public:
    // The machine's own zone, read anew at every conversion.
    LocalZone() = default;
    explicit LocalZone(const TIME_ZONE_INFORMATION& rules) : rules_(rules) {}

    LocalTime ToLocal(Instant instant) const;
    // A time that is shown twice means its first showing; one that is never shown lies as long after the jump of the
    // clock as it would have lain after it without the jump.
    Instant ToInstant(LocalTime local) const;

  private:
    Milliseconds OffsetAt(Instant instant) const;

    std::optional<TIME_ZONE_INFORMATION> rules_;
};

} // namespace keldan
