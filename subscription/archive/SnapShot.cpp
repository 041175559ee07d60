#include "subscription/archive/SnapShot.h"

#include "common/log/CatchAll.h"

#include <algorithm>

namespace vorna {

SnapShot::SnapShot(const SYSTEMTIME& time) : id(IdOf(time)), accessTime(time) {}

std::wstring SnapShot::IdOf(const SYSTEMTIME& time) {
    std::wstring id = FormatDateTime(time);
    // Stream names must not contain characters that file names cannot have.
    std::replace(id.begin(), id.end(), L':', L'_');
    return id;
}

SnapShot::SnapShot(std::wstring_view xml) {
    CatchAll(
        "SnapShot::SnapShot", [] {},
        [&] {
            XmlAccessor accessor;
            if (accessor.Create() == S_OK)
                Read(xml, accessor);
        });
}

SnapShot::SnapShot(std::wstring_view xml, XmlAccessor& accessor) {
    CatchAll(
        "SnapShot::SnapShot", [] {}, [&] { Read(xml, accessor); });
}

SnapShot::SnapShot(std::wstring_view name, std::wstring_view time, std::wstring_view flag)
    : id(name), alreadyRead(flag == L"TRUE" ? 1 : 0) {
    // ParseDateTime rejects past years. The fields that were read remain, and such a snapshot never expires.
    (void)ParseDateTime(time, accessTime);
}

void SnapShot::Read(std::wstring_view xml, XmlAccessor& accessor) {
    VORNA_LOG(LOG_TRACE, "Input XML to SnapShot Constructor: %S", std::wstring(xml).c_str());
    if (accessor.Load(xml) != S_OK) {
        VORNA_LOG(LOG_TRACE, "XML not properly formatted");
        return;
    }
    if (accessor.QueryText(L"/SnapShot/@Id", id) != S_OK) {
        VORNA_LOG(LOG_TRACE, "Failed to get /SnapShot/@Id from input XML");
        return;
    }
    std::wstring time, flag;
    if (accessor.QueryText(L"/SnapShot/AccessTime", time) != S_OK) {
        VORNA_LOG(LOG_TRACE, "Failed to get /SnapShot/AccessTime from input XML");
        return;
    }
    // If only the flag is missing, the time is used nevertheless.
    if (accessor.QueryText(L"/SnapShot/AlreadyRead", flag) != S_OK)
        VORNA_LOG(LOG_TRACE, "Failed to Get /SnapShot/AlreadyRead from input XML");
    *this = SnapShot(std::wstring(id), time, flag);
}

void SnapShot::ToXML(std::wstring& xml) const {
    const ScopeTrace trace("SnapShot::ToXML");
    xml.assign(L"<SnapShot Id=\"").append(id).append(L"\"><AccessTime>").append(FormatDateTime(accessTime));
    xml.append(L"</AccessTime><AlreadyRead>").append(alreadyRead == 1 ? L"TRUE" : L"FALSE");
    xml.append(L"</AlreadyRead></SnapShot>");
}

} // namespace vorna
