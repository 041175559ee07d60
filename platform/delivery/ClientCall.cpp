#include "platform/delivery/ClientCall.h"

#include "VornaLib.h"
#include "common/com/ProcessorFault.h"
#include "common/com/bstr.h"
#include "common/com/com_ptr.h"
#include "common/com/result_error.h"
#include "platform/hosting/Report.h"

#include <objbase.h>

namespace keldan {

namespace {

HRESULT Deliver(const std::wstring& progId, const std::wstring& document) {
    CLSID clsid{};
    if (HRESULT result = CLSIDFromProgID(progId.c_str(), &clsid); FAILED(result))
        return result;
    vorna::com_ptr<IUnknown> object;
    if (HRESULT result = CoCreateInstance(clsid, nullptr, CLSCTX_ALL, IID_IUnknown, object.put_void()); FAILED(result))
        return result;
    const auto client = object.try_as<IComBaseClient>();
    if (!client)
        return E_NOINTERFACE;
    vorna::bstr error;
    return client->Deliver(vorna::bstr(document).get(), error.put());
}

} // namespace

HRESULT DeliverToClient(const std::wstring& progId, const std::wstring& document) {
    return vorna::closed_door([&] {
        HRESULT result = E_FAIL;
        try {
            vorna::call_guarded([&] { result = Deliver(progId, document); });
        } catch (const vorna::processor_fault&) {
            Report(L"a processor fault in the client " + progId);
            throw;
        }
        return result;
    });
}

} // namespace keldan
