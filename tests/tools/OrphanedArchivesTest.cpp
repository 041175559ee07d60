// Archives on disk that no subscription uses: which ones are found, and that nothing else is removed.

#include "tools/OrphanedArchives.h"
#include "Refusal.h"
#include "common/com/results.h"
#include "persist/SubscriptionPersistance.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <set>

using namespace vornactl;
using namespace vorna;
namespace fs = std::filesystem;

namespace {

constexpr wchar_t SERVICE[] = L"press\\press-7\\7";

class Orphans : public testing::Test {
  protected:
    // The service has an active archive, S1, with one snapshot.
    void SetUp() override {
        support::RegisterPlatform();
        support::InstallComponent(folder_.Path());
        persistance_.emplace();
        fs::create_directories(archives_ / SERVICE);
        Register(L"S1");
        SnapShot snapShot({2005, 3, 0, 7, 14, 5, 9, 0});
        ASSERT_HR(S_OK, persistance_->AddSnapShot(Record(L"S1").Archive(), snapShot));
        ASSERT_HR(S_OK, Record(L"S1").Archive().Store(snapShot.id, L"<a/>"));
    }
    static SubscriptionRecord Record(const std::wstring& id) {
        SubscriptionRecord record;
        record.clientCookie = std::wstring(SERVICE) + L"\\A" + id;
        record.vornaId = L"{" + id + L"}";
        record.subscriptionId = id;
        record.serviceXml = L"<service/>";
        record.subscriptionText = L"<Archive/>";
        record.lifetime.years = 1;
        record.archiveDirectory = ArchiveDirectory(SERVICE);
        return record;
    }
    void Register(const std::wstring& id) { ASSERT_HR(S_OK, persistance_->AddSubscription(Record(id), L"T", L"")); }
    // A file of 1,025 bytes, which has not changed for a time.
    void Put(const std::wstring& service, const std::wstring& name, std::chrono::minutes age = std::chrono::hours(1)) {
        const fs::path path = archives_ / service / name;
        fs::create_directories(path.parent_path());
        support::WriteFileBytes(path, std::string(1025, 'x'));
        Age(path, age);
    }
    static void Age(const fs::path& path, std::chrono::minutes age) {
        fs::last_write_time(path, fs::file_time_type::clock::now() - age);
    }
    // "service: ID, bytes" of each.
    static std::set<std::wstring> Texts(const std::vector<OrphanedArchive>& archives) {
        std::set<std::wstring> texts;
        for (const OrphanedArchive& each : archives)
            texts.insert(each.service + L": " + each.subscriptionId + L", " + std::to_wstring(each.bytes));
        return texts;
    }
    // Paths of files and folders below the folder of the archives.
    std::set<std::wstring> OnDisk() const {
        std::set<std::wstring> paths;
        for (const auto& entry : fs::recursive_directory_iterator(archives_))
            paths.insert(entry.path().wstring());
        return paths;
    }

