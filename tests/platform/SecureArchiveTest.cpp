// The secure archive manager: streams are returned as they were stored, and damage is always detected.
#include "platform/ArchiveSupport.h"

#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;
using platform_test::Archive;
using platform_test::Names;
using support::ReadFileBytes;
using support::WriteFileBytes;

constexpr HRESULT NOT_FOUND = HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
constexpr HRESULT NO_FOLDER = HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND);
constexpr HRESULT DENIED = HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED);
constexpr HRESULT CORRUPT = HRESULT_FROM_WIN32(ERROR_FILE_CORRUPT);
constexpr HRESULT BUSY = HRESULT_FROM_WIN32(ERROR_LOCK_VIOLATION);

class SecureArchive : public platform_test::ArchiveTest {};

TEST_F(SecureArchive, AnyTextIsReturnedUnchanged) {
    using namespace std::string_literals;
    const std::pair<std::wstring, std::wstring> streams[] = {
        {L"plain", L"<a>text</a>"},
        {L"Plain", L"names are case-sensitive"},
        {L"empty", L""},
        {L"", L"a name without characters"},
        {L"zero\0inside"s, L"data\0with\0zeros\0"s},
        {L"zero"s, L"another than zero and more"},
        {L"half \xD800 pair", L"\xDC00\xD800 reversed \xFFFF\xFFFE"},
        {L"..\\a/b:*?\"'%", L"'; DROP TABLE streams; --"},
        {std::wstring(5000, L'n'), std::wstring(5000, L'd')},
        {L"page edges", std::wstring(4096, L'\x00E9')},
    };
    Archive archive(path_);
    for (const auto& [name, data] : streams)
        ASSERT_HR(S_OK, archive.Add(name, data));
    for (const auto& [name, data] : streams)
        EXPECT_EQ(data, archive.MustGet(name)) << support::Narrow(name);
    EXPECT_EQ(static_cast<long>(std::size(streams)), archive.MustCount());
    for (const auto& [name, data] : streams) {
        EXPECT_HR(S_OK, archive.Remove(name));
        EXPECT_HR(NOT_FOUND, archive.Remove(name));
        std::wstring gone;
        EXPECT_HR(NOT_FOUND, archive.Get(name, gone));
    }
    EXPECT_EQ(0, archive.MustCount());
    EXPECT_EQ(Names{L"A.sam"}, Files());
}

TEST_F(SecureArchive, IncompleteCharactersAreKept) {
    Archive archive(path_);
    vorna::bstr odd;
    *odd.put() = SysAllocStringByteLen("abc", 3);
    ASSERT_HR(S_OK, archive.Manager().AddStream(vorna::bstr(L"odd").get(), odd.get(), 0));
    vorna::bstr back;
    ASSERT_HR(S_OK, archive.Manager().GetStream(vorna::bstr(L"odd").get(), 0, back.put()));
    ASSERT_EQ(3u, SysStringByteLen(back.get()));
    EXPECT_EQ(0, memcmp("abc", back.get(), 3));
}

TEST_F(SecureArchive, FileShrinksWhenStreamsAreRemovedAndIsTheOnlyOne) {
    Archive archive(path_);
    ASSERT_HR(S_OK, archive.Add(L"kept", L"kept"));
    EXPECT_EQ(Names{L"A.sam"}, Files());
    auto small = fs::file_size(path_);
    for (int i = 0; i < 40; ++i) {
        ASSERT_HR(S_OK, archive.Add(std::to_wstring(i), std::wstring(5000, L'x')));
        EXPECT_EQ(Names{L"A.sam"}, Files());
    }
    EXPECT_GT(fs::file_size(path_), 400000u);
    // Streams in the middle first, so that later pages have to move.
    for (int i = 39; i >= 0; --i) {
        ASSERT_HR(S_OK, archive.Remove(std::to_wstring((i + 20) % 40)));
        EXPECT_EQ(Names{L"A.sam"}, Files());
    }
    EXPECT_EQ(small, fs::file_size(path_));
    EXPECT_EQ(L"kept", archive.MustGet(L"kept"));
}

