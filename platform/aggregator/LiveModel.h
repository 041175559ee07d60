// A data model that is computed at the moment of the call. A new one is a class of this kind and a line in
// DataModels.cpp.
#pragma once

#include <string>

namespace keldan {

class LiveModel {
  public:
    virtual ~LiveModel() = default;

    // A well-formed document without an XML declaration. Any thread; throws what the standard library throws.
    virtual std::wstring Compute() = 0;
};

} // namespace keldan
