// Security descriptors that let everyone in: for what services and users of all sessions share.
#pragma once

#include "common/com/unique_any.h"

#include <aclapi.h>

namespace vorna {

class everyone_descriptor {
  public:
    // Without an access list: nobody is kept out.
    everyone_descriptor();
    // With an access list of one entry, which files and folders below inherit: everyone, and the access mask.
    explicit everyone_descriptor(DWORD accessMask);
    ~everyone_descriptor();
    everyone_descriptor(const everyone_descriptor&) = delete;
    everyone_descriptor& operator=(const everyone_descriptor&) = delete;

    // False if a part of it could not be made.
    bool complete() const { return complete_; }
    // As far as it could be made; lives as long as the object.
    SECURITY_DESCRIPTOR* get() { return &descriptor_; }

  private:
    SECURITY_DESCRIPTOR descriptor_{};
    unique_library library_;
    decltype(&::FreeSid) freeSid_ = nullptr;
    PSID sid_ = nullptr;
    unique_local_memory list_;
    bool complete_ = false;
};

} // namespace vorna
