// Routes a callback: to its subscription, to maintenance, or, if no subscription knows it, back to the sender to be
// unregistered.

#include "common/com/bstr.h"
#include "common/com/results.h"
#include "common/log/CatchAll.h"
#include "common/services/ServiceObjects.h"
#include "common/text/ErrorText.h"
#include "front/VornaHandler.h"
#include "subscription/EventAccessSender.h"
#include "subscription/EventManagerSender.h"
#include "subscription/MaintenanceTimer.h"
#include "subscription/Subscription.h"
#include "subscription/TimerSender.h"

#include <memory>

namespace vorna {

namespace {

// A kind of sender, identified by the root element of its callback documents, and the texts for it.
struct SenderKind {
    const wchar_t* root;
    const char* passed;
    const wchar_t* failed;
    bool (*serves)(const SubscriptionInfo& info);
    std::unique_ptr<Sender> (*make)(SubscriptionPersistance& persistance, const std::wstring& subscriptionId);
};

std::unique_ptr<Sender> MakeTimer(SubscriptionPersistance& persistance, const std::wstring&) {
    std::wstring clientId;
    (void)persistance.GetClientID(clientId);
    return std::make_unique<TimerSender>(nullptr, clientId);
}

std::unique_ptr<Sender> MakeEventAccess(SubscriptionPersistance& persistance, const std::wstring& subscriptionId) {
    std::wstring serviceXml;
    com_ptr<IUnknown> service;
    CPWStringBuffer ignoredText;
    if (persistance.GetServiceXML(subscriptionId, serviceXml) != S_OK ||
        VORNAUTILITY::GetServiceObject(serviceXml, service, ignoredText) != S_OK)
        VORNA_LOG(LOG_TRACE, "Failed to create service object");
    return std::make_unique<EventAccessSender>(nullptr, service);
}

std::unique_ptr<Sender> MakeEventManager(SubscriptionPersistance&, const std::wstring&) {
    return std::make_unique<EventManagerSender>(nullptr);
}

constexpr SenderKind TIMER{L"TimerEvent", "Unsubscription with timer Passed", L"Unsubscription with timer Failed",
                           [](const SubscriptionInfo& info) { return info.TimerEvent() != nullptr; }, MakeTimer};
constexpr SenderKind EVENT_ACCESS{
    L"EventPayload", "Unsubscription with Event Access passed", L"Unsubscription with Event Access Failed",
    [](const SubscriptionInfo& info) { return info.XDMEvent() != nullptr; }, MakeEventAccess};
constexpr SenderKind EVENT_MANAGER{
    L"Event", "Unsubscription with Event Manager Passed", L"Unsubscription with Event Manager failed",
    [](const SubscriptionInfo& info) { return info.KROEvent() != nullptr; }, MakeEventManager};

const SenderKind* FindSender(std::wstring_view root) {
    for (const SenderKind* kind : {&TIMER, &EVENT_ACCESS, &EVENT_MANAGER})
        if (root == kind->root)
            return kind;
    return nullptr;
}

// Reads an element that the sender has written. The payload may contain elements of the same name, so a child of the
// root is preferred to the first one anywhere in the document.
std::wstring ReadOwnText(XmlAccessor& callBack, const std::wstring& name) {
    std::wstring markup;
    const std::wstring own = L"/*/" + name;
    std::vector<std::wstring> texts;
    (void)callBack.QueryTexts(callBack.QueryMarkup(own, markup) == S_OK ? own : L"//" + name, texts);
    return texts.empty() ? std::wstring() : texts.front();
}

// The folder of the archives of an entry; empty if its cookie contains no path.
std::wstring DirectoryOf(const SubscriptionListEntry& entry) {
    const size_t end = entry.clientCookie.find_last_of(L'\\');
    return end == std::wstring::npos ? std::wstring() : ArchiveDirectory(entry.clientCookie.substr(0, end));
}

} // namespace

HRESULT VornaHandler::HandleCallBack(BSTR eventInfo, CPWStringBuffer& errorText) {
    return CatchAll("VornaHandler::HandleCallBack", FailWith(errorText, RESULT_EXCEPTION), [&]() -> HRESULT {
        CallBack callBack;
        callBack.document = view_of(eventInfo);
        if (HRESULT result = ReadCallBack(callBack, errorText); result != S_OK)
            return result;
        // Only the timer sends maintenance ticks; a callback of another sender without a cookie is not one.
        if (callBack.root == TIMER.root && callBack.clientCookie == MaintenanceTimer::COOKIE) {
            VORNA_LOG(LOG_TRACE, "Maintainance Callback. Going to start Maintainance");
            const HRESULT result = RunMaintenance();
            SubscriptionPersistance persistance;
            MaintenanceTimer::EndUnrecorded(persistance, callBack.subscriptionId);
            return result;
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
        return RESULT_XML_ACCESSOR;
    }
    if (accessor.Load(callBack.document) != S_OK) {
        VORNA_LOG(LOG_TRACE, "Failed to Load XML: \n%S", std::wstring(callBack.document).c_str());
        errorText = L"Failed to Get the root of call back XML";
        return RESULT_XML_MALFORMED;
    }
    if (accessor.GetRootName(callBack.root) != S_OK || callBack.root.empty()) {
        errorText = L"Failed to Get the root of call back XML";
        return E_FAIL;
    }
    callBack.subscriptionId = ReadOwnText(accessor, L"SubscriptionID");
    callBack.clientCookie = ReadOwnText(accessor, L"ClientCookie");
    VORNA_LOG(LOG_TRACE, "The client cookie is :%S", callBack.clientCookie.c_str());
    return S_OK;
}

HRESULT VornaHandler::Dispatch(const CallBack& callBack, CPWStringBuffer& errorText) {
    VORNA_LOG(LOG_TRACE, "In the callback of : %S", callBack.subscriptionId.c_str());
    SubscriptionPersistance persistance;
    SubscriptionRecord record;
    HRESULT found = persistance.GetSubscription(callBack.subscriptionId, record);
    if (found == RESULT_NO_SUBSCRIPTION) {
        // The registration may not be recorded yet: the first callback can arrive before that.
        const NamedLock registration = RegistrationLock(callBack.clientCookie);
        found = registration.Held() ? persistance.GetSubscription(callBack.subscriptionId, record) : E_FAIL;
    }
    // Without a persist document nothing is known about any subscription, so none is ended.
    if (found == RESULT_NO_SUBSCRIPTION && persistance.HasDocument())
        return Unsubscribe(callBack, persistance, errorText);
    if (found != S_OK) {
        errorText = L"Unable to get subscription object";
        VORNA_LOG(LOG_TRACE, "Unable to get subscription object");
        return found == RESULT_NO_SUBSCRIPTION ? E_FAIL : found;
    }
    if (callBack.clientCookie != record.clientCookie) {
        errorText = L"The client cookie of the Call back XML is not the subscription's";
        VORNA_LOG(LOG_TRACE, "The client cookie of the Call back XML is not the subscription's : \"%S\"",
                  callBack.clientCookie.c_str());
        return E_ACCESSDENIED;
    }
    Subscription subscription(std::move(record));
    const SenderKind* sender = FindSender(callBack.root);
    if (subscription.Status() == S_OK && (!sender || !sender->serves(subscription.Info()))) {
        errorText = L"The root of the Call back XML is not that of the subscription's sender";
        VORNA_LOG(LOG_TRACE, "The root of the Call back XML is not that of the subscription's sender : \"%S\"",
                  callBack.root.c_str());
        return E_ACCESSDENIED;
    }
    const HRESULT result = subscription.HandleCallBack(callBack.document);
    if (FAILED(result)) {
        errorText = L"Subscription->HandleCallBack returned failure";
        VORNA_LOG(LOG_TRACE, "Subscription->HandleCallBack returned failure");
    }
    return result;
}

// Ends a registration that no active subscription has. The record is marked as ended only if the sender succeeds.
HRESULT VornaHandler::Unsubscribe(const CallBack& callBack, SubscriptionPersistance& persistance,
                                  CPWStringBuffer& errorText) {
    VORNA_LOG(LOG_TRACE, "No data found for the Callback proc. Going to unsubscribe with corresponding event");
    const SenderKind* kind = FindSender(callBack.root);
    if (!kind) {
        errorText =
            L"Invalid callback string. Root doesnt match with timer, eventmanager or event access callback root";
        VORNA_LOG(LOG_TRACE,
                  "Invalid callback string. Root doesnt match with timer, eventmanager or event access callback root");
        return E_FAIL;
    }
    const std::wstring& id = callBack.subscriptionId;
    const auto sender = kind->make(persistance, id);
    CPWStringBuffer ignoredText;
    HRESULT answer = sender->Create(ignoredText);
    if (answer == S_OK)
        answer = sender->Unsubscribe(id);
    // A registration that no longer exists counts as ended.
    if (answer != S_OK && !Sender::IsGone(answer)) {
        errorText = kind->failed;
        VORNA_LOG(LOG_TRACE, "%S", kind->failed);
        return FAILED(answer) ? answer : E_FAIL;
    }
    (void)persistance.DeleteSubscription(id);
    VORNA_LOG(LOG_TRACE, "%s", kind->passed);
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
    for (const SubscriptionListEntry& entry : list)
        if (entry.valid && !entry.aged)
            Maintain(entry, persistance);
    return S_OK;
}

// Ends an event-manager subscription that has reached its end date, or restores one that the event manager has lost.
// The other senders end registrations themselves.
void VornaHandler::Maintain(const SubscriptionListEntry& entry, SubscriptionPersistance& persistance) {
    const bool ended = !entry.endDate.empty() && Subscription::HasReachedEnd(entry.endDate);
    std::wstring text;
    SubscriptionRecord record;
    HRESULT result = persistance.GetSubscriptionText({DirectoryOf(entry), entry.subscriptionId}, text);
    if (result == S_OK && !SubscriptionInfo(text).KROEvent())
        return;
    if (result == S_OK)
        result = persistance.GetSubscription(entry.subscriptionId, record);
    if (result != S_OK) {
        VORNA_LOG(LOG_WARNING, "The subscription %S cannot be read for its maintenance (hr: %#x)",
                  entry.subscriptionId.c_str(), static_cast<unsigned>(result));
        if (!ended)
            return;
        // The ID is enough to end it; a subscription of another component is unknown to the event manager.
        record = SubscriptionRecord();
        record.subscriptionId = entry.subscriptionId;
        record.vornaId = entry.vornaId;
        record.clientCookie = entry.clientCookie;
    }
    Subscription subscription(std::move(record));
    result = ended ? subscription.UnregisterAged(entry.endDate) : subscription.RestoreRegistration();
    if (FAILED(result))
        VORNA_LOG(LOG_TRACE, "The maintenance of subscription %S failed (hr: %#x)", entry.subscriptionId.c_str(),
                  static_cast<unsigned>(result));
}

} // namespace vorna
