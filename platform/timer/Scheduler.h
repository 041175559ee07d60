// Decides what is delivered when. It knows no threads, no disk and no COM, and has no clock of its own: whoever owns it
// says what time it is, carries out the calls that it asks for, and reports how they ended.
//
// Not thread-safe.
#pragma once

#include "platform/timer/TimerRegistration.h"

#include <windows.h>

#include <map>
#include <string>
#include <vector>

namespace keldan {

// One delivery to one client that is to be made now.
struct Call {
    std::uint64_t number = 0;
    std::wstring client; // a ProgID
    std::wstring document;
};

class Scheduler {
  public:
    explicit Scheduler(LocalZone zone = {}) : zone_(std::move(zone)) {}

    // A registration that is made now: ticks that lie in the past do not count, except for a start of the last minute.
    TimerRegistration Make(std::wstring id, std::wstring ticket, Schedule schedule, const Now& now) const;

    // Takes a registration in, new or read from disk, in place of an earlier one of the ID. What was missed meanwhile
    // is due at once, once.
    void Put(TimerRegistration registration, const Now& now);
    // After this no further call of the registration begins.
    void Remove(const std::wstring& id);

    const TimerRegistration* Find(const std::wstring& id) const;
    std::size_t size() const { return states_.size(); }
    bool HoldsTicket(const std::wstring& ticket) const;

    // What is to be done now. Everything that became due is asked for once, however late it is.
    std::vector<Call> Advance(const Now& now);
    // How long nothing happens unless a call ends: never negative.
    Milliseconds UntilNext(const Now& now) const;

    // Before a call is carried out: false where nobody wants it any more. The client's time runs from here.
    bool Begin(std::uint64_t number, const Now& now);
    // A call has ended, even one that nobody waited for any longer.
    void Finish(std::uint64_t number, HRESULT result, const Now& now);

    // What the owner has to write down, each told once: registrations whose progress changed, registrations that
    // reached their end (they are gone from here), calls that are waited for no longer.
    struct Changes {
        std::vector<std::wstring> progressed;
        std::vector<TimerRegistration> ended;
        std::vector<std::uint64_t> abandoned;
    };
    Changes TakeChanges();

    // The machine's zone or its rules changed: due times of calendar frequencies are worked out anew.
    void ZoneChanged();

  private:
    enum class Stage { Waiting, Calling, Retrying, Done };
    struct EntryState {
        Stage stage = Stage::Waiting;
        std::int32_t attemptsLeft = 0;
        Milliseconds retryAt{};
    };
    // A call that was handed out; it may outlive the tick that it was made for.
    struct Running {
        std::uint64_t number = 0; // 0: none
        bool begun = false;
        bool abandoned = false;
        Milliseconds deadline{};
    };
    // One tick on its way to the entries.
    struct Round {
        bool active = false;
        std::int64_t following = 0; // the number of the first tick that this round does not stand for
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

    void WorkOut(State& state) const;
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
