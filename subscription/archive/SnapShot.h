// The record of one archived capture: which stream holds it, when it was last touched, whether it was read.
//
// A value; copies are independent. Not shared between threads.
#pragma once

#include "common/services/XmlAccessor.h"
#include "common/time/DateTime.h"

#include <string>
#include <string_view>

namespace vorna {

class SnapShot {
  public:
    SnapShot() = default;
    // A fresh capture, not read yet. time is the local time of the capture; it gives the record its Id.
    explicit SnapShot(const SYSTEMTIME& time);
    // From the XML form. Fields that cannot be read keep their defaults, which is logged; never throws.
    explicit SnapShot(std::wstring_view xml);
    // The same with an accessor that the caller has created, for reading many.
    SnapShot(std::wstring_view xml, XmlAccessor& accessor);
    // From the texts of the fields, as the XML form holds them.
    SnapShot(std::wstring_view name, std::wstring_view time, std::wstring_view flag);

    // <SnapShot Id="..."><AccessTime>...</AccessTime><AlreadyRead>TRUE|FALSE</AlreadyRead></SnapShot>
    void ToXML(std::wstring& xml) const;

    // Also the name of the stream in the subscription's snapshot archive.
    std::wstring id;
    // Local time of the capture, later of the last retrieval.
    SYSTEMTIME accessTime{};
    // 1 once a client has read the snapshot.
    int alreadyRead = 0;

  private:
    void Read(std::wstring_view xml, XmlAccessor& accessor);
};

} // namespace vorna
