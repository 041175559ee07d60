#include "platform/xml/Stylesheet.h"

#include "common/com/bstr.h"
#include "common/com/com_server.h"
#include "common/com/unique_any.h"
#include "common/xml/XmlCharacters.h"
#include "platform/xml/Failure.h"
#include "platform/xml/Msxml.h"
#include "platform/xml/XmlDocument.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <string>
#include <utility>

namespace keldan {

namespace {

constexpr wchar_t XSLT_URI[] = L"http://www.w3.org/1999/XSL/Transform";

// Deeply recursive templates need it; MSXML bounds their depth, not their stack.
constexpr SIZE_T TRANSFORM_STACK_BYTES = 16 * 1024 * 1024;

// What XSLT 1.0 has, but for import and include, which name other files.
constexpr std::wstring_view ALLOWED_ELEMENTS[] = {L"apply-imports",
                                                  L"apply-templates",
                                                  L"attribute",
                                                  L"attribute-set",
                                                  L"call-template",
                                                  L"choose",
                                                  L"comment",
                                                  L"copy",
                                                  L"copy-of",
                                                  L"decimal-format",
                                                  L"element",
                                                  L"fallback",
                                                  L"for-each",
                                                  L"if",
                                                  L"key",
                                                  L"message",
                                                  L"namespace-alias",
                                                  L"number",
                                                  L"otherwise",
                                                  L"output",
                                                  L"param",
                                                  L"preserve-space",
                                                  L"processing-instruction",
                                                  L"sort",
                                                  L"strip-space",
                                                  L"stylesheet",
                                                  L"template",
                                                  L"text",
                                                  L"transform",
                                                  L"value-of",
                                                  L"variable",
                                                  L"when",
                                                  L"with-param"};

// On a drive, with its full path: a stylesheet named by a client must not make this process call another machine, nor
// a pipe or a device.
bool IsOnDrive(std::wstring_view path) {
    if (path.starts_with(L"\\\\?\\"))
        path.remove_prefix(4);
    return path.size() > 3 && ((path[0] | 0x20) >= L'a' && (path[0] | 0x20) <= L'z') && path[1] == L':' &&
           (path[2] == L'\\' || path[2] == L'/');
}

std::string ReadBytes(const std::wstring& path) {
    if (!IsOnDrive(path))
        throw Failure{E_ACCESSDENIED};
    vorna::unique_file file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                        FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file)
        throw Failure{vorna::result_from_last_error()};
    // Names such as CON are devices in every folder.
    if (GetFileType(file.get()) != FILE_TYPE_DISK)
        throw Failure{E_ACCESSDENIED};
    LARGE_INTEGER size{};
    if (!GetFileSizeEx(file.get(), &size))
        throw Failure{vorna::result_from_last_error()};
    if (size.QuadPart > static_cast<LONGLONG>(MAXIMUM_STYLESHEET_BYTES))
        throw Failure{vorna::result_from_win32(ERROR_FILE_TOO_LARGE)};
    std::string bytes(static_cast<size_t>(size.QuadPart), '\0');
    DWORD read = 0;
    if (!ReadFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr))
        throw Failure{vorna::result_from_last_error()};
    bytes.resize(read);
    return bytes;
}

std::wstring Widen(std::string_view bytes, UINT codePage) {
    const DWORD flags = codePage == CP_UTF8 ? MB_ERR_INVALID_CHARS : 0;
    const int size = static_cast<int>(bytes.size());
    const int length = MultiByteToWideChar(codePage, flags, bytes.data(), size, nullptr, 0);
    if (length == 0)
        throw Failure{vorna::RESULT_XML_MALFORMED};
    std::wstring text(static_cast<size_t>(length), L'\0');
    MultiByteToWideChar(codePage, flags, bytes.data(), size, text.data(), length);
    return text;
}

