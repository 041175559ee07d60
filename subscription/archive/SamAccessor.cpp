#include "subscription/archive/SamAccessor.h"

#include "common/com/results.h"
#include "common/log/CatchAll.h"
#include "common/services/platformservices.h"

namespace vorna {

namespace {

// The kind of entries that the manager counts: streams.
constexpr long ENTRY_KIND_STREAM = 2;
// Follows each name in the manager's list.
constexpr wchar_t NAME_END = L'\xFFFF';

} // namespace

SamAccessor::SamAccessor(std::wstring_view archivePath, std::wstring_view fileName)
    : archivePath_(archivePath), fileName_(fileName) {
    CreateManager();
}

void SamAccessor::CreateManager() {
    const auto otherwise = [&] { manager_.reset(); };
    const auto work = [&] {
        result_ = PlatformServices::CreateInstance(PROGID_ARCHIVE_MANAGER, nullptr, manager_);
        if (SUCCEEDED(result_) && manager_)
            return;
        VORNA_LOG(LOG_TRACE, "Create Instance of SecureArchiveManager failed");
        manager_.reset();
        result_ = RESULT_ARCHIVE_MANAGER;
    };
    CatchAll(otherwise, work, "Unknown Exception while creating instance of Secure Archive Manager");
}

void SamAccessor::Log(std::initializer_list<std::wstring_view> parts) {
    if (!LogEnabled(LOG_TRACE))
        return;
    message_.clear();
    for (std::wstring_view part : parts)
        message_ += part;
    LogMessage(LOG_TRACE, "%S", message_.c_str());
}

// Runs one operation: selects the archive, sets the mode and calls work.
template <typename Work>
HRESULT SamAccessor::WithArchive(Work work) {
    if (!manager_)
        return result_;
    // A step that threw an exception has failed, even if the step before it succeeded.
    const auto otherwise = [&] {
        if (SUCCEEDED(result_))
            result_ = E_FAIL;
    };
    CatchAll(otherwise, [&] {
        bstr path(archivePath_);
        result_ = manager_->put_Archive(path.get());
        if (result_ != S_OK) {
            Log({L"Failed to Put Archive: ", archivePath_});
            return;
        }
        (void)manager_->put_Mode(0);
        result_ = work();
    });
    return result_;
}

HRESULT SamAccessor::getStreamFromArchive(bstr& data) {
    const ScopeTrace trace("SamAccessor::getStreamFromArchive");
    data = bstr();
    Log({L"Getting data from file \"", fileName_, L"\" in archive \"", archivePath_, L"\""});
    return WithArchive([&] {
        const HRESULT result = manager_->GetStream(bstr(fileName_).get(), 0, data.put());
        if (result == S_OK)
            Log({L"GetStream succeeded to get data from the file ", fileName_});
        else
            Log({L"GetStream Failed to get data from the file ", fileName_});
        return result;
    });
}

HRESULT SamAccessor::addStreamToArchive(std::wstring_view data) {
    const ScopeTrace trace("SamAccessor::addStreamToArchive");
    Log({L"Adding to file\"", fileName_, L"\" stream: \"", data, L"\""});
    return WithArchive([&] {
        const HRESULT result = manager_->AddStream(bstr(fileName_).get(), bstr(data).get(), 0);
        if (result == S_OK)
            Log({L"AddStream succeeded to add stream to the file ", fileName_});
        else
            Log({L"Failed to add stream to the file ", fileName_});
        return result;
    });
}

HRESULT SamAccessor::getNumberOfFilesInArchive(long& count) {
    const ScopeTrace trace("SamAccessor::getNumberOfFilesInArchive");
    count = 0;
    Log({L"Getting Number of files in the archive \"", archivePath_, L"\""});
    return WithArchive([&] {
        const HRESULT result = manager_->GetEntryCount(ENTRY_KIND_STREAM, &count);
        if (result == S_OK)
            VORNA_LOG(LOG_TRACE, "GetEntryCount Succeed. Number of Files in Archive are %ld", count);
        else
            Log({L"GetEntryCount Failed for Archive: ", archivePath_});
        return result;
    });
}

HRESULT SamAccessor::ListStreams(std::vector<std::wstring>& names) {
    const ScopeTrace trace("SamAccessor::ListStreams");
    names.clear();
    return WithArchive([&]() -> HRESULT {
        const auto lister = manager_.try_as<IArchiveStreams>();
        if (!lister)
            return E_NOINTERFACE;
        bstr list;
        const HRESULT result = lister->GetStreamNames(list.put());
        const std::wstring_view text = list.view();
        for (size_t begin = 0, end; (end = text.find(NAME_END, begin)) != text.npos; begin = end + 1)
            names.emplace_back(text.substr(begin, end - begin));
        return result;
    });
}

HRESULT SamAccessor::removeFile() {
    const ScopeTrace trace("SamAccessor::removeFile");
    Log({L"Removing File \"", fileName_, L"\" from Archive \"", archivePath_, L"\""});
    return WithArchive([&] {
        const HRESULT result = manager_->RemoveFile(bstr(fileName_).get());
        if (result == S_OK)
            Log({L"RemoveFile Succeeded for file ", fileName_});
        else
            Log({L"RemoveFile Failed for file ", fileName_});
        return result;
    });
}

} // namespace vorna
