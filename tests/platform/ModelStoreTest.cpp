#include "platform/data/ModelStore.h"
#include "common/unique_any.h"
#include "support/Support.h"

namespace {

using keldan::ServiceIdentity;

const HRESULT NO_MODEL = HRESULT_FROM_WIN32(ERROR_NOT_FOUND);

TEST(ModelStore, NamesFilesInjectivelyAndInsideTheFolder) {
    const auto name = [](std::wstring_view id, std::wstring_view uri, std::wstring_view port) {
        return support::Narrow(keldan::ModelStore::FileName({std::wstring(port), std::wstring(id), std::wstring(uri)}));
    };
    EXPECT_EQ("press-7_a+urn%3A%C3%A9+1.xml", name(L"press-7_a", L"urn:\u00e9", L"1"));
    EXPECT_EQ("%2E%2E%5Cx+%2F+%20.xml", name(L"..\\x", L"/", L" "));
    EXPECT_EQ("++.xml", name(L"", L"", L""));
    EXPECT_EQ("%41+a+1.xml", name(L"A", L"a", L"1"));
    EXPECT_NE(name(L"a+", L"b", L""), name(L"a", L"+b", L""));
    EXPECT_NE(name(L"%41", L"", L""), name(L"A", L"", L""));
}

TEST(ModelStore, ReplacesAModelThatIsBeingRead) {
    support::TestFolder folder;
    const keldan::ModelStore store(keldan::DataFolder(folder.path().wstring()));
    const ServiceIdentity service{L"1", L"a", L"b"};
    std::wstring message;
    std::wstring text;
    ASSERT_HR(S_OK, store.Write(service, L"<one>\u00e9</one>", message));
    vorna::unique_file reader(CreateFileW(store.PathOf(service).c_str(), GENERIC_READ,
                                          FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                          OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(reader);
    ASSERT_HR(S_OK, store.Write(service, L"<two/>", message)) << support::Narrow(message);
    ASSERT_HR(S_OK, store.Read(service, text, message));
    EXPECT_EQ(L"<two/>", text);
    reader.reset();
    EXPECT_EQ(1, std::distance(std::filesystem::directory_iterator(folder.path() / L"models"), {}));
    EXPECT_HR(S_OK, store.Remove(service));
    EXPECT_HR(NO_MODEL, store.Remove(service));
    EXPECT_HR(NO_MODEL, store.Read(service, text, message));
}

} // namespace
