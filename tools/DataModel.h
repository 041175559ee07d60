// Data models of services: storing one for a device, and reading what archives see of it. Needs COM on the thread.
#pragma once

#include <string>

namespace vornactl {

// Stores the document in modelFile as the data model of the service, and returns the path of the file that was written.
// Throws Failure, and the model is as before: the model is the live one of the machine, or the identity of the service
// is incomplete or not fit for a file name.
std::wstring PutModel(const std::wstring& serviceFile, const std::wstring& modelFile);

// The whole data model of the service, stored or live, as the platform's aggregator returns it. Throws Failure.
std::wstring GetModel(const std::wstring& serviceFile);

} // namespace vornactl
