// The list of an archive's streams, and the names that streams and archives may have.
#include "platform/ArchiveSupport.h"
#include "platform/archive/ArchiveDatabase.h"

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using platform_test::Archive;
using Names = std::vector<std::wstring>;

constexpr HRESULT CORRUPT = HRESULT_FROM_WIN32(ERROR_FILE_CORRUPT);

Names Split(std::wstring_view list) {
    Names names;
    while (!list.empty()) {
        const size_t end = list.find(L'\xFFFF');
        if (end == list.npos) {
            ADD_FAILURE() << "no delimiter after the last name";
            break;
        }
        names.emplace_back(list.substr(0, end));
        list.remove_prefix(end + 1);
    }
    return names;
}

keldan::Bytes BytesOf(std::wstring_view text) {
    return {reinterpret_cast<const BYTE*>(text.data()), text.size() * sizeof(wchar_t)};
}

class ArchiveNames : public testing::Test {
  protected:
    // Failures leave no list.
    static HRESULT List(ISecureArchiveManager& manager, Names& names) {
        vorna::com_ptr<IArchiveStreams> streams;
        EXPECT_HR(S_OK, manager.QueryInterface(__uuidof(IArchiveStreams), streams.put_void()));
        vorna::bstr list;
        HRESULT result = streams->GetStreamNames(list.put());
        EXPECT_EQ(SUCCEEDED(result), list.get() != nullptr);
        names = Split(list.view());
        return result;
    }
    static Names MustList(Archive& archive) {
        Names names;
        EXPECT_HR(S_OK, List(archive.Manager(), names));
        return names;
    }

    support::TestFolder folder_;
    fs::path path_ = folder_.Path() / "A.sam";
};

TEST_F(ArchiveNames, AreListedInTheOrderOfTheirStreams) {
    Archive archive(path_);
    EXPECT_EQ(Names{}, MustList(archive));
    EXPECT_FALSE(fs::exists(path_)) << "listing makes no archive";
    ASSERT_HR(S_OK, archive.Add(L"", L"a name without characters"));
    EXPECT_EQ(Names{L""}, MustList(archive));
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
    EXPECT_EQ(odd, MustList(archive));
    ASSERT_HR(S_OK, archive.Add(L"z", L"replaced")) << "keeps its place";
    EXPECT_EQ(odd, MustList(archive));
    ASSERT_HR(S_OK, archive.Remove(L"z"));
    ASSERT_HR(S_OK, archive.Add(L"z", L"added again"));
    EXPECT_EQ(L"z", MustList(archive).back());
    for (const std::wstring& name : odd)
        ASSERT_HR(S_OK, archive.Remove(name));
    EXPECT_EQ(Names{}, MustList(archive));
}

TEST_F(ArchiveNames, OfThousandsOfStreamsAreAllListed) {
    Names names;
    {
        // While an archive is being made, its changes are not flushed one by one.
        keldan::ArchiveFile file(path_.wstring());
        ASSERT_HR(S_OK, file.Create());
        {
            keldan::ArchiveDatabase database(file);
            ASSERT_HR(S_OK, database.Open());
            for (int i = 0; i < 2000; ++i) {
                names.push_back(L"stream " + std::to_wstring(i * 7919 % 2000));
                ASSERT_HR(S_OK, database.Put(BytesOf(names.back()), BytesOf(std::wstring(500, L'd'))));
            }
        }
        ASSERT_HR(S_OK, file.Publish());
    }
    Archive archive(path_);
    EXPECT_EQ(2000, archive.MustCount());
    EXPECT_EQ(names, MustList(archive));
}

TEST_F(ArchiveNames, OfADamagedArchiveAreRefused) {
    Archive archive(path_);
    Names names;
    for (int i = 0; i < 30; ++i) {
        names.push_back(std::to_wstring(i));
        ASSERT_HR(S_OK, archive.Add(names.back(), std::wstring(300, L'd')));
    }
    int noticed = 0;
    for (size_t offset = 2048; offset < fs::file_size(path_); offset += 4096) {
        support::DamageFile(path_, offset);
        Names found;
        HRESULT result = List(archive.Manager(), found);
        noticed += result == CORRUPT;
        // Pages that only other operations need are not read.
        EXPECT_TRUE(result == CORRUPT || (result == S_OK && found == names && offset > 8192)) << offset;
        support::DamageFile(path_, offset);
    }
    EXPECT_GT(noticed, 6);
    EXPECT_EQ(names, MustList(archive));
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
        EXPECT_HR(HRESULT_FROM_WIN32(ERROR_INVALID_DATA), List(archive.Manager(), names));
        EXPECT_EQ(2, archive.MustCount());
        fs::remove(path_);
    }
}

