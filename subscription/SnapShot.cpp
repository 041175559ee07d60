#include "subscription/SnapShot.h"

#include "common/Logging.h"

#include <algorithm>

namespace vorna {

SnapShot::SnapShot(const SYSTEMTIME& time) : Id(FormatDateTime(time)), AccessTime(time) {
    // A stream name must not hold what a file name cannot.
    std::replace(Id.begin(), Id.end(), L':', L'_');
}

SnapShot::SnapShot(std::wstring_view xml) {
    VORNA_SCOPE_TRACE("SnapShot::SnapShot");
    try {
        XmlAccessor accessor;
        if (accessor.Create() != S_OK) {
            VORNA_LOG(LOG_TRACE, "Create Instance of XMLSIMPLEACCESSOR failed");
            return;
        }
        Read(xml, accessor);
    } catch (...) {
        VORNA_LOG(LOG_TRACE, "Unknown Exception Occured");
    }
}

SnapShot::SnapShot(std::wstring_view xml, XmlAccessor& accessor) {
    VORNA_SCOPE_TRACE("SnapShot::SnapShot");
    try {
        Read(xml, accessor);
    } catch (...) {
        VORNA_LOG(LOG_TRACE, "Unknown Exception Occured");
    }
}

void SnapShot::Read(std::wstring_view xml, XmlAccessor& accessor) {
    VORNA_LOG(LOG_TRACE, "Input XML to SnapShot Constructor: %S", std::wstring(xml).c_str());
    if (accessor.Load(xml) != S_OK) {
        VORNA_LOG(LOG_TRACE, "XML not properly formatted");
        return;
    }
    if (accessor.QueryText(L"/SnapShot/@Id", Id) != S_OK) {
        VORNA_LOG(LOG_TRACE, "Failed to get /SnapShot/@Id from input XML");
        return;
    }
    std::wstring text;
    if (accessor.QueryText(L"/SnapShot/AccessTime", text) != S_OK) {
        VORNA_LOG(LOG_TRACE, "Failed to get /SnapShot/AccessTime from input XML");
        return;
    }
    // A time of last year does not parse; what was read of it stays, and such a snapshot never ages.
    (void)ParseDateTime(text, AccessTime);
    if (accessor.QueryText(L"/SnapShot/AlreadyRead", text) != S_OK) {
        VORNA_LOG(LOG_TRACE, "Failed to Get /SnapShot/AlreadyRead from input XML");
        return;
    }
    AlreadyRead = text == L"TRUE" ? 1 : 0;
}

void SnapShot::ToXML(std::wstring& xml) const {
    VORNA_SCOPE_TRACE("SnapShot::ToXML");
    xml.assign(L"<SnapShot Id=\"").append(Id).append(L"\"><AccessTime>").append(FormatDateTime(AccessTime));
    xml.append(L"</AccessTime><AlreadyRead>").append(AlreadyRead == 1 ? L"TRUE" : L"FALSE");
    xml.append(L"</AlreadyRead></SnapShot>");
}

} // namespace vorna
