// The folder of a service's archives: created with the first one, removed with the last one.

#include "common/com/paths.h"
#include "common/com/results.h"
#include "common/log/Logging.h"
#include "common/services/Directories.h"
#include "subscription/Subscription.h"

namespace vorna {

namespace {

// The directory functions take narrow paths. Empty if the path has no exact narrow form or is too long.
std::string NarrowPath(const std::wstring& path) {
    char narrow[512];
    BOOL mangled = FALSE;
    // For the code page UTF-8 neither this flag nor the question for replaced characters is allowed.
    const bool utf8 = GetACP() == CP_UTF8;
    const int length = WideCharToMultiByte(CP_ACP, utf8 ? WC_ERR_INVALID_CHARS : WC_NO_BEST_FIT_CHARS, path.c_str(), -1,
                                           narrow, sizeof narrow, nullptr, utf8 ? nullptr : &mangled);
    return length > 0 && !mangled ? std::string(narrow) : std::string();
}

} // namespace

bool Subscription::CreateBaseDir() {
    const std::string path = NarrowPath(record_.archiveDirectory);
    if (!path.empty())
        VORNAUTILITY::CreateDirectories(path.c_str());
    const DWORD attributes = GetFileAttributesW(long_path(record_.archiveDirectory).c_str());
    return !path.empty() && attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

// All archives of the service share its folder, which is removed with the last one. The parent folders, up to and
// including Archives, are removed if they are empty.
void Subscription::RemoveBaseDir() {
    const ScopeTrace trace("Subscription::RemoveBaseDir");
    // No other archive may be created in the folder meanwhile.
    const NamedLock folders = FolderLock();
    if (!record_.subscriptionId.empty())
        record_.Archive().RemoveFiles();
    if (!folders.Held() || !SubscriptionArchive::NoneIn(record_.archiveDirectory))
        return;
    const std::string path = NarrowPath(record_.archiveDirectory);
    if (!path.empty())
        VORNAUTILITY::DeleteDirectory(path.c_str(), true);
    // A folder that could not be created may have left its parents behind.
    std::wstring folder = record_.archiveDirectory;
    for (int level = 0; level < 4; ++level) {
        if (!RemoveDirectoryW(long_path(folder).c_str()) && !IsMissing(result_from_last_error()))
            return;
        folder.erase(folder.find_last_of(L'\\'));
    }
}

} // namespace vorna
