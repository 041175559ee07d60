// Creation of the components that commands use, and of documents for them. Needs COM on the thread.
#pragma once

#include "common/com/com_ptr.h"
#include "common/services/platformservices.h"
#include "tools/Failure.h"

#include <string>

namespace vornactl {

// An object of the class with this ProgID. Throws Failure.
template <typename Interface>
vorna::com_ptr<Interface> Create(const wchar_t* progId) {
    vorna::com_ptr<Interface> object;
    const HRESULT result = vorna::PlatformServices::CreateInstance(progId, nullptr, object);
    if (FAILED(result))
        throw Failure(result, L"creating " + std::wstring(progId));
    return object;
}

// Throws Failure with this action if the component is not registered: without its folder there are no archives.
void RequireComponent(const wchar_t* action);
// The file with the record of all archives, for messages.
std::wstring RecordFile();

// The service object of the service document in a file. Throws Failure with the file's name.
vorna::com_ptr<IUnknown> MakeService(const std::wstring& file);

// The result of ReadDocument, checked to be well-formed by the XML accessor. Throws Failure with the file's name.
std::wstring ReadXml(const std::wstring& file);

} // namespace vornactl
