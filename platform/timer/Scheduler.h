// Decides what is delivered when. It uses no threads, files or COM and has no clock: its owner passes the time, carries
// out the calls that it returns, and reports their results.
//
// Not thread-safe.
#pragma once

#include "platform/timer/TimerRegistration.h"

#include <windows.h>

#include <map>
#include <string>
#include <vector>

namespace keldan {

// One delivery to one client, to be carried out now.
struct Call {
    std::uint64_t number = 0;
    std::wstring client; // a ProgID
    std::wstring document;
};

class Scheduler {
  public:
    explicit Scheduler(LocalZone zone = {}) : zone_(zone) {}

    // A new registration: ticks in the past do not count, except for a start within the last minute.
    TimerRegistration Make(std::wstring id, std::wstring ticket, Schedule schedule, const Now& now) const;

    // Adds a registration, new or read from disk, or replaces the one with its ID. If ticks were missed, one is due at
    // once.
    void Put(TimerRegistration registration, const Now& now);
    // After this no call of the registration begins.
    void Remove(const std::wstring& id);

    const TimerRegistration* Find(const std::wstring& id) const;
    std::size_t size() const { return states_.size(); }
    bool HoldsTicket(const std::wstring& ticket) const;

    // The calls to carry out now. What has become due is returned once, however late it is.
    std::vector<Call> Advance(const Now& now);
    // The time until something becomes due, unless a call ends before; never negative.
    Milliseconds UntilNext(const Now& now) const;

    // Must be called before a call is carried out; false if it is no longer wanted. The timeout of the client begins
    // here.
    bool Begin(std::uint64_t number, const Now& now);
    // Reports the end of a call, also of an abandoned one.
    void Finish(std::uint64_t number, HRESULT result, const Now& now);

    // Changes for the owner to store, each reported once: registrations whose progress has changed; registrations that
    // have ended and were removed; calls that were abandoned because they took too long.
    struct Changes {
        std::vector<std::wstring> progressed;
        std::vector<TimerRegistration> ended;
        std::vector<std::uint64_t> abandoned;
    };
    Changes TakeChanges();

    // The machine's zone or its rules have changed: computes the due times of calendar frequencies again.
    void ZoneChanged();

  private:
    enum class Stage { Waiting, Calling, Retrying, Done };
    struct EntryState {
        Stage stage = Stage::Waiting;
        std::int32_t attemptsLeft = 0;
        Milliseconds retryAt{};
    };
    // A call that was returned; it may outlive its tick.
    struct Running {
        std::uint64_t number = 0; // 0: none
        bool begun = false;
        bool abandoned = false;
        Milliseconds deadline{};

        bool IsWaitedFor() const { return begun && !abandoned; }
    };
    // The delivery of one tick to its entries.
    struct Round {
        bool active = false;
        std::int64_t following = 0; // the first tick after those that this round delivers
        std::vector<EntryState> entries;
    };
    struct State {
        TimerRegistration registration;
        Instant due = NEVER;
        Instant end = NEVER;
        Milliseconds anchoredAt{}; // the steady clock at the anchor of the progress
        Round round;
        std::vector<Running> running;
    };
    using States = std::map<std::wstring, State>;

    void ComputeDueTimes(State& state) const;
    void FollowClockSetBack(State& state, const Now& now);
    void StartRound(State& state, const Now& now);
    void DropLateCalls(State& state, const Now& now);
    void Pump(State& state, const Now& now, std::vector<Call>& calls);
    void Settle(State& state, std::size_t entry, bool delivered);
    void EndRound(State& state, const Now& now);
    bool OnlyRetriesLeft(const State& state) const;
    States::iterator Erase(States::iterator place);

    LocalZone zone_;
    States states_;
    struct CallPlace {
        std::wstring id;
        std::size_t entry;
    };
    std::map<std::uint64_t, CallPlace> calls_;
    std::uint64_t lastCall_ = 0;
    Changes changes_;
};

} // namespace keldan
