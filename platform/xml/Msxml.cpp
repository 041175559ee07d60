#include "platform/xml/Msxml.h"

#include "common/com/bstr.h"
#include "common/com/result_error.h"

namespace keldan {

namespace {

vorna::com_ptr<IClassFactory> FindClass() {
    vorna::com_ptr<IClassFactory> found;
    HRESULT result = REGDB_E_CLASSNOTREG;
    // Current systems no longer ship MSXML 4.0.
    for (const wchar_t* progId : {L"MSXML2.DOMDocument.4.0", L"MSXML2.DOMDocument.6.0"}) {
        CLSID clsid{};
        result = CLSIDFromProgID(progId, &clsid);
        if (SUCCEEDED(result))
            result = CoGetClassObject(clsid, CLSCTX_INPROC_SERVER, nullptr, __uuidof(IClassFactory), found.put_void());
        if (SUCCEEDED(result))
            break;
    }
    vorna::throw_if_failed(result);
    // The class object outlives all apartments, so its module must stay loaded: COM unloads modules with the last
    // apartment.
    HMODULE module = nullptr;
    if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                            *reinterpret_cast<LPCWSTR*>(found.get()), &module))
        vorna::throw_if_failed(vorna::result_from_last_error());
    return found;
}

} // namespace

vorna::com_ptr<IXMLDOMDocument2> ParseXml(std::wstring_view text) {
    // Finding the class by its name takes longer than parsing a small document. Never released: COM may already be
    // uninitialised when the process ends.
    static IClassFactory* const factory = FindClass().detach();
    vorna::com_ptr<IXMLDOMDocument2> document;
    vorna::throw_if_failed(factory->CreateInstance(nullptr, __uuidof(IXMLDOMDocument2), document.put_void()));
    vorna::throw_if_failed(document->put_async(VARIANT_FALSE));
    vorna::throw_if_failed(document->put_resolveExternals(VARIANT_FALSE));
    vorna::throw_if_failed(document->put_validateOnParse(VARIANT_FALSE));
    vorna::throw_if_failed(document->put_preserveWhiteSpace(VARIANT_TRUE));
    VARIANT_BOOL loaded = VARIANT_FALSE;
    if (FAILED(document->loadXML(vorna::bstr(text).get(), &loaded)) || loaded != VARIANT_TRUE)
        throw vorna::result_error(vorna::RESULT_XML_MALFORMED);
    return document;
}

} // namespace keldan
