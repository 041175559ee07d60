// The folder of a service's archives: created with the first one, removed with the last one.

#include "common/log/Logging.h"
#include "common/services/Directories.h"
#include "subscription/Subscription.h"

namespace vorna {

namespace {

// The directory functions take narrow paths. Empty if the path has no exact narrow form or is too long.
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

// All archives of the service share its folder, which is removed with the last one.
void Subscription::RemoveBaseDir() {
    const ScopeTrace trace("Subscription::RemoveBaseDir");
    // No other archive may be created in the folder meanwhile.
    const NamedLock registration = RegistrationLock();
    if (!record_.subscriptionId.empty())
        record_.Archive().RemoveFiles();
    if (SubscriptionArchive::AnyIn(record_.archiveDirectory))
        return;
    const std::string path = NarrowPath(record_.archiveDirectory);
    if (path.empty() || !VORNAUTILITY::DeleteDirectory(path.c_str(), true))
        return;
    // The parent folders, up to and including Archives, are removed unless they contain archives of other services.
    std::wstring parent = record_.archiveDirectory;
    for (int level = 0; level < 3; ++level) {
        parent.erase(parent.find_last_of(L'\\'));
        if (!RemoveDirectoryW(parent.c_str()))
            return;
    }
}

} // namespace vorna
