#include "platform/aggregator/DataModels.h"

#include "platform/aggregator/HostModel.h"
#include "platform/data/ModelStore.h"

namespace keldan {

namespace {

// Created when the module is loaded: the first figure for the processors covers the time since then.
HostModel hostModel;

} // namespace

HRESULT GetDataModel(const ServiceIdentity& service, std::wstring& document, std::wstring& name,
                     std::wstring& message) {
    if (HasLiveModel(service)) {
        name = SERVICE_URI_HOST;
        document = hostModel.Compute();
        return S_OK;
    }
    const ModelStore store(DataFolder::Configured());
    name = store.PathOf(service);
    return store.Read(service, document, message);
}

bool HasLiveModel(const ServiceIdentity& service) {
    return service.serviceUri == SERVICE_URI_HOST;
}

} // namespace keldan
