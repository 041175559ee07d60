// Converts the payload of an event to the data of a snapshot: reduced by an XPath, transformed by a stylesheet.

#include "common/com/results.h"
#include "common/log/Logging.h"
#include "common/services/XmlAccessor.h"
#include "common/sparse/SparseXml.h"
#include "subscription/Subscription.h"

namespace vorna {

namespace {

// The payload of the callback, in its EventPayload or Payload element. E_FAIL if there is none.
HRESULT ReadPayload(XmlAccessor& callback, std::wstring& data) {
    std::wstring root;
    if (callback.GetRootName(root) != S_OK || root.empty()) {
        VORNA_LOG(LOG_TRACE, "Failed to get the root of input XML");
        return E_FAIL;
    }
    if (root == L"EventPayload") {
        VORNA_LOG(LOG_TRACE, "Going to get the Event data from the eventaccess callback");
        std::vector<std::wstring> events;
        if (callback.QueryMarkups(L"/EventPayload/Event", events) != S_OK || events.empty()) {
            VORNA_LOG(LOG_TRACE, "Failed to get /EventPayload/Event from input XML");
            return E_FAIL;
        }
        data = L"<EventPayload>";
        for (const std::wstring& event : events)
            data += event;
        data += L"</EventPayload>";
        return S_OK;
    }
    if (root == L"Event") {
        VORNA_LOG(LOG_TRACE, "Going to get the Payload data from the eventmanager callback");
        if (callback.QueryMarkup(L"/Event/Payload", data) == S_OK)
            return S_OK;
        VORNA_LOG(LOG_TRACE, "Failed to get /Event/Payload from input XML");
    }
    return E_FAIL;
}

// Transforms the document in accessor. output is a document without an XML declaration or, if the stylesheet's output
// is not a document, that output unchanged. False if there is no output.
bool Transform(XmlAccessor& accessor, std::wstring_view transformFile, std::wstring& output) {
    std::wstring transformed;
    if (accessor.TransformByFile(transformFile, transformed) != S_OK || transformed.empty())
        return false;
    if (accessor.Load(transformed) == S_OK && accessor.QueryMarkup(L"/", output) == S_OK)
        return true;
    VORNA_LOG(LOG_NOTICE, "The output of the stylesheet is not an XML document. It is archived as it is");
    output = std::move(transformed);
    return true;
}

} // namespace

HRESULT Subscription::HandleCallbackforEventPayloadData(std::wstring_view callbackXml, std::wstring_view xpath,
                                                        std::wstring_view transformFile) {
    const ScopeTrace trace("Subscription::HandleCallbackforEventPayloadData");
    XmlAccessor accessor;
    if (HRESULT created = accessor.Create(); created != S_OK)
        return created;
    if (HRESULT loaded = accessor.Load(callbackXml); loaded != S_OK) {
        VORNA_LOG(LOG_TRACE, "Load XML Failed for the following XML %S", std::wstring(callbackXml).c_str());
        return FAILED(loaded) ? loaded : RESULT_XML_MALFORMED;
    }
    std::wstring data;
    if (HRESULT read = ReadPayload(accessor, data); read != S_OK)
        return read;
    VORNA_LOG(LOG_TRACE, "Going to Archive the data : %S", data.c_str());

    if (!xpath.empty()) {
        std::wstring narrowed;
        VORNAUTILITY::GetSparseXMLFromXPath(data, xpath, narrowed);
        if (narrowed.empty())
            VORNA_LOG(LOG_TRACE, "Failed to apply xPath to result data. Going ahead to log complete data");
        else
            data = std::move(narrowed);
    }
    if (!transformFile.empty()) {
        if (accessor.Load(data) != S_OK) {
            VORNA_LOG(LOG_TRACE, "Failed to Load PayLoad XML");
            return RESULT_XML_MALFORMED;
        }
        std::wstring output;
        if (Transform(accessor, transformFile, output))
            data = std::move(output);
        else
            VORNA_LOG(LOG_TRACE, "Failed to apply xslt to result data. Going ahead to log complete data");
    }
    const HRESULT result = AddSnapShotToArchive(data, SnapShotIndex::Placement::FreeSecond);
    if (result != S_OK)
        VORNA_LOG(LOG_TRACE, "Adding snapshot data to archive failed");
    return result;
}

} // namespace vorna
