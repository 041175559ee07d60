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

const live_model* FindLiveModel(const ServiceIdentity& service) {
    for (const auto& live : liveModels)
        if (service.serviceUri == live.serviceUri)
            return &live;
    return nullptr;
}

} // namespace

HRESULT GetDataModel(const ServiceIdentity& service, std::wstring& document, std::wstring& name,
                     std::wstring& message) {
    if (const live_model* live = FindLiveModel(service)) {
        name = live->serviceUri;
        document = live->model.Compute();
        return S_OK;
    }
    const ModelStore store(DataFolder::Configured());
    name = store.PathOf(service);
    return store.Read(service, document, message);
}

bool HasLiveModel(const ServiceIdentity& service) {
    return FindLiveModel(service) != nullptr;
}

} // namespace keldan
