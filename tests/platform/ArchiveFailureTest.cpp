// Archives when calls of the system fail, and when the processor faults in the middle of an operation.
#include "platform/ArchiveSupport.h"

#include <wincrypt.h>

#include <array>

namespace {

namespace fs = std::filesystem;
using platform_test::Archive;
using platform_test::Replaced;

constexpr HRESULT CORRUPT = HRESULT_FROM_WIN32(ERROR_FILE_CORRUPT);
constexpr HRESULT BUSY = HRESULT_FROM_WIN32(ERROR_LOCK_VIOLATION);

// Import slots of this program.
extern "C" decltype(&CreateFileW) importedCreate __asm__("__imp__CreateFileW@28");
extern "C" decltype(&SetFileInformationByHandle) importedSet __asm__("__imp__SetFileInformationByHandle@16");
extern "C" decltype(&CryptUnprotectData) importedUnprotect __asm__("__imp__CryptUnprotectData@28");

// The functions that the replacements call, and the error that one of them reports.
decltype(&CreateFileW) realCreate = importedCreate;
decltype(&SetFileInformationByHandle) realSet = importedSet;
DWORD unprotectError = ERROR_SUCCESS;

HANDLE WINAPI BlindCreate(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD disposition,
                          DWORD flags, HANDLE model) {
    if (!std::wstring_view(path).ends_with(L".sam"))
        return realCreate(path, access, share, security, disposition, flags, model);
    SetLastError(ERROR_FILE_NOT_FOUND);
    return INVALID_HANDLE_VALUE;
}

BOOL WINAPI NeverShorter(HANDLE file, FILE_INFO_BY_HANDLE_CLASS kind, LPVOID data, DWORD size) {
    if (kind != FileEndOfFileInfo)
        return realSet(file, kind, data, size);
    SetLastError(ERROR_USER_MAPPED_FILE);
    return FALSE;
}

BOOL WINAPI FailingUnprotect(DATA_BLOB*, LPWSTR*, DATA_BLOB*, PVOID, CRYPTPROTECT_PROMPTSTRUCT*, DWORD, DATA_BLOB*) {
    SetLastError(unprotectError);
    return FALSE;
}

class ArchiveFailures : public platform_test::ArchiveTest {
  protected:
    // Adds a stream of several pages; false if a fault ended it at the write with this number.
    bool AddUntilFault(Archive& archive, int write) const {
        const platform_test::FailingWrites writes(write, platform_test::FailingWrites::Kind::Fault, false);
        const HRESULT result = archive.Add(L"new", std::wstring(9000, L'n'));
        EXPECT_HR(writes.Failed() ? E_UNEXPECTED : S_OK, result) << write;
        return !writes.Failed();
    }
};

TEST_F(ArchiveFailures, FaultReleasesTheArchiveAndChangesNothing) {
    const std::wstring old(7000, L'o');
    Archive archive(path_, 100);
    for (int write = 0;; ++write) {
        ASSERT_LT(write, 200);
        const bool created = AddUntilFault(archive, write);
        EXPECT_FALSE(fs::exists(path_) && !created) << write;
        if (created)
            break;
    }
    ASSERT_HR(S_OK, archive.Remove(L"new"));
    ASSERT_HR(S_OK, archive.Add(L"old", old));
    int write = 0;
    for (; !AddUntilFault(archive, write); ++write) {
        ASSERT_LT(write, 200);
        Archive other(path_, 100);
        ASSERT_EQ(1, other.MustCount()) << write;
        ASSERT_EQ(old, other.MustGet(L"old")) << write;
        ASSERT_FALSE(fs::exists(path_.wstring() + L"-journal")) << write;
    }
    EXPECT_GT(write, 3);
    EXPECT_EQ(2, archive.MustCount());
}

TEST_F(ArchiveFailures, JournalOfADeletedArchiveIsNotUndoneInTheNextOne) {
    int journals = 0;
    for (int write = 0;; ++write) {
        ASSERT_LT(write, 200);
        Archive archive(path_);
        ASSERT_HR(S_OK, archive.Add(L"old", std::wstring(7000, L'o')));
        const bool added = AddUntilFault(archive, write);
        fs::remove(path_);
        journals += fs::exists(path_.wstring() + L"-journal");
        ASSERT_HR(S_OK, archive.Add(L"first", L"of the next archive"));
        ASSERT_EQ(L"of the next archive", archive.MustGet(L"first")) << write;
        ASSERT_EQ(1, archive.MustCount()) << write;
        ASSERT_FALSE(fs::exists(path_.wstring() + L"-journal")) << write;
        fs::remove(path_);
        if (added)
            break;
    }
    EXPECT_GT(journals, 2);
}

TEST_F(ArchiveFailures, UnfinishedNewArchiveOfAKilledProcessIsReplaced) {
    support::WriteFileBytes(path_.wstring() + L"-new", std::string(10000, 'x'));
    Archive archive(path_);
    EXPECT_EQ(0, archive.MustCount());
    ASSERT_HR(S_OK, archive.Add(L"a", L"b"));
    EXPECT_EQ(platform_test::Names{L"A.sam"}, Files());
    EXPECT_EQ(L"b", archive.MustGet(L"a"));
}

TEST_F(ArchiveFailures, ArchiveThatCanBeNeitherOpenedNorMadeIsWaitedForWithABound) {
    ASSERT_HR(S_OK, Archive(path_).Add(L"a", L"b"));
    Archive archive(path_, 100);
    {
        Replaced files(importedCreate, BlindCreate);
        EXPECT_HR(BUSY, archive.Add(L"c", L"d"));
    }
    EXPECT_EQ(1, archive.MustCount());
    EXPECT_FALSE(fs::exists(path_.wstring() + L"-new"));
}

TEST_F(ArchiveFailures, FileThatCannotBeCutAfterAChangeIsCutByTheNext) {
    Archive archive(path_);
    ASSERT_HR(S_OK, archive.Add(L"kept", L"k"));
    ASSERT_HR(S_OK, archive.Add(L"large", std::wstring(20000, L'l')));
    const auto large = fs::file_size(path_);
    {
        Replaced cuts(importedSet, NeverShorter);
        EXPECT_HR(S_OK, archive.Remove(L"large")) << "the change is complete";
        EXPECT_EQ(large, fs::file_size(path_));
        // A process may also end between the change and the cut.
        EXPECT_EQ(L"k", Archive(path_).MustGet(L"kept")) << "pages after the last one are not damage";
        EXPECT_HR(HRESULT_FROM_WIN32(ERROR_USER_MAPPED_FILE), archive.Add(L"new", L"n")) << "it has not begun";
        EXPECT_EQ(1, archive.MustCount());
    }
    EXPECT_HR(S_OK, archive.Add(L"new", L"n"));
    EXPECT_LT(fs::file_size(path_) + 30000, large);
    EXPECT_EQ(L"k", archive.MustGet(L"kept"));
}

TEST_F(ArchiveFailures, OnlyUnusableKeysAreDamage) {
    const std::pair<DWORD, HRESULT> errors[] = {
        {static_cast<DWORD>(NTE_BAD_DATA), CORRUPT},
        {static_cast<DWORD>(NTE_BAD_KEY_STATE), CORRUPT},
        {ERROR_INVALID_DATA, CORRUPT},
        {ERROR_INVALID_PARAMETER, CORRUPT},
        {static_cast<DWORD>(NTE_BAD_FLAGS), CORRUPT},
        {static_cast<DWORD>(NTE_NO_MEMORY), NTE_NO_MEMORY},
        {ERROR_NOT_ENOUGH_MEMORY, HRESULT_FROM_WIN32(ERROR_NOT_ENOUGH_MEMORY)},
        {RPC_S_SERVER_UNAVAILABLE, HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE)},
        {static_cast<DWORD>(NTE_FAIL), NTE_FAIL},
        {ERROR_FILE_NOT_FOUND, HRESULT_FROM_WIN32(ERROR_DECRYPTION_FAILED)},
    };
    Archive archive(path_, 100);
    ASSERT_HR(S_OK, archive.Add(L"a", L"b"));
    // Another header than the one whose keys are cached.
    support::DamageFile(path_, 4000);
    Replaced unprotect(importedUnprotect, FailingUnprotect);
    for (const auto& [error, expected] : errors) {
        unprotectError = error;
        long count = 0;
        std::wstring data;
        EXPECT_HR(expected, archive.Count(count)) << error;
        EXPECT_HR(expected, archive.Get(L"a", data)) << error;
        EXPECT_HR(expected, archive.Add(L"c", L"d")) << error;
    }
}

} // namespace
