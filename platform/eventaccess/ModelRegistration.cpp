#include "platform/eventaccess/ModelRegistration.h"

#include "platform/journal/Record.h"

namespace keldan {

namespace {

// The first number of a record: other layouts have other numbers.
constexpr std::int64_t LAYOUT = 1;

void WriteTexts(RecordWriter& writer, std::initializer_list<const std::wstring*> texts) {
    for (const std::wstring* text : texts)
        writer.Text(*text);
}

void ReadTexts(RecordReader& reader, std::initializer_list<std::wstring*> texts) {
    for (std::wstring* text : texts)
        *text = reader.Text();
}

// Digests are bytes; each is stored in a unit of a text.
std::wstring Widened(const std::string& digest) {
    std::wstring text;
    for (unsigned char byte : digest)
        text += static_cast<wchar_t>(byte);
    return text;
}

} // namespace

std::string WriteModelRegistration(const ModelRegistration& registration) {
    const ModelSubscription& subscription = registration.subscription;
    const ServiceIdentity& service = registration.service;
    RecordWriter writer;
    writer.Number(LAYOUT);
    WriteTexts(writer,
               {&service.portId, &service.serviceId, &service.serviceUri, &subscription.client, &subscription.cookie});
    writer.Number(registration.end.time_since_epoch().count());
    writer.Number(static_cast<std::int64_t>(subscription.events.size()));
    for (const WatchedEvent& event : subscription.events)
        WriteTexts(writer, {&event.xpath, &event.trigger, &event.reset});
    return writer.Take();
}

std::string WriteEventStates(const std::vector<EventState>& states) {
    RecordWriter writer;
    writer.Number(LAYOUT);
    for (const EventState& state : states) {
        writer.Number(state.armed);
        writer.Text(Widened(state.digest));
    }
    return writer.Take();
}

std::optional<ModelRegistration> ReadModelRegistration(std::string_view registrationBytes,
                                                       std::string_view stateBytes) {
    ModelRegistration registration;
    ModelSubscription& subscription = registration.subscription;
    ServiceIdentity& service = registration.service;
    RecordReader reader(registrationBytes);
    RecordReader states(stateBytes);
    if (reader.Number() != LAYOUT || states.Number() != LAYOUT)
        return std::nullopt;
    ReadTexts(reader,
              {&service.portId, &service.serviceId, &service.serviceUri, &subscription.client, &subscription.cookie});
    registration.end = Instant(Milliseconds(reader.Number()));
    const std::int64_t count = reader.Number();
    if (count < 1 || count > static_cast<std::int64_t>(MAXIMUM_WATCHED_EVENTS))
        return std::nullopt;
    for (std::int64_t i = 0; i < count; ++i) {
        WatchedEvent event;
        ReadTexts(reader, {&event.xpath, &event.trigger, &event.reset});
        subscription.events.push_back(std::move(event));
        EventState state;
        state.armed = states.Number() != 0;
        for (wchar_t unit : states.Text())
            state.digest += static_cast<char>(unit);
        registration.states.push_back(std::move(state));
    }
    if (!reader.Complete() || !states.Complete())
        return std::nullopt;
    return registration;
}

} // namespace keldan
