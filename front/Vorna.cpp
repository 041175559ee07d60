#include "front/Vorna.h"

#include "common/com/ProcessorFault.h"
#include "common/com/results.h"
#include "common/log/Logging.h"
#include "common/text/CPWStringBuffer.h"
#include "front/VornaHandler.h"

namespace vorna {

namespace {

// Does not throw: the text is null if there is no memory for it.
void PutText(BSTR* exceptionInfo, std::wstring_view text) {
    if (exceptionInfo)
        *exceptionInfo = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
}

HRESULT Refuse(BSTR* exceptionInfo, HRESULT result, const wchar_t* text, const char* message) {
    PutText(exceptionInfo, text);
    VORNA_LOG(LOG_TRACE, "%s", message);
    return result;
}

// The handler's text; the default one if the handler has not set any. Literals are not copied before they are reported,
// because a copy needs memory.
std::wstring_view TextOr(const CPWStringBuffer& errorText, const wchar_t* otherwise) {
    return errorText.empty() ? otherwise : errorText.view();
}

// Runs the handler's work; false after an exception or a processor fault.
template <typename Work>
bool Handle(HRESULT& result, Work work) {
    try {
        call_guarded([&] { result = work(); });
        return true;
    } catch (...) {
        result = RESULT_EXCEPTION;
        return false;
    }
}

void TraceExit(const char* method, HRESULT result) {
    VORNA_LOG(LOG_TRACE, "%s - Exiting (hr: %#x)", method, static_cast<unsigned>(result));
}

} // namespace

Vorna::Vorna() {
    StartLogging("QXKELDAN.Vorna");
    VORNA_LOG(LOG_TRACE, "%s - Entering", "Vorna::Vorna");
}

STDMETHODIMP Vorna::GetData(IUnknown* pService, BSTR xdmPath, BSTR xdmPrefixes, BSTR* ExceptionInfo,
                            BSTR* xdmDocument) {
    VORNA_LOG(LOG_TRACE, "%s - Entering", "Vorna::GetData");
    if (!pService)
        return Refuse(ExceptionInfo, RESULT_SERVICE_OBJECT, L"Invalid Service Object",
                      "Invalid Service Object in GetData");
    if (SysStringLen(xdmPath) == 0)
        return Refuse(ExceptionInfo, RESULT_XPATH, L"Invalid XPath", "Invalid xpath in GetData");
    if (!xdmDocument)
        return Refuse(ExceptionInfo, E_POINTER, L"No place for the result document", "No result pointer in GetData");

    CPWStringBuffer errorText;
    HRESULT result = E_FAIL;
    const bool handled = Handle(
        result, [&] { return VornaHandler().HandleGetData(pService, xdmPath, xdmPrefixes, errorText, xdmDocument); });
    if (result != S_OK)
        PutText(ExceptionInfo, handled ? errorText.view() : L"Unknown Exception");
    TraceExit("Vorna::GetData", result);
    return result;
}

STDMETHODIMP Vorna::SetData(IUnknown* pService, BSTR xdmSetDocument, long, BSTR* ExceptionInfo) {
    VORNA_LOG(LOG_TRACE, "%s - Entering", "Vorna::SetData");
    if (!pService)
        return Refuse(ExceptionInfo, RESULT_SERVICE_OBJECT, L"Invalid Service Object",
                      "Invalid Service Object in SetData");
    if (SysStringLen(xdmSetDocument) == 0)
        return Refuse(ExceptionInfo, RESULT_INPUT_STRING, L"Invalid Input String", "Invalid Input XML in SetData");

    CPWStringBuffer errorText;
    HRESULT result = E_FAIL;
    // An exception leaves the text as it is.
    (void)Handle(result, [&] { return VornaHandler().HandleSetData(pService, xdmSetDocument, errorText); });
    if (result != S_OK)
        PutText(ExceptionInfo, TextOr(errorText, L"Unknown Error"));
    TraceExit("Vorna::SetData", result);
    return result;
}

STDMETHODIMP Vorna::Deliver(BSTR EventInfo, BSTR* ExceptionInfo) {
    VORNA_LOG(LOG_TRACE, "%s - Entering", "Vorna::Deliver");
    CPWStringBuffer errorText;
    OutputDebugStringW(EventInfo ? EventInfo : L"");
    HRESULT result = E_FAIL;
    const bool handled = Handle(result, [&] { return VornaHandler().HandleCallBack(EventInfo, errorText); });
    // Only for failures: a success other than S_OK has no error text.
    if (FAILED(result))
        PutText(ExceptionInfo, handled ? TextOr(errorText, L"Unknown exception") : L"UnknownException");
    TraceExit("Vorna::Deliver", result);
    return result;
}

} // namespace vorna
