#include "platform/delivery/ClientCall.h"

#include "VornaLib.h"
#include "common/com/ProcessorFault.h"
#include "common/com/bstr.h"
#include "common/com/com_ptr.h"

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
    HRESULT result = E_FAIL;
    try {
        vorna::call_guarded([&] { result = Deliver(progId, document); });
    } catch (const vorna::processor_fault&) {
        OutputDebugStringW((L"QXKeldanHost: a processor fault in the client " + progId + L"\n").c_str());
        result = E_UNEXPECTED;
    } catch (const std::exception&) {
        result = E_OUTOFMEMORY;
    }
    return result;
}

} // namespace keldan
