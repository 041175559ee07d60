#include "platform/events/EventManagerService.h"

#include "common/com/results.h"
#include "platform/delivery/Receiver.h"
#include "platform/events/EventDocuments.h"
#include "platform/hosting/NewName.h"
#include "platform/journal/Record.h"

namespace keldan {

namespace {

constexpr wchar_t REGISTRATIONS_FILE[] = L"events.journal";
constexpr wchar_t OUTBOX_FILE[] = L"events-outbox.journal";

} // namespace

EventManagerService::EventManagerService(Outbox::Deliver deliver) : outbox_(L"Event", std::move(deliver)) {}

// Replaces the state in memory by the table; false if the table is not valid.
bool EventManagerService::Read(const Journal::Table& table) {
    registrations_.clear();
    byEvent_.clear();
    for (const auto& [name, value] : table) {
        auto registration = ReadEventRegistration(value);
        if (!registration || RecordName({}, registration->id) != name)
            return false;
        Put(std::move(*registration));
    }
    return true;
}

HRESULT EventManagerService::Start(const std::filesystem::path& folder) {
    std::lock_guard lock(mutex_);
    if (HRESULT result = journal_.Open(folder / REGISTRATIONS_FILE, L"the event manager's registrations",
                                       [this](const Journal::Table& table) { return Read(table); });
        FAILED(result))
        return result;
    // If the registrations were lost, the callbacks that were raised for them are still delivered.
    Outbox::Known known;
    if (journal_.Condition() == Journal::State::Good)
        known = [this](const std::wstring& id) { return registrations_.contains(id); };
    return outbox_.Start(folder / OUTBOX_FILE, known);
}

void EventManagerService::Put(EventRegistration registration) {
    if (const auto known = registrations_.find(registration.id); known != registrations_.end())
        Remove(known);
    const auto place = registrations_.emplace(registration.id, std::move(registration)).first;
    byEvent_[place->second.eventName][place->first] = &place->second;
}

void EventManagerService::Remove(Registrations::iterator place) {
    const auto event = byEvent_.find(place->second.eventName);
    event->second.erase(place->first);
    if (event->second.empty())
        byEvent_.erase(event);
    registrations_.erase(place);
}

HRESULT EventManagerService::Write(const EventRegistration& registration) {
    return journal_.Commit({{RecordName({}, registration.id), WriteEventRegistration(registration)}});
}

HRESULT EventManagerService::Subscribe(std::wstring_view subscription, std::wstring_view filter,
                                       std::wstring_view receiver, std::wstring& id) {
    id.clear();
    EventRegistration registration;
    if (HRESULT result = ParseEventSubscription(subscription, registration); FAILED(result))
        return result;
    if (HRESULT result = ParseEventFilter(filter, registration.filters); FAILED(result))
        return result;
    const auto client = ParseReceiver(receiver);
    if (!client)
        return E_INVALIDARG;
    registration.client = *client;
    registration.id = MakeNewName();
    std::lock_guard lock(mutex_);
    if (HRESULT result = Write(registration); FAILED(result))
        return result;
    id = registration.id;
    Put(std::move(registration));
    return S_OK;
}

HRESULT EventManagerService::Modify(const std::wstring& id, std::wstring_view subscription, std::wstring_view filter) {
    EventRegistration registration;
    HRESULT parsed = ParseEventSubscription(subscription, registration);
    if (SUCCEEDED(parsed))
        parsed = ParseEventFilter(filter, registration.filters);
    std::lock_guard lock(mutex_);
    const auto known = registrations_.find(id);
    if (known == registrations_.end())
        return vorna::PLATFORM_ID_UNKNOWN;
    if (FAILED(parsed))
        return parsed;
    registration.id = id;
    registration.client = known->second.client;
    // Clients check in this way whether their registration still exists.
    if (registration == known->second)
        return S_OK;
    if (HRESULT result = Write(registration); FAILED(result))
        return result;
    Put(std::move(registration));
    return S_OK;
}

HRESULT EventManagerService::Unsubscribe(const std::wstring& id) {
    std::unique_lock gate(gate_);
    {
        std::lock_guard lock(mutex_);
        const auto known = registrations_.find(id);
        if (known == registrations_.end())
            return vorna::PLATFORM_ID_UNKNOWN;
        if (HRESULT result = journal_.Commit({{RecordName({}, id), std::nullopt}}); FAILED(result))
            return result;
        Remove(known);
    }
    outbox_.Forget(id);
    return S_OK;
}

std::vector<Recipient> EventManagerService::Recipients(const std::wstring& name,
                                                       const EventProperties& properties) const {
    std::vector<Recipient> recipients;
    std::lock_guard lock(mutex_);
    if (const auto event = byEvent_.find(name); event != byEvent_.end())
        for (const auto& [id, registration] : event->second)
            if (registration->Wants(properties))
                recipients.push_back({id, registration->client, registration->cookie});
    return recipients;
}

HRESULT EventManagerService::Raise(const std::wstring& name, std::wstring_view properties, std::wstring_view payload,
                                   long& subscriptions) {
    subscriptions = 0;
    if (name.empty())
        return E_INVALIDARG;
    EventProperties read;
    if (HRESULT result = ParseEventProperties(properties, read); FAILED(result))
        return result;
    std::wstring body;
    if (HRESULT result = MakePayload(payload, body); FAILED(result))
        return result;
    std::shared_lock gate(gate_);
    const std::vector<Recipient> recipients = Recipients(name, read);
    if (recipients.empty())
        return S_OK;
    std::vector<std::wstring> refused;
    const HRESULT result = outbox_.Post(body, recipients, refused);
    if (SUCCEEDED(result) || !refused.empty())
        subscriptions = static_cast<long>(recipients.size() - refused.size());
    return result;
}

} // namespace keldan
