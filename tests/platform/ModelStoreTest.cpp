#include "platform/data/ModelStore.h"
#include "support/Support.h"

#include <atomic>
#include <thread>

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

TEST(ModelStore, WritesReadsAndRemoves) {
    support::TestFolder folder;
    const keldan::ModelStore store(keldan::DataFolder(folder.Path().wstring()));
    const ServiceIdentity service{L"1", std::wstring(60, L'A'), L"b"};
    std::wstring message;
    std::wstring text;
    EXPECT_HR(NO_MODEL, store.Read(service, text, message));
    ASSERT_HR(S_OK, store.Write(service, L"<one>\u00e9</one>", message)) << support::Narrow(message);
    ASSERT_HR(S_OK, store.Read(service, text, message));
    EXPECT_EQ(L"<one>\u00e9</one>", text);
    EXPECT_HR(E_INVALIDARG, store.Write(service, L"\xD800", message));
    EXPECT_EQ(1, std::distance(std::filesystem::directory_iterator(folder.Path() / L"models"), {}));
    EXPECT_HR(S_OK, store.Remove(service));
    EXPECT_HR(NO_MODEL, store.Remove(service));
}

TEST(ModelStore, ReadersAlwaysSeeACompleteModel) {
    support::TestFolder folder;
    const keldan::ModelStore store(keldan::DataFolder(folder.Path().wstring()));
    const ServiceIdentity service{L"1", L"a", L"b"};
    const std::wstring models[] = {L"<m>" + std::wstring(50000, L'a') + L"</m>", L"<m>b</m>"};
    std::wstring message;
    ASSERT_HR(S_OK, store.Write(service, models[0], message));
    std::atomic<int> bad{0};
    std::atomic<int> reads{0};
    std::jthread reader([&](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            std::wstring text;
            std::wstring reason;
            if (store.Read(service, text, reason) != S_OK || (text != models[0] && text != models[1]))
                ++bad;
            ++reads;
            // A reader without a pause would block every writer.
            Sleep(1);
        }
    });
    for (int i = 1; i <= 100; ++i)
        ASSERT_TRUE(SUCCEEDED(store.Write(service, models[i % 2], message))) << support::Narrow(message);
    reader.request_stop();
    reader.join();
    EXPECT_EQ(0, bad);
    EXPECT_GT(reads, 0);
}

} // namespace
