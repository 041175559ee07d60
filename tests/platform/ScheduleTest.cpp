// The scheduler under a scripted clock: calendar, daylight saving, missed ticks, clocks that are set, retries, ends.
#include "platform/timer/Scheduler.h"

#include "platform/timer/ScheduleDocument.h"
#include "support/Support.h"

#include <algorithm>

namespace {

using namespace keldan;
using namespace std::chrono;

// Central Europe: one hour ahead, daylight saving from the last Sunday of March 02:00 to the last of October 03:00.
TIME_ZONE_INFORMATION CentralEurope() {
    TIME_ZONE_INFORMATION rules{};
    rules.Bias = -60;
    rules.DaylightBias = -60;
    rules.DaylightDate.wMonth = 3;
    rules.DaylightDate.wDay = 5;
    rules.DaylightDate.wHour = 2;
    rules.StandardDate.wMonth = 10;
    rules.StandardDate.wDay = 5;
    rules.StandardDate.wHour = 3;
    return rules;
}

LocalTime Local(const wchar_t* text) {
    return ParseLocalTime(text).value();
}

// An instant written in UTC.
Instant Utc(const wchar_t* text) {
    return Instant(Local(text).time_since_epoch());
}

Schedule Every(const wchar_t* frequency, const wchar_t* start) {
    Schedule schedule;
    schedule.start = Local(start);
    schedule.frequency = ParseStep(frequency).value();
    schedule.entries = {{L"Client.1", L"cookie", minutes(10), 0, seconds(5)}};
    return schedule;
}

Schedule TwoClients(Schedule schedule) {
    schedule.entries.push_back({L"Client.2", L"", minutes(10), 0, seconds(5)});
    return schedule;
}

TEST(ScheduleCalendar, TicksFallWhereTheCalendarSays) {
    struct {
        const char* what;
        const wchar_t* start;
        const wchar_t* frequency;
        int index;
        const wchar_t* utc;
    } const cases[] = {
        {"31 January plus a month is the last of February", L"2027-1-31T9:0:0", L"P0Y1M0DT0H0M0S", 1,
         L"2027-2-28T8:0:0"},
        {"the clipped day does not drift", L"2027-1-31T9:0:0", L"P0Y1M0DT0H0M0S", 2, L"2027-3-31T7:0:0"},
        {"a leap day comes back after four years", L"2028-2-29T12:0:0", L"P1Y0M0DT0H0M0S", 4, L"2032-2-29T11:0:0"},
        {"months carry into years", L"2027-11-15T0:0:0", L"P0Y3M0DT0H0M0S", 1, L"2028-2-14T23:0:0"},
        {"nine stays nine when summer begins", L"2027-3-27T9:0:0", L"P0Y0M1DT0H0M0S", 1, L"2027-3-28T7:0:0"},
        {"and when it ends", L"2027-10-30T9:0:0", L"P0Y0M1DT0H0M0S", 1, L"2027-10-31T8:0:0"},
        {"a time that is skipped comes after the jump", L"2027-3-27T2:30:0", L"P0Y0M1DT0H0M0S", 1, L"2027-3-28T1:30:0"},
        {"a time shown twice is its first showing", L"2027-10-30T2:30:0", L"P0Y0M1DT0H0M0S", 1, L"2027-10-31T0:30:0"},
        {"24 hours are elapsed time, not a day", L"2027-3-27T9:0:0", L"P0Y0M0DT24H0M0S", 1, L"2027-3-28T8:0:0"},
        {"calendar and elapsed parts add up", L"2027-1-31T0:0:0", L"P0Y1M1DT1H0M0S", 1, L"2027-3-1T0:0:0"},
    };
    const LocalZone zone(CentralEurope());
    for (const auto& one : cases) {
        Schedule schedule = Every(one.frequency, one.start);
        schedule.origin = zone.ToInstant(schedule.start);
        const Instant tick = schedule.TickAt(one.index, zone);
        EXPECT_EQ(Utc(one.utc), tick) << one.what << ": off by " << (tick - Utc(one.utc)).count() / 1000 << " s";
        EXPECT_EQ(one.index, schedule.FirstAfter(tick - Milliseconds(1), zone)) << one.what;
        EXPECT_EQ(one.index + 1, schedule.FirstAfter(tick, zone)) << one.what;
    }
}

TEST(ScheduleCalendar, FrequenciesBeyondTheCalendarNeverTickAgain) {
    const LocalZone zone(CentralEurope());
    Schedule schedule = Every(L"P65534Y65534M65534DT0H0M0S", L"2027-1-31T9:0:0");
    EXPECT_EQ(NEVER, schedule.TickAt(1, zone));
    EXPECT_EQ(1, schedule.FirstAfter(Utc(L"9000-1-1T0:0:0"), zone));
}

// Drives a scheduler by hand. Both clocks move together unless the wall clock is set.
class Script {
  public:
    // The clock at the registration, and its schedule.
    Script(const wchar_t* utc, Schedule schedule) {
        now.wall = Utc(utc);
        Subscribe(std::move(schedule));
    }

