// The component as any client uses it: a service object and two methods.
#pragma once

#include "VornaLib.h"
#include "common/com/com_ptr.h"

#include <unknwn.h>

#include <string>
#include <string_view>

namespace vornactl {

// The component, used for one service. Needs COM on the thread. Every operation throws Failure with the component's
// text.
class ArchiveClient {
  public:
    // serviceFile: the file with the service document.
    explicit ArchiveClient(const std::wstring& serviceFile);

    // action: what the message says was tried, for example "reading a.xml".
    void SetData(std::wstring_view document, const std::wstring& action);
    std::wstring GetData(std::wstring_view xpath, std::wstring_view prefixes);

  private:
    vorna::com_ptr<IUnknown> service_;
    vorna::com_ptr<IXDMAccessEx> component_;
};

} // namespace vornactl
