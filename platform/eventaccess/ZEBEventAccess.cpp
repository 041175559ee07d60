#include "platform/eventaccess/ZEBEventAccess.h"

#include "platform/eventaccess/EventAccessService.h"

namespace keldan {

STDMETHODIMP ZEBEventAccess::Subscribe(IUnknown* service, BSTR subscription, BSTR* answer) {
    return Answer(answer, [&](EventAccessService& access, std::wstring& document) {
        ServiceIdentity identity;
        if (const HRESULT result = ServiceIdentity::Of(service, identity); FAILED(result))
            return result;
        std::wstring id;
        const HRESULT result = access.Subscribe(identity, vorna::view_of(subscription), id);
        document = L"<SubscriptionResults><SubscriptionID>" + id + L"</SubscriptionID></SubscriptionResults>";
        return result;
    });
}

STDMETHODIMP ZEBEventAccess::Modify(IUnknown* service, BSTR subscriptionId, BSTR subscription) {
    return With([&](EventAccessService& access) {
        ServiceIdentity identity;
        if (service)
            if (const HRESULT result = ServiceIdentity::Of(service, identity); FAILED(result))
                return result;
        return access.Modify(service ? &identity : nullptr, ToText(subscriptionId), vorna::view_of(subscription));
    });
}

STDMETHODIMP ZEBEventAccess::Unsubscribe(IUnknown*, BSTR subscriptionId) {
    return With([&](EventAccessService& access) { return access.Unsubscribe(ToText(subscriptionId)); });
}

} // namespace keldan
