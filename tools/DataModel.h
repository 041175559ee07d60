// Data models of services: what is stored for a device, and what archives see of it. Needs COM on the thread.
#pragma once

#include <string>

namespace vornactl {

// Stores the document in modelFile as the data model of the service, and gives the path of the file that was written.
// A live model cannot be replaced, nor can a service have one whose identity is not complete or names no file. Throws
// failure; the model is then as it was.
std::wstring PutModel(const std::wstring& serviceFile, const std::wstring& modelFile);

// The whole data model of the service, stored or live, as the platform's aggregator gives it. Throws Failure.
std::wstring GetModel(const std::wstring& serviceFile);

} // namespace vornactl
