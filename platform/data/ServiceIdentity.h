// What tells one service from another.
#pragma once

#include <unknwn.h>

#include <compare>
#include <string>
#include <string_view>

namespace keldan {

// The serviceURI of the live data model of this machine. No service with it has a stored one.
inline constexpr std::wstring_view SERVICE_URI_HOST = L"host";

struct ServiceIdentity {
    std::wstring portId;
    std::wstring serviceId;
    std::wstring serviceUri;

    auto operator<=>(const ServiceIdentity&) const = default;

    // Reads the three properties of a service object. 0x80000142: no service object, or one that does not answer;
    // identity is then empty.
    [[nodiscard]] static HRESULT Of(IUnknown* service, ServiceIdentity& identity);
};

} // namespace keldan
