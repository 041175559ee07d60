// One callback to one client.
#pragma once

#include <windows.h>

#include <string>

namespace keldan {

// Creates the client from its ProgID, hands it the document and lets go of it; every time anew. What Deliver answered,
// or why it was not reached. A processor fault in the client is its failure (E_UNEXPECTED), not this process's end.
// The thread is in the multithreaded apartment.
HRESULT DeliverToClient(const std::wstring& progId, const std::wstring& document);

} // namespace keldan
