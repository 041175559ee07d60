#include "platform/events/EventRegistration.h"

#include "platform/journal/Record.h"

#include <algorithm>

namespace keldan {

namespace {

// The first number of a record: other layouts have other numbers.
constexpr std::int64_t LAYOUT = 1;

} // namespace

bool EventRegistration::Wants(const EventProperties& properties) const {
    return std::all_of(filters.begin(), filters.end(),
                       [&](const EventProperty& filter) { return properties.contains(filter); });
}

std::string WriteEventRegistration(const EventRegistration& registration) {
    RecordWriter writer;
    writer.Number(LAYOUT);
    writer.Text(registration.id);
    writer.Text(registration.eventName);
    writer.Text(registration.cookie);
    writer.Text(registration.client);
    writer.Number(static_cast<std::int64_t>(registration.filters.size()));
    for (const EventProperty& filter : registration.filters) {
        writer.Text(filter.name);
        writer.Text(filter.value);
    }
    return writer.Take();
}

std::optional<EventRegistration> ReadEventRegistration(std::string_view bytes) {
    RecordReader reader(bytes);
    if (reader.Number() != LAYOUT)
        return std::nullopt;
    EventRegistration registration;
    registration.id = reader.Text();
    registration.eventName = reader.Text();
    registration.cookie = reader.Text();
    registration.client = reader.Text();
    for (std::int64_t left = reader.Number(); left > 0 && reader.Good(); --left) {
        EventProperty filter;
        filter.name = reader.Text();
        filter.value = reader.Text();
        registration.filters.push_back(std::move(filter));
    }
    if (!reader.Complete() || registration.eventName.empty() || registration.client.empty())
        return std::nullopt;
    return registration;
}

} // namespace keldan
