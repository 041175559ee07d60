#include "src/ScheduleDocuments.h"

#include "common/log/Logging.h"
#include "common/services/XmlAccessor.h"
#include "common/xml/XmlEscape.h"

#include <cwchar>

namespace vorna {

namespace {

constexpr size_t TEMPLATE_BUFFER = 1024;

// The tabs are part of the documents.
#define TABS_8 L"\t\t\t\t\t\t\t\t"
#define TABS_9 TABS_8 L"\t"
#define TABS_13 TABS_8 L"\t\t\t\t\t"
#define TABS_14 TABS_13 L"\t"

constexpr wchar_t SCHEDULE_TEMPLATE[] =
    L"<Schedule>" TABS_9 L"<StartDateTime>%ls</StartDateTime>" TABS_9 L"<Frequency>%ls</Frequency>" TABS_8 L"</Schedule>";
constexpr wchar_t RETRY_FREQUENCY_TEMPLATE[] =
    L"<Retry>" TABS_9 L"<RetryFrequency>%ls</RetryFrequency>" TABS_9 L"<RetryAttempts>%d</RetryAttempts>" TABS_8 L"</Retry>";
constexpr wchar_t RETRY_TEMPLATE[] = L"<Retry>" TABS_9 L"<RetryAttempts>%d</RetryAttempts>" TABS_8 L"</Retry>";
constexpr wchar_t NOTIFY_TEMPLATE[] =
    L"<Notify type=\"%ls\">" TABS_14 L"<Client></Client>" TABS_14 L"<Parameter></Parameter>" TABS_14 L"<NotifyTimeout>%ls</NotifyTimeout>" TABS_13 L"</Notify>";
constexpr wchar_t NOTIFICATION_TEMPLATE[] = L"<NotificationInfo Mode=\"%ls\"></NotificationInfo>";
constexpr wchar_t AGING_TEMPLATE[] =
    L"<Aging>" TABS_14 L"<EndDateTime>%ls</EndDateTime>" TABS_14 L"<AgingCount>%d</AgingCount>" TABS_13 L"</Aging>";

#undef TABS_8
#undef TABS_9
#undef TABS_13
#undef TABS_14

template <typename... Values>
ElementText Fill(const wchar_t* format, Values... values) {
    wchar_t buffer[TEMPLATE_BUFFER];
    int length = std::swprintf(buffer, TEMPLATE_BUFFER, format, values...);
    if (length < 0)
        return std::nullopt;
    return std::wstring(buffer, static_cast<size_t>(length));
}

// A document under construction. After a step has failed, later steps do nothing and Result returns nullopt.
class ElementBuilder {
  public:
    explicit ElementBuilder(const ElementText& element) {
        if (!element || accessor_.Create() != S_OK)
            return;
        if (accessor_.Load(*element) != S_OK)
            VORNA_LOG(LOG_TRACE, "Failed to Load: %S", element->c_str());
        else
            usable_ = true;
    }

    void InsertText(const wchar_t* xpath, const std::wstring& text) {
        if (usable_ && !text.empty() && accessor_.Set(xpath, EscapeXml(text), XmlChange::Insert) != S_OK) {
            VORNA_LOG(LOG_TRACE, "XMLSet failed!! Inserting : %S at %SFailed", text.c_str(), xpath);
            usable_ = false;
        }
    }

    // nullopt adds nothing.
    void Append(const wchar_t* xpath, const ElementText& element) {
        if (usable_ && element && accessor_.Set(xpath, *element, XmlChange::Append) != S_OK) {
            VORNA_LOG(LOG_TRACE, "XMLSet failed!! Appending : %S at %SFailed", element->c_str(), xpath);
            usable_ = false;
        }
    }

    void Remove(const wchar_t* xpath) {
        if (usable_ && accessor_.Set(xpath, L"", XmlChange::Replace) != S_OK) {
            VORNA_LOG(LOG_TRACE, "Replacing : %S with Failed", xpath);
            usable_ = false;
        }
    }

