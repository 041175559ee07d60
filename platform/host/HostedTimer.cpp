#include "platform/host/HostedTimer.h"

#include "platform/delivery/ClientCall.h"
#include "platform/timer/ZEBTimer.h"

namespace keldan {

HostedTimer::HostedTimer() : service_(DeliverToClient) {}

const std::vector<server_class>& HostedTimer::Classes() const {
    static const std::vector<server_class> classes = {
        {__uuidof(::ZEBTimer), L"QXKELDAN.ZEBTimer", L"QXKeldan timer", vorna::get_class_factory<keldan::ZEBTimer>}};
    return classes;
}

HRESULT HostedTimer::Start(const std::filesystem::path& folder) {
    const HRESULT result = service_.Start(folder);
    if (SUCCEEDED(result))
        keldan::ZEBTimer::Serve(&service_);
    return result;
}

} // namespace keldan
