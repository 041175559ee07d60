#include "src/TimerInfo.h"

#include "common/log/CatchAll.h"
#include "common/services/platformservices.h"

namespace vorna {

std::wstring TimerInfo::ToXML() const {
    return CatchAll("TimerInfo::ToXML", std::wstring(), [&]() -> std::wstring {
        SYSTEMTIME start = AddDuration(LocalNow(), frequency);
        std::optional<AgingEntry> end;
        if (!aging.IsZero()) {
            end.emplace();
            end->end = AddDuration(LocalNow(), aging);
        }
        NotificationInfo notified = notification;
        NotifyEntry& entry = notified.entries.emplace_back();
        entry.client = MakeClientText(PROGID_VORNA);
        entry.parameter = clientCookie;
        entry.retryAttempts = retries;
        return BuildScheduleInfo(frequency, start, end, notified).value_or(std::wstring());
    });
}

} // namespace vorna
