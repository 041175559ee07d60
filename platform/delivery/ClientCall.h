// Delivers one callback to one client.
#pragma once

#include <windows.h>

#include <string>

namespace keldan {

// Creates the client from its ProgID, delivers the document, and releases the client. Returns the result of Deliver, or
// the reason why the client could not be called. A processor fault in the client is E_UNEXPECTED and does not end this
// process. The calling thread must be in the multithreaded apartment.
HRESULT DeliverToClient(const std::wstring& progId, const std::wstring& document);

} // namespace keldan
