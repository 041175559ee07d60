// The reference platform and the component, registered for a bench with their own folder.
#pragma once

#include "support/Support.h"

#include <filesystem>

namespace bench {

// One at a time. The destructor stops the host.
class InstalledPlatform {
  public:
    InstalledPlatform();
    ~InstalledPlatform();
    InstalledPlatform(const InstalledPlatform&) = delete;
    InstalledPlatform& operator=(const InstalledPlatform&) = delete;

    // Contains the component, its archives and the data of the platform.
    const std::filesystem::path& Folder() const { return folder_.Path(); }

  private:
    support::TestFolder folder_;
    support::PlatformData data_{folder_.Path()};
};

// Throws std::runtime_error, with what in its text, if the result is not S_OK.
void Require(HRESULT result, const char* what);

} // namespace bench