    void Subscribe(Schedule schedule) {
        scheduler.Put(scheduler.Make(L"id", L"ticket", std::move(schedule), now), now);
    }
    void Pass(Milliseconds time) {
        now.wall += time;
        now.steady += time;
    }
    void SetClock(const wchar_t* utc) { now.wall = Utc(utc); }

    // Begins the calls that are due now and returns them.
    std::vector<Call> Calls() {
        std::vector<Call> calls = scheduler.Advance(now);
        for (const Call& call : calls)
            EXPECT_TRUE(scheduler.Begin(call.number, now));
        return calls;
    }
    // Delivers everything that is due now, with clients that succeed at once; returns the number of deliveries.
    int Deliver() {
        int delivered = 0;
        for (std::vector<Call> calls = Calls(); !calls.empty(); calls = Calls())
            for (const Call& call : calls) {
                scheduler.Finish(call.number, S_OK, now);
                ++delivered;
            }
        return delivered;
    }
    // Returns the instants of all deliveries within the time; the scheduler is called when it asks for it.
    std::vector<Instant> Run(Milliseconds time) {
        std::vector<Instant> delivered;
        const Milliseconds until = now.steady + time;
        for (;;) {
            for (int i = Deliver(); i > 0; --i)
                delivered.push_back(now.wall);
            const Milliseconds step = std::min(scheduler.UntilNext(now), Milliseconds(seconds(10)));
            if (now.steady + step > until)
                break;
            Pass(std::max(step, Milliseconds(1)));
        }
        Pass(until - now.steady);
        return delivered;
    }
    // The process ends and starts again with the stored state; the steady clock is another one.
    void Restart() {
        TimerRegistration kept = *scheduler.Find(L"id");
        scheduler = Scheduler(LocalZone(CentralEurope()));
        now.steady = Milliseconds(12345);
        scheduler.Put(ReadTimerRegistration(WriteTimerRegistration(kept)).value(), now);
    }

