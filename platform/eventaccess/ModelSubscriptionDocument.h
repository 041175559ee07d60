// Reads the EventSubscription documents that clients hand to the event access.
#pragma once

#include "platform/eventaccess/ModelSubscription.h"

#include <windows.h>

#include <string_view>

namespace keldan {

// 0x8000012D: the document is not well-formed or has a document type definition. E_INVALIDARG: it is no event
// subscription: another root element, no event or more than MAXIMUM_WATCHED_EVENTS, an event whose XPath, trigger or
// reset is none, a duration that is none or zero, not exactly one receiver, a receiver that is no ProgID. subscription
// is then undefined.
[[nodiscard]] HRESULT ParseModelSubscription(std::wstring_view document, ModelSubscription& subscription);

} // namespace keldan
