// The folder of a service's archives: made with the first of them, removed with the last.

#include "common/log/Logging.h"
#include "common/services/Directories.h"
#include "subscription/Subscription.h"

namespace vorna {

namespace {

// The directory operations take narrow paths; a path that has no narrow form is refused, not mangled.
std::string NarrowPath(const std::wstring& path) {
    char narrow[512];
    BOOL mangled = FALSE;
    const int length =
        WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, path.c_str(), -1, narrow, sizeof narrow, nullptr, &mangled);
    return length > 0 && !mangled ? std::string(narrow) : std::string();
}

} // namespace

bool Subscription::CreateBaseDir() {
    const std::string path = NarrowPath(record_.archiveDirectory);
    if (!path.empty())
        VORNAUTILITY::CreateDirectories(path.c_str());
    const DWORD attributes = GetFileAttributesW(record_.archiveDirectory.c_str());
    return !path.empty() && attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

// The service's folder is shared by all archives of the service: it goes with the last of them.
void Subscription::RemoveBaseDir() {
    const ScopeTrace trace("Subscription::RemoveBaseDir");
    // No other archive may be made in the folder meanwhile.
    const NamedLock registration = RegistrationLock();
    if (!record_.subscriptionId.empty())
        record_.Archive().RemoveFiles();
    if (SubscriptionArchive::AnyIn(record_.archiveDirectory))
        return;
    const std::string path = NarrowPath(record_.archiveDirectory);
    if (path.empty() || !VORNAUTILITY::DeleteDirectory(path.c_str(), true))
        return;
    // The folders above, Archives included, stay where another service has archives below them.
    std::wstring parent = record_.archiveDirectory;
    for (int level = 0; level < 3; ++level) {
        parent.erase(parent.find_last_of(L'\\'));
        if (!RemoveDirectoryW(parent.c_str()))
            return;
    }
}

} // namespace vorna
