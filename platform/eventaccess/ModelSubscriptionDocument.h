// Reads the EventSubscription documents that clients send to the event access.
#pragma once

#include "platform/eventaccess/ModelSubscription.h"

#include <windows.h>

#include <string_view>

namespace keldan {

// 0x8000012D: the document is not well-formed or has a document type definition. E_INVALIDARG: it is not an event
// subscription: another root element, no event or more than MAXIMUM_WATCHED_EVENTS, an XPath, trigger or reset that is
// not valid, a duration that is not valid or zero, not exactly one receiver, a receiver that is not a ProgID.
// subscription is undefined after a failure.
[[nodiscard]] HRESULT ParseModelSubscription(std::wstring_view document, ModelSubscription& subscription);

} // namespace keldan
