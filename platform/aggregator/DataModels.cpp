#include "platform/aggregator/DataModels.h"

#include "platform/aggregator/HostModel.h"
#include "platform/data/ModelStore.h"

#include <string_view>

namespace keldan {

namespace {

// Made when the module is loaded: the first answer about the processors covers the time since then.
HostModel hostModel;

struct live_model {
    std::wstring_view serviceUri;
    LiveModel& model;
};
const live_model liveModels[] = {{SERVICE_URI_HOST, hostModel}};

} // namespace

HRESULT GetDataModel(const ServiceIdentity& service, std::wstring& document, std::wstring& name,
                     std::wstring& message) {
    for (const auto& live : liveModels) {
        if (service.serviceUri == live.serviceUri) {
            name = live.serviceUri;
            document = live.model.Compute();
            return S_OK;
        }
    }
    const ModelStore store(DataFolder::Configured());
    name = store.PathOf(service);
    return store.Read(service, document, message);
}

} // namespace keldan