TEST_F(SecureArchive, FiftyMegabytesAreStoredOnce) {
    std::wstring data(25 * 1024 * 1024, L'\0');
    for (size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<wchar_t>(i * 31 + (i >> 16));
    Archive archive(path_);
    ASSERT_HR(S_OK, archive.Add(L"small", L"s"));
    ASSERT_HR(S_OK, archive.Add(L"large", data));
    EXPECT_LT(fs::file_size(path_), data.size() * sizeof(wchar_t) / 100 * 105);
    EXPECT_TRUE(data == archive.MustGet(L"large"));
    ASSERT_HR(S_OK, archive.Add(L"large", L"replaced"));
    EXPECT_EQ(L"replaced", archive.MustGet(L"large"));
    EXPECT_EQ(2, archive.MustCount());
    EXPECT_LT(fs::file_size(path_), 40000u);
    EXPECT_EQ(L"s", archive.MustGet(L"small"));
}

TEST_F(SecureArchive, ArgumentsAreCheckedAndOutParametersSet) {
    Archive archive(path_);
    auto& manager = archive.Manager();
    long count = 77;
    for (long kind : {-1L, 0L, 1L, 3L}) {
        EXPECT_HR(E_INVALIDARG, manager.GetEntryCount(kind, &count));
        EXPECT_EQ(0, count);
    }
    EXPECT_HR(E_POINTER, manager.GetEntryCount(2, nullptr));
    EXPECT_HR(E_POINTER, manager.GetStream(vorna::bstr(L"a").get(), 0, nullptr));
    auto poison = reinterpret_cast<BSTR>(1);
    EXPECT_HR(NOT_FOUND, manager.GetStream(vorna::bstr(L"a").get(), 0, &poison));
    EXPECT_EQ(nullptr, poison);
    EXPECT_HR(NOT_FOUND, archive.Remove(L"a"));
    EXPECT_EQ(0, archive.MustCount());
    for (long flag : {0L, 1L, -5L})
        EXPECT_HR(S_OK, manager.put_Mode(flag));

    EXPECT_HR(NO_FOLDER, archive.Bind(folder_.Path() / "none" / "A.sam"));
    EXPECT_HR(E_UNEXPECTED, archive.Add(L"a", L"b")) << "the earlier archive is not bound any more";
    EXPECT_HR(E_INVALIDARG, archive.Bind(L""));
    EXPECT_HR(E_INVALIDARG, archive.Bind(L"relative.sam"));
    EXPECT_HR(E_INVALIDARG, archive.Bind(folder_.Path() / ""));
    EXPECT_HR(E_INVALIDARG, manager.put_Archive(vorna::bstr(path_.wstring() + std::wstring(1, L'\0') + L"x").get()));
    EXPECT_EQ(Names{}, Files());
}

TEST_F(SecureArchive, PathsBeyondTheOldLimitWork) {
    fs::path deep = L"\\\\?\\" + folder_.Path().wstring();
    for (int i = 0; i < 5; ++i)
        deep /= std::wstring(60, static_cast<wchar_t>(L'a' + i));
    fs::create_directories(deep);
    Archive archive(deep.wstring().substr(4) + L"\\A.sam");
    EXPECT_HR(S_OK, archive.Add(L"a", L"b"));
    EXPECT_HR(S_OK, archive.Add(L"c", L"d"));
    EXPECT_EQ(L"b", archive.MustGet(L"a"));
    EXPECT_EQ(L"d", Archive(deep / "A.sam").MustGet(L"c")) << "the long form of the same path";
}

TEST_F(SecureArchive, ReadOnlyFileIsReadAndNotWritten) {
    Archive archive(path_);
    ASSERT_HR(S_OK, archive.Add(L"a", L"b"));
    auto before = ReadFileBytes(path_);
    SetFileAttributesW(path_.c_str(), FILE_ATTRIBUTE_READONLY);
    EXPECT_HR(DENIED, archive.Add(L"c", L"d"));
    EXPECT_HR(DENIED, archive.Remove(L"a"));
    EXPECT_EQ(L"b", archive.MustGet(L"a"));
    EXPECT_EQ(1, archive.MustCount());
    SetFileAttributesW(path_.c_str(), FILE_ATTRIBUTE_NORMAL);
    EXPECT_TRUE(before == ReadFileBytes(path_));
}

TEST_F(SecureArchive, WaitForALockedArchiveIsBounded) {
    Archive archive(path_, 100);
    ASSERT_HR(S_OK, archive.Add(L"a", L"b"));
    vorna::unique_file holder(
        CreateFileW(path_.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    std::wstring data;
    EXPECT_HR(BUSY, archive.Get(L"a", data));
    EXPECT_HR(BUSY, archive.Add(L"c", L"d"));
    Archive patient(path_);
    std::thread reader([&] { EXPECT_EQ(L"b", patient.MustGet(L"a")); });
    holder.reset();
    reader.join();
}

TEST_F(SecureArchive, NoPlainTextOnTheDisk) {
    Archive archive(path_);
    const std::wstring secret = L"a secret that must not be seen";
    ASSERT_HR(S_OK, archive.Add(L"a secret name", secret));
    auto bytes = ReadFileBytes(path_);
    for (const std::wstring& text : {secret, std::wstring(L"secret name")}) {
        const std::string_view plain(reinterpret_cast<const char*>(text.data()), text.size() * sizeof(wchar_t));
        EXPECT_EQ(bytes.npos, bytes.find(plain));
    }
}

TEST_F(SecureArchive, EveryChangedByteIsDetected) {
    constexpr int STREAMS = 6;
    auto data = [](int i) { return std::wstring(3000, static_cast<wchar_t>(L'a' + i)); };
    Archive archive(path_);
    for (int i = 0; i < STREAMS; ++i)
        ASSERT_HR(S_OK, archive.Add(std::to_wstring(i), data(i)));
    const Names names = archive.MustList();
    const auto good = ReadFileBytes(path_);
    // Every byte of the header and of what the cipher leaves open; some bytes of each page, of its authentication and
    // of its nonce.
    std::vector<size_t> offsets;
    for (size_t offset = 0; offset < 4096 + 32; ++offset)
        offsets.push_back(offset);
    for (size_t page = 4096; page < good.size(); page += 4096) {
        for (size_t place : {0u, 40u, 2048u, 4031u, 4032u, 4064u, 4095u})
            offsets.push_back(page + place);
    }
    for (size_t offset : offsets) {
        support::DamageFile(path_, offset);
        long count = 0;
        HRESULT result = archive.Count(count);
        bool noticed = result == CORRUPT;
        // Every operation reads the first page; the others are read with their streams.
        ASSERT_TRUE(noticed || (offset >= 8192 && result == S_OK && count == STREAMS)) << offset;
        Names listed;
        result = archive.List(listed);
        ASSERT_TRUE(result == CORRUPT || (offset >= 8192 && result == S_OK && listed == names)) << offset;
        for (int i = 0; i < STREAMS && !noticed; ++i) {
            std::wstring found;
            result = archive.Get(std::to_wstring(i), found);
            noticed = result == CORRUPT;
            ASSERT_TRUE(noticed || (result == S_OK && found == data(i))) << offset;
        }
        if (noticed) {
            support::DamageFile(path_, offset);
            continue;
        }
        // Pages that no read needs (which list the others) are verified when a stream is removed.
        for (int i = 0; i < STREAMS && !noticed; ++i)
            noticed = archive.Remove(std::to_wstring(i)) == CORRUPT;
        ASSERT_TRUE(noticed) << offset;
        WriteFileBytes(path_, good);
    }
    EXPECT_TRUE(good == ReadFileBytes(path_));
    EXPECT_EQ(Names{L"A.sam"}, Files());
}

TEST_F(SecureArchive, OtherFileSizesAreDamage) {
    Archive archive(path_);
    for (int i = 0; i < 4; ++i)
        ASSERT_HR(S_OK, archive.Add(std::to_wstring(i), std::wstring(3000, L'x')));
    const auto good = ReadFileBytes(path_);
    std::vector<size_t> lengths{0, 1, 16, 4095, 4096, 4097, 4096 + 4095, good.size() - 1, good.size() + 1};
    for (size_t length = 8192; length < good.size(); length += 4096)
        lengths.push_back(length);
    for (size_t length : lengths) {
        auto bad = good;
        bad.resize(length);
        WriteFileBytes(path_, bad);
        long count = 0;
        std::wstring data;
        EXPECT_HR(CORRUPT, archive.Count(count)) << length;
        EXPECT_HR(CORRUPT, archive.Get(L"0", data)) << length;
        EXPECT_HR(CORRUPT, archive.Add(L"new", L"new")) << length;
        EXPECT_HR(CORRUPT, archive.Remove(L"0")) << length;
        EXPECT_TRUE(bad == ReadFileBytes(path_)) << length;
        EXPECT_EQ(Names{L"A.sam"}, Files());
    }
}

TEST_F(SecureArchive, FileOfAnotherArchiveIsRefusedButAFolderCanMove) {
    fs::create_directory(folder_.Path() / "from");
    fs::path first = folder_.Path() / "from" / "A.sam";
    fs::path second = folder_.Path() / "from" / "B.sam";
    Archive one(first);
    Archive two(second);
    ASSERT_HR(S_OK, one.Add(L"a", L"of A"));
    ASSERT_HR(S_OK, two.Add(L"a", L"of B"));

    fs::path moved = folder_.Path() / "to";
    fs::rename(folder_.Path() / "from", moved);
    Archive after(moved / "a.SAM");
    EXPECT_EQ(L"of A", after.MustGet(L"a")) << "file names are not case-sensitive";

    WriteFileBytes(moved / "A.sam", ReadFileBytes(moved / "B.sam"));
    std::wstring data;
    EXPECT_HR(CORRUPT, after.Get(L"a", data));
    EXPECT_HR(CORRUPT, after.Add(L"a", L"c"));
}

} // namespace
