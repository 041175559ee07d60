#include "platform/timer/Scheduler.h"

#include "platform/delivery/CallbackDocument.h"

#include <algorithm>
#include <utility>

namespace keldan {

namespace {

// A wall clock is often adjusted a little; only more than this counts as set back.
constexpr Milliseconds CLOCK_TOLERANCE = std::chrono::seconds(2);
// A start at most this long ago still counts: it may have passed while the request was being sent.
constexpr Milliseconds START_GRACE = std::chrono::minutes(1);

} // namespace

TimerRegistration Scheduler::Make(std::wstring id, std::wstring ticket, Schedule schedule, const Now& now) const {
    TimerRegistration registration{std::move(id), std::move(ticket), std::move(schedule), {}};
    Schedule& made = registration.schedule;
    made.origin = zone_.ToInstant(made.start);
    const bool startCounts = made.TickAt(0, zone_) >= now.wall - START_GRACE;
    registration.progress.next = startCounts ? 0 : made.FirstAfter(now.wall, zone_);
    registration.progress.anchor = now.wall;
    return registration;
}

void Scheduler::ComputeDueTimes(State& state) const {
    const Schedule& schedule = state.registration.schedule;
    state.due = schedule.TickAt(state.registration.progress.next, zone_);
    state.end = schedule.end ? zone_.ToInstant(*schedule.end) : NEVER;
}

void Scheduler::Put(TimerRegistration registration, const Now& now) {
    State& state = states_[registration.id];
    // Running calls of the earlier registration keep their places: the new one waits for them.
    state.running.resize(std::max(state.running.size(), registration.schedule.entries.size()));
    state.round = {};
    state.anchoredAt = now.steady - std::max(Milliseconds(0), now.wall - registration.progress.anchor);
    state.registration = std::move(registration);
    ComputeDueTimes(state);
}

void Scheduler::Remove(const std::wstring& id) {
    if (const auto place = states_.find(id); place != states_.end())
        Erase(place);
}

// A call that is still running is reported as abandoned.
Scheduler::States::iterator Scheduler::Erase(States::iterator place) {
    for (const Running& running : place->second.running) {
        calls_.erase(running.number);
        if (running.IsWaitedFor())
            changes_.abandoned.push_back(running.number);
    }
    return states_.erase(place);
}

const TimerRegistration* Scheduler::Find(const std::wstring& id) const {
    const auto place = states_.find(id);
    return place == states_.end() ? nullptr : &place->second.registration;
}

bool Scheduler::HoldsTicket(const std::wstring& ticket) const {
    return std::any_of(states_.begin(), states_.end(),
                       [&](const auto& entry) { return entry.second.registration.ticket == ticket; });
}

void Scheduler::ZoneChanged() {
    for (auto& [id, state] : states_)
        ComputeDueTimes(state);
}

// If the clock shows a time before the last tick, it was set back, and the next tick would be late by the same amount.
// The registration keeps its times of day and its phase, but continues with the first tick that is (nearly) one period
// of real time after its last one: never two ticks in one period, never two periods without a tick.
void Scheduler::FollowClockSetBack(State& state, const Now& now) {
    Progress& progress = state.registration.progress;
    if (now.wall >= progress.anchor - CLOCK_TOLERANCE || state.due == NEVER)
        return;
    const Schedule& schedule = state.registration.schedule;
    // A first tick on a calendar date, further away than one period from the registration, is not moved.
    const Milliseconds length = schedule.frequency.RoughLength();
    if (!progress.ticked && state.due - progress.anchor > 2 * length)
        return;

    progress.anchor = now.wall - (now.steady - state.anchoredAt);
    std::int64_t next = schedule.FirstAfter(now.wall, zone_);
    while (schedule.TickAt(next, zone_) - progress.anchor < length * 9 / 10)
        ++next;
    if (next < progress.next) {
        progress.next = next;
        progress.reached = 0;
    }
    ComputeDueTimes(state);
    changes_.progressed.push_back(state.registration.id);
}

void Scheduler::StartRound(State& state, const Now& now) {
    const TimerRegistration& registration = state.registration;
    state.round.active = true;
    state.round.following = registration.schedule.FirstAfter(now.wall, zone_);
    state.round.entries.assign(registration.schedule.entries.size(), {});
    for (std::size_t i = 0; i < state.round.entries.size(); ++i) {
        EntryState& entry = state.round.entries[i];
        entry.attemptsLeft = registration.schedule.entries[i].retryAttempts;
        if (registration.progress.reached >> i & 1)
            entry.stage = Stage::Done;
    }
}

void Scheduler::Settle(State& state, std::size_t entry, bool delivered) {
    state.round.entries[entry].stage = Stage::Done;
    if (delivered) {
        state.registration.progress.reached |= std::uint64_t(1) << entry;
        changes_.progressed.push_back(state.registration.id);
    }
}

void Scheduler::EndRound(State& state, const Now& now) {
    Progress& progress = state.registration.progress;
    if (progress.reached != 0)
        ++progress.deliveries;
    progress.next = state.round.following;
    progress.anchor = state.registration.schedule.TickAt(progress.next - 1, zone_);
    progress.ticked = true;
    progress.reached = 0;
    state.anchoredAt = now.steady - std::max(Milliseconds(0), now.wall - progress.anchor);
    state.round = {};
    ComputeDueTimes(state);
    changes_.progressed.push_back(state.registration.id);
}

bool Scheduler::OnlyRetriesLeft(const State& state) const {
    return std::none_of(state.round.entries.begin(), state.round.entries.end(), [](const EntryState& entry) {
        return entry.stage == Stage::Calling || entry.stage == Stage::Waiting;
    });
}

void Scheduler::DropLateCalls(State& state, const Now& now) {
    for (std::size_t i = 0; i < state.running.size(); ++i) {
        Running& running = state.running[i];
        if (!running.IsWaitedFor() || now.steady < running.deadline)
            continue;
        running.abandoned = true;
        changes_.abandoned.push_back(running.number);
        // The client may still be working: another attempt would deliver the tick twice.
        if (state.round.active && i < state.round.entries.size() && state.round.entries[i].stage == Stage::Calling)
            Settle(state, i, false);
    }
}

// Advances the entries of the round as far as possible without waiting, and ends the round after the last one.
void Scheduler::Pump(State& state, const Now& now, std::vector<Call>& calls) {
    const TimerRegistration& registration = state.registration;
    for (std::size_t i = 0; i < state.round.entries.size(); ++i) {
        EntryState& entry = state.round.entries[i];
        Running& running = state.running[i];
        const bool turn =
            entry.stage == Stage::Waiting || (entry.stage == Stage::Retrying && entry.retryAt <= now.steady);
        if (turn && running.abandoned) {
            Settle(state, i, false);
        } else if (turn && running.number == 0) {
            const NotifyEntry& notify = registration.schedule.entries[i];
            running = {++lastCall_, false, false, {}};
            calls_[running.number] = {registration.id, i};
            entry.stage = Stage::Calling;
            calls.push_back(
                {running.number, notify.client, CallbackDocument(L"TimerEvent", registration.id, notify.parameter)});
        }
        if (!registration.schedule.parallel && entry.stage != Stage::Done)
            return;
    }
    if (std::all_of(state.round.entries.begin(), state.round.entries.end(),
                    [](const EntryState& entry) { return entry.stage == Stage::Done; }))
        EndRound(state, now);
}

std::vector<Call> Scheduler::Advance(const Now& now) {
    std::vector<Call> calls;
    for (auto place = states_.begin(); place != states_.end();) {
        State& state = place->second;
        const Schedule& schedule = state.registration.schedule;
        const auto spent = [&] {
            return schedule.agingCount > 0 && state.registration.progress.deliveries >= schedule.agingCount;
        };
        if (now.wall >= state.end || spent()) {
            changes_.ended.push_back(state.registration);
            place = Erase(place);
            continue;
        }
        DropLateCalls(state, now);
        if (!state.round.active)
            FollowClockSetBack(state, now);
        // A new tick cancels the retries of the previous one.
        if (state.round.active && OnlyRetriesLeft(state) && schedule.TickAt(state.round.following, zone_) <= now.wall)
            EndRound(state, now);
        if (!state.round.active && state.due <= now.wall)
            StartRound(state, now);
        if (state.round.active)
            Pump(state, now, calls);
        // The round may have been the last one of the count, or the next tick may be due already: check again.
        if (state.round.active || (state.due > now.wall && !spent()))
            ++place;
    }
    return calls;
}

Milliseconds Scheduler::UntilNext(const Now& now) const {
    Milliseconds wait = Milliseconds::max();
    const auto untilSteady = [&](Milliseconds time) { wait = std::min(wait, time - now.steady); };
    const auto untilWall = [&](Instant time) {
        if (time != NEVER)
            wait = std::min(wait, time - now.wall);
    };
    for (const auto& [id, state] : states_) {
        untilWall(state.end);
        for (const Running& running : state.running)
            if (running.IsWaitedFor())
                untilSteady(running.deadline);
        if (!state.round.active) {
            untilWall(state.due);
            continue;
        }
        for (const EntryState& entry : state.round.entries)
            if (entry.stage == Stage::Retrying)
                untilSteady(entry.retryAt);
        if (OnlyRetriesLeft(state))
            untilWall(state.registration.schedule.TickAt(state.round.following, zone_));
    }
    return std::max(wait, Milliseconds(0));
}

bool Scheduler::Begin(std::uint64_t number, const Now& now) {
    const auto call = calls_.find(number);
    if (call == calls_.end())
        return false;
    State& state = states_.at(call->second.id);
    Running& running = state.running[call->second.entry];
    running.begun = true;
    const auto& entries = state.registration.schedule.entries;
    // A modified schedule may have no such entry; the call of the earlier schedule is then not made.
    const bool wanted = state.round.active && call->second.entry < entries.size() &&
                        state.round.entries[call->second.entry].stage == Stage::Calling && now.wall < state.end;
    if (!wanted) {
        running = {};
        calls_.erase(call);
        return false;
    }
    running.deadline = now.steady + entries[call->second.entry].timeout;
    return true;
}

void Scheduler::Finish(std::uint64_t number, HRESULT result, const Now& now) {
    const auto call = calls_.find(number);
    if (call == calls_.end())
        return;
    const auto [id, index] = call->second;
    calls_.erase(call);
    State& state = states_.at(id);
    const bool waitedFor = !state.running[index].abandoned;
    state.running[index] = {};
    if (!waitedFor || !state.round.active || index >= state.round.entries.size())
        return;
    EntryState& entry = state.round.entries[index];
    if (entry.stage != Stage::Calling)
        return;
    if (SUCCEEDED(result)) {
        Settle(state, index, true);
    } else if (entry.attemptsLeft > 0) {
        --entry.attemptsLeft;
        entry.stage = Stage::Retrying;
        entry.retryAt = now.steady + state.registration.schedule.entries[index].retryFrequency;
    } else {
        Settle(state, index, false);
    }
}

Scheduler::Changes Scheduler::TakeChanges() {
    Changes taken = std::exchange(changes_, {});
    std::sort(taken.progressed.begin(), taken.progressed.end());
    taken.progressed.erase(std::unique(taken.progressed.begin(), taken.progressed.end()), taken.progressed.end());
    // Registrations that have ended or were removed since have nothing to store.
    std::erase_if(taken.progressed, [&](const std::wstring& id) { return !states_.contains(id); });
    return taken;
}

} // namespace keldan
