// The component as any client uses it: a service object and two methods.
#pragma once

#include "VornaLib.h"
#include "common/com_ptr.h"

#include <unknwn.h>

#include <string>
#include <string_view>

namespace vornactl {

// One service, and the component. Needs COM on the thread. Every operation throws failure with the component's text.
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

// What a subscription document asks for, as far as it can be read.
struct subscription_summary {
    std::wstring archiveId;
    bool collect = false;
};
subscription_summary Summarise(std::wstring_view document);

// The document that ends an archive which is there.
std::wstring EndingDocument(std::wstring_view archiveId);

} // namespace vornactl
