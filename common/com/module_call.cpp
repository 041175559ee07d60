#include "common/com/module_call.h"

#include "common/com/ProcessorFault.h"
#include "common/com/results.h"
#include "common/com/unique_any.h"

namespace vorna {

module_answer call_module(const std::wstring& path, const char* exportName) {
    const unique_library library(LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH));
    if (!library)
        return {module_step::load, result_from_last_error()};
    const FARPROC address = GetProcAddress(library.get(), exportName);
    if (!address)
        return {module_step::find, result_from_last_error()};
    // Through void*, because the compiler warns about a direct cast between function types.
    const auto function = reinterpret_cast<HRESULT(STDAPICALLTYPE*)()>(reinterpret_cast<void*>(address));
    HRESULT result = E_FAIL;
    call_guarded([&] { result = function(); });
    return {module_step::call, result};
}

} // namespace vorna
