#include "front/VornaHandler.h"

#include "common/com/bstr.h"
#include "common/com/results.h"
#include "common/com/text_forms.h"
#include "common/log/CatchAll.h"
#include "common/text/ErrorText.h"
#include "src/SubscriptionInfo.h"
#include "subscription/Subscription.h"

#include <algorithm>

namespace vorna {

namespace {

// Skips leading delimiters, returns the text up to the next one and moves the position past it.
std::wstring_view NextToken(std::wstring_view text, size_t& position, std::wstring_view delimiters) {
    const size_t begin = std::min(text.find_first_not_of(delimiters, position), text.size());
    const size_t end = std::min(text.find_first_of(delimiters, begin), text.size());
    position = std::min(end + 1, text.size());
    return text.substr(begin, end - begin);
}

// The error text for a subscription that exists but cannot be read.
std::wstring ReadFailureText(HRESULT result) {
    const wchar_t* reason = L"the archive could not be read";
    if (result == HRESULT_FROM_WIN32(ERROR_FILE_CORRUPT))
        reason = L"its archive is damaged";
    else if (result == HRESULT_FROM_WIN32(ERROR_LOCK_VIOLATION))
        reason = L"its archive is held by another process";
    else if (result == HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED))
        reason = L"access to its archive is denied";
    else if (result == RESULT_XML_MALFORMED)
        reason = L"its records are not well formed";
    else if (result == RESULT_XML_ACCESSOR)
        reason = L"Create Instance of XMLSIMPLEACCESSOR failed";
    return std::wstring(L"The subscription could not be read: ") + reason + L" (" + hex_text(result) + L")";
}

constexpr HRESULT ALREADY_REGISTERED = HRESULT_FROM_WIN32(ERROR_ALREADY_EXISTS);
constexpr int MOST_REPEATS = 10;

} // namespace

VornaHandler::ArchivePath VornaHandler::ParseArchivePath(std::wstring_view xPath) {
    ArchivePath path;
    size_t position = 0;
    const std::wstring_view step = NextToken(xPath, position, L"/");
    const size_t inner = xPath.find(L'/', 1);
    path.innerPath = inner == xPath.npos ? xPath : xPath.substr(inner);

    position = 0;
    if (NextToken(step, position, L"[") != L"Archive" || NextToken(step, position, L"=") != L"@ID")
        return path;
    std::wstring value(NextToken(step, position, L"="));
    value.erase(std::remove(value.begin(), value.end(), L']'), value.end());

    position = 0;
    path.archiveId = NextToken(value, position, L"\"'");
    position = 0;
    int tokens = 0;
    while (!NextToken(value, position, L"\" ']").empty())
        ++tokens;
    path.valid = tokens < 2;
    return path;
}

HRESULT VornaHandler::HandleGetData(IUnknown* pService, BSTR xPath, BSTR xdmPrefixes, CPWStringBuffer& errorText,
                                    BSTR* xdmDocument) {
    return CatchAll("VornaHandler::HandleGetData", FailWith(errorText, RESULT_EXCEPTION),
                    [&] { return GetData(pService, view_of(xPath), view_of(xdmPrefixes), errorText, xdmDocument); });
}

HRESULT VornaHandler::GetData(IUnknown* service, std::wstring_view xPath, std::wstring_view prefixes,
                              CPWStringBuffer& errorText, BSTR* xdmDocument) {
    std::wstring servicePath;
    if (Subscription::GetPathFromServiceObjectAttributes(service, servicePath) != S_OK || servicePath.empty())
        return E_FAIL;
    XmlAccessor accessor;
    if (accessor.Create() != S_OK) {
        errorText = L"Create Instance of XMLSIMPLEACCESSOR failed";
        return RESULT_XML_ACCESSOR;
    }
    const ArchivePath path = ParseArchivePath(xPath);
    if (!path.valid) {
        errorText = L"Invalid xPath";
        VORNA_LOG(LOG_TRACE, "Invalid xPath specified");
        return RESULT_XPATH;
    }
    if (path.archiveId.empty()) {
        errorText = L"Invalid xPath. No Archive ID specified";
        return RESULT_XPATH;
    }
    SubscriptionRecord record;
    const HRESULT found = SubscriptionPersistance().GetSubscription(servicePath + L"\\" + path.archiveId, record);
    if (found == RESULT_NO_SUBSCRIPTION) {
        errorText = L"No Subscription exists for the service and archive id";
        return RESULT_NO_SUBSCRIPTION;
    }
    if (found != S_OK) {
        errorText = ReadFailureText(found);
        return found;
    }
    return Subscription(std::move(record)).HandleGetData(path.innerPath, prefixes, xdmDocument, errorText);
}

