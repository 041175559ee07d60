#include "platform/calendar/LocalZone.h"

namespace keldan {

namespace {

using namespace std::chrono;

SYSTEMTIME ToSystemTime(sys_seconds time) {
    const sys_days day = floor<days>(time);
    const year_month_day date(day);
    const hh_mm_ss clock(time - day);
    SYSTEMTIME result{};
    result.wYear = static_cast<WORD>(static_cast<int>(date.year()));
    result.wMonth = static_cast<WORD>(static_cast<unsigned>(date.month()));
    result.wDay = static_cast<WORD>(static_cast<unsigned>(date.day()));
    result.wHour = static_cast<WORD>(clock.hours().count());
    result.wMinute = static_cast<WORD>(clock.minutes().count());
    result.wSecond = static_cast<WORD>(clock.seconds().count());
    return result;
}

sys_seconds FromSystemTime(const SYSTEMTIME& time) {
    return sys_days(year(time.wYear) / time.wMonth / time.wDay) + hours(time.wHour) + minutes(time.wMinute) +
           seconds(time.wSecond);
}

} // namespace

Milliseconds LocalZone::OffsetAt(Instant instant) const {
    const sys_seconds whole = floor<seconds>(instant);
    const SYSTEMTIME utc = ToSystemTime(whole);
    TIME_ZONE_INFORMATION rules{};
    if (rules_)
        rules = *rules_;
    else if (!GetTimeZoneInformationForYear(utc.wYear, nullptr, &rules))
        GetTimeZoneInformation(&rules);
    SYSTEMTIME local{};
    if (!SystemTimeToTzSpecificLocalTime(&rules, &utc, &local))
        return -minutes(rules.Bias);
    return FromSystemTime(local) - whole;
}

LocalTime LocalZone::ToLocal(Instant instant) const {
    return LocalTime(instant.time_since_epoch() + OffsetAt(instant));
}

Instant LocalZone::ToInstant(LocalTime local) const {
    // A zone changes its offset at most once within two days, so the offsets a day before and a day after are the
    // candidates.
    const Instant roughly(local.time_since_epoch());
    const Milliseconds before = OffsetAt(roughly - days(1));
    const Milliseconds after = OffsetAt(roughly + days(1));
    const Instant byBefore = roughly - before;
    const Instant byAfter = roughly - after;
    if (before == after)
        return byBefore;
    const bool beforeHolds = OffsetAt(byBefore) == before;
    const bool afterHolds = OffsetAt(byAfter) == after;
    if (beforeHolds && afterHolds)
        return std::min(byBefore, byAfter);
    return afterHolds ? byAfter : byBefore;
}

} // namespace keldan
