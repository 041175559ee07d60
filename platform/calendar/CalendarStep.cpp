#include "platform/calendar/CalendarStep.h"

#include "platform/calendar/Digits.h"

#include <iterator>

namespace keldan {

using namespace std::chrono;

namespace {

constexpr int FIRST_YEAR = 1602;
constexpr int LAST_YEAR = 9999;
constexpr std::int64_t LARGEST_COMPONENT = 65534;

} // namespace

Milliseconds CalendarStep::RoughLength() const {
    constexpr std::chrono::seconds AVERAGE_MONTH(2629746);
    return AVERAGE_MONTH * (years * 12 + months) + std::chrono::days(days) + Elapsed();
}

Instant CalendarStep::After(LocalTime start, Instant origin, std::int64_t times, const LocalZone& zone) const {
    const std::int64_t farthest = duration_cast<Milliseconds>(std::chrono::days(366) * LAST_YEAR).count();
    const std::int64_t length = RoughLength().count();
    if (times > farthest / length)
        return NEVER;
    if (times < -(farthest / length))
        return Instant::min();

    if (!HasCalendarPart()) {
        const Instant moved = origin + times * Elapsed();
        return moved < sys_days(year(LAST_YEAR) / 12 / 31) ? moved : NEVER;
    }

    const auto startDay = floor<std::chrono::days>(start);
    const year_month_day date(startDay);
    const year_month inMonth = date.year() / date.month() + std::chrono::months(times * (years * 12 + months));
    if (inMonth.year() > year(LAST_YEAR))
        return NEVER;
    if (inMonth.year() < year(FIRST_YEAR))
        return Instant::min();
    year_month_day moved = inMonth / date.day();
    if (!moved.ok())
        moved = inMonth / last;
    const local_days day = local_days(moved) + std::chrono::days(times * days);
    if (day < local_days(year(FIRST_YEAR) / 1 / 1))
        return Instant::min();
    if (day > local_days(year(LAST_YEAR) / 12 / 31))
        return NEVER;
    return zone.ToInstant(day + (start - startDay)) + times * Elapsed();
}

std::optional<CalendarStep> ParseStep(std::wstring_view text) {
    CalendarStep step;
    struct Component {
        wchar_t designator;
        std::int64_t CalendarStep::*field;
    };
    constexpr Component DATE_COMPONENTS[] = {
        {L'Y', &CalendarStep::years}, {L'M', &CalendarStep::months}, {L'D', &CalendarStep::days}};
    constexpr Component TIME_COMPONENTS[] = {
        {L'H', &CalendarStep::hours}, {L'M', &CalendarStep::minutes}, {L'S', &CalendarStep::seconds}};
    int found = 0;
    // Components come in this order, each at most once.
    const auto takeAll = [&](const Component* next, const Component* last) {
        while (!text.empty() && text.front() != L'T') {
            const auto value = TakeNumber(text);
            if (!value || *value > LARGEST_COMPONENT || text.empty())
                return false;
            while (next != last && next->designator != text.front())
                ++next;
            if (next == last)
                return false;
            step.*next->field = *value;
            ++next;
            ++found;
            text.remove_prefix(1);
        }
        return true;
    };
    if (!Take(text, L'P') || !takeAll(std::begin(DATE_COMPONENTS), std::end(DATE_COMPONENTS)))
        return std::nullopt;
    if (Take(text, L'T') && !takeAll(std::begin(TIME_COMPONENTS), std::end(TIME_COMPONENTS)))
        return std::nullopt;
    return found > 0 && text.empty() ? std::optional(step) : std::nullopt;
}

} // namespace keldan
