// Reads the documents that clients hand to the event manager.
//
// Every function: 0x8000012D where the text is not well-formed, has a document type definition or nests too deep;
// E_INVALIDARG where it is something else than what is expected, as said with each. Names and values are taken as they
// stand, with their blanks.
#pragma once

#include "platform/events/EventRegistration.h"

#include <windows.h>

#include <string>
#include <string_view>
#include <vector>

namespace keldan {

// <SubscriptionInfo><EventName/><ClientCookie/></SubscriptionInfo>: fills the name and the cookie. E_INVALIDARG:
// another root element, no name or an empty one, a name or a cookie given twice.
[[nodiscard]] HRESULT ParseEventSubscription(std::wstring_view document, EventRegistration& registration);

// <FilterProperties><FilterOn><Name/><Value/></FilterOn>...</FilterProperties>. One without a name filters nothing and
// is left out; one without a value wants an empty one. E_INVALIDARG: another root element, a FilterOn with two names or
// two values.
[[nodiscard]] HRESULT ParseEventFilter(std::wstring_view document, std::vector<EventProperty>& filters);

// Nothing, or <EventProperties><Property Name="n">v</Property>...</EventProperties>. E_INVALIDARG: another root
// element, a property without a name.
[[nodiscard]] HRESULT ParseEventProperties(std::wstring_view document, EventProperties& properties);

// Nothing, or one document. body: the Payload element of the callbacks, with the document in it without its XML
// declaration. 0x800700DF (ERROR_FILE_TOO_LARGE): more than 8,388,608 characters.
[[nodiscard]] HRESULT MakePayload(std::wstring_view payload, std::wstring& body);

} // namespace keldan
