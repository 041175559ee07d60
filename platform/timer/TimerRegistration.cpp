#include "platform/timer/TimerRegistration.h"

#include "platform/journal/Record.h"

namespace keldan {

namespace {

// The first number of a record: other layouts have other numbers.
constexpr std::int64_t LAYOUT = 1;

void Write(RecordWriter& writer, const Progress& progress) {
    writer.Number(progress.next);
    writer.Number(progress.anchor.time_since_epoch().count());
    writer.Number(progress.ticked);
    writer.Number(progress.deliveries);
    writer.Number(static_cast<std::int64_t>(progress.reached));
}

Progress ReadProgressFields(RecordReader& reader) {
    Progress progress;
    progress.next = reader.Number();
    progress.anchor = Instant(Milliseconds(reader.Number()));
    progress.ticked = reader.Number() != 0;
    progress.deliveries = reader.Number();
    progress.reached = static_cast<std::uint64_t>(reader.Number());
    return progress;
}

} // namespace

std::string WriteTimerRegistration(const TimerRegistration& registration) {
    const Schedule& schedule = registration.schedule;
    RecordWriter writer;
    writer.Number(LAYOUT);
    writer.Text(registration.id);
    writer.Text(registration.ticket);
    writer.Number(schedule.start.time_since_epoch().count());
    writer.Number(schedule.origin.time_since_epoch().count());
    for (std::int64_t field : {schedule.frequency.years, schedule.frequency.months, schedule.frequency.days,
                               schedule.frequency.hours, schedule.frequency.minutes, schedule.frequency.seconds})
        writer.Number(field);
    writer.Number(schedule.end.has_value());
    writer.Number(schedule.end.value_or(LocalTime{}).time_since_epoch().count());
    writer.Number(schedule.agingCount);
    writer.Number(schedule.parallel);
    writer.Number(static_cast<std::int64_t>(schedule.entries.size()));
    for (const NotifyEntry& entry : schedule.entries) {
        writer.Text(entry.client);
        writer.Text(entry.parameter);
        writer.Number(entry.timeout.count());
        writer.Number(entry.retryAttempts);
        writer.Number(entry.retryFrequency.count());
    }
    Write(writer, registration.progress);
    return writer.Take();
}

std::optional<TimerRegistration> ReadTimerRegistration(std::string_view bytes) {
    RecordReader reader(bytes);
    if (reader.Number() != LAYOUT)
        return std::nullopt;
    TimerRegistration registration;
    Schedule& schedule = registration.schedule;
    registration.id = reader.Text();
    registration.ticket = reader.Text();
    schedule.start = LocalTime(Milliseconds(reader.Number()));
    schedule.origin = Instant(Milliseconds(reader.Number()));
    for (std::int64_t* field : {&schedule.frequency.years, &schedule.frequency.months, &schedule.frequency.days,
                                &schedule.frequency.hours, &schedule.frequency.minutes, &schedule.frequency.seconds})
        *field = reader.Number();
    const bool ends = reader.Number() != 0;
    const LocalTime end(Milliseconds(reader.Number()));
    if (ends)
        schedule.end = end;
    schedule.agingCount = reader.Number();
    schedule.parallel = reader.Number() != 0;
    const std::int64_t count = reader.Number();
    if (count < 1 || count > static_cast<std::int64_t>(MAXIMUM_ENTRIES))
        return std::nullopt;
    for (std::int64_t i = 0; i < count && reader.Good(); ++i) {
        NotifyEntry entry;
        entry.client = reader.Text();
        entry.parameter = reader.Text();
        entry.timeout = Milliseconds(reader.Number());
        entry.retryAttempts = static_cast<std::int32_t>(reader.Number());
        entry.retryFrequency = Milliseconds(reader.Number());
        schedule.entries.push_back(std::move(entry));
    }
    registration.progress = ReadProgressFields(reader);
    if (!reader.Complete() || schedule.frequency.RoughLength() <= Milliseconds(0))
        return std::nullopt;
    return registration;
}

std::string WriteProgress(const Progress& progress) {
    RecordWriter writer;
    writer.Number(LAYOUT);
    Write(writer, progress);
    return writer.Take();
}

std::optional<Progress> ReadProgress(std::string_view bytes) {
    RecordReader reader(bytes);
    if (reader.Number() != LAYOUT)
        return std::nullopt;
    const Progress progress = ReadProgressFields(reader);
    return reader.Complete() ? std::optional(progress) : std::nullopt;
}

} // namespace keldan
