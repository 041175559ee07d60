// The component as any client uses it: a service object and two methods.
#pragma once

#include "VornaLib.h"
#include "common/com/com_ptr.h"

#include <unknwn.h>

#include <string>
#include <string_view>

namespace vornactl {

// One service, and the component. Needs COM on the thread. Every operation throws Failure with the component's text.
class ArchiveClient {
  public:
    // serviceFile: the file with the service document.
    explicit ArchiveClient(const std::wstring& serviceFile);

    // doing: what the message says was tried.
    void SetData(std::wstring_view document, const std::wstring& doing);
    std::wstring GetData(std::wstring_view xpath, std::wstring_view prefixes);

  private:
    vorna::com_ptr<IUnknown> service_;
    vorna::com_ptr<IXDMAccessEx> component_;
};

} // namespace vornactl
