#include "platform/host/HostedEventManager.h"

#include "platform/delivery/ClientCall.h"
#include "platform/events/ZEBEventManager.h"

namespace keldan {

HostedEventManager::HostedEventManager() : service_(DeliverToClient) {}

const std::vector<server_class>& HostedEventManager::Classes() const {
    static const std::vector<server_class> classes = {{__uuidof(::ZEBEventManager), L"QXKELDAN.ZEBEventManager",
                                                       L"QXKeldan event manager",
                                                       vorna::get_class_factory<keldan::ZEBEventManager>}};
    return classes;
}

HRESULT HostedEventManager::Start(const std::filesystem::path& folder) {
    const HRESULT result = service_.Start(folder);
    if (SUCCEEDED(result))
        keldan::ZEBEventManager::Serve(&service_);
    return result;
}

} // namespace keldan
