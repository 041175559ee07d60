#include "platform/events/ZEBEventManager.h"

#include "platform/events/EventManagerService.h"

namespace keldan {

STDMETHODIMP ZEBEventManager::Subscribe(BSTR subscription, BSTR filter, BSTR receiver, BSTR* subscriptionId) {
    return Answer(subscriptionId, [&](EventManagerService& service, std::wstring& id) {
        return service.Subscribe(vorna::view_of(subscription), vorna::view_of(filter), vorna::view_of(receiver), id);
    });
}

STDMETHODIMP ZEBEventManager::Modify(BSTR subscriptionId, BSTR subscription, BSTR filter) {
    return With([&](EventManagerService& service) {
        return service.Modify(ToText(subscriptionId), vorna::view_of(subscription), vorna::view_of(filter));
    });
}

STDMETHODIMP ZEBEventManager::Unsubscribe(BSTR subscriptionId) {
    return With([&](EventManagerService& service) { return service.Unsubscribe(ToText(subscriptionId)); });
}

STDMETHODIMP ZEBEventManager::Raise(BSTR name, BSTR eventProperties, BSTR payload, long* subscriptions) {
    if (!subscriptions)
        return E_POINTER;
    *subscriptions = 0;
    return With([&](EventManagerService& service) {
        return service.Raise(ToText(name), vorna::view_of(eventProperties), vorna::view_of(payload), *subscriptions);
    });
}

} // namespace keldan
