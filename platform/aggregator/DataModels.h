// Finds the data model of a service and reads its text.
#pragma once

#include "platform/data/ServiceIdentity.h"

#include <string>

namespace keldan {

// A service whose serviceURI is exactly the name of a live model ("host") has that model; every other service has the
// one that is stored under its identity. 0x80070490: there is none. 0x8000012D: the bytes of a stored model are not
// text. message describes the failure; name is the name of the model in messages ("host", or the path of the file). Any
// thread.
[[nodiscard]] HRESULT GetDataModel(const ServiceIdentity& service, std::wstring& document, std::wstring& name,
                                   std::wstring& message);

// Whether the service has a live model, which differs at every reading.
[[nodiscard]] bool HasLiveModel(const ServiceIdentity& service);

} // namespace keldan
