// The way of a callback: to its subscription, to the maintenance pass, or back to a sender that nobody wants to hear.

#include "common/Logging.h"
#include "common/VornaCommon.h"
#include "common/bstr.h"
#include "common/platformservices.h"
#include "common/results.h"
#include "front/HandlerFrame.h"
#include "front/VornaHandler.h"
#include "subscription/RegistrationLock.h"
#include "subscription/Subscription.h"

namespace vorna {

namespace {

constexpr wchar_t ROOT_TIMER[] = L"TimerEvent";
constexpr wchar_t ROOT_EVENT_ACCESS[] = L"EventPayload";
constexpr wchar_t ROOT_EVENT_MANAGER[] = L"Event";

HRESULT UnsubscribeFromTimer(SubscriptionPersistance& persistance, const std::wstring& subscriptionId) {
    com_ptr<IZEBTimer> timer;
    HRESULT result = PlatformServices::CreateInstance(PROGID_TIMER, nullptr, timer);
    if (result != S_OK)
        return result;
    std::wstring clientId;
    (void)persistance.GetClientID(clientId);
    return timer->Unsubscribe(bstr(clientId).get(), bstr(subscriptionId).get());
}

HRESULT UnsubscribeFromEventAccess(SubscriptionPersistance& persistance, const std::wstring& subscriptionId) {
    com_ptr<IZEBEventAccess> eventAccess;
    HRESULT result = PlatformServices::CreateInstance(PROGID_EVENT_ACCESS, nullptr, eventAccess);
    if (result != S_OK)
        return result;
    std::wstring serviceXml;
    com_ptr<IUnknown> service;
    CPWStringBuffer ignoredText;
    if (persistance.GetServiceXML(subscriptionId, serviceXml) != S_OK ||
        VORNAUTILITY::GetServiceObject(serviceXml, service, ignoredText) != S_OK)
        VORNA_LOG(LOG_TRACE, "Failed to create service object");
    return eventAccess->Unsubscribe(service.get(), bstr(subscriptionId).get());
}

HRESULT UnsubscribeFromEventManager(const std::wstring& subscriptionId) {
    com_ptr<IZEBEventManager> eventManager;
    HRESULT result = PlatformServices::CreateInstance(PROGID_EVENT_MANAGER, nullptr, eventManager);
    return result == S_OK ? eventManager->Unsubscribe(bstr(subscriptionId).get()) : result;
}

bool HasReachedEnd(std::wstring_view endDate) {
    const SYSTEMTIME now = LocalNow();
    SYSTEMTIME end{};
    // A year that is over does not parse, and has certainly been reached.
    if (!ParseDateTime(endDate, end))
        return end.wYear > 0 && end.wYear < now.wYear;
    return IsLaterOrEqual(now, end);
}

} // namespace

HRESULT VornaHandler::HandleCallBack(BSTR eventInfo, CPWStringBuffer& errorText) {
    VORNA_SCOPE_TRACE("VornaHandler::HandleCallBack");
    return Guarded(errorText, [&]() -> HRESULT {
        CallBack callBack;
        callBack.document = view_of(eventInfo);
        if (HRESULT result = ReadCallBack(callBack, errorText); result != S_OK)
            return result;
        // Ordinary cookies are never empty; an event without a cookie is not the timer's maintenance tick.
        if (callBack.root == ROOT_TIMER && callBack.clientCookie == Subscription::MAINTENANCE_COOKIE) {
            VORNA_LOG(LOG_TRACE, "Maintainance Callback. Going to start Maintainance");
            return RunMaintenance();
        }
        if (callBack.subscriptionId.empty()) {
            errorText = L"Failed to get subscription ID from Call back XML";
            VORNA_LOG(LOG_TRACE, "Failed to get subscription ID from Call back XML");
            return E_FAIL;
        }
        return Dispatch(callBack, errorText);
    });
}

HRESULT VornaHandler::ReadCallBack(CallBack& callBack, CPWStringBuffer& errorText) {
    XmlAccessor accessor;
    if (accessor.Create() != S_OK) {
        errorText = L"Create Instance of XMLSIMPLEACCESSOR failed";
        VORNA_LOG(LOG_TRACE, "Create Instance of XMLSIMPLEACCESSOR failed");
        return RESULT_XML_ACCESSOR;
    }
    if (accessor.Load(callBack.document) != S_OK) {
        VORNA_LOG(LOG_TRACE, "Failed to Load XML: \n%S", std::wstring(callBack.document).c_str());
        errorText = L"Failed to Load XML: the call back XML is not well formed";
        return RESULT_XML_MALFORMED;
    }
    if (accessor.GetRootName(callBack.root) != S_OK || callBack.root.empty()) {
        errorText = L"Failed to Get the root of call back XML";
        return E_FAIL;
    }
    (void)accessor.QueryText(L"//SubscriptionID", callBack.subscriptionId);
    (void)accessor.QueryText(L"//ClientCookie", callBack.clientCookie);
    VORNA_LOG(LOG_TRACE, "The client cookie is :%S", callBack.clientCookie.c_str());
    return S_OK;
}

HRESULT VornaHandler::Dispatch(const CallBack& callBack, CPWStringBuffer& errorText) {
    VORNA_LOG(LOG_TRACE, "In the callback of : %S", callBack.subscriptionId.c_str());
    SubscriptionPersistance persistance;
    SubscriptionRecord record;
    HRESULT found = persistance.GetSubscription(callBack.subscriptionId, record);
    if (found == RESULT_NO_SUBSCRIPTION) {
        // It may be one whose registration is not recorded yet: the first tick can be faster than its record.
        RegistrationLock registration;
        found = registration.held() ? persistance.GetSubscription(callBack.subscriptionId, record) : E_FAIL;
    }
    if (found == RESULT_NO_SUBSCRIPTION)
        return Unsubscribe(callBack, persistance, errorText);
    if (found != S_OK) {
        errorText = L"Unable to get subscription object";
        VORNA_LOG(LOG_TRACE, "Unable to get subscription object");
        return found;
    }
    if (callBack.clientCookie != record.ClientCookie) {
        errorText = L"The client cookie of the Call back XML is not the subscription's";
        VORNA_LOG(LOG_TRACE, "The client cookie of the Call back XML is not the subscription's : \"%S\"",
                  callBack.clientCookie.c_str());
        return E_ACCESSDENIED;
    }
    Subscription subscription(std::move(record));
    const HRESULT result = subscription.HandleCallBack(callBack.document);
    if (FAILED(result)) {
        errorText = L"Subscription->HandleCallBack returned failure";
        VORNA_LOG(LOG_TRACE, "Subscription->HandleCallBack returned failure");
    }
    return result;
}

// Nobody waits for this callback any more: its sender is told. Only when the sender agrees is the record removed too.
HRESULT VornaHandler::Unsubscribe(const CallBack& callBack, SubscriptionPersistance& persistance,
                                  CPWStringBuffer& errorText) {
    VORNA_LOG(LOG_TRACE, "No data found for the Callback proc. Going to unsubscribe with corresponding event");
    const std::wstring& id = callBack.subscriptionId;
    HRESULT answer;
    const wchar_t* failed;
    const char* passed;
    if (callBack.root == ROOT_TIMER) {
        answer = UnsubscribeFromTimer(persistance, id);
        passed = "Unsubscription with timer Passed";
        failed = L"Unsubscription with timer Failed";
    } else if (callBack.root == ROOT_EVENT_ACCESS) {
        answer = UnsubscribeFromEventAccess(persistance, id);
        passed = "Unsubscription with Event Access passed";
        failed = L"Unsubscription with Event Access Failed";
    } else if (callBack.root == ROOT_EVENT_MANAGER) {
        answer = UnsubscribeFromEventManager(id);
        passed = "Unsubscription with Event Manager Passed";
        failed = L"Unsubscription with Event Manager failed";
    } else {
        errorText =
            L"Invalid callback string. Root doesnt match with timer, eventmanager or event access callback root";
        VORNA_LOG(LOG_TRACE, "Invalid callback string. Root doesnt match with timer, eventmanager or event access "
                             "callback root");
        return E_FAIL;
    }
    if (answer != S_OK) {
        errorText = failed;
        VORNA_LOG(LOG_TRACE, "%S", failed);
        return FAILED(answer) ? answer : E_FAIL;
    }
    (void)persistance.DeleteSubscription(id);
    VORNA_LOG(LOG_TRACE, "%s", passed);
    return S_OK;
}

HRESULT VornaHandler::RunMaintenance() {
    SubscriptionPersistance persistance;
    SubscriptionList list;
    const HRESULT listed = persistance.GetSubscriptionsList(list);
    if (listed == RESULT_NO_SUBSCRIPTION)
        return S_OK;
    if (listed != S_OK)
        return listed;
    for (const SubscriptionListEntry& entry : list) {
        if (!entry.Valid || entry.Aged || entry.EndDate.empty() || !HasReachedEnd(entry.EndDate))
            continue;
        VORNA_LOG(LOG_TRACE, "Subscription Aged. Going to unregister %S with the Event Manager",
                  entry.SubscriptionId.c_str());
        com_ptr<IZEBEventManager> eventManager;
        if (PlatformServices::CreateInstance(PROGID_EVENT_MANAGER, nullptr, eventManager) != S_OK) {
            VORNA_LOG(LOG_TRACE, "Unable to create instance of Event Manager");
            continue;
        }
        if (eventManager->Unsubscribe(bstr(entry.SubscriptionId).get()) != S_OK) {
            VORNA_LOG(LOG_TRACE, "Unsubscription with Event Manager failed");
            continue;
        }
        VORNA_LOG(LOG_TRACE, "Unsubscription with Event Manager Passed");
        if (persistance.SetAgingForSubscription(entry.SubscriptionId) != S_OK)
            VORNA_LOG(LOG_TRACE, "Failed to Set aging flag for the subscription");
    }
    return S_OK;
}

} // namespace vorna
