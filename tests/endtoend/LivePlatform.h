// The whole platform on real parts: the registered component, the host process, encrypted archives.
#pragma once

#include "VornaLib.h"
#include "common/com/bstr.h"
#include "common/com/results.h"
#include "common/com/unique_any.h"
#include "common/services/platformservices.h"
#include "persist/SubscriptionPersistance.h"
#include "subscription/archive/SamAccessor.h"
#include "subscription/archive/SubscriptionArchive.h"
#include "support/ChildProcess.h"
#include "support/Support.h"

#include <algorithm>
#include <chrono>
#include <vector>

namespace vorna::endtoend {

inline constexpr auto PATIENCE = std::chrono::seconds(60);

// Wakes at every change below a folder, so that a test waits for what happens and not for a time.
class FolderWatch {
  public:
    explicit FolderWatch(const std::filesystem::path& folder)
        : handle_(FindFirstChangeNotificationW(folder.c_str(), TRUE,
                                               FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_SIZE |
                                                   FILE_NOTIFY_CHANGE_LAST_WRITE)) {}
    ~FolderWatch() { FindCloseChangeNotification(handle_); }
    FolderWatch(const FolderWatch&) = delete;
    FolderWatch& operator=(const FolderWatch&) = delete;

    // True once condition() holds, which is asked again after every change.
    template <typename Condition>
    bool WaitUntil(Condition condition) {
        const auto until = std::chrono::steady_clock::now() + PATIENCE;
        while (!condition()) {
            if (std::chrono::steady_clock::now() > until)
                return false;
            WaitForSingleObject(handle_, 1000);
            FindNextChangeNotification(handle_);
        }
        return true;
    }

  private:
    HANDLE handle_;
};

// A service with the given URI; "host" is the live model of this machine.
class LivePlatform : public testing::Test {
  protected:
    explicit LivePlatform(std::wstring uri = L"host") : uri_(std::move(uri)), path_(L"machine\\" + uri_ + L"\\0\\") {}

    void SetUp() override {
        support::RegisterPlatform();
        StopHost();
        support::InstallComponent(folder_.Path());
        service_ = support::PlatformService(L"0", L"machine", uri_);
    }
    void TearDown() override { StopHost(); }

    static void StopHost() { EXPECT_EQ(0u, support::RunHost(L"/stop")); }

    HRESULT SetData(const std::wstring& document, std::wstring* text = nullptr) {
        bstr info;
        HRESULT result =
            support::Create<IXDMAccessEx>(PROGID_VORNA)->SetData(service_.get(), bstr(document).get(), 0, info.put());
        if (text)
            *text = info.str();
        return result;
    }
    std::wstring GetData(const std::wstring& xpath) {
        bstr info, document;
        EXPECT_HR(S_OK, support::Create<IXDMAccessEx>(PROGID_VORNA)
                            ->GetData(service_.get(), bstr(xpath).get(), bstr(L"").get(), info.put(), document.put()))
            << support::Narrow(info.view());
        return document.str();
    }
    SubscriptionRecord Record(const std::wstring& id) {
        SubscriptionRecord record;
        EXPECT_HR(S_OK, SubscriptionPersistance().GetSubscription(path_ + id, record));
        return record;
    }
    std::vector<std::wstring> Ids(const std::wstring& id) {
        std::vector<std::wstring> ids;
        for (const SnapShot& snapShot : Record(id).snapShots)
            ids.push_back(snapShot.id);
        return ids;
    }
    // Every snapshot of the index can be read and holds the text, and there are no others. Each of so many captures
    // that were cut off may have left an entry whose stream was never written.
    void ExpectWhole(const std::wstring& id, std::wstring_view text, size_t cutOff = 0) {
        const SubscriptionRecord record = Record(id);
        SamAccessor archive(record.Archive().SnapShotsPath());
        size_t readable = 0;
        for (const SnapShot& snapShot : record.snapShots) {
            bstr data;
            archive.SetFileName(snapShot.id);
            const HRESULT read = archive.getStreamFromArchive(data);
            if (read == HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND))
                continue;
            ++readable;
            EXPECT_HR(S_OK, read) << support::Narrow(snapShot.id);
            EXPECT_NE(std::wstring_view::npos, data.view().find(text));
        }
        EXPECT_LE(record.snapShots.size(), readable + cutOff);
        long count = 0;
        EXPECT_HR(S_OK, archive.getNumberOfFilesInArchive(count));
        EXPECT_EQ(static_cast<long>(readable), count);
    }
    void KillHost() { ASSERT_TRUE(support::KillHost(folder_.Path().wstring())); }

    const std::wstring uri_;
    // The service's path, with a backslash at its end.
    const std::wstring path_;
    support::TestFolder folder_;
    support::PlatformData data_{folder_.Path()};
    com_ptr<IUnknown> service_;
};

} // namespace vorna::endtoend
