// Which data model belongs to a service, and its text.
#pragma once

#include "platform/data/ServiceIdentity.h"

#include <string>

namespace keldan {

// A service whose serviceURI is exactly the name of a live model ("host") has that model; every other service has the
// stored one of its identity. 0x80070490: none. 0x8000012D: a stored one whose bytes are no text. message says what
// was wrong; name is what people call the model ("host", or the file's path). Any thread.
[[nodiscard]] HRESULT GetDataModel(const ServiceIdentity& service, std::wstring& document, std::wstring& name,
                                   std::wstring& message);

// Whether the service has a live model, which is another one at every reading.
[[nodiscard]] bool HasLiveModel(const ServiceIdentity& service);

} // namespace keldan
