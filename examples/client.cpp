// A client of the archive component in C++: reads an archive and prints it.
//
//   example_client SERVICE-FILE XPATH        example_client service-host.xml "/Archive[@ID='host-memory']//Memory"
//
// The headers come from idl/VornaLib.idl (the component) and idl/QXKeldan.idl (the platform's service factory).

#include "QXKeldan.h"
#include "VornaLib.h"
#include "common/com/bstr.h"
#include "common/com/com_ptr.h"
#include "common/com/scope_exit.h"
#include "common/xml/DocumentText.h"

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

using vorna::bstr;
using vorna::com_ptr;

namespace {

// The text of an XML file without its declaration; empty if it cannot be read.
std::wstring ReadXml(const wchar_t* path) {
    std::ifstream file(path, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    std::wstring text;
    std::wstring reason;
    return vorna::DecodeXmlText(bytes, text, reason) ? text : std::wstring();
}

std::string Utf8(std::wstring_view text) {
    std::string bytes;
    (void)vorna::EncodeUtf8(text, bytes);
    return bytes;
}

template <typename Interface>
HRESULT Create(const wchar_t* progId, com_ptr<Interface>& object) {
    CLSID clsid{};
    const HRESULT result = CLSIDFromProgID(progId, &clsid);
    return FAILED(result) ? result
                          : CoCreateInstance(clsid, nullptr, CLSCTX_ALL, __uuidof(Interface), object.put_void());
}

HRESULT PrintArchive(const wchar_t* serviceFile, const wchar_t* xpath) {
    // The service object identifies the service. A client can also implement its own: any object with
    // IZEBServiceObject.
    com_ptr<IZEBServiceFactory> factory;
    HRESULT result = Create(L"QXKELDAN.ZEBService", factory);
    com_ptr<IUnknown> service;
    if (SUCCEEDED(result))
        result = factory->CreateService(bstr(ReadXml(serviceFile)).get(), service.put());

    com_ptr<IXDMAccessEx> archives;
    if (SUCCEEDED(result))
        result = Create(L"QXKELDAN.Vorna", archives);
    if (FAILED(result))
        return result;

    // The error text is written only on failure. The caller owns both texts.
    bstr errorText;
    bstr document;
    result = archives->GetData(service.get(), bstr(xpath).get(), nullptr, errorText.put(), document.put());
    if (result == S_OK)
        std::printf("%s\n", Utf8(document.view()).c_str());
    else
        std::fprintf(stderr, "%s\n", Utf8(errorText.view()).c_str());
    return result;
}

} // namespace

int wmain(int count, wchar_t** words) {
    if (count != 3) {
        std::fprintf(stderr, "usage: example_client SERVICE-FILE XPATH\n");
        return 2;
    }
    if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)))
        return 1;
    const vorna::scope_exit leave([] { CoUninitialize(); });
    const HRESULT result = PrintArchive(words[1], words[2]);
    if (result != S_OK)
        std::fprintf(stderr, "0x%08lX\n", static_cast<unsigned long>(result));
    return result == S_OK ? 0 : 1;
}
