#include "subscription/EventManagerSender.h"

#include "common/com/bstr.h"
#include "common/services/platformservices.h"

namespace vorna {

const Sender::Wording& EventManagerSender::Texts() const {
    static constexpr Wording TEXTS{
        .unspecified = "Subscription::HandleSetDataforKROEvent~~~UnSpecified error occured.",
        .notCreated = L"ZEB failed to create EventManager component",
        .subscribing = "Subscription::HandleSetDataforKROEvent...Going to subscribe with KRO Event",
        .subscribeRefused = "Subscription::HandleSetDataforKROEvent~~~Subscription with KRO event failed.",
        .subscribeFailed = L"Failed to subscribe with ZEB's Eventmanager component",
        .noId = L"Failed to subscribe with ZEB's Eventmanager component",
        .noDirectory = "Subscription::HandleSetDataforKROEvent~~ Directory Creation Failed",
        .addRefused = "Subscription::HandleSetDataforKROEvent~~~Add to Archive file Failed. Going to Rollback.",
        .addFailed = L"HandlesetDataforKRO Event failed to add subscription",
        .modifying = "Subscription::HandleSetDataforKROEvent...Going Modify subscription with KRO Event",
        .modifyFailed = L"Failed to subscribe with ZEB's Eventmanager component",
        .storeRefused =
            "Subscription::HandleSetDataforKROEvent~~~Adding modified subscription info to persist files failed.",
        .storeFailed = L"Failed to add modified subscription info to the persist files.",
        .resubscribed = "Successfully Resubscribed with XDM Event Manager",
        .unsubscribing = "Subscription::HandleSetDataforKROEvent...Going to Unsubscribe with KRO Event",
        .unsubscribeRefused = nullptr,
        .unsubscribeFailed = "Unregistration with KRO event failed",
        .invalidated = "Unregistration with KRO event Failed. Subscription has been invalidated",
        .invalidatedText = L"Unregistration with KRO event Failed. Subscription has been invalidated",
        .unsubscribed = "Unregistration with KRO event Succeeded. Going to delete the subscription from Persist file.",
    };
    return TEXTS;
}

HRESULT EventManagerSender::CreateComponent() {
    return PlatformServices::CreateInstance(PROGID_EVENT_MANAGER, nullptr, eventManager_);
}

HRESULT EventManagerSender::SubscribeWithComponent(std::wstring& id) {
    const KROEventDocuments documents = info_->ToXML();
    const bstr receiver(std::wstring(L"progID:") + PROGID_VORNA);
    bstr answered;
    const HRESULT result = eventManager_->Subscribe(bstr(documents.subscription).get(), bstr(documents.filter).get(),
                                                    receiver.get(), answered.put());
    id = answered.str();
    return result;
}

HRESULT EventManagerSender::Modify(std::wstring_view id) {
    const KROEventDocuments documents = info_->ToXML();
    return eventManager_->Modify(bstr(id).get(), bstr(documents.subscription).get(), bstr(documents.filter).get());
}

HRESULT EventManagerSender::Unsubscribe(std::wstring_view id) {
    return eventManager_->Unsubscribe(bstr(id).get());
}

} // namespace vorna
