#include "platform/timer/Schedule.h"

namespace keldan {

using namespace std::chrono;

namespace {

constexpr std::int64_t FIRST_YEAR = 1602;
constexpr std::int64_t LAST_YEAR = 9999;

std::int64_t FloorDivide(std::int64_t value, std::int64_t by) {
    return value / by - (value % by != 0 && (value < 0) != (by < 0) ? 1 : 0);
}

} // namespace

Milliseconds CalendarStep::RoughLength() const {
    constexpr std::chrono::seconds averageMonth(2629746);
    return averageMonth * (years * 12 + months) + std::chrono::days(days) + Elapsed();
}

Instant Schedule::TickAt(std::int64_t index, const LocalZone& zone) const {
    const std::int64_t farthest = duration_cast<Milliseconds>(std::chrono::days(366) * LAST_YEAR).count();
    const std::int64_t length = frequency.RoughLength().count();
    if (index > farthest / length)
        return NEVER;
    if (index < -(farthest / length))
        return Instant::min();

    if (!frequency.HasCalendarPart()) {
        const Instant tick = origin + index * frequency.Elapsed();
        return tick < sys_days(year(LAST_YEAR) / 12 / 31) ? tick : NEVER;
    }

    const auto startDay = floor<std::chrono::days>(start);
    const year_month_day date(startDay);
    const std::int64_t month = static_cast<int>(date.year()) * 12LL + static_cast<unsigned>(date.month()) - 1 +
                               index * (frequency.years * 12 + frequency.months);
    const std::int64_t yearNumber = FloorDivide(month, 12);
    if (yearNumber > LAST_YEAR)
        return NEVER;
    if (yearNumber < FIRST_YEAR)
        return Instant::min();
    const year_month inMonth = year(static_cast<int>(yearNumber)) / static_cast<int>(month - yearNumber * 12 + 1);
    year_month_day moved = inMonth / date.day();
    if (!moved.ok())
        moved = inMonth / last;
    const local_days day = local_days(moved) + std::chrono::days(index * frequency.days);
    if (day < local_days(year(FIRST_YEAR) / 1 / 1))
        return Instant::min();
    if (day > local_days(year(LAST_YEAR) / 12 / 31))
        return NEVER;
    return zone.ToInstant(day + (start - startDay)) + index * frequency.Elapsed();
}

std::int64_t Schedule::FirstAfter(Instant instant, const LocalZone& zone) const {
    if (!frequency.HasCalendarPart())
        return FloorDivide((instant - origin).count(), frequency.Elapsed().count()) + 1;
    // The average length leads to within a tick or two; the calendar decides.
    std::int64_t index = FloorDivide((instant - TickAt(0, zone)).count(), frequency.RoughLength().count());
    while (TickAt(index, zone) > instant)
        --index;
    while (TickAt(index, zone) <= instant)
        ++index;
    return index;
}

} // namespace keldan
