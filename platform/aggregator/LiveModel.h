// A data model that is computed at the moment of the call. To add one, derive a class from this one and add it to
// DataModels.cpp.
#pragma once

#include <string>

namespace keldan {

class LiveModel {
  public:
    virtual ~LiveModel() = default;

    // Returns a well-formed document without an XML declaration. Any thread. Throws standard exceptions.
    virtual std::wstring Compute() = 0;
};

} // namespace keldan
