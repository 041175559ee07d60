// Reads the documents that clients send to the event manager.
//
// All functions return 0x8000012D if the text is not well-formed, has a document type definition or nests too deep, and
// E_INVALIDARG if it is not the expected document, as described for each. Names and values are not trimmed.
#pragma once

#include "platform/events/EventRegistration.h"

#include <windows.h>

#include <string>
#include <string_view>
#include <vector>

namespace keldan {

// <SubscriptionInfo><EventName/><ClientCookie/></SubscriptionInfo>: reads the name and the cookie. E_INVALIDARG:
// another root element, a missing or empty name, two names or two cookies.
[[nodiscard]] HRESULT ParseEventSubscription(std::wstring_view document, EventRegistration& registration);

// <FilterProperties><FilterOn><Name/><Value/></FilterOn>...</FilterProperties>. A FilterOn without a name is ignored;
// one without a value requires an empty value. E_INVALIDARG: another root element, a FilterOn with two names or two
// values.
[[nodiscard]] HRESULT ParseEventFilter(std::wstring_view document, std::vector<EventProperty>& filters);

// An empty text, or <EventProperties><Property Name="n">v</Property>...</EventProperties>. E_INVALIDARG: another root
// element, a property without a name.
[[nodiscard]] HRESULT ParseEventProperties(std::wstring_view document, EventProperties& properties);

// An empty text, or one document. body: the Payload element of the callbacks, which contains the document without its
// XML declaration. 0x800700DF (ERROR_FILE_TOO_LARGE): more than 8,388,608 characters.
[[nodiscard]] HRESULT MakePayload(std::wstring_view payload, std::wstring& body);

} // namespace keldan
