// Creation of service objects from service documents.
#pragma once

#include "common/com/com_ptr.h"
#include "common/text/CPWStringBuffer.h"

#include <string_view>

namespace VORNAUTILITY {

// The service object that a service document describes; the caller owns the reference. On failure 0x80004005 and a
// text in errorText.
[[nodiscard]] HRESULT GetServiceObject(std::wstring_view serviceXml, vorna::com_ptr<IUnknown>& service,
                                       vorna::CPWStringBuffer& errorText);

} // namespace VORNAUTILITY
