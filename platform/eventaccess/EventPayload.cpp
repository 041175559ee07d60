#include "platform/eventaccess/EventPayload.h"

#include "common/com/result_error.h"
#include "common/time/DateTime.h"
#include "common/xml/XmlEscape.h"
#include "platform/hosting/Report.h"

namespace keldan {

namespace {

// Whether a parser with the limit of this platform accepts the data at their place in the callback.
bool IsReadable(const std::wstring& data) {
    try {
        (void)ScanXml(L"<EventPayload><Event><Data>" + data + L"</Data></Event></EventPayload>");
        return true;
    } catch (const vorna::result_error&) {
        return false;
    }
}

} // namespace

std::wstring MakeEventBody(ModelReading& reading, const std::vector<std::wstring>& xpaths) {
    const std::wstring time = vorna::FormatDateTime(vorna::LocalNow());
    std::wstring body;
    for (const std::wstring& xpath : xpaths) {
        body.append(L"<Event><XPath>");
        vorna::AppendEscaped(body, xpath);
        body.append(L"</XPath><Time>").append(time).append(L"</Time><Data>");
        if (const std::wstring& data = reading.Data(xpath);
            body.size() + data.size() <= LONGEST_EVENT_BODY && IsReadable(data))
            body.append(data);
        else
            Report(L"the data of an event are too large or nest too deep and are left out: \"" + xpath + L"\"");
        body.append(L"</Data></Event>");
    }
    return body;
}

} // namespace keldan
