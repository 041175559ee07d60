// Calls of exports that take no arguments and return a result, for example DllRegisterServer.
#pragma once

#include <windows.h>

#include <string>

namespace vorna {

enum class module_step { load, find, call };

// The step that ended the call, and its result. A processor fault inside the export is thrown as processor_fault;
// other exceptions pass unchanged.
struct module_answer {
    module_step step;
    HRESULT result;
};

// Loads the module and the libraries in its folder, calls the export and unloads the module. path: a full path.
module_answer call_module(const std::wstring& path, const char* exportName);

} // namespace vorna
