#include "platform/xml/Stylesheet.h"

#include "common/com/bstr.h"
#include "common/com/com_server.h"
#include "common/com/files.h"
#include "common/com/paths.h"
#include "common/xml/DocumentText.h"
#include "common/xml/XmlCharacters.h"
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

// For deeply recursive templates: MSXML limits their depth, but not the stack that they need.
constexpr SIZE_T TRANSFORM_STACK_BYTES = 16 * 1024 * 1024;

// The elements of XSLT 1.0 except import and include, which name other files.
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

// The text of the file without its XML declaration.
std::wstring ReadStylesheet(const std::wstring& path) {
    // A client's stylesheet must not make this process call another machine or open a pipe or a device.
    if (!vorna::is_on_drive(path))
        throw vorna::result_error(E_ACCESSDENIED);
    const vorna::unique_file file = vorna::open_for_reading(path);
    if (!file)
        throw vorna::result_error(vorna::result_from_last_error());
    std::string bytes;
    vorna::throw_if_failed(vorna::read_file(file.get(), MAXIMUM_STYLESHEET_BYTES, bytes));
    std::wstring text;
    std::wstring reason;
    if (!vorna::DecodeXmlText(bytes, text, reason))
        throw vorna::result_error(vorna::RESULT_XML_MALFORMED);
    return text;
}

// Whether the value calls document(), or a function with a prefix, which belongs to an extension. Quotes are not
// parsed, so a stylesheet that only outputs such a text is refused too, which is a safe error.
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
            throw vorna::result_error(E_ACCESSDENIED);
        if (space == XSLT_URI && std::find(std::begin(ALLOWED_ELEMENTS), std::end(ALLOWED_ELEMENTS),
                                           node.LocalName()) == std::end(ALLOWED_ELEMENTS))
            throw vorna::result_error(E_ACCESSDENIED);
    }
    for (const XmlNode& node : stylesheet.Select(L"//@*"))
        if (node.LocalName() == L"extension-element-prefixes" || CallsOut(node.Text()))
            throw vorna::result_error(E_ACCESSDENIED);
}

// Shared by the caller and the thread that transforms; freed by the last of them.
struct Transformation {
    std::wstring document;
    std::wstring stylesheet;
    std::wstring result;
    HRESULT status = E_FAIL;
};

void Run(Transformation& work) {
    work.status = vorna::closed_door([&] {
        const auto document = ParseXml(work.document);
        const auto stylesheet = ParseXml(work.stylesheet);
        vorna::bstr text;
        const HRESULT result = document->transformNode(stylesheet.get(), text.put());
        work.result = text.view();
        return result;
    });
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
    // Keeps the module loaded until the last instruction of this thread.
    HMODULE module = vorna::this_module();
    --vorna::module_uses;
    FreeLibraryAndExitThread(module, 0);
}

} // namespace

std::wstring Transform(std::wstring_view document, const std::wstring& stylesheetFile) {
    auto work = std::make_shared<Transformation>();
    XmlDocument checked(ReadStylesheet(stylesheetFile));
    CheckStylesheet(checked);
    work->stylesheet = checked.Text();
    work->document = document;

    auto argument = std::make_unique<std::shared_ptr<Transformation>>(work);
    HMODULE module = nullptr;
    if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, reinterpret_cast<LPCWSTR>(&RunThread), &module))
        throw vorna::result_error(vorna::result_from_last_error());
    vorna::unique_library loaded(module);
    ++vorna::module_uses;
    vorna::unique_handle thread(CreateThread(nullptr, TRANSFORM_STACK_BYTES, RunThread, argument.get(),
                                             STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr));
    if (!thread) {
        --vorna::module_uses;
        throw vorna::result_error(vorna::result_from_last_error());
    }
    // The thread owns both now.
    (void)argument.release();
    (void)loaded.release();
    if (WaitForSingleObject(thread.get(), MAXIMUM_TRANSFORM_MILLISECONDS) != WAIT_OBJECT_0) {
        SetThreadPriority(thread.get(), THREAD_PRIORITY_IDLE);
        throw vorna::result_error(vorna::result_from_win32(ERROR_TIMEOUT));
    }
    if (work->status != S_OK)
        throw vorna::result_error(FAILED(work->status) ? work->status : E_FAIL);
    return std::move(work->result);
}

} // namespace keldan