    support::TestFolder folder_;
    const fs::path archives_ = folder_.Path() / "Archives";
    std::optional<SubscriptionPersistance> persistance_;
};

TEST_F(Orphans, OnlyFilesWithoutAValidRecordAreFoundAndRemoved) {
    const auto inUse = OnDisk();
    Register(L"S2");
    ASSERT_HR(S_OK, persistance_->DeleteSubscription(L"S2"));
    fs::remove(archives_ / SERVICE / L"config_S2");
    Put(SERVICE, L"config_S2");
    SetFileAttributesW((archives_ / SERVICE / L"config_S2").c_str(), FILE_ATTRIBUTE_READONLY);
    for (const wchar_t* name : {L"config_S10-journal", L"snapshot_S10", L"snapshot_S10-new"})
        Put(SERVICE, name);
    Put(L"pump\\p\\1", L"config_S1");
    Put(L"pump\\p\\2", L"config_S3", std::chrono::minutes(5));
    // Neither files of an archive nor in a service's folder, or files that an archive manager keeps beside S1.
    std::set<std::wstring> kept = inUse;
    for (const wchar_t* name : {L"notes.txt", L"config_s1-journal", L"snapshot_S1-wal"}) {
        Put(SERVICE, name);
        kept.insert((archives_ / SERVICE / name).wstring());
    }
    Put(L"press", L"config_S4");
    kept.insert((archives_ / "press" / "config_S4").wstring());
    for (const wchar_t* path : {L"pump", L"pump\\p", L"pump\\p\\2", L"pump\\p\\2\\config_S3"})
        kept.insert((archives_ / path).wstring());

    const auto before = OnDisk();
    const OrphanSearch search = FindOrphans();
    EXPECT_TRUE(search.recordExists);
    EXPECT_EQ(Texts(search.archives),
              (std::set<std::wstring>{L"press\\press-7\\7: S2, 1025", L"press\\press-7\\7: S10, 3075",
                                      L"pump\\p\\1: S1, 1025", L"pump\\p\\2: S3, 1025"}));
    EXPECT_EQ(OnDisk(), before) << "a search changes nothing";

    const OrphanRemoval removal = RemoveOrphans();
    EXPECT_TRUE(removal.problems.empty());
    EXPECT_EQ(Texts(removal.recent), std::set<std::wstring>{L"pump\\p\\2: S3, 1025"});
    EXPECT_EQ(OnDisk(), kept);
    std::set<std::wstring> gone = before;
    for (const std::wstring& path : kept)
        gone.erase(path);
    EXPECT_EQ(std::set<std::wstring>(removal.removed.begin(), removal.removed.end()), gone);
    std::vector<SnapShot> snapShots;
    EXPECT_HR(S_OK, Record(L"S1").Archive().ReadSnapShots(snapShots));
    EXPECT_EQ(1u, snapShots.size());

    Age(archives_ / L"pump\\p\\2\\config_S3", std::chrono::minutes(11));
    EXPECT_EQ(RemoveOrphans().removed.size(), 4u) << "the file and three folders";
    EXPECT_FALSE(fs::exists(archives_ / "pump"));
    EXPECT_TRUE(FindOrphans().archives.empty());
}

TEST_F(Orphans, AFileThatCannotBeDeletedKeepsItsJournal) {
    Put(SERVICE, L"config_S2");
    Put(SERVICE, L"config_S2-journal");
    Put(SERVICE, L"config_S3");
    const unique_file open(CreateFileW((archives_ / SERVICE / L"config_S2").c_str(), GENERIC_READ, FILE_SHARE_READ,
                                       nullptr, OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(open);
    const OrphanRemoval removal = RemoveOrphans();
    ASSERT_EQ(removal.problems.size(), 1u);
    EXPECT_HR(HRESULT_FROM_WIN32(ERROR_SHARING_VIOLATION), removal.problems.front().result());
    EXPECT_EQ(removal.removed, std::vector<std::wstring>{(archives_ / SERVICE / L"config_S3").wstring()});
    EXPECT_TRUE(fs::exists(archives_ / SERVICE / L"config_S2-journal"));
}

TEST_F(Orphans, WithoutReadableRecordsNothingIsRemoved) {
    Put(SERVICE, L"config_S2");
    for (const auto& entry : fs::directory_iterator(archives_ / SERVICE))
        Age(entry.path(), std::chrono::hours(1));
    const auto before = OnDisk();
    const std::wstring record = (folder_.Path() / "Vorna").wstring();
    ASSERT_HR(S_OK, WriteStream(record, L"VornaPersist", L"<Subscriptions><Subscription"));
    EXPECT_HR(RESULT_XML_MALFORMED, Refusal(L"", [] { FindOrphans(); }));
    EXPECT_HR(RESULT_XML_MALFORMED, Refusal(L"", [] { RemoveOrphans(); }));

    fs::remove(record);
    const OrphanSearch search = FindOrphans();
    EXPECT_FALSE(search.recordExists);
    EXPECT_EQ(search.archives.size(), 2u) << "S1 too";
    EXPECT_HR(HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), Refusal(L"", [] { RemoveOrphans(); }));
    EXPECT_EQ(OnDisk(), before);
}

TEST_F(Orphans, FormatAlignsColumns) {
    OrphanedArchive one;
    one.service = SERVICE;
    one.subscriptionId = L"{0123}";
    one.bytes = 20481;
    // 2026-01-02 03:04:05 in the time zone of this machine.
    const SYSTEMTIME local{2026, 1, 0, 2, 3, 4, 5, 0};
    SYSTEMTIME utc{};
    FILETIME time{};
    ASSERT_TRUE(TzSpecificLocalTimeToSystemTime(nullptr, &local, &utc) && SystemTimeToFileTime(&utc, &time));
    one.lastChange = std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
    const auto lines = FormatOrphans({one});
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], L"ID      SERVICE          KB  LAST CHANGE");
    EXPECT_EQ(lines[1], L"{0123}  press\\press-7\\7  21  2026-01-02 03:04:05");
}

} // namespace
