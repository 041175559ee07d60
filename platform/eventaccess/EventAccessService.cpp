#include "platform/eventaccess/EventAccessService.h"

#include "common/com/result_error.h"
#include "common/com/results.h"
#include "common/com/text_forms.h"
#include "platform/aggregator/DataModels.h"
#include "platform/calendar/LocalZone.h"
#include "platform/eventaccess/EventPayload.h"
#include "platform/eventaccess/ModelSubscriptionDocument.h"
#include "platform/hosting/NewName.h"
#include "platform/hosting/Report.h"

#include <objbase.h>

#include <algorithm>

namespace keldan {

namespace {

using namespace std::chrono;

// Interval at which live models are read.
constexpr seconds LIVE_INTERVAL(1);
// Interval at which stored models are checked even if no change was signalled.
constexpr seconds POLL_INTERVAL(5);
// Pause before a model that could not be read is read once more, or a callback that had no room is posted again.
constexpr seconds SECOND_LOOK(1);
// Bounds the time until a change of the wall clock is noticed.
constexpr seconds LONGEST_SLEEP(10);
constexpr minutes FORGETTING_INTERVAL(5);
constexpr days EXPIRED_FORGOTTEN_AFTER(30);
// Failed readings of a file after which it is not read again until it changes.
constexpr int MOST_FAILURES = 2;

Instant WallNow() {
    return floor<Milliseconds>(system_clock::now());
}

std::wstring NameOf(const ServiceIdentity& service) {
    return L"the data model of the service \"" + service.serviceId + L"\", \"" + service.serviceUri + L"\", \"" +
           service.portId + L"\"";
}

Instant EndOf(const ModelSubscription& subscription) {
    const Instant now = WallNow();
    const LocalZone zone;
    return subscription.duration ? subscription.duration->After(zone.ToLocal(now), now, 1, zone) : NEVER;
}

} // namespace

EventAccessService::EventAccessService(Outbox::Deliver deliver, const DataFolder& models, OutboxPolicy policy)
    : models_(models), outbox_(L"EventPayload", std::move(deliver), std::move(policy)) {}

HRESULT EventAccessService::Start(const std::filesystem::path& folder) {
    std::lock_guard lock(mutex_);
    EventAccessStore::Content content;
    if (HRESULT result = store_.Open(folder, content); FAILED(result))
        return result;
    for (auto& [id, registration] : content.registrations)
        Put(id, {std::move(registration), 0, std::nullopt, {}});
    expired_ = std::move(content.expired);
    // If registrations were lost, the callbacks of their events are still delivered; so are those from before an
    // expiry.
    Outbox::Known known;
    if (store_.Whole())
        known = [this](const std::wstring& id) { return registrations_.contains(id) || expired_.contains(id); };
    if (HRESULT result = outbox_.Start(folder / L"eventaccess-outbox.journal", known); FAILED(result))
        return result;
    return worker_.Start([this] { return Work(); }, L"out of memory; the event access tries again");
}

void EventAccessService::Stop() {
    worker_.Stop();
    outbox_.Stop();
    std::lock_guard lock(mutex_);
    WriteStates();
}

bool EventAccessService::InUse() const {
    std::lock_guard lock(mutex_);
    return !registrations_.empty() || outbox_.Pending() > 0;
}

void EventAccessService::Put(const std::wstring& id, Watched watched) {
    watched.revision = ++lastRevision_;
    byService_[watched.registration.service].insert(id);
    registrations_.insert_or_assign(id, std::move(watched));
}

void EventAccessService::Remove(const std::wstring& id) {
    const auto place = registrations_.find(id);
    const auto service = byService_.find(place->second.registration.service);
    service->second.erase(id);
    if (service->second.empty())
        byService_.erase(service);
    registrations_.erase(place);
    unwritten_.erase(id);
}

HRESULT EventAccessService::CheckId(const std::wstring& id) const {
    const auto found = registrations_.find(id);
    if (found == registrations_.end())
        return expired_.contains(id) ? vorna::PLATFORM_ID_EXPIRED : vorna::PLATFORM_ID_UNKNOWN;
    return found->second.registration.end <= WallNow() ? vorna::PLATFORM_ID_EXPIRED : S_OK;
}

// Makes a registration of the document, with the states of its events at this moment. If there is no model, the states
// stay empty, and so does seen.
HRESULT EventAccessService::Make(const ServiceIdentity& service, std::wstring_view document, Watched& watched) const {
    ModelRegistration& registration = watched.registration;
    if (HRESULT result = ParseModelSubscription(document, registration.subscription); FAILED(result))
        return result;
    registration.service = service;
    const std::vector<WatchedEvent>& events = registration.subscription.events;
    registration.states.assign(events.size(), {});
    // Before the text, so that a change in between is read again.
    const ModelStamp stamp = models_.StampOf(service);
    std::wstring text;
    std::wstring message;
    if (SUCCEEDED(models_.Read(service, text, message))) {
        const HRESULT result = vorna::closed_door([&] {
            ModelReading reading(text);
            for (std::size_t i = 0; i < events.size(); ++i)
                registration.states[i] = FirstState(events[i], reading);
            watched.seen = stamp;
            return S_OK;
        });
        if (FAILED(result) && result != vorna::RESULT_XML_MALFORMED)
            return result;
    }
    registration.end = EndOf(registration.subscription);
    return S_OK;
}

HRESULT EventAccessService::Subscribe(const ServiceIdentity& service, std::wstring_view document, std::wstring& id) {
    id.clear();
    Watched watched;
    if (HRESULT result = Make(service, document, watched); FAILED(result))
        return result;
    std::wstring made = MakeNewName();
    std::lock_guard lock(mutex_);
    if (HRESULT result = store_.Commit(EventAccessStore::Batch().Put(made, watched.registration)); FAILED(result))
        return result;
    Put(made, std::move(watched));
    id = std::move(made);
    worker_.Wake();
    return S_OK;
}

HRESULT EventAccessService::Modify(const ServiceIdentity* service, const std::wstring& id, std::wstring_view document) {
    ServiceIdentity own;
    {
        std::lock_guard lock(mutex_);
        if (HRESULT result = CheckId(id); FAILED(result))
            return result;
        own = registrations_.find(id)->second.registration.service;
    }
    if (service && *service != own)
        return E_INVALIDARG;
    Watched watched;
    if (HRESULT result = Make(own, document, watched); FAILED(result))
        return result;

    std::lock_guard lock(mutex_);
    if (HRESULT result = CheckId(id); FAILED(result))
        return result;
    const Watched& before = registrations_.find(id)->second;
    ModelRegistration& registration = watched.registration;
    const std::vector<WatchedEvent>& events = registration.subscription.events;
    const std::vector<WatchedEvent>& earlier = before.registration.subscription.events;
    for (std::size_t i = 0; i < events.size(); ++i)
        if (const auto same = std::find(earlier.begin(), earlier.end(), events[i]); same != earlier.end())
            registration.states[i] = before.registration.states[same - earlier.begin()];
    // Events that existed before must still be evaluated for changes since the last reading.
    watched.seen = before.seen;
    watched.notBefore = before.notBefore;
    if (HRESULT result = store_.Commit(EventAccessStore::Batch().Put(id, registration)); FAILED(result))
        return result;
    unwritten_.erase(id);
    Put(id, std::move(watched));
    worker_.Wake();
    return S_OK;
}

HRESULT EventAccessService::Unsubscribe(const std::wstring& id) {
    std::lock_guard lock(mutex_);
    if (HRESULT result = CheckId(id); FAILED(result))
        return result;
    if (HRESULT result = store_.Commit(EventAccessStore::Batch().Remove(id)); FAILED(result))
        return result;
    Remove(id);
    outbox_.Forget(id);
    worker_.Wake();
    return S_OK;
}

// Checks all watched models, and returns when to be called again.
Worker::Next EventAccessService::Work() {
    models_.Continue();
    const Steady now = steady_clock::now();
    const Instant wall = WallNow();
    std::vector<ServiceIdentity> services;
    Instant end = NEVER;
    {
        std::lock_guard lock(mutex_);
        Tidy(wall);
        for (const auto& [service, ids] : byService_)
            services.push_back(service);
        for (const auto& [id, watched] : registrations_)
            end = std::min(end, watched.registration.end);
    }
    std::erase_if(readings_, [&](const auto& entry) {
        return !std::binary_search(services.begin(), services.end(), entry.first);
    });
    const bool live = std::any_of(services.begin(), services.end(), HasLiveModel);
    const bool stored = !std::all_of(services.begin(), services.end(), HasLiveModel);
    if (!stored)
        models_.EndWatch();
    else if (now >= nextPoll_ || !models_.Changes())
        models_.Watch();
    if (now >= nextPoll_)
        nextPoll_ = now + POLL_INTERVAL;
    const bool liveIsDue = now >= nextLive_;
    if (liveIsDue)
        nextLive_ = now + LIVE_INTERVAL;

    Steady next = now + LONGEST_SLEEP;
    // If the end is in the past, the expiry could not be written yet.
    if (end - wall < LONGEST_SLEEP)
        next = now + (end > wall ? end - wall : Milliseconds(SECOND_LOOK));
    if (stored)
        next = std::min(next, nextPoll_);
    if (live)
        next = std::min(next, nextLive_);
    for (const ServiceIdentity& service : services) {
        if (!liveIsDue && HasLiveModel(service))
            continue;
        // If memory does not suffice for one model, the others are still checked; the next poll tries it again.
        try {
            if (!CheckModel(service, now))
                next = std::min(next, now + SECOND_LOOK);
        } catch (const std::exception&) {
            Report(NameOf(service) + L" was not looked at for " + vorna::hex_text(vorna::caught_result()) +
                   L"; the event access tries again");
        }
    }
    std::lock_guard lock(mutex_);
    WriteStates();
    return {next, models_.Changes()};
}

// Ends registrations that have expired, and forgets those that expired long ago.
void EventAccessService::Tidy(Instant now) {
    EventAccessStore::Batch batch;
    std::vector<std::wstring> ended;
    for (const auto& [id, watched] : registrations_)
        if (watched.registration.end <= now) {
            ended.push_back(id);
            batch.Remove(id).PutExpired(id, now);
        }
    std::vector<std::wstring> forgotten;
    if (const Steady steady = steady_clock::now(); steady >= nextForgetting_) {
        nextForgetting_ = steady + FORGETTING_INTERVAL;
        for (const auto& [id, when] : expired_)
            if (now - when > EXPIRED_FORGOTTEN_AFTER) {
                forgotten.push_back(id);
                batch.RemoveExpired(id);
            }
    }
    if (const HRESULT result = store_.Commit(std::move(batch)); FAILED(result)) {
        Report(L"the end of registrations with the event access cannot be written: " + vorna::hex_text(result));
        return;
    }
    for (const std::wstring& id : ended) {
        Remove(id);
        expired_[id] = now;
    }
    for (const std::wstring& id : forgotten)
        expired_.erase(id);
}

// False if the model must be checked again soon.
bool EventAccessService::CheckModel(const ServiceIdentity& service, Steady now) {
    const bool live = HasLiveModel(service);
    const ModelStamp stamp = live ? ModelStamp() : models_.StampOf(service);
    const Model& model = readings_[service];
    if (!live && model.failed == stamp && model.failures >= MOST_FAILURES)
        return true;
    std::vector<Due> due = DueRegistrations(service, stamp, now);
    if (due.empty())
        return true;
    std::optional<ModelReading> reading = Read(service, stamp);
    if (!reading)
        return live || model.failures >= MOST_FAILURES;
    const Bodies bodies = Evaluate(*reading, due);
    return Apply(due, stamp, bodies, now);
}

std::vector<EventAccessService::Due> EventAccessService::DueRegistrations(const ServiceIdentity& service,
                                                                          const ModelStamp& stamp, Steady now) const {
    std::vector<Due> due;
    std::lock_guard lock(mutex_);
    const auto ids = byService_.find(service);
    if (ids == byService_.end())
        return due;
    const bool live = HasLiveModel(service);
    for (const std::wstring& id : ids->second) {
        const Watched& watched = registrations_.at(id);
        if ((live || watched.seen != stamp) && now >= watched.notBefore)
            due.push_back(
                {id, watched.revision, watched.registration.subscription.events, watched.registration.states});
    }
    return due;
}

// Nothing if there is no well-formed model, which is reported only once until there is one again.
std::optional<ModelReading> EventAccessService::Read(const ServiceIdentity& service, const ModelStamp& stamp) {
    Model& model = readings_[service];
    std::wstring text;
    std::wstring message;
    if (SUCCEEDED(models_.Read(service, text, message))) {
        try {
            std::optional<ModelReading> reading(std::in_place, text);
            model = {};
            return reading;
        } catch (const vorna::result_error& error) {
            if (error.result() != vorna::RESULT_XML_MALFORMED)
                throw;
            message = NameOf(service) + L" is not well-formed, nests too deep or has a document type definition.";
        }
    }
    model.failures = model.failed == stamp ? model.failures + 1 : 1;
    model.failed = stamp;
    if (!std::exchange(model.reported, true))
        Report(message + L" The event access waits for one.");
    return std::nullopt;
}

// Updates the states, and returns the bodies of the events that fired.
EventAccessService::Bodies EventAccessService::Evaluate(ModelReading& reading, std::vector<Due>& due) {
    Bodies bodies;
    for (Due& one : due) {
        for (std::size_t i = 0; i < one.events.size(); ++i) {
            const EventState before = one.states[i];
            try {
                if (Advance(one.events[i], reading, one.states[i]))
                    one.fired.push_back(one.events[i].xpath);
            } catch (const vorna::result_error& error) {
                if (error.result() == E_OUTOFMEMORY)
                    throw;
                Report(L"the event \"" + one.events[i].xpath + L"\" of " + one.id + L" cannot be evaluated: " +
                       vorna::hex_text(error.result()));
            }
            one.changed = one.changed || one.states[i] != before;
        }
        if (!one.fired.empty() && !bodies.contains(one.fired))
            bodies[one.fired] = MakeEventBody(reading, one.fired);
    }
    return bodies;
}

// Posts before it writes: if the process ends in between, the events are posted again. False if a callback has to wait
// for room.
bool EventAccessService::Apply(const std::vector<Due>& due, const ModelStamp& stamp, const Bodies& bodies, Steady now) {
    std::lock_guard lock(mutex_);
    std::vector<Due> wanted;
    for (const Due& one : due)
        if (const auto found = registrations_.find(one.id);
            found != registrations_.end() && found->second.revision == one.revision)
            wanted.push_back(one);
    const std::set<std::wstring> refused = Post(wanted, bodies);
    for (const Due& one : wanted) {
        Watched& watched = registrations_.at(one.id);
        if (refused.contains(one.id)) {
            watched.notBefore = now + SECOND_LOOK;
            continue;
        }
        watched.registration.states = one.states;
        watched.seen = stamp;
        if (one.changed)
            unwritten_.insert(one.id);
    }
    WriteStates();
    return refused.empty();
}

// The same events share one body for many clients. Returns the registrations whose callbacks could not be queued.
std::set<std::wstring> EventAccessService::Post(const std::vector<Due>& due, const Bodies& bodies) {
    std::set<std::wstring> without;
    for (const auto& [fired, body] : bodies) {
        std::vector<Recipient> recipients;
        for (const Due& one : due)
            if (one.fired == fired) {
                const ModelSubscription& subscription = registrations_.at(one.id).registration.subscription;
                recipients.push_back({one.id, subscription.client, subscription.cookie});
            }
        if (recipients.empty())
            continue;
        std::vector<std::wstring> refused;
        const HRESULT result = outbox_.Post(body, recipients, refused);
        if (SUCCEEDED(result))
            continue;
        if (result != HRESULT_FROM_WIN32(ERROR_NOT_ENOUGH_QUOTA)) {
            Report(L"callbacks of the event access cannot be written: " + vorna::hex_text(result));
            for (const Recipient& recipient : recipients)
                without.insert(recipient.subscriptionId);
        }
        without.insert(refused.begin(), refused.end());
    }
    return without;
}

// In one commit, so that many changed registrations cost one flush.
void EventAccessService::WriteStates() {
    EventAccessStore::Batch batch;
    for (const std::wstring& id : unwritten_)
        batch.PutStates(id, registrations_.at(id).registration.states);
    if (const HRESULT result = store_.Commit(std::move(batch)); SUCCEEDED(result))
        unwritten_.clear();
    else
        Report(L"what the event access has seen cannot be written: " + vorna::hex_text(result));
}

} // namespace keldan
