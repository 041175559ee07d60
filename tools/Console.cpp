#include "tools/Console.h"

#include "common/com/results.h"
#include "tools/Advice.h"
#include "tools/TextFile.h"

#include <cwchar>
#include <string>

namespace vornactl {

namespace {

bool Write(HANDLE output, std::wstring_view text) {
    std::wstring line(text);
    line += L"\n";
    DWORD mode = 0;
    DWORD written = 0;
    if (GetConsoleMode(output, &mode))
        return WriteConsoleW(output, line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
    const std::string bytes = EncodeUtf8(line);
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
        // No memory for a message about what went wrong before.
    }
}

void Console::Show(const Failure& failed) {
    wchar_t code[16];
    swprintf(code, std::size(code), L"0x%08lX", static_cast<unsigned long>(failed.code));
    std::wstring text = failed.text.empty() ? SystemText(failed.code) : failed.text;
    if (text.empty())
        text = L"(no text came with the code)";
    ErrorLine(L"vornactl: failed: " + failed.doing);
    ErrorLine(std::wstring(L"  code:       ") + code);
    ErrorLine(L"  text:       " + text);
    ErrorLine(L"  what to do: " + std::wstring(AdviceFor(failed.code, failed.text)));
}

} // namespace vornactl
