// The identity of a service.
#pragma once

#include <unknwn.h>

#include <compare>
#include <string>
#include <string_view>

namespace keldan {

// The serviceURI of the live data model of this machine. A service with this URI has no stored model.
inline constexpr std::wstring_view SERVICE_URI_HOST = L"host";

struct ServiceIdentity {
    std::wstring portId;
    std::wstring serviceId;
    std::wstring serviceUri;

    // NOLINTNEXTLINE(modernize-use-nullptr): the check misreads the generated comparison with zero
    auto operator<=>(const ServiceIdentity&) const = default;

    // Reads the three properties of a service object. 0x80000142: it is not a service object, or a property cannot be
    // read; identity is then empty.
    [[nodiscard]] static HRESULT Of(IUnknown* service, ServiceIdentity& identity);
};

} // namespace keldan
