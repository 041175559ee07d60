#include "platform/eventaccess/ModelFolder.h"

#include "platform/aggregator/DataModels.h"

namespace keldan {

namespace {

std::uint64_t Joined(DWORD high, DWORD low) {
    return static_cast<std::uint64_t>(high) << 32 | low;
}

} // namespace

void ModelFolder::Watch() {
    // If it cannot be created, a writer of models may still create it.
    (void)CreateFolder(store_.Folder());
    // Renamed files and files that are written in place.
    changes_.reset(FindFirstChangeNotificationW(store_.Folder().c_str(), FALSE,
                                                FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_LAST_WRITE |
                                                    FILE_NOTIFY_CHANGE_SIZE));
}

void ModelFolder::Continue() {
    const DWORD signalled = changes_ ? WaitForSingleObject(changes_.get(), 0) : WAIT_TIMEOUT;
    if (signalled == WAIT_FAILED || (signalled == WAIT_OBJECT_0 && !FindNextChangeNotification(changes_.get())))
        changes_.reset();
}

ModelStamp ModelFolder::StampOf(const ServiceIdentity& service) const {
    // Without access to the content, so that writers are not blocked.
    const vorna::unique_file file(CreateFileW(store_.PathOf(service).c_str(), FILE_READ_ATTRIBUTES,
                                              FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                              OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    BY_HANDLE_FILE_INFORMATION found{};
    if (!file || !GetFileInformationByHandle(file.get(), &found))
        return {};
    return {true, Joined(found.nFileSizeHigh, found.nFileSizeLow),
            Joined(found.ftLastWriteTime.dwHighDateTime, found.ftLastWriteTime.dwLowDateTime),
            Joined(found.nFileIndexHigh, found.nFileIndexLow)};
}

HRESULT ModelFolder::Read(const ServiceIdentity& service, std::wstring& document, std::wstring& message) const {
    if (!HasLiveModel(service))
        return store_.Read(service, document, message);
    std::wstring name;
    return GetDataModel(service, document, name, message);
}

} // namespace keldan
