// vornactl: the entry point.

#include "common/com/results.h"
#include "common/com/scope_exit.h"
#include "tools/Commands.h"
#include "tools/Console.h"

#include <objbase.h>

#include <exception>
#include <new>
#include <string>
#include <vector>

using namespace vornactl;

int wmain(int count, wchar_t** words) {
    try {
        const std::vector<std::wstring> arguments(words + (count > 0 ? 1 : 0), words + count);
        if (const HRESULT result = CoInitializeEx(nullptr, COINIT_MULTITHREADED); FAILED(result))
            throw Failure(result, L"starting COM");
        const vorna::scope_exit leave([] { CoUninitialize(); });
        return Run(arguments);
    } catch (const UsageError& wrong) {
        Console::ErrorLine(L"vornactl: " + wrong.message);
        Console::ErrorLine(L"\"vornactl help\" shows all commands");
        return EXIT_USAGE;
    } catch (const Failure& failed) {
        Console::Show(failed);
    } catch (const std::bad_alloc&) {
        Console::Show(Failure(E_OUTOFMEMORY, L"running the command"));
    } catch (const std::exception&) {
        Console::Show(Failure(vorna::RESULT_EXCEPTION, L"running the command"));
    }
    return EXIT_FAILED;
}
