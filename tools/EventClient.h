// Raising events through the platform's event manager. Needs COM on the thread.
#pragma once

#include <span>
#include <string>

namespace vornactl {

// The text of the failure of an event that did not reach every subscription.
inline constexpr wchar_t QUEUE_FULL[] =
    L"The queue of at least one subscription, or the whole queue, is full: that subscription did not get the event.";

// The document of an event's properties, each given as NAME=VALUE; empty if there are none. Throws UsageError,
// which names a property without "=", without a name, given twice or with a character that XML does not allow.
std::wstring PropertiesDocument(std::span<const std::wstring> properties);

// Raises the event and returns the number of subscriptions for which it was queued. properties: the result of
// PropertiesDocument. payloadFile: empty for no payload. Throws Failure.
long RaiseEvent(const std::wstring& name, const std::wstring& properties, const std::wstring& payloadFile);

} // namespace vornactl