    Scheduler scheduler{LocalZone(CentralEurope())};
    Now now;
};

TEST(Scheduler, DeliversEachTickOnce) {
    Script script(L"2027-1-1T8:0:0", Every(L"P0Y0M0DT0H5M0S", L"2027-1-1T9:5:0"));
    EXPECT_EQ(minutes(5), script.scheduler.UntilNext(script.now));
    const auto ticks = script.Run(hours(1));
    ASSERT_EQ(12u, ticks.size());
    EXPECT_EQ(Utc(L"2027-1-1T8:5:0"), ticks.front());
    EXPECT_EQ(Utc(L"2027-1-1T9:0:0"), ticks.back());
}

TEST(Scheduler, MissedTicksAreDeliveredOnceAndThePhaseStays) {
    for (bool restarted : {true, false}) {
        SCOPED_TRACE(restarted ? "the process had ended" : "the machine slept");
        Script script(L"2027-1-1T8:0:0", Every(L"P0Y0M0DT0H5M0S", L"2027-1-1T9:5:0"));
        EXPECT_EQ(1u, script.Run(minutes(7)).size());
        script.now.wall += hours(3);
        if (restarted)
            script.Restart();
        EXPECT_EQ(1, script.Deliver());
        const auto later = script.Run(minutes(5));
        ASSERT_EQ(1u, later.size());
        EXPECT_EQ(Utc(L"2027-1-1T11:10:0"), later[0]);
    }
}

TEST(Scheduler, TicksBeforeTheRegistrationDoNotCount) {
    Script script(L"2027-1-1T8:0:0", Every(L"P0Y0M1DT0H0M0S", L"2026-12-1T12:0:0"));
    EXPECT_EQ(0, script.Deliver());
    EXPECT_EQ(hours(3), script.scheduler.UntilNext(script.now));
}

TEST(Scheduler, ClockThatIsSetBackNeitherDoublesNorStarves) {
    struct {
        const char* what;
        const wchar_t* frequency;
        Milliseconds period;
        Milliseconds back;
    } const cases[] = {
        {"a minute, ten minutes back", L"P0Y0M0DT0H1M0S", minutes(1), minutes(10)},
        {"a minute, a year back", L"P0Y0M0DT0H1M0S", minutes(1), days(365)},
        {"an hour, a minute back", L"P0Y0M0DT1H0M0S", hours(1), minutes(1)},
        {"a day, three weeks back", L"P0Y0M1DT0H0M0S", days(1), days(21)},
        {"a second, a minute back", L"P0Y0M0DT0H0M1S", seconds(1), minutes(1)},
    };
    for (bool restarted : {false, true})
        for (const auto& one : cases) {
            SCOPED_TRACE(std::string(one.what) + (restarted ? ", restarted" : ""));
            Script script(L"2027-6-1T8:0:0", Every(one.frequency, L"2027-6-1T10:0:0"));
            EXPECT_EQ(1, script.Deliver());
            Milliseconds last = script.now.steady;
            script.Pass(one.period / 10);
            script.now.wall -= one.back;
            if (restarted) {
                script.Restart();
                last = script.now.steady - one.period / 10;
            }
            for (int i = 0; i < 3; ++i) {
                Milliseconds waited{};
                while (script.Deliver() == 0 && waited < 3 * one.period) {
                    const auto step =
                        std::clamp(script.scheduler.UntilNext(script.now), Milliseconds(1), Milliseconds(seconds(10)));
                    script.Pass(step);
                    waited += step;
                }
                const Milliseconds gap = script.now.steady - last;
                EXPECT_GE(gap, one.period * 9 / 10) << i;
                EXPECT_LE(gap, one.period * 2 + seconds(2)) << i;
                last = script.now.steady;
            }
        }
}

TEST(Scheduler, FirstTickInTheFutureIsNotMovedWhenTheClockIsSetBack) {
    Script script(L"2027-6-1T8:0:0", Every(L"P0Y0M0DT0H1M0S", L"2027-6-5T9:0:0"));
    script.SetClock(L"2027-5-30T8:0:0");
    EXPECT_EQ(0u, script.Run(days(2)).size());
}

TEST(Scheduler, FirstTickOfARegistrationMadeUnderAWrongClockIsNotLost) {
    Script script(L"2037-6-1T8:0:0", Every(L"P0Y0M0DT0H5M0S", L"2037-6-1T10:5:0"));
    script.SetClock(L"2027-6-1T8:0:0");
    EXPECT_EQ(2u, script.Run(minutes(10)).size());
}

TEST(Scheduler, TicksDuringADeliveryAreDeliveredAsOne) {
    Script script(L"2027-1-1T8:0:0", Every(L"P0Y0M0DT0H1M0S", L"2027-1-1T9:0:0"));
    const auto first = script.Calls();
    ASSERT_EQ(1u, first.size());
    script.Pass(minutes(3));
    EXPECT_TRUE(script.Calls().empty());
    script.scheduler.Finish(first[0].number, S_OK, script.now);
    EXPECT_EQ(1, script.Deliver());
}

TEST(Scheduler, FailedDeliveriesAreRetriedAndThenGivenUpUntilTheNextTick) {
    Schedule schedule = Every(L"P0Y0M0DT0H1M0S", L"2027-1-1T9:0:0");
    schedule.entries[0].retryAttempts = 2;
    Script script(L"2027-1-1T8:0:0", std::move(schedule));
    for (int attempt = 0; attempt < 3; ++attempt) {
        const auto calls = script.Calls();
        ASSERT_EQ(1u, calls.size()) << attempt;
        script.scheduler.Finish(calls[0].number, E_FAIL, script.now);
        EXPECT_TRUE(script.Calls().empty());
        if (attempt < 2)
            script.Pass(seconds(5));
    }
    EXPECT_EQ(seconds(50), script.scheduler.UntilNext(script.now));
    script.Pass(seconds(50));
    EXPECT_EQ(1, script.Deliver());
}

TEST(Scheduler, NextTickCancelsTheRetries) {
    Schedule schedule = Every(L"P0Y0M0DT0H1M0S", L"2027-1-1T9:0:0");
    schedule.entries[0].retryAttempts = 5;
    schedule.entries[0].retryFrequency = hours(1);
    Script script(L"2027-1-1T8:0:0", std::move(schedule));
    script.scheduler.Finish(script.Calls().at(0).number, E_FAIL, script.now);
    EXPECT_TRUE(script.Calls().empty());
    EXPECT_EQ(minutes(1), script.scheduler.UntilNext(script.now));
    script.Pass(minutes(1));
    EXPECT_EQ(1, script.Deliver());
}

TEST(Scheduler, HangingClientIsAbandonedAndNotCalledTwiceAtATime) {
    Schedule schedule = TwoClients(Every(L"P0Y0M0DT1H0M0S", L"2027-1-1T9:0:0"));
    Script script(L"2027-1-1T8:0:0", std::move(schedule));
    const auto hanging = script.Calls();
    ASSERT_EQ(1u, hanging.size());
    EXPECT_EQ(minutes(10), script.scheduler.UntilNext(script.now));
    script.Pass(minutes(10));
    const auto second = script.Calls();
    ASSERT_EQ(1u, second.size());
    EXPECT_EQ(L"Client.2", second[0].client);
    EXPECT_EQ(std::vector{hanging[0].number}, script.scheduler.TakeChanges().abandoned);
    script.scheduler.Finish(second[0].number, S_OK, script.now);

    script.Pass(minutes(50));
    const auto next = script.Calls();
    ASSERT_EQ(1u, next.size());
    EXPECT_EQ(L"Client.2", next[0].client);
    script.scheduler.Finish(next[0].number, S_OK, script.now);

    script.scheduler.Finish(hanging[0].number, S_OK, script.now);
    script.Pass(hours(1));
    EXPECT_EQ(2, script.Deliver());
}

TEST(Scheduler, ModeDecidesWhetherEntriesAreCalledTogether) {
    for (bool parallel : {true, false}) {
        Schedule schedule = TwoClients(Every(L"P0Y0M0DT1H0M0S", L"2027-1-1T9:0:0"));
        schedule.parallel = parallel;
        Script script(L"2027-1-1T8:0:0", std::move(schedule));
        EXPECT_EQ(parallel ? 2u : 1u, script.Calls().size());
    }
}

TEST(Scheduler, DeliveredEntriesOfATickAreNotRepeatedAfterARestart) {
    Schedule schedule = TwoClients(Every(L"P0Y0M0DT1H0M0S", L"2027-1-1T9:0:0"));
    Script script(L"2027-1-1T8:0:0", std::move(schedule));
    script.scheduler.Finish(script.Calls().at(0).number, S_OK, script.now);
    script.Restart();
    const auto calls = script.Calls();
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ(L"Client.2", calls[0].client);
}

TEST(Scheduler, NothingIsDeliveredAfterTheEnd) {
    struct {
        const char* what;
        const wchar_t* end;
        int count;
        std::size_t delivered;
    } const cases[] = {
        {"an end between ticks", L"2027-1-1T9:2:30", -1, 3},
        {"an end on a tick", L"2027-1-1T9:2:0", -1, 2},
        {"a count", nullptr, 2, 2},
        {"an end before the count", L"2027-1-1T9:0:30", 2, 1},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.what);
        Schedule schedule = Every(L"P0Y0M0DT0H1M0S", L"2027-1-1T9:0:0");
        if (one.end)
            schedule.end = Local(one.end);
        schedule.agingCount = one.count;
        Script script(L"2027-1-1T8:0:0", std::move(schedule));
        EXPECT_EQ(one.delivered, script.Run(minutes(5)).size());
        const auto changes = script.scheduler.TakeChanges();
        ASSERT_EQ(1u, changes.ended.size());
        EXPECT_EQ(L"id", changes.ended[0].id);
        EXPECT_EQ(nullptr, script.scheduler.Find(L"id"));
    }
}

