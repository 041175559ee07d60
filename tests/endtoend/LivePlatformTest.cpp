// Archives on a schedule, on real parts: live data of this machine.
#include "LivePlatform.h"
#include "tools/SubscriptionFile.h"

#include <cstdlib>

using namespace vorna;
using namespace vorna::endtoend;

namespace {

std::wstring Document(std::wstring_view id, std::wstring_view collect, int seconds, std::wstring_view more = L"") {
    return L"<Archive ID=\"" + std::wstring(id) + L"\"><Collect>" + std::wstring(collect) + L"</Collect>" +
           std::wstring(more) +
           L"<Timer><XMLDataModel><XPath>/Host/Memory</XPath><XDMPrefixes>xmlns:h='urn:h'</XDMPrefixes></XMLDataModel>"
           L"<Frequency>P0Y0M0DT0H0M" +
           std::to_wstring(seconds) + L"S</Frequency></Timer></Archive>";
}

} // namespace

TEST_F(LivePlatform, SnapshotsAreCapturedOnSchedule) {
    ASSERT_HR(S_OK, SetData(Document(L"Mem", L"ON", 1)));
    ASSERT_HR(S_OK, SetData(Document(L"Other", L"ON", 3600)));
    FolderWatch watch(folder_.Path());
    EXPECT_TRUE(watch.WaitUntil([&] { return Ids(L"Mem").size() >= 4; }));
    const std::wstring document = GetData(L"/Archive[@ID='Mem']//Total");
    EXPECT_EQ(0u, document.find(L"<Archive><ArchiveData ID=\"Mem\"><Snapshot id=\"1\" timestamp=\""));
    EXPECT_NE(std::wstring::npos, document.find(L"<Snapshot id=\"4\""));
    EXPECT_NE(std::wstring::npos, document.find(L"<Total"));
    EXPECT_EQ(std::wstring::npos, document.find(L"<Available"));
    // Six at the most, however long it goes on.
    const std::wstring first = Ids(L"Mem").front();
    EXPECT_TRUE(watch.WaitUntil([&] { return Ids(L"Mem").front() != first; }));
    EXPECT_LE(Ids(L"Mem").size(), 7u) << "six, and one whose limits are not applied yet";

    EXPECT_HR(S_OK, SetData(Document(L"Mem", L"OFF", 1)));
    EXPECT_HR(S_OK, SetData(Document(L"Other", L"OFF", 1)));
    EXPECT_FALSE(std::filesystem::exists(folder_.Path() / "Archives" / "machine"));
}

TEST_F(LivePlatform, TheSmallestUsefulLimitKeepsASnapshot) {
    const struct {
        std::wstring units;
        std::uint32_t limit;
        size_t kept;
    } cases[] = {{L"KB", vornactl::SMALLEST_KILOBYTES, 1},
                 {L"KB", vornactl::SMALLEST_KILOBYTES - 1, 0},
                 {L"NUMFILES", 1, 1},
                 {L"NUMFILES", 0, 0}};
    for (const auto& each : cases) {
        ASSERT_HR(S_OK, SetData(Document(L"Mem", L"ON", 3600,
                                         L"<DataManagement><MaxStorageSize Units=\"" + each.units + L"\">" +
                                             std::to_wstring(each.limit) + L"</MaxStorageSize></DataManagement>")));
        EXPECT_EQ(each.kept, Ids(L"Mem").size()) << support::Narrow(each.units) << " " << each.limit;
        EXPECT_HR(S_OK, SetData(Document(L"Mem", L"OFF", 1)));
    }
}

TEST_F(LivePlatform, KilledHostLosesNothing) {
    const std::wstring more = L"<DataManagement><MaxStorageSize Units=\"NUMFILES\">1000</MaxStorageSize>"
                              L"</DataManagement>";
    ASSERT_HR(S_OK, SetData(Document(L"Mem", L"ON", 1, more)));
    FolderWatch watch(folder_.Path());
    std::vector<std::wstring> before;
    for (int round = 0; round < 3; ++round) {
        const size_t enough = before.size() + 2;
        EXPECT_TRUE(watch.WaitUntil([&] { return Ids(L"Mem").size() >= enough; }));
        before = Ids(L"Mem");
        ASSERT_NO_FATAL_FAILURE(KillHost());
        for (const std::wstring& id : before) {
            const auto after = Ids(L"Mem");
            EXPECT_NE(after.end(), std::find(after.begin(), after.end(), id)) << support::Narrow(id);
        }
        // Any use of the timer brings the host back, and with it the schedule.
        com_ptr<IZEBTimer> timer;
        ASSERT_HR(S_OK, PlatformServices::CreateInstance(PROGID_TIMER, nullptr, timer));
    }
    EXPECT_TRUE(watch.WaitUntil([&] { return Ids(L"Mem").size() > before.size(); }));
    EXPECT_HR(S_OK, SetData(Document(L"Mem", L"ON", 1)));
    StopHost();
    ExpectWhole(L"Mem", L"Memory", 3);
}

// Started by the test below: captures until the given number has been stored.
TEST(Child, DISABLED_Captures) {
    const char* given = std::getenv("VORNA_CHILD_ID");
    ASSERT_NE(nullptr, given);
    const std::wstring id = support::Wide(given);
    com_ptr<IComBaseClient> component;
    ASSERT_HR(S_OK, PlatformServices::CreateInstance(PROGID_VORNA, nullptr, component));
    for (int capture = 0; capture < 4; ++capture) {
        bstr info;
        ASSERT_HR(S_OK, component->Deliver(bstr(L"<TimerEvent><SubscriptionID>" + id +
                                                L"</SubscriptionID><ClientCookie>machine\\host\\0\\Two</ClientCookie>"
                                                L"</TimerEvent>")
                                               .get(),
                                           info.put()))
            << support::Narrow(info.view());
    }
}

TEST_F(LivePlatform, TwoProcessesOnOneArchive) {
    const std::wstring more = L"<DataManagement><MaxStorageSize Units=\"NUMFILES\">3</MaxStorageSize></DataManagement>";
    ASSERT_HR(S_OK, SetData(Document(L"Two", L"ON", 3600, more)));
    const std::wstring id = Record(L"Two").subscriptionId;
    std::vector<support::ChildProcess> children;
    children.reserve(2);
    for (int child = 0; child < 2; ++child)
        children.push_back(support::ChildProcess::OfTest(L"Child.DISABLED_Captures", {{L"VORNA_CHILD_ID", id}}));
    // Readers in between, which mark what they read.
    while (children.front().Running())
        GetData(L"/Archive[@ID='Two']//Total");
    for (const auto& child : children)
        EXPECT_EQ(0u, child.Wait());
    ExpectWhole(L"Two", L"Memory");
    EXPECT_LE(Ids(L"Two").size(), 4u);
    EXPECT_HR(S_OK, SetData(Document(L"Two", L"OFF", 1)));
}
