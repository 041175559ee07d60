#include "platform/host/HostedEventAccess.h"

#include "platform/delivery/ClientCall.h"
#include "platform/eventaccess/ZEBEventAccess.h"

namespace keldan {

HostedEventAccess::HostedEventAccess() : service_(DeliverToClient, DataFolder::Configured()) {}

const std::vector<server_class>& HostedEventAccess::Classes() const {
    static const std::vector<server_class> classes = {{__uuidof(::ZEBEventAccess), L"QXKELDAN.ZEBEventAccess",
                                                       L"QXKeldan event access",
                                                       vorna::get_class_factory<keldan::ZEBEventAccess>}};
    return classes;
}

HRESULT HostedEventAccess::Start(const std::filesystem::path& folder) {
    const HRESULT result = service_.Start(folder);
    if (SUCCEEDED(result))
        keldan::ZEBEventAccess::Serve(&service_);
    return result;
}

} // namespace keldan
