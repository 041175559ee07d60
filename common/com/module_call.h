// Calls of an export that takes nothing and returns a result, for example DllRegisterServer.
#pragma once

#include <windows.h>

#include <string>

namespace vorna {

enum class module_step { load, find, call };

// The step that ended the call, and its result. A processor fault inside the export passes as processor_fault, other
// exceptions as they are.
struct module_answer {
    module_step step;
    HRESULT result;
};

// Loads the module with the libraries beside it, calls the export and unloads the module. path: a full path.
module_answer call_module(const std::wstring& path, const char* exportName);

} // namespace vorna
