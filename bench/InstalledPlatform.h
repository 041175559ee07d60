// The reference platform and the component, registered for a bench in a folder of its own.
#pragma once

#include "support/Support.h"

#include <filesystem>

namespace bench {

// One at a time. The host that is started meanwhile is asked to end with the object.
class InstalledPlatform {
  public:
    InstalledPlatform();
    ~InstalledPlatform();
    InstalledPlatform(const InstalledPlatform&) = delete;
    InstalledPlatform& operator=(const InstalledPlatform&) = delete;

    // Holds the component, its archives and the platform's data.
    const std::filesystem::path& Folder() const { return folder_.Path(); }

  private:
    support::TestFolder folder_;
    support::PlatformData data_{folder_.Path()};
};

// Throws std::runtime_error with the text where the result is not S_OK.
void Require(HRESULT result, const char* what);

} // namespace bench
