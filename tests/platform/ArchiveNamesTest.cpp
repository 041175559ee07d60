// The list of an archive's streams, and the names that streams and archives may have.
#include "platform/ArchiveSupport.h"
#include "platform/archive/ArchiveDatabase.h"

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using platform_test::Archive;
using platform_test::Names;

keldan::Bytes BytesOf(std::wstring_view text) {
    return {reinterpret_cast<const BYTE*>(text.data()), text.size() * sizeof(wchar_t)};
}

class ArchiveNames : public platform_test::ArchiveTest {};

TEST_F(ArchiveNames, AreListedInTheOrderOfTheirStreams) {
    Archive archive(path_);
    EXPECT_EQ(Names{}, archive.MustList());
    EXPECT_FALSE(fs::exists(path_)) << "listing makes no archive";
    ASSERT_HR(S_OK, archive.Add(L"", L"a name without characters"));
    EXPECT_EQ(Names{L""}, archive.MustList());
    const Names odd{L"z",
                    L"a",
                    L"A",
                    L"zero\0inside"s,
                    L"half \xD800 pair",
                    L"line\nend",
                    L"..\\a/b:*?\"'%;\xFFFE",
                    std::wstring(5000, L'n')};
    for (const std::wstring& name : odd)
        ASSERT_HR(S_OK, archive.Add(name, std::wstring(3000, L'd')));
    ASSERT_HR(S_OK, archive.Remove(L""));
    EXPECT_EQ(odd, archive.MustList());
    ASSERT_HR(S_OK, archive.Add(L"z", L"replaced")) << "keeps its place";
    EXPECT_EQ(odd, archive.MustList());
    ASSERT_HR(S_OK, archive.Remove(L"z"));
    ASSERT_HR(S_OK, archive.Add(L"z", L"added again"));
    EXPECT_EQ(L"z", archive.MustList().back());
    for (const std::wstring& name : odd)
        ASSERT_HR(S_OK, archive.Remove(name));
    EXPECT_EQ(Names{}, archive.MustList());
}

TEST_F(ArchiveNames, ThatCannotBeListedAreRefused) {
    const std::string half = "abc";
    const std::wstring delimiter = L"a\xFFFF";
    Archive archive(path_);
    vorna::bstr odd;
    *odd.put() = SysAllocStringByteLen(half.data(), static_cast<UINT>(half.size()));
    EXPECT_HR(E_INVALIDARG, archive.Add(delimiter, L"d"));
    EXPECT_HR(E_INVALIDARG, archive.Manager().AddStream(odd.get(), odd.get(), 0));
    EXPECT_FALSE(fs::exists(path_));

    // What an earlier version may have stored.
    for (keldan::Bytes name :
         {keldan::Bytes(reinterpret_cast<const BYTE*>(half.data()), half.size()), BytesOf(delimiter)}) {
        ASSERT_HR(S_OK, archive.Add(L"a", L"b"));
        {
            keldan::ArchiveFile file(path_.wstring());
            keldan::Deadline deadline(0);
            ASSERT_HR(S_OK, file.Open(keldan::ArchiveFile::Access::Write, deadline));
            keldan::ArchiveDatabase database(file);
            ASSERT_HR(S_OK, database.Open());
            ASSERT_HR(S_OK, database.Put(name, {}));
        }
        Names names;
        EXPECT_HR(HRESULT_FROM_WIN32(ERROR_INVALID_DATA), archive.List(names));
        EXPECT_EQ(2, archive.MustCount());
        fs::remove(path_);
    }
}

TEST_F(ArchiveNames, OfTheManagersOwnFilesAreNoArchives) {
    Archive archive(path_);
    for (const wchar_t* name : {L"A.sam-new", L"A.sam-journal", L"b-NEW", L"b-Journal", L"-new"}) {
        EXPECT_HR(E_INVALIDARG, archive.Bind(folder_.Path() / name)) << support::Narrow(name);
        Names names;
        EXPECT_HR(E_UNEXPECTED, archive.List(names)) << support::Narrow(name);
    }
    for (const wchar_t* name : {L"new", L"b-new.sam", L"b-journals", L"b-new-journal-x"}) {
        EXPECT_HR(S_OK, archive.Bind(folder_.Path() / name)) << support::Narrow(name);
        EXPECT_HR(S_OK, archive.Add(L"a", L"b")) << support::Narrow(name);
        EXPECT_EQ(Names{L"a"}, archive.MustList()) << support::Narrow(name);
    }
}

} // namespace
