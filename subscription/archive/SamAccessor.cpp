#include "subscription/archive/SamAccessor.h"

#include "common/com/results.h"
#include "common/log/Logging.h"
#include "common/services/platformservices.h"

namespace vorna {

namespace {

// The manager counts entries of this kind: streams.
constexpr long ENTRY_KIND_STREAM = 2;

} // namespace

SamAccessor::SamAccessor(std::wstring_view archivePath, std::wstring_view fileName)
    : archivePath_(archivePath), fileName_(fileName) {
    CreateManager();
}

void SamAccessor::CreateManager() {
    try {
        result_ = PlatformServices::CreateInstance(PROGID_ARCHIVE_MANAGER, nullptr, manager_);
        if (SUCCEEDED(result_) && manager_)
            return;
        VORNA_LOG(LOG_TRACE, "Create Instance of SecureArchiveManager failed");
        manager_.reset();
        result_ = RESULT_ARCHIVE_MANAGER;
    } catch (...) {
        VORNA_LOG(LOG_TRACE, "Unknown Exception while creating instance of Secure Archive Manager");
        manager_.reset();
    }
}

void SamAccessor::Log(std::wstring_view message) {
    message_ = message;
    LogMessage(LOG_TRACE, "%S", message_.c_str());
}

// The frame of every operation: bind the archive, set the mode, do the work.
template <typename Work>
HRESULT SamAccessor::WithArchive(Work work) {
    if (!manager_)
        return result_;
    try {
        bstr path(archivePath_);
        result_ = manager_->put_Archive(path.get());
        if (result_ != S_OK) {
            if (LogEnabled(LOG_TRACE))
                Log(L"Failed to Put Archive: " + archivePath_);
            return result_;
        }
        (void)manager_->put_Mode(0);
        result_ = work();
    } catch (...) {
        VORNA_LOG(LOG_TRACE, "Unknown Exception Occured");
    }
    return result_;
}

HRESULT SamAccessor::getStreamFromArchive(bstr& data) {
    const ScopeTrace trace("SamAccessor::getStreamFromArchive");
    data = bstr();
    if (LogEnabled(LOG_TRACE))
        Log(L"Getting data from file \"" + fileName_ + L"\" in archive \"" + archivePath_ + L"\"");
    return WithArchive([&] {
        bstr name(fileName_);
        HRESULT result = manager_->GetStream(name.get(), 0, data.put());
        if (LogEnabled(LOG_TRACE))
            Log((result == S_OK ? L"GetStream succeeded to get data from the file "
                                : L"GetStream Failed to get data from the file ") +
                fileName_);
        return result;
    });
}

HRESULT SamAccessor::addStreamToArchive(std::wstring_view data) {
    const ScopeTrace trace("SamAccessor::addStreamToArchive");
    if (LogEnabled(LOG_TRACE))
        Log(L"Adding to file\"" + fileName_ + L"\" stream: \"" + std::wstring(data) + L"\"");
    return WithArchive([&] {
        bstr name(fileName_);
        bstr text(data);
        HRESULT result = manager_->AddStream(name.get(), text.get(), 0);
        if (LogEnabled(LOG_TRACE))
            Log((result == S_OK ? L"AddStream succeeded to add stream to the file "
                                : L"Failed to add stream to the file ") +
                fileName_);
        return result;
    });
}

HRESULT SamAccessor::getNumberOfFilesInArchive(long& count) {
    const ScopeTrace trace("SamAccessor::getNumberOfFilesInArchive");
    count = 0;
    if (LogEnabled(LOG_TRACE))
        Log(L"Getting Number of files in the archive \"" + archivePath_ + L"\"");
    return WithArchive([&] {
        HRESULT result = manager_->GetEntryCount(ENTRY_KIND_STREAM, &count);
        if (result == S_OK)
            VORNA_LOG(LOG_TRACE, "GetEntryCount Succeed. Number of Files in Archive are %ld", count);
        else if (LogEnabled(LOG_TRACE))
            Log(L"GetEntryCount Failed for Archive: " + archivePath_);
        return result;
    });
}

HRESULT SamAccessor::removeFile() {
    const ScopeTrace trace("SamAccessor::removeFile");
    if (LogEnabled(LOG_TRACE))
        Log(L"Removing File \"" + fileName_ + L"\" from Archive \"" + archivePath_ + L"\"");
    return WithArchive([&] {
        bstr name(fileName_);
        HRESULT result = manager_->RemoveFile(name.get());
        if (LogEnabled(LOG_TRACE))
            Log((result == S_OK ? L"RemoveFile Succeeded for file " : L"RemoveFile Failed for file ") + fileName_);
        return result;
    });
}

} // namespace vorna