// The name in the XML declaration, in lower case; empty where it names none.
std::string DeclaredEncoding(std::string_view bytes) {
    if (!bytes.starts_with("<?xml"))
        return {};
    const auto declaration = bytes.substr(0, bytes.find("?>"));
    size_t begin = declaration.find("encoding");
    begin = begin == declaration.npos ? begin : declaration.find_first_of("\"'", begin);
    if (begin == declaration.npos)
        return {};
    std::string name(declaration.substr(begin + 1, declaration.find(declaration[begin], begin + 1) - begin - 1));
    std::transform(name.begin(), name.end(), name.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    return name;
}

std::wstring Decode(std::string_view bytes) {
    const bool little = bytes.starts_with("\xFF\xFE");
    if (little || bytes.starts_with("\xFE\xFF")) {
        std::wstring text;
        for (size_t i = 2; i + 1 < bytes.size(); i += 2) {
            const auto first = static_cast<unsigned char>(bytes[i]);
            const auto second = static_cast<unsigned char>(bytes[i + 1]);
            text.push_back(static_cast<wchar_t>(little ? first | second << 8 : first << 8 | second));
        }
        return text;
    }
    if (bytes.starts_with("\xEF\xBB\xBF"))
        return Widen(bytes.substr(3), CP_UTF8);
    const std::string encoding = DeclaredEncoding(bytes);
    if (encoding == "iso-8859-1")
        return Widen(bytes, 28591);
    if (!encoding.empty() && encoding != "utf-8" && encoding != "us-ascii")
        throw Failure{vorna::RESULT_XML_MALFORMED};
    return Widen(bytes, CP_UTF8);
}

// Calls of document(), and of functions with a prefix: those come from extensions. Text in quotes is not looked into,
// which refuses a stylesheet that only writes such a text out; that errs on the safe side.
bool CallsOut(std::wstring_view value) {
    for (size_t open = value.find(L'('); open != value.npos; open = value.find(L'(', open + 1)) {
        size_t end = open;
        while (end > 0 && vorna::IsXmlSpace(value[end - 1]))
            --end;
        size_t begin = end;
        while (begin > 0 && vorna::IsNameCharacter(value[begin - 1]))
            --begin;
        const auto name = value.substr(begin, end - begin);
        const auto axis = name.rfind(L"::");
        const auto called = axis == name.npos ? name : name.substr(axis + 2);
        const auto colon = called.find(L':');
        if (called == L"document" || (colon != called.npos && called.substr(colon + 1) != L"node-set"))
            return true;
    }
    return false;
}

void CheckStylesheet(XmlDocument& stylesheet) {
    for (const XmlNode& node : stylesheet.Select(L"//*")) {
        const std::wstring space = node.NamespaceUri();
        if (space == L"urn:schemas-microsoft-com:xslt")
            throw Failure{E_ACCESSDENIED};
        if (space == XSLT_URI && std::find(std::begin(ALLOWED_ELEMENTS), std::end(ALLOWED_ELEMENTS),
                                           node.LocalName()) == std::end(ALLOWED_ELEMENTS))
            throw Failure{E_ACCESSDENIED};
    }
    for (const XmlNode& node : stylesheet.Select(L"//@*"))
        if (node.LocalName() == L"extension-element-prefixes" || CallsOut(node.Text()))
            throw Failure{E_ACCESSDENIED};
}

// Shared by the caller and the thread that transforms; whoever ends last frees it.
struct Transformation {
    std::wstring document;
    std::wstring stylesheet;
    std::wstring result;
    HRESULT status = E_FAIL;
};

void Run(Transformation& work) {
    try {
        const auto document = ParseXml(work.document);
        const auto stylesheet = ParseXml(work.stylesheet);
        vorna::bstr text;
        work.status = document->transformNode(stylesheet.get(), text.put());
        work.result = text.view();
    } catch (const Failure& failed) {
        work.status = failed.result;
    } catch (...) {
        work.status = E_OUTOFMEMORY;
    }
}

DWORD WINAPI RunThread(void* argument) {
    {
        const std::unique_ptr<std::shared_ptr<Transformation>> work(
            static_cast<std::shared_ptr<Transformation>*>(argument));
        if (SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) {
            Run(**work);
            CoUninitialize();
        }
    }
    // The module stays loaded until its last instruction here has run.
    HMODULE module = vorna::this_module();
    --vorna::module_uses;
    FreeLibraryAndExitThread(module, 0);
}

} // namespace

std::wstring Transform(std::wstring_view document, const std::wstring& stylesheetFile) {
    auto work = std::make_shared<Transformation>();
    work->stylesheet = Decode(ReadBytes(stylesheetFile));
    work->document = document;
    {
        XmlDocument stylesheet(work->stylesheet);
        CheckStylesheet(stylesheet);
        work->stylesheet = stylesheet.Text();
    }

    auto argument = std::make_unique<std::shared_ptr<Transformation>>(work);
    HMODULE module = nullptr;
    if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, reinterpret_cast<LPCWSTR>(&RunThread), &module))
        throw Failure{vorna::result_from_last_error()};
    vorna::unique_library loaded(module);
    ++vorna::module_uses;
    vorna::unique_handle thread(CreateThread(nullptr, TRANSFORM_STACK_BYTES, RunThread, argument.get(),
                                             STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr));
    if (!thread) {
        --vorna::module_uses;
        throw Failure{vorna::result_from_last_error()};
    }
    // Both belong to the thread now.
    (void)argument.release();
    (void)loaded.release();
    if (WaitForSingleObject(thread.get(), MAXIMUM_TRANSFORM_MILLISECONDS) != WAIT_OBJECT_0) {
        SetThreadPriority(thread.get(), THREAD_PRIORITY_IDLE);
        throw Failure{vorna::result_from_win32(ERROR_TIMEOUT)};
    }
    if (work->status != S_OK)
        throw Failure{FAILED(work->status) ? work->status : E_FAIL};
    return std::move(work->result);
}

} // namespace keldan
