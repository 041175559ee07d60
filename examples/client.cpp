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

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

using vorna::bstr;
using vorna::com_ptr;

namespace {

// The text of a UTF-8 file.
std::wstring ReadFile(const wchar_t* path) {
    std::ifstream file(path, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    std::wstring text(bytes.size(), L'\0');
    text.resize(static_cast<size_t>(MultiByteToWideChar(CP_UTF8, 0, bytes.data(), static_cast<int>(bytes.size()),
                                                        text.data(), static_cast<int>(text.size()))));
    return text;
}

std::string Utf8(std::wstring_view text) {
    std::string bytes(text.size() * 3, '\0');
    bytes.resize(
        static_cast<size_t>(WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), bytes.data(),
                                                static_cast<int>(bytes.size()), nullptr, nullptr)));
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
    // The service object says whose data is meant. A client can bring one of its own: any object with
    // IZEBServiceObject.
    com_ptr<IZEBServiceFactory> factory;
    HRESULT result = Create(L"QXKELDAN.ZEBService", factory);
    com_ptr<IUnknown> service;
    if (SUCCEEDED(result))
        result = factory->CreateService(bstr(ReadFile(serviceFile)).get(), service.put());

    com_ptr<IXDMAccessEx> archives;
    if (SUCCEEDED(result))
        result = Create(L"QXKELDAN.Vorna", archives);
    if (FAILED(result))
        return result;

    // The error text is written on failure only, so it starts out empty. Both texts belong to the caller.
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
