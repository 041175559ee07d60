// The component's one class: checks arguments, hands the work to a handler of its own for each call, and turns every
// failure into a result and a text.
//
// Free-threaded: any thread may call any method at any time; the object holds no state. Nothing is ever thrown out of
// a method, processor faults inside included.
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