TEST(Scheduler, TickMissedUntilAfterTheEndIsNotDelivered) {
    Schedule schedule = Every(L"P0Y0M0DT0H1M0S", L"2027-1-1T9:1:0");
    schedule.end = Local(L"2027-1-1T9:30:0");
    Script script(L"2027-1-1T8:0:0", std::move(schedule));
    script.now.wall += hours(1);
    script.Restart();
    EXPECT_EQ(0, script.Deliver());
}

TEST(Scheduler, CallsOfARemovedRegistrationDoNotBegin) {
    Script script(L"2027-1-1T8:0:0", Every(L"P0Y0M0DT0H1M0S", L"2027-1-1T9:0:0"));
    const auto calls = script.scheduler.Advance(script.now);
    ASSERT_EQ(1u, calls.size());
    script.scheduler.Remove(L"id");
    EXPECT_FALSE(script.scheduler.Begin(calls[0].number, script.now));
}

TEST(Scheduler, ModificationWaitsForTheCallOfTheEarlierSchedule) {
    Script script(L"2027-1-1T8:0:0", Every(L"P0Y0M0DT1H0M0S", L"2027-1-1T9:0:0"));
    const auto first = script.Calls();
    script.Subscribe(Every(L"P0Y0M0DT0H1M0S", L"2027-1-1T9:0:0"));
    EXPECT_TRUE(script.Calls().empty());
    script.scheduler.Finish(first.at(0).number, S_OK, script.now);
    EXPECT_EQ(1u, script.Calls().size());
}