TEST_F(ArchiveNames, OfTheManagersOwnFilesAreNoArchives) {
    Archive archive(path_);
    for (const wchar_t* name : {L"A.sam-new", L"A.sam-journal", L"b-NEW", L"b-Journal", L"-new"}) {
        EXPECT_HR(E_INVALIDARG, archive.Bind(folder_.Path() / name)) << support::Narrow(name);
        EXPECT_HR(E_UNEXPECTED, archive.Add(L"a", L"b")) << support::Narrow(name);
    }
    for (const wchar_t* name : {L"new", L"b-new.sam", L"b-journals", L"b-new-journal-x"}) {
        EXPECT_HR(S_OK, archive.Bind(folder_.Path() / name)) << support::Narrow(name);
        EXPECT_HR(S_OK, archive.Add(L"a", L"b")) << support::Narrow(name);
        EXPECT_EQ(Names{L"a"}, MustList(archive)) << support::Narrow(name);
    }
}

// Calls a method by its name, as a script does.
HRESULT CallByName(IDispatch& object, const wchar_t* method, std::vector<VARIANT> arguments, VARIANT& answer) {
    auto* name = const_cast<LPOLESTR>(method);
    DISPID id = 0;
    if (HRESULT result = object.GetIDsOfNames(IID_NULL, &name, 1, LOCALE_USER_DEFAULT, &id); FAILED(result))
        return result;
    DISPPARAMS parameters{arguments.data(), nullptr, static_cast<UINT>(arguments.size()), 0};
    return object.Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &parameters, &answer, nullptr, nullptr);
}

TEST_F(ArchiveNames, AreServedByTheRegisteredClassToEarlyAndLateCallers) {
    support::RegisterPlatform();
    CLSID id;
    ASSERT_HR(S_OK, CLSIDFromProgID(L"QXKELDAN.ZEBSecureArchiveManager", &id));
    vorna::com_ptr<ISecureArchiveManager> manager;
    ASSERT_HR(S_OK,
              CoCreateInstance(id, nullptr, CLSCTX_INPROC_SERVER, __uuidof(ISecureArchiveManager), manager.put_void()));
    vorna::com_ptr<IArchiveStreams> streams;
    ASSERT_HR(S_OK, manager->QueryInterface(__uuidof(IArchiveStreams), streams.put_void()));
    EXPECT_HR(E_POINTER, streams->GetStreamNames(nullptr));
    Names names;
    EXPECT_HR(E_UNEXPECTED, List(*manager.get(), names)) << "no archive is selected";
    ASSERT_HR(S_OK, manager->put_Archive(vorna::bstr(path_.wstring()).get()));
    ASSERT_HR(S_OK, manager->AddStream(vorna::bstr(L"a").get(), vorna::bstr(L"b").get(), 0));
    EXPECT_HR(S_OK, List(*manager.get(), names));
    EXPECT_EQ(Names{L"a"}, names);

    // Both interfaces answer to the methods of both.
    for (IDispatch* object : {static_cast<IDispatch*>(manager.get()), static_cast<IDispatch*>(streams.get())}) {
        VARIANT answer{};
        ASSERT_HR(S_OK, CallByName(*object, L"GetStreamNames", {}, answer));
        ASSERT_EQ(VT_BSTR, answer.vt);
        EXPECT_EQ(Names{L"a"}, Split(vorna::view_of(answer.bstrVal)));
        VariantClear(&answer);
        VARIANT kind{};
        kind.vt = VT_I4;
        kind.lVal = 2;
        ASSERT_HR(S_OK, CallByName(*object, L"GetEntryCount", {kind}, answer));
        EXPECT_EQ(1, answer.lVal);
        EXPECT_HR(DISP_E_UNKNOWNNAME, CallByName(*object, L"GetNothing", {}, answer));
    }
}

} // namespace
