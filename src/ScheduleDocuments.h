// Builds the elements of the timer's schedule document.
//
// A builder returns nullopt if its element is not needed or an XML accessor failed (logged). The texts of clients and
// parameters are escaped as character data. Throws std::bad_alloc only.
#pragma once

#include "common/time/DateTime.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vorna {

// How a client is called: NotifyEntry::type.
enum NotifyType : int { NOTIFY_COM = 0, NOTIFY_DLL = 1, NOTIFY_EXE = 2 };
// How the entries of one schedule are called: NotificationInfo::mode.
enum NotificationMode : int { NOTIFICATION_SEQUENTIAL = 0, NOTIFICATION_PARALLEL = 1 };

// A client that is called on a tick.
struct NotifyEntry {
    int type = NOTIFY_COM;
    std::wstring client;
    std::wstring parameter;
    std::optional<Duration> timeout;
    std::int32_t retryAttempts = 0;
    std::optional<Duration> retryFrequency;
};

struct NotificationInfo {
    int mode = NOTIFICATION_SEQUENTIAL;
    std::vector<NotifyEntry> entries;
};

// When a schedule ends.
struct AgingEntry {
    // All zeros: no end date.
    SYSTEMTIME end{};
    // The number of ticks after which it ends; -1: no limit.
    std::int32_t count = -1;
    std::optional<NotifyEntry> notify;
};

// The client text of a notify entry: the two joined by "|", or the first alone.
std::wstring MakeClientText(std::wstring_view first, std::wstring_view second = {});

// "COM", "DLL", "EXE"; empty for any other number.
const wchar_t* NotifyTypeText(int type);
// "PARALLEL" for 1, "SEQUENTIAL" for everything else.
const wchar_t* NotificationModeText(int mode);

using ElementText = std::optional<std::wstring>;

ElementText BuildSchedule(const Duration& frequency, const SYSTEMTIME& start);
ElementText BuildRetry(const std::optional<Duration>& frequency, std::int32_t attempts);
ElementText BuildNotify(const NotifyEntry& entry);
ElementText BuildNotificationInfo(const NotificationInfo& notification);
ElementText BuildAging(const AgingEntry& aging);
// The whole document. A part that cannot be built is omitted.
ElementText BuildScheduleInfo(const Duration& frequency, const SYSTEMTIME& start,
                              const std::optional<AgingEntry>& aging, const NotificationInfo& notification);

} // namespace vorna
