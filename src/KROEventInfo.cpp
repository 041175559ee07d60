#include "src/KROEventInfo.h"

#include "common/log/CatchAll.h"
#include "common/services/XmlAccessor.h"
#include "common/xml/XmlEscape.h"

namespace vorna {

KROEventDocuments KROEventInfo::ToXML() const {
    return CatchAll("KROEventInfo::ToXML", KROEventDocuments(), [&]() -> KROEventDocuments {
        KROEventDocuments documents;
        // The tabs are part of the document.
        documents.subscription =
            L"<SubscriptionInfo>\t\t\t<EventName>" + EscapeXml(name) +
            L"</EventName>\t\t\t<ReliabilityOption>Dont care</ReliabilityOption>\t\t\t<ClientCookie>" +
            EscapeXml(clientCookie) + L"</ClientCookie>\t\t\t</SubscriptionInfo>";
        documents.filter = L"<FilterProperties>";
        for (const EventFilter& entry : filters) {
            if (entry.name.empty())
                continue;
            documents.filter += L"<FilterOn><Name>" + EscapeXml(entry.name) + L"</Name><Value>" +
                                EscapeXml(entry.value) + L"</Value></FilterOn>";
        }
        documents.filter += L"</FilterProperties>";
        XmlAccessor accessor;
        // Returned nevertheless: the event manager rejects it and returns the reason.
        if (accessor.Create() == S_OK && accessor.Load(documents.filter) != S_OK)
            VORNA_LOG(LOG_TRACE, "The filter document is not well-formed : %S", documents.filter.c_str());
        return documents;
    });
}

} // namespace vorna
