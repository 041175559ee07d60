// Security descriptors that give everyone access, for objects that services and users of all sessions share.
#pragma once

#include "common/com/unique_any.h"

#include <aclapi.h>

namespace vorna {

class everyone_descriptor {
  public:
    // Without an access list, so that all access is allowed.
    everyone_descriptor();
    // With an access list that allows everyone the access of the mask; files and folders below inherit it.
    explicit everyone_descriptor(DWORD accessMask);
    ~everyone_descriptor();
    everyone_descriptor(const everyone_descriptor&) = delete;
    everyone_descriptor& operator=(const everyone_descriptor&) = delete;

    // False if a part of the descriptor could not be created.
    bool complete() const { return complete_; }
    // The parts that could be created; valid as long as the object exists.
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
