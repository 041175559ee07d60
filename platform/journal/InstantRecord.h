// Instants as the values of a journal. Reading returns nothing if the bytes are not an instant.
#pragma once

#include "platform/calendar/Instants.h"
#include "platform/journal/Record.h"

#include <optional>

namespace keldan {

inline std::string WriteInstant(Instant instant) {
    RecordWriter writer;
    writer.Number(instant.time_since_epoch().count());
    return writer.Take();
}

inline std::optional<Instant> ReadInstant(std::string_view bytes) {
    RecordReader reader(bytes);
    const Instant instant(Milliseconds(reader.Number()));
    return reader.Complete() ? std::optional(instant) : std::nullopt;
}

} // namespace keldan
