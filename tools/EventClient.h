// Raising events at the platform's event manager. Needs COM on the thread.
#pragma once

#include <span>
#include <string>

namespace vornactl {

// The text of the failure of an event that did not reach every subscription.
inline constexpr wchar_t QUEUE_FULL[] = L"The queue of at least one subscription, or the whole queue, is full: that "
                                        L"subscription did not get the event.";

// The document of an event's properties, each given as NAME=VALUE; empty where there are none. Throws UsageError,
// which names a property that has no "=", has no name, is given twice or holds a control character.
std::wstring PropertiesDocument(std::span<const std::wstring> properties);

// Raises the event, and gives the number of subscriptions for which it was queued. payloadFile: empty for none.
// properties: a properties document. Throws Failure.
long RaiseEvent(const std::wstring& name, const std::wstring& properties, const std::wstring& payloadFile);

} // namespace vornactl
