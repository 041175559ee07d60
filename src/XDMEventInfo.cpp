#include "src/XDMEventInfo.h"

#include "common/log/CatchAll.h"
#include "common/services/XmlAccessor.h"
#include "common/services/platformservices.h"
#include "common/xml/XmlEscape.h"

namespace vorna {

std::wstring XDMEventInfo::ToXML() const {
    return CatchAll("XDMEventInfo::ToXML", std::wstring(), [&]() -> std::wstring {
        if (events.empty())
            return {};
        std::wstring document = L"<EventSubscription ignoreErrors=\"false\">";
        document += L"<Notification method=\"kro:IBaseClient\"><Input><URI>progID:";
        document += PROGID_VORNA;
        document += L"</URI></Input></Notification><Duration>" + FormatDuration(duration) + L"</Duration>";
        if (!clientCookie.empty())
            document += L"<ClientCookie>" + EscapeXml(clientCookie) + L"</ClientCookie>";
        for (const DataModelEvent& event : events) {
            if (event.xpath.empty())
                continue;
            document += L"<Event><XPath>" + EscapeXml(event.xpath) + L"</XPath>";
            if (!event.trigger.empty())
                document += L"<Trigger>" + EscapeXml(event.trigger) + L"</Trigger>";
            if (!event.reset.empty())
                document += L"<Reset>" + EscapeXml(event.reset) + L"</Reset>";
            document += L"</Event>";
        }
        document += L"</EventSubscription>";
        XmlAccessor accessor;
        // Without an accessor the document is returned unchecked.
        if (accessor.Create() == S_OK && accessor.Load(document) != S_OK) {
            VORNA_LOG(LOG_TRACE, "The event subscription document is not well-formed : %S", document.c_str());
            document.clear();
        }
        return document;
    });
}

} // namespace vorna
