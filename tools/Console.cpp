#include "tools/Console.h"

#include "common/com/text_forms.h"
#include "common/xml/DocumentText.h"
#include "tools/Advice.h"

namespace vornactl {

namespace {

bool Write(HANDLE output, std::wstring_view text) {
    std::wstring line(text);
    line += L"\n";
    DWORD mode = 0;
    DWORD written = 0;
    if (GetConsoleMode(output, &mode))
        return WriteConsoleW(output, line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
    std::string bytes;
    (void)vorna::EncodeUtf8(line, bytes);
    for (size_t done = 0; done < bytes.size(); done += written)
        if (!WriteFile(output, bytes.data() + done, static_cast<DWORD>(bytes.size() - done), &written, nullptr) ||
            written == 0)
            return false;
    return true;
}

} // namespace

void Console::Line(std::wstring_view text) {
    if (!Write(GetStdHandle(STD_OUTPUT_HANDLE), text))
        throw Failure(vorna::result_from_last_error(), L"writing to standard output");
}

void Console::ErrorLine(std::wstring_view text) noexcept {
    try {
        (void)Write(GetStdHandle(STD_ERROR_HANDLE), text);
    } catch (...) {
        // Out of memory: the message is lost.
    }
}

void Console::Show(const Failure& failure) {
    std::wstring text = failure.text.empty() ? SystemText(failure.result()) : failure.text;
    if (text.empty())
        text = L"(no text came with the code)";
    ErrorLine(L"vornactl: failed: " + failure.action);
    ErrorLine(L"  code:       " + vorna::hex_text(failure.result()));
    ErrorLine(L"  text:       " + text);
    ErrorLine(L"  what to do: " + std::wstring(AdviceFor(failure.result(), failure.text)));
}

} // namespace vornactl
