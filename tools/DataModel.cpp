#include "tools/DataModel.h"

#include "QXKeldan.h"
#include "common/com/bstr.h"
#include "common/com/paths.h"
#include "platform/data/ModelStore.h"
#include "tools/Components.h"

namespace vornactl {

namespace {

keldan::ServiceIdentity IdentityOf(IUnknown* service, const std::wstring& file) {
    keldan::ServiceIdentity identity;
    if (const HRESULT result = keldan::ServiceIdentity::Of(service, identity); FAILED(result))
        throw Failure(result, L"reading the identity of " + file);
    return identity;
}

// The service in the notation of "vornactl list", and the file that describes it.
std::wstring NameOf(const keldan::ServiceIdentity& service, const std::wstring& file) {
    return service.serviceId + L"\\" + service.serviceUri + L"\\" + service.portId + L" (" + file + L")";
}

} // namespace

std::wstring PutModel(const std::wstring& serviceFile, const std::wstring& modelFile) {
    const keldan::ServiceIdentity service = IdentityOf(MakeService(serviceFile).get(), serviceFile);
    const std::wstring action = L"storing the data model of " + NameOf(service, serviceFile);
    const struct {
        const wchar_t* element;
        const std::wstring& value;
    } parts[] = {{L"portID", service.portId}, {L"serviceId", service.serviceId}, {L"serviceURI", service.serviceUri}};
    for (const auto& part : parts)
        if (part.value.empty())
            throw Failure(vorna::RESULT_SERVICE_OBJECT, action,
                          L"The service document gives no " + std::wstring(part.element) + L".");
    if (service.serviceUri == keldan::SERVICE_URI_HOST)
        throw Failure(E_INVALIDARG, action,
                      L"The serviceURI \"" + service.serviceUri +
                          L"\" stands for the live data model of this machine, which cannot be replaced.");

    const std::wstring document = ReadXml(modelFile);
    const keldan::ModelStore store(keldan::DataFolder::Configured());
    std::wstring message;
    if (const HRESULT result = store.Write(service, document, message); FAILED(result))
        throw Failure(result, action, message);
    return vorna::plain_path(store.PathOf(service));
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
        throw Failure(FAILED(result) ? result : E_FAIL, L"reading the data model of " + NameOf(identity, serviceFile),
                      message.str());
    return document.str();
}

} // namespace vornactl
