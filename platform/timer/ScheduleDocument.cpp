#include "platform/timer/ScheduleDocument.h"

#include "common/com/bstr.h"
#include "common/com/com_ptr.h"
#include "common/xml/XmlCharacters.h"
#include "platform/calendar/Digits.h"
#include "platform/timer/Registration.h"
#include "platform/xml/XMLSimpleAccessor.h"

#include <string>

namespace keldan {

namespace {

using namespace std::chrono;

// What holds where the document says nothing.
constexpr Milliseconds DEFAULT_TIMEOUT = minutes(10);
constexpr Milliseconds DEFAULT_RETRY_FREQUENCY = seconds(5);

constexpr long KIND_TEXT = 4;
constexpr long KIND_MARKUP = 8;

std::optional<std::int32_t> ParseWhole(std::wstring_view text) {
    const bool negative = Take(text, L'-');
    const auto value = TakeNumber(text);
    if (!value || !text.empty())
        return std::nullopt;
    return static_cast<std::int32_t>(negative ? -*value : *value);
}

// The document and the two ways of asking it.
class Document {
  public:
    HRESULT Load(std::wstring_view text) {
        accessor_.attach(new keldan::XMLSimpleAccessor());
        return FAILED(accessor_->Load(vorna::bstr(text).get())) ? E_INVALIDARG : S_OK;
    }
    std::wstring Text(const std::wstring& path) const { return std::wstring(vorna::Trimmed(Ask(path, KIND_TEXT))); }
    // As it stands: a cookie is the client's own.
    std::wstring RawText(const std::wstring& path) const { return Ask(path, KIND_TEXT); }
    bool Has(const std::wstring& path) const { return !Ask(path, KIND_MARKUP).empty(); }

  private:
    std::wstring Ask(const std::wstring& path, long kind) const {
        vorna::bstr answer;
        if (FAILED(accessor_->Query(vorna::bstr(path).get(), kind, answer.put())))
            return {};
        return answer.str();
    }

    vorna::com_ptr<keldan::XMLSimpleAccessor> accessor_;
};

// A time span of an entry; the default where it is missing or zero.
std::optional<Milliseconds> ParseSpan(const std::wstring& text, Milliseconds otherwise) {
    if (text.empty())
        return otherwise;
    const auto step = ParseStep(text);
    if (!step)
        return std::nullopt;
    return step->IsZero() ? otherwise : step->RoughLength();
}

std::optional<NotifyEntry> ParseEntry(const Document& document, const std::wstring& path) {
    NotifyEntry entry;
    if (document.Text(path + L"/@type") != L"COM")
        return std::nullopt;
    // Behind a bar may stand what other kinds of clients need.
    const std::wstring client = document.Text(path + L"/Client");
    entry.client = vorna::Trimmed(std::wstring_view(client).substr(0, client.find(L'|')));
    entry.parameter = document.RawText(path + L"/Parameter");
    const auto timeout = ParseSpan(document.Text(path + L"/NotifyTimeout"), DEFAULT_TIMEOUT);
    const auto frequency = ParseSpan(document.Text(path + L"/Retry/RetryFrequency"), DEFAULT_RETRY_FREQUENCY);
    const std::wstring attemptsText = document.Text(path + L"/Retry/RetryAttempts");
    const auto attempts = attemptsText.empty() ? std::optional<std::int32_t>(0) : ParseWhole(attemptsText);
    if (entry.client.empty() || !timeout || !frequency || !attempts || *attempts < 0)
        return std::nullopt;
    entry.timeout = *timeout;
    entry.retryFrequency = *frequency;
    entry.retryAttempts = *attempts;
    return entry;
}

} // namespace

std::optional<LocalTime> ParseLocalTime(std::wstring_view text) {
    std::int64_t fields[6];
    constexpr wchar_t SEPARATORS[] = L"--T::";
    for (int i = 0; i < 6; ++i) {
        const auto value = TakeNumber(text);
        if (!value || (i < 5 && !Take(text, SEPARATORS[i])))
            return std::nullopt;
        fields[i] = *value;
    }
    const auto [yearNumber, month, day, hour, minute, second] = fields;
    if (!text.empty() || yearNumber < 1602 || yearNumber > 9998 || month > 12 || day > 31 || hour > 23 || minute > 59 ||
        second > 59)
        return std::nullopt;
    const year_month_day date = year(static_cast<int>(yearNumber)) / static_cast<int>(month) / static_cast<int>(day);
    if (!date.ok())
        return std::nullopt;
    return local_days(date) + hours(hour) + minutes(minute) + seconds(second);
}

HRESULT ParseScheduleDocument(std::wstring_view text, Schedule& schedule) {
    schedule = {};
    Document document;
    if (HRESULT result = document.Load(text); FAILED(result))
        return result;

    const auto start = ParseLocalTime(document.Text(L"/ScheduleInfo/Schedule/StartDateTime"));
    const auto frequency = ParseStep(document.Text(L"/ScheduleInfo/Schedule/Frequency"));
    if (!start || !frequency || frequency->IsZero())
        return E_INVALIDARG;
    schedule.start = *start;
    schedule.frequency = *frequency;

    if (const std::wstring end = document.Text(L"/ScheduleInfo/Aging/EndDateTime"); !end.empty()) {
        schedule.end = ParseLocalTime(end);
        if (!schedule.end)
            return E_INVALIDARG;
    }
    if (const std::wstring count = document.Text(L"/ScheduleInfo/Aging/AgingCount"); !count.empty()) {
        const auto value = ParseWhole(count);
        if (!value || *value < -1 || *value == 0)
            return E_INVALIDARG;
        schedule.agingCount = *value;
    }

    const std::wstring mode = document.Text(L"/ScheduleInfo/NotificationInfo/@Mode");
    if (!mode.empty() && mode != L"PARALLEL" && mode != L"SEQUENTIAL")
        return E_INVALIDARG;
    schedule.parallel = mode == L"PARALLEL";
    for (std::size_t i = 1;; ++i) {
        const std::wstring path = L"/ScheduleInfo/NotificationInfo/Notify[" + std::to_wstring(i) + L"]";
        if (!document.Has(path))
            break;
        auto entry = ParseEntry(document, path);
        if (!entry || i > MAXIMUM_ENTRIES)
            return E_INVALIDARG;
        schedule.entries.push_back(std::move(*entry));
    }
    return schedule.entries.empty() ? E_INVALIDARG : S_OK;
}

} // namespace keldan
