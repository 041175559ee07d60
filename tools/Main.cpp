// vornactl: the entry point.

#include "common/com/result_error.h"
#include "common/com/scope_exit.h"
#include "tools/Commands.h"
#include "tools/Console.h"

#include <objbase.h>

#include <string>
#include <vector>

using namespace vornactl;

int wmain(int count, wchar_t** words) {
    try {
        const std::vector<std::wstring> arguments(words + (count > 0 ? 1 : 0), words + count);
        if (const HRESULT result = CoInitializeEx(nullptr, COINIT_MULTITHREADED); FAILED(result))
            throw Failure(result, L"starting COM");
        const vorna::scope_exit leave([] { CoUninitialize(); });
        return static_cast<int>(Run(arguments));
    } catch (const UsageError& error) {
        Console::ErrorLine(L"vornactl: " + error.message);
        Console::ErrorLine(L"\"vornactl help\" shows all commands");
        return static_cast<int>(ExitCode::Usage);
    } catch (const Failure& failure) {
        Console::Show(failure);
    } catch (...) {
        Console::Show(Failure(vorna::caught_result(vorna::RESULT_EXCEPTION), L"running the command"));
    }
    return static_cast<int>(ExitCode::Failed);
}