    ElementText Result(const wchar_t* xpath) {
        std::wstring markup;
        if (!usable_ || accessor_.QueryMarkup(xpath, markup) != S_OK)
            return std::nullopt;
        return markup;
    }

  private:
    XmlAccessor accessor_;
    bool usable_ = false;
};

} // namespace

std::wstring MakeClientText(std::wstring_view first, std::wstring_view second) {
    std::wstring text(first);
    if (!second.empty())
        text.append(L"|").append(second);
    return text;
}

const wchar_t* NotifyTypeText(int type) {
    switch (type) {
    case NOTIFY_COM:
        return L"COM";
    case NOTIFY_DLL:
        return L"DLL";
    case NOTIFY_EXE:
        return L"EXE";
    default:
        return L"";
    }
}

const wchar_t* NotificationModeText(int mode) {
    return mode == NOTIFICATION_PARALLEL ? L"PARALLEL" : L"SEQUENTIAL";
}

ElementText BuildSchedule(const Duration& frequency, const SYSTEMTIME& start) {
    std::wstring startText = FormatDateTime(start);
    std::wstring frequencyText = FormatDuration(frequency);
    if (startText.empty() && frequencyText.empty())
        return std::nullopt;
    return Fill(SCHEDULE_TEMPLATE, startText.c_str(), frequencyText.c_str());
}

ElementText BuildRetry(const std::optional<Duration>& frequency, std::int32_t attempts) {
    std::wstring frequencyText = frequency ? FormatDuration(*frequency) : std::wstring();
    if (!frequencyText.empty())
        return Fill(RETRY_FREQUENCY_TEMPLATE, frequencyText.c_str(), static_cast<int>(attempts));
    if (attempts < 1)
        return std::nullopt;
    return Fill(RETRY_TEMPLATE, static_cast<int>(attempts));
}

ElementText BuildNotify(const NotifyEntry& entry) {
    std::wstring timeoutText = entry.timeout ? FormatDuration(*entry.timeout) : std::wstring();
    ElementBuilder builder(Fill(NOTIFY_TEMPLATE, NotifyTypeText(entry.type), timeoutText.c_str()));
    builder.InsertText(L"/Notify/Client", entry.client);
    builder.InsertText(L"/Notify/Parameter", entry.parameter);
    builder.Append(L"/Notify", BuildRetry(entry.retryFrequency, entry.retryAttempts));
    if (!entry.timeout)
        builder.Remove(L"//Notify/NotifyTimeout");
    return builder.Result(L"/*");
}

ElementText BuildNotificationInfo(const NotificationInfo& notification) {
    ElementBuilder builder(Fill(NOTIFICATION_TEMPLATE, NotificationModeText(notification.mode)));
    for (const NotifyEntry& entry : notification.entries)
        builder.Append(L"/NotificationInfo", BuildNotify(entry));
    return builder.Result(L"/*");
}

ElementText BuildAging(const AgingEntry& aging) {
    std::wstring endText = FormatDateTime(aging.end);
    ElementBuilder builder(Fill(AGING_TEMPLATE, endText.c_str(), static_cast<int>(aging.count)));
    if (aging.notify)
        builder.Append(L"/Aging", BuildNotify(*aging.notify));
    if (endText.empty())
        builder.Remove(L"/Aging/EndDateTime");
    return builder.Result(L"/Aging");
}

ElementText BuildScheduleInfo(const Duration& frequency, const SYSTEMTIME& start,
                              const std::optional<AgingEntry>& aging, const NotificationInfo& notification) {
    ElementText scheduleElement = BuildSchedule(frequency, start);
    ElementText agingElement = aging ? BuildAging(*aging) : std::nullopt;
    ElementText notificationElement = BuildNotificationInfo(notification);
    ElementBuilder builder(L"<ScheduleInfo></ScheduleInfo>");
    for (const ElementText& element : {scheduleElement, agingElement, notificationElement})
        builder.Append(L"//ScheduleInfo", element);
    return builder.Result(L"/*");
}

} // namespace vorna
