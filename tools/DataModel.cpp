#include "tools/DataModel.h"

#include "QXKeldan.h"
#include "common/com/bstr.h"
#include "common/com/results.h"
#include "platform/data/ModelStore.h"
#include "tools/Components.h"

namespace vornactl {

namespace {

constexpr std::wstring_view LONG_PATH = L"\\\\?\\";
constexpr std::wstring_view LONG_NETWORK_PATH = L"\\\\?\\UNC\\";

keldan::ServiceIdentity IdentityOf(IUnknown* service, const std::wstring& file) {
    keldan::ServiceIdentity identity;
    if (const HRESULT result = keldan::ServiceIdentity::Of(service, identity); FAILED(result))
        throw Failure(result, L"reading the identity of " + file);
    return identity;
}

// The service as lists of archives show it, and where it is described.
std::wstring Named(const keldan::ServiceIdentity& service, const std::wstring& file) {
    return service.serviceId + L"\\" + service.serviceUri + L"\\" + service.portId + L" (" + file + L")";
}

} // namespace

std::wstring PutModel(const std::wstring& serviceFile, const std::wstring& modelFile) {
    const keldan::ServiceIdentity service = IdentityOf(MakeService(serviceFile).get(), serviceFile);
    const std::wstring doing = L"storing the data model of " + Named(service, serviceFile);
    const struct {
        const wchar_t* element;
        const std::wstring& value;
    } parts[] = {{L"portID", service.portId}, {L"serviceId", service.serviceId}, {L"serviceURI", service.serviceUri}};
    for (const auto& part : parts)
        if (part.value.empty())
            throw Failure(vorna::RESULT_SERVICE_OBJECT, doing,
                          L"The service document gives no " + std::wstring(part.element) + L".");
    if (service.serviceUri == keldan::SERVICE_URI_HOST)
        throw Failure(E_INVALIDARG, doing,
                      L"The serviceURI \"" + service.serviceUri +
                          L"\" stands for the live data model of this machine, which cannot be replaced.");

    const std::wstring document = ReadXml(modelFile);
    const keldan::ModelStore store(keldan::DataFolder::Configured());
    std::wstring message;
    if (const HRESULT result = store.Write(service, document, message); FAILED(result))
        throw Failure(result, doing, message);
    // Without the prefix for long paths, which people need not see.
    const std::wstring path = store.PathOf(service);
    return path.starts_with(LONG_PATH) && !path.starts_with(LONG_NETWORK_PATH) ? path.substr(LONG_PATH.size()) : path;
}

std::wstring GetModel(const std::wstring& serviceFile) {
    const auto service = MakeService(serviceFile);
    const keldan::ServiceIdentity identity = IdentityOf(service.get(), serviceFile);
    const auto aggregator = Create<IAggregator>(vorna::PROGID_AGGREGATOR);
    vorna::bstr document;
    vorna::bstr message;
    const HRESULT result = aggregator->GetData(service.get(), vorna::bstr(L"/").get(), vorna::bstr(L"").get(),
                                               document.put(), message.put());
    if (result != S_OK)
        throw Failure(FAILED(result) ? result : E_FAIL, L"reading the data model of " + Named(identity, serviceFile),
                      message.str());
    return document.str();
}

} // namespace vornactl
