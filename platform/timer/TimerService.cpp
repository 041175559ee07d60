#include "platform/timer/TimerService.h"

#include "common/com/result_error.h"
#include "common/com/text_forms.h"
#include "platform/hosting/NewName.h"
#include "platform/hosting/Report.h"
#include "platform/timer/ScheduleDocument.h"

#include <objbase.h>

#include <algorithm>
#include <cstring>

namespace keldan {

namespace {

using namespace std::chrono;

constexpr std::size_t DELIVERIES_AT_ONCE = 8;
// Bounds the time until a change of the wall clock is noticed.
constexpr Milliseconds LONGEST_SLEEP = seconds(10);
constexpr Milliseconds TIDYING_INTERVAL = minutes(5);
constexpr Milliseconds TICKET_STALE_AFTER = days(30);
constexpr Milliseconds TICKET_FORGOTTEN_AFTER = days(90);
constexpr Milliseconds EXPIRED_FORGOTTEN_AFTER = days(30);

} // namespace

void TimerService::Stop() {
    {
        std::lock_guard lock(mutex_);
        if (std::exchange(stopping_, true))
            return;
    }
    worker_.Stop();
    pool_.reset();
    std::lock_guard lock(mutex_);
    WriteChanges(ReadClocks());
}

Now TimerService::ReadClocks() const {
    return {floor<Milliseconds>(system_clock::now()), floor<Milliseconds>(steady_clock::now().time_since_epoch())};
}

HRESULT TimerService::Start(const std::filesystem::path& folder) {
    std::lock_guard lock(mutex_);
    TimerStore::Content content;
    if (HRESULT result = store_.Open(folder, content); FAILED(result))
        return result;
    const Now now = ReadClocks();
    GetTimeZoneInformation(&zone_);
    tickets_ = std::move(content.tickets);
    expired_ = std::move(content.expired);
    for (TimerRegistration& registration : content.registrations)
        scheduler_.Put(std::move(registration), now);
    pool_ = std::make_unique<DeliveryPool>(DELIVERIES_AT_ONCE);
    return worker_.Start([this] { return Work(); }, L"out of memory; the timer tries again");
}

HRESULT TimerService::CheckTicket(const std::wstring& ticket, const Now& now) const {
    const auto known = tickets_.find(ticket);
    if (known == tickets_.end())
        return vorna::PLATFORM_TICKET_UNKNOWN;
    if (now.wall - known->second > TICKET_STALE_AFTER && !scheduler_.HoldsTicket(ticket))
        return vorna::PLATFORM_TICKET_STALE;
    return S_OK;
}

HRESULT TimerService::CheckId(const std::wstring& id) const {
    if (scheduler_.Find(id))
        return S_OK;
    return expired_.contains(id) ? vorna::PLATFORM_ID_EXPIRED : vorna::PLATFORM_ID_UNKNOWN;
}

HRESULT TimerService::GetTicket(std::wstring& ticket) {
    ticket.clear();
    std::wstring made = MakeNewName();
    std::lock_guard lock(mutex_);
    const Now now = ReadClocks();
    if (HRESULT result = store_.Commit(TimerStore::Batch().PutTicket(made, now.wall)); FAILED(result))
        return result;
    tickets_[made] = now.wall;
    ticket = std::move(made);
    return S_OK;
}

HRESULT TimerService::Subscribe(const std::wstring& ticket, std::wstring_view document, std::wstring& id) {
    id.clear();
    Schedule schedule;
    const HRESULT parsed = ParseScheduleDocument(document, schedule);
    std::wstring made = MakeNewName();
    std::lock_guard lock(mutex_);
    const Now now = ReadClocks();
    if (HRESULT result = CheckTicket(ticket, now); FAILED(result))
        return result;
    if (FAILED(parsed))
        return parsed;
    TimerRegistration registration = scheduler_.Make(made, ticket, std::move(schedule), now);
    if (HRESULT result = store_.Commit(TimerStore::Batch().Put(registration).PutTicket(ticket, now.wall));
        FAILED(result))
        return result;
    tickets_[ticket] = now.wall;
    scheduler_.Put(std::move(registration), now);
    id = std::move(made);
    worker_.Wake();
    return S_OK;
}

HRESULT TimerService::Unsubscribe(const std::wstring& ticket, const std::wstring& id) {
    std::lock_guard lock(mutex_);
    const Now now = ReadClocks();
    if (HRESULT result = CheckTicket(ticket, now); FAILED(result))
        return result;
    if (HRESULT result = CheckId(id); FAILED(result))
        return result;
    // The ticket of the registration counts as used until now.
    const std::wstring holder = scheduler_.Find(id)->ticket;
    TimerStore::Batch batch;
    batch.Remove(id).PutTicket(ticket, now.wall);
    if (tickets_.contains(holder))
        batch.PutTicket(holder, now.wall);
    if (HRESULT result = store_.Commit(batch); FAILED(result))
        return result;
    tickets_[ticket] = now.wall;
    if (tickets_.contains(holder))
        tickets_[holder] = now.wall;
    scheduler_.Remove(id);
    worker_.Wake();
    return S_OK;
}

HRESULT TimerService::Modify(const std::wstring& id, std::wstring_view document) {
    Schedule schedule;
    const HRESULT parsed = ParseScheduleDocument(document, schedule);
    std::lock_guard lock(mutex_);
    const Now now = ReadClocks();
    if (HRESULT result = CheckId(id); FAILED(result))
        return result;
    if (FAILED(parsed))
        return parsed;
    TimerRegistration registration = scheduler_.Make(id, scheduler_.Find(id)->ticket, std::move(schedule), now);
    if (HRESULT result = store_.Commit(TimerStore::Batch().Put(registration)); FAILED(result))
        return result;
    scheduler_.Put(std::move(registration), now);
    worker_.Wake();
    return S_OK;
}

bool TimerService::InUse() const {
    std::lock_guard lock(mutex_);
    return scheduler_.size() > 0;
}

void TimerService::NoticeZone() {
    TIME_ZONE_INFORMATION current{};
    GetTimeZoneInformation(&current);
    if (std::memcmp(&current, &zone_, sizeof current) == 0)
        return;
    zone_ = current;
    scheduler_.ZoneChanged();
}

// Everything in one commit, so that many ticks cost one flush.
void TimerService::WriteChanges(const Now& now) {
    Scheduler::Changes changes = scheduler_.TakeChanges();
    if (pool_)
        for (std::uint64_t number : changes.abandoned)
            pool_->Abandon(number);
    unwritten_.insert(unwritten_.end(), changes.progressed.begin(), changes.progressed.end());
    TimerStore::Batch batch;
    for (const std::wstring& id : unwritten_)
        if (const TimerRegistration* registration = scheduler_.Find(id))
            batch.PutProgress(*registration);
    for (const TimerRegistration& registration : changes.ended) {
        batch.Remove(registration.id).PutExpired(registration.id, now.wall).PutTicket(registration.ticket, now.wall);
        expired_[registration.id] = now.wall;
        tickets_[registration.ticket] = now.wall;
    }
    const HRESULT result = store_.Commit(batch);
    if (SUCCEEDED(result))
        unwritten_.clear();
    else
        Report(L"the progress of the timer's registrations cannot be written: " + vorna::hex_text(result));
}

void TimerService::Dispatch(std::vector<Call> calls) {
    for (Call& call : calls) {
        const std::uint64_t number = call.number;
        try {
            pool_->Add(number, [this, call = std::move(call)] { CarryOut(call); });
        } catch (const std::exception&) {
            // Counts as a failure of the client, so that its attempts are used up and the next tick follows.
            scheduler_.Begin(number, ReadClocks());
            scheduler_.Finish(number, E_OUTOFMEMORY, ReadClocks());
        }
    }
}

// On a thread of the pool, without the lock: the client may call the timer.
void TimerService::CarryOut(const Call& call) {
    bool wanted = false;
    {
        std::lock_guard lock(mutex_);
        wanted = !stopping_ && scheduler_.Begin(call.number, ReadClocks());
    }
    // The timeout of the client has begun.
    worker_.Wake();
    if (!wanted)
        return;
    const HRESULT result = vorna::closed_door([&] { return deliver_(call.client, call.document); });
    {
        std::lock_guard lock(mutex_);
        scheduler_.Finish(call.number, result, ReadClocks());
        deliveredSinceTidying_ = true;
    }
    worker_.Wake();
}

// Removes old tickets and expired registrations, and unloads unused libraries of clients.
void TimerService::Tidy(const Now& now) {
    nextTidying_ = now.steady + TIDYING_INTERVAL;
    if (std::exchange(deliveredSinceTidying_, false))
        CoFreeUnusedLibraries();
    TimerStore::Batch batch;
    std::erase_if(expired_, [&](const auto& entry) {
        const bool old = now.wall - entry.second > EXPIRED_FORGOTTEN_AFTER;
        if (old)
            batch.RemoveExpired(entry.first);
        return old;
    });
    std::erase_if(tickets_, [&](const auto& entry) {
        const bool old = now.wall - entry.second > TICKET_FORGOTTEN_AFTER && !scheduler_.HoldsTicket(entry.first);
        if (old)
            batch.RemoveTicket(entry.first);
        return old;
    });
    if (FAILED(store_.Commit(batch)))
        Report(L"the timer's store cannot be written");
}

Worker::Next TimerService::Work() {
    std::lock_guard lock(mutex_);
    const Now now = ReadClocks();
    NoticeZone();
    std::vector<Call> calls = scheduler_.Advance(now);
    WriteChanges(now);
    Dispatch(std::move(calls));
    if (now.steady >= nextTidying_)
        Tidy(now);
    // One millisecond later, because the clocks are read in whole milliseconds. If the disk has failed, the next call
    // tries again.
    return {steady_clock::now() + std::min(LONGEST_SLEEP, scheduler_.UntilNext(ReadClocks())) + milliseconds(1)};
}

} // namespace keldan
