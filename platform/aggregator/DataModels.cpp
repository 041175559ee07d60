#include "platform/aggregator/DataModels.h"

#include "platform/aggregator/HostModel.h"
#include "platform/data/ModelStore.h"

#include <string_view>

namespace keldan {

namespace {

// Created when the module is loaded: the first figure for the processors covers the time since then.
HostModel hostModel;

struct ServedModel {
    std::wstring_view serviceUri;
    LiveModel& model;
};
const ServedModel LIVE_MODELS[] = {{SERVICE_URI_HOST, hostModel}};

const ServedModel* FindLiveModel(const ServiceIdentity& service) {
    for (const auto& live : LIVE_MODELS)
        if (service.serviceUri == live.serviceUri)
            return &live;
    return nullptr;
}

} // namespace

HRESULT GetDataModel(const ServiceIdentity& service, std::wstring& document, std::wstring& name,
                     std::wstring& message) {
    if (const ServedModel* live = FindLiveModel(service)) {
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