HRESULT VornaHandler::HandleSetData(IUnknown* pService, BSTR subscriptionInfoXml, CPWStringBuffer& errorText) {
    return CatchAll("VornaHandler::HandleSetData", FailWith(errorText, RESULT_EXCEPTION),
                    [&] { return SetData(pService, view_of(subscriptionInfoXml), errorText); });
}

HRESULT VornaHandler::SetData(IUnknown* service, std::wstring_view document, CPWStringBuffer& errorText) {
    SubscriptionInfo request(document);
    if (request.Status() == RESULT_XML_MALFORMED) {
        errorText = request.ErrorText();
        VORNA_LOG(LOG_TRACE, "Input XML is not properly formatted");
        return RESULT_XML_MALFORMED;
    }
    if (request.ArchiveID().empty()) {
        VORNA_LOG(LOG_TRACE, "VORNAHANDLER::HandleSetData~~Invalid SubscriptionInfo.");
        errorText = request.ErrorText();
        return request.Status();
    }
    std::wstring servicePath;
    HRESULT result = Subscription::GetPathFromServiceObjectAttributes(service, servicePath);
    if (result != S_OK) {
        VORNA_LOG(LOG_TRACE, "VornaHandler::HandleSetData~~~Failed as could not create Path");
        return result;
    }
    const std::wstring key = servicePath + L"\\" + request.ArchiveID();
    result = SetDataOf(service, key, std::move(request), errorText);
    // Another client may register or end the same archive between the look and the registration.
    for (int repeat = 0; repeat < MOST_REPEATS && result == ALREADY_REGISTERED; ++repeat)
        result = SetDataOf(service, key, SubscriptionInfo(document), errorText);
    return result;
}

HRESULT VornaHandler::SetDataOf(IUnknown* service, const std::wstring& key, SubscriptionInfo request,
                                CPWStringBuffer& errorText) {
    SubscriptionRecord record;
    const HRESULT found = SubscriptionPersistance().GetSubscription(key, record);
    // For an existing archive only Collect and Aging of the request are used, and Aging only if it is continued. If
    // Collect is not valid, the request is refused: ending the archive would delete data because of a typing error.
    const bool readable = request.Status() != RESULT_COLLECT && request.Status() != E_FAIL;
    const bool ends = readable && !request.Collect();
    if (found == S_OK) {
        if (!readable || (!ends && request.Status() == RESULT_AGING)) {
            errorText = request.ErrorText();
            return request.Status();
        }
        Subscription subscription(std::move(record));
        auto operation = SetDataOperation::Unregister;
        if (request.Collect()) {
            SubscriptionInfo merged(subscription.Info().SubscriptionText());
            if (HRESULT aged = merged.SetAging(request.Aging()); aged != S_OK) {
                errorText = merged.ErrorText();
                return aged;
            }
            subscription.SetSubscriptionInfo(std::move(merged));
            operation = SetDataOperation::Modify;
        }
        return subscription.HandleSetData(service, operation, errorText);
    }
    if (found != RESULT_NO_SUBSCRIPTION) {
        // A damaged archive can still be ended; otherwise its name could never be used again.
        if (ends && Subscription::IsBeyondReading(found, record))
            return Subscription(std::move(record)).EndUnread(errorText);
        errorText = ReadFailureText(found);
        return found;
    }
    if (!request.Collect()) {
        errorText = L"No subscription exists for the ArchiveID and Service params combination specified";
        return RESULT_NO_SUBSCRIPTION;
    }
    if (request.Status() != S_OK) {
        errorText = request.ErrorText();
        return request.Status();
    }
    Subscription subscription(std::move(request), key);
    if (subscription.Status() != S_OK) {
        errorText = L"Invalid Subscription XML";
        return subscription.Status();
    }
    return subscription.HandleSetData(service, SetDataOperation::Register, errorText);
}

} // namespace vorna
