// The record of one archived capture: its stream, the time of its last access, and whether it was read.
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
    // A new capture, not read yet. time: the local time of the capture, which also determines the Id.
    explicit SnapShot(const SYSTEMTIME& time);
    static std::wstring IdOf(const SYSTEMTIME& time);
    // From the XML form. Fields that cannot be read keep their defaults, which is logged; never throws.
    explicit SnapShot(std::wstring_view xml);
    // The same with an accessor that the caller has created, for reading several records.
    SnapShot(std::wstring_view xml, XmlAccessor& accessor);
    // From the texts of the fields, as in the XML form.
    SnapShot(std::wstring_view name, std::wstring_view time, std::wstring_view flag);

    // <SnapShot Id="..."><AccessTime>...</AccessTime><AlreadyRead>TRUE|FALSE</AlreadyRead></SnapShot>
    void ToXML(std::wstring& xml) const;

    // Also the name of the stream in the subscription's snapshot archive.
    std::wstring id;
    // The local time of the capture or, once read, of the last retrieval.
    SYSTEMTIME accessTime{};
    // 1 once a client has read the snapshot.
    int alreadyRead = 0;

  private:
    void Read(std::wstring_view xml, XmlAccessor& accessor);
};

} // namespace vorna
