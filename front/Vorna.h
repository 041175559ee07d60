// The component's only class: checks arguments, passes each call to a new VornaHandler, and converts every failure to a
// result and a text.
//
// Free-threaded: any thread may call any method at any time; the object holds no state. No method throws, not even
// after a processor fault.
#pragma once

#include "VornaLib.h"
#include "common/com/com_server.h"

namespace vorna {

class Vorna : public dispatch_object<Vorna, IXDMAccessEx, IComBaseClient> {
  public:
    // Counts one user of the log.
    Vorna();

    // IXDMAccessEx
    STDMETHODIMP GetData(IUnknown* pService, BSTR xdmPath, BSTR xdmPrefixes, BSTR* ExceptionInfo,
                         BSTR* xdmDocument) override;
    STDMETHODIMP SetData(IUnknown* pService, BSTR xdmSetDocument, long reportFailure, BSTR* ExceptionInfo) override;

    // IComBaseClient
    STDMETHODIMP Deliver(BSTR EventInfo, BSTR* ExceptionInfo) override;
};

} // namespace vorna
