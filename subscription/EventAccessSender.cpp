#include "subscription/EventAccessSender.h"

#include "common/com/bstr.h"
#include "common/services/XmlAccessor.h"
#include "common/services/platformservices.h"

namespace vorna {

const Sender::Wording& EventAccessSender::Texts() const {
    static constexpr Wording TEXTS{
        .unspecified = "Subscription::HandleSetDataforXDMEvent~~~UnSpecified error occured.",
        .notCreated = L"ZEB failed to create EventAccess component",
        .subscribing = "Subscription::HandleSetDataforXDMEvent...Going to subscribe with XDM Event",
        .subscribeRefused = "Subscription::HandleSetDataforXDMEvent~~~Subscription with XDM event failed.",
        .subscribeFailed = L"Failed to subscribe with ZEB's EventAccess component",
        .noId = L"Invalid subcription ticket returned from Event access Subscription",
        .noDirectory = "Subscription::HandleSetDataforXDMEvent~~ Directory Creation Failed",
        .addRefused = "Subscription::HandleSetDataforXDMEvent~~~Add to Archive file Failed. Going to Rollback.",
        .addFailed = L"Add Subscription Failed for XDM Event",
        .modifying = "Subscription::HandleSetDataforXDMEvent...Going Modify subscription with XDM Event",
        .modifyFailed = L"Failed to subscribe with ZEB's EventAccess component",
        .storeRefused = "Failed to Modify the Subscription. SubscriptionPersistance::AddSubscription returned failure",
        .storeFailed = L"Failed to Modify the Subscription. SubscriptionPersistance::AddSubscription returned failure",
        .resubscribed = "Successfully Resubscribed with XDM Event Access",
        .unsubscribing = "Subscription::HandleSetDataforXDMEvent...Going to Unsubscribe with XDM Event",
        .unsubscribeRefused = nullptr,
        .unsubscribeFailed = "Unregistration with XDM event Failed",
        .invalidated = "Unregistration with XDM event Failed. Subscription has been invalidated",
        .invalidatedText = L"Subscription has been invalidated",
        .unsubscribed = "Unregistration with XDM event Succeeded. Going to delete the subscription from Persist file.",
    };
    return TEXTS;
}

HRESULT EventAccessSender::CreateComponent() {
    return PlatformServices::CreateInstance(PROGID_EVENT_ACCESS, nullptr, eventAccess_);
}

HRESULT EventAccessSender::SubscribeWithComponent(std::wstring& id) {
    id.clear();
    bstr answer;
    const HRESULT result = eventAccess_->Subscribe(service_.get(), bstr(info_->ToXML()).get(), answer.put());
    XmlAccessor accessor;
    // Without an ID the registration cannot be ended here; its first callback will find no subscription and end it.
    if (result == S_OK && accessor.Create() == S_OK && accessor.Load(answer.view()) == S_OK)
        (void)accessor.QueryText(L"//SubscriptionResults/SubscriptionID", id);
    return result;
}

HRESULT EventAccessSender::Modify(std::wstring_view id) {
    return eventAccess_->Modify(service_.get(), bstr(id).get(), bstr(info_->ToXML()).get());
}

HRESULT EventAccessSender::Unsubscribe(std::wstring_view id) {
    return eventAccess_->Unsubscribe(service_.get(), bstr(id).get());
}

} // namespace vorna