TEST(ScheduleTexts, LargestAttemptsAndEnd) {
    const struct {
        std::wstring attempts;
        std::wstring end;
        HRESULT result;
    } cases[] = {
        {L"2147483647", L"9999-12-31T23:59:59", S_OK},    {L"0000000000003", L"9999-1-1T0:0:0", S_OK},
        {L"2147483648", L"9999-1-1T0:0:0", E_INVALIDARG}, {L"-1", L"9999-1-1T0:0:0", E_INVALIDARG},
        {L"-", L"9999-1-1T0:0:0", E_INVALIDARG},          {L"3x", L"9999-1-1T0:0:0", E_INVALIDARG},
        {L"3", L"10000-1-1T0:0:0", E_INVALIDARG},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(support::Narrow(test.attempts + L" " + test.end));
        Schedule schedule;
        EXPECT_HR(test.result,
                  ParseScheduleDocument(
                      L"<ScheduleInfo><Schedule><StartDateTime>2027-1-1T8:0:0</StartDateTime><Frequency>PT1M"
                      L"</Frequency></Schedule><Aging><EndDateTime>" +
                          test.end +
                          L"</EndDateTime></Aging><NotificationInfo><Notify type=\"COM\"><Client>c</Client>"
                          L"<Retry><RetryAttempts>" +
                          test.attempts + L"</RetryAttempts></Retry></Notify></NotificationInfo></ScheduleInfo>",
                      schedule));
        if (test.result != S_OK)
            continue;
        EXPECT_EQ(std::stol(test.attempts), schedule.entries.at(0).retryAttempts);
        for (const LONG bias : {-840, 720}) {
            TIME_ZONE_INFORMATION rules{};
            rules.Bias = bias;
            const LocalZone zone(rules);
            EXPECT_EQ(*schedule.end, zone.ToLocal(zone.ToInstant(*schedule.end)));
        }
    }
}

TEST(ScheduleTexts, InvalidDateTimesAndDurationsAreRefused) {
    for (const wchar_t* text : {L"", L"2027", L"2027-13-1T0:0:0", L"2027-2-29T0:0:0", L"2027-1-1T24:0:0",
                                L"2027-1-1T0:60:0", L"2027-1-1T0:0:60", L"2027-1-1T0:0:0x", L" 2027-1-1T0:0:0",
                                L"-2027-1-1T0:0:0", L"2027-1-1 0:0:0", L"12027-1-1T0:0:0", L"0-0-0T0:0:0"})
        EXPECT_FALSE(ParseLocalTime(text)) << support::Narrow(text);
    for (const wchar_t* text : {L"", L"P", L"PT", L"5M", L"P5", L"P-1Y", L"P65535Y0M0DT0H0M0S", L"P1D1M", L"PT1M1M",
                                L"P1DT1D", L"P0Y0M0DT0H5M0S ", L"P99999999999Y"})
        EXPECT_FALSE(ParseStep(text)) << support::Narrow(text);
    EXPECT_EQ((CalendarStep{1, 2, 3, 4, 5, 6}), ParseStep(L"P1Y2M3DT4H5M6S"));
    EXPECT_EQ((CalendarStep{0, 0, 0, 0, 5, 0}), ParseStep(L"PT5M"));
}

} // namespace
