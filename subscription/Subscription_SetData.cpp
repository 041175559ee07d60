// Passes SetData to the handler of the event type; reads the identity of service objects.

#include "common/com/ProcessorFault.h"
#include "common/com/bstr.h"
#include "common/com/paths.h"
#include "common/com/results.h"
#include "common/com/text_forms.h"
#include "common/log/CatchAll.h"
#include "common/text/ErrorText.h"
#include "common/xml/XmlEscape.h"
#include "subscription/MaintenanceTimer.h"
#include "subscription/Subscription.h"

#include <algorithm>

namespace vorna {

namespace {

using AttributeGetter = HRESULT (STDMETHODCALLTYPE IZEBServiceObject::*)(BSTR*);

// Calls an object that a client may have implemented: a processor fault in it must not end the process.
HRESULT ReadAttribute(IZEBServiceObject& service, AttributeGetter getter, std::wstring& value) {
    bstr text;
    HRESULT result = E_FAIL;
    call_guarded([&] { result = (service.*getter)(text.put()); });
    value = result == S_OK ? text.str() : std::wstring();
    return result;
}

// The values become folder names and, without escaping, part of the persist document.
bool IsUsableIdentity(std::wstring_view value) {
    return !value.empty() && value != L"." && value != L".." && !is_device_name(value) &&
           value.find_first_of(L"\\/:*?\"<>|&") == value.npos &&
           std::none_of(value.begin(), value.end(), [](wchar_t letter) { return letter < L' '; });
}

// A text for people. What XML cannot contain is dropped: a client often counts the terminating zero as a character.
std::wstring FreeText(std::wstring_view text) {
    return EscapeXml(DropForbidden(text));
}

HRESULT ReadAttributes(IUnknown* service, ServiceAttributes& attributes, CPWStringBuffer& errorText) {
    com_ptr<IZEBServiceObject> object;
    call_guarded([&] { service->QueryInterface(__uuidof(IZEBServiceObject), object.put_void()); });
    const struct {
        AttributeGetter getter;
        std::wstring& value;
    } identity[] = {
        {&IZEBServiceObject::get_portID, attributes.portID},
        {&IZEBServiceObject::get_serviceId, attributes.serviceId},
        {&IZEBServiceObject::get_serviceURI, attributes.serviceURI},
    };
    bool valid = static_cast<bool>(object);
    for (const auto& attribute : identity) {
        if (!valid)
            break;
        const HRESULT result = ReadAttribute(*object.get(), attribute.getter, attribute.value);
        valid = result == S_OK && IsUsableIdentity(attribute.value);
        if (!valid)
            VORNA_LOG(LOG_TRACE, "An identity attribute of the service object is not usable (hr: %#x) : \"%S\"",
                      static_cast<unsigned>(result), attribute.value.c_str());
    }
    if (!valid) {
        errorText = L"Invalid Service Object";
        VORNA_LOG(LOG_TRACE, "Invalid Service Object");
        return RESULT_SERVICE_OBJECT;
    }
    // The additional attributes may be missing.
    std::wstring model, address, addressType, friendlyName;
    (void)ReadAttribute(*object.get(), &IZEBServiceObject::get_model, model);
    (void)ReadAttribute(*object.get(), &IZEBServiceObject::get_address, address);
    (void)ReadAttribute(*object.get(), &IZEBServiceObject::get_addressType, addressType);
    (void)ReadAttribute(*object.get(), &IZEBServiceObject::get_friendlyName, friendlyName);
    attributes.serviceXml = L"<service><portID>" + attributes.portID + L"</portID><serviceId>" + attributes.serviceId +
                            L"</serviceId><serviceURI>" + attributes.serviceURI +
                            L"</serviceURI><additionalInfo><model>" + FreeText(model) + L"</model><address>" +
                            FreeText(address) + L"</address><addressType>" + FreeText(addressType) +
                            L"</addressType><friendlyName>" + FreeText(friendlyName) +
                            L"</friendlyName></additionalInfo></service>";
    return S_OK;
}

SubscriptionInfo WithCookie(SubscriptionInfo info, std::wstring_view cookie) {
    info.SetClientCookie(cookie);
    return info;
}

} // namespace

Subscription::Subscription(SubscriptionInfo info, std::wstring clientCookie)
    : info_(WithCookie(std::move(info), clientCookie)) {
    record_.clientCookie = std::move(clientCookie);
    record_.vornaId = new_guid_text();
    record_.subscriptionText = info_.SubscriptionText();
    record_.lifetime = info_.Aging();
}

Subscription::Subscription(SubscriptionRecord record)
    : record_(std::move(record)), info_(WithCookie(SubscriptionInfo(record_.subscriptionText), record_.clientCookie)) {
    record_.lifetime = info_.Aging();
}

void Subscription::SetSubscriptionInfo(SubscriptionInfo info) {
    info_ = WithCookie(std::move(info), record_.clientCookie);
    record_.subscriptionText = info_.SubscriptionText();
    record_.lifetime = info_.Aging();
}

HRESULT Subscription::GetServiceObjectAttributes(IUnknown* service, ServiceAttributes& attributes,
                                                 CPWStringBuffer& errorText) {
    attributes = ServiceAttributes();
    return CatchAll("Subscription::GetServiceObjectAttributes", FailWith(errorText, RESULT_SERVICE_OBJECT),
                    [&] { return ReadAttributes(service, attributes, errorText); });
}

HRESULT Subscription::GetPathFromServiceObjectAttributes(IUnknown* service, std::wstring& path) {
    path.clear();
    ServiceAttributes attributes;
    CPWStringBuffer ignoredText;
    if (GetServiceObjectAttributes(service, attributes, ignoredText) != S_OK) {
        VORNA_LOG(LOG_TRACE, "Subscription::GetPathFromServiceObjectAttributes~~~Invalid Service Object");
        return RESULT_SERVICE_OBJECT;
    }
    path = attributes.serviceId + L"\\" + attributes.serviceURI + L"\\" + attributes.portID;
    return S_OK;
}

HRESULT Subscription::HandleSetData(IUnknown* service, SetDataOperation operation, CPWStringBuffer& errorText) {
    const auto work = [&]() -> HRESULT {
        ServiceAttributes attributes;
        if (HRESULT result = GetServiceObjectAttributes(service, attributes, errorText); result != S_OK)
            return result;
        service_ = com_ptr<IUnknown>(service);
        record_.serviceXml = attributes.serviceXml;
        record_.archiveDirectory =
            ArchiveDirectory(attributes.serviceId + L"\\" + attributes.serviceURI + L"\\" + attributes.portID);

        HRESULT result;
        if (info_.TimerEvent()) {
            VORNA_LOG(LOG_TRACE, "Subscription::HandleSetData.. Register with Timer");
            result = HandleSetDataforTimerEvent(operation, errorText);
        } else if (info_.XDMEvent()) {
            VORNA_LOG(LOG_TRACE, "Subscription::HandleSetData.. Case of XDM Event");
            result = HandleSetDataforXDMEvent(operation, errorText);
        } else if (info_.KROEvent()) {
            VORNA_LOG(LOG_TRACE, "Subscription::HandleSetData.. Case of KRO Event");
            result = HandleSetDataforKROEvent(operation, errorText);
        } else {
            errorText = L"No Event Type Specified for the subscription";
            VORNA_LOG(LOG_TRACE, "No Event Type Specified for the subscription");
            return E_FAIL;
        }

        static constexpr const char* FAILURES[] = {
            "Subscription::HandleSetData.. Registration with corresponding component failed",
            "Subscription::HandleSetData.. Modification with corresponding component failed",
            "Subscription::HandleSetData.. Unregistration with corresponding component failed",
        };
        static constexpr const char* SUCCESSES[] = {
            "Subscription::HandleSetData.. Registration with corresponding component Succeeded",
            "Subscription::HandleSetData.. Modification with corresponding component Succeeded",
            "Subscription::HandleSetData.. UnRegistration with corresponding component Succeeded",
        };
        const auto index = static_cast<size_t>(operation);
        VORNA_LOG(LOG_TRACE, "%s", result == S_OK ? SUCCESSES[index] : FAILURES[index]);
        if (result == S_OK && operation == SetDataOperation::Unregister)
            MaintenanceTimer::Drop(persistance_);
        return result;
    };
    return CatchAll("Subscription::HandleSetData", FailWith(errorText, E_FAIL), work,
                    "Subscription::HandleSetData.. Unknown Error Occured");
}

HRESULT Subscription::GetMaintainanceTimerInfo(std::wstring& schedule) {
    return CatchAll("Subscription::GetMaintainanceTimerInfo", E_FAIL,
                    [&] { return MaintenanceTimer::Schedule(schedule); });
}

HRESULT Subscription::RegisterforMaintananceEvent(std::wstring& maintenanceId) {
    return CatchAll("Subscription::RegisterforMaintananceEvent", E_FAIL,
                    [&] { return MaintenanceTimer::Register(maintenanceId); });
}

} // namespace vorna
