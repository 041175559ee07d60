// The life of an archive: registration and its roll-back, captures, limits, retrieval, the end.
#include "ComponentTest.h"

#include "common/com/results.h"
#include "subscription/archive/SamAccessor.h"
#include "subscription/archive/SubscriptionArchive.h"

using namespace vorna;

namespace {

class ArchiveTest : public ComponentTest {
  protected:
    // Stores a capture of the given age in minutes, as if its tick had come then.
    void Capture(const SubscriptionRecord& record, int minutesAgo, std::wstring_view data, bool read = false) {
        SnapShot snapShot(support::FromNow(-60 * minutesAgo));
        snapShot.alreadyRead = read ? 1 : 0;
        ASSERT_HR(S_OK, SubscriptionPersistance().AddSnapShot(record.Archive(), snapShot));
        SamAccessor archive(record.Archive().SnapShotsPath(), snapShot.id);
        ASSERT_HR(S_OK, archive.addStreamToArchive(data));
    }
    long Streams(const SubscriptionRecord& record) {
        long count = -1;
        SamAccessor archive(record.Archive().SnapShotsPath());
        EXPECT_HR(S_OK, archive.getNumberOfFilesInArchive(count));
        return count;
    }
    // A subscription without the first capture.
    SubscriptionRecord Subscribe(std::wstring_view id, std::wstring_view more = L"") {
        scripts_.aggregator.result = S_FALSE;
        EXPECT_HR(S_OK, SetData(Document(id, L"ON", more)).result);
        scripts_.aggregator.result = S_OK;
        return Record(id);
    }
    static std::wstring Limit(std::wstring_view inner) {
        return L"<DataManagement>" + std::wstring(inner) + L"</DataManagement>";
    }
};

} // namespace

TEST_F(ArchiveTest, FromTheFirstCaptureToNothingLeft) {
    ExpectAnswer(SetData(Document(L"A1")), S_OK, UNTOUCHED);
    EXPECT_HR(S_OK, SetData(Document(L"A2")).result);
    // Two registrations and one maintenance timer.
    EXPECT_EQ(3u, scripts_.timer.schedules.size());
    const SubscriptionRecord record = Record(L"A1");
    ASSERT_EQ(1u, record.snapShots.size());
    EXPECT_NE(std::wstring::npos, scripts_.timer.schedules[record.subscriptionId].find(record.clientCookie));
    EXPECT_NE(std::wstring::npos, record.serviceXml.find(L"<friendlyName>Press &amp; Co &lt;7&gt;</friendlyName>"));

    const Answer answer = GetData(L"/Archive[@ID='A1']/Data/V");
    ASSERT_HR(S_OK, answer.result);
    EXPECT_EQ(UNTOUCHED, answer.text);
    EXPECT_EQ(0u, answer.document.find(L"<Archive><ArchiveData ID=\"A1\"><Snapshot id=\"1\" timestamp=\"20"));
    EXPECT_NE(std::wstring::npos, answer.document.find(L"\"><Data><V>1</V></Data></Snapshot></ArchiveData></Archive>"));
    EXPECT_EQ(1, Record(L"A1").snapShots.front().alreadyRead);

    // The other archive of the service outlives the first.
    EXPECT_HR(S_OK, SetData(Document(L"A1", L"OFF")).result);
    EXPECT_HR(RESULT_NO_SUBSCRIPTION, GetData(L"/Archive[@ID='A1']/*").result);
    EXPECT_HR(S_OK, GetData(L"/Archive[@ID='A2']/*").result);
    EXPECT_EQ(2u, scripts_.timer.schedules.size());
    EXPECT_HR(S_OK, SetData(L"<Archive ID=\"A2\"><Collect>OFF</Collect></Archive>").result);
    EXPECT_TRUE(scripts_.timer.schedules.empty());
    EXPECT_FALSE(std::filesystem::exists(folder_.Path() / "Archives"));
    EXPECT_EQ(1u, FilesLeft()) << "only the persist archive, with its records of the past";
}

TEST_F(ArchiveTest, InvalidRequestDoesNotEndAnExistingArchive) {
    EXPECT_HR(S_OK, SetData(Document(L"A1")).result);
    EXPECT_HR(RESULT_COLLECT, SetData(Document(L"A1", L"On")).result);
    EXPECT_HR(RESULT_AGING, SetData(Document(L"A1", L"ON", L"<Aging>1 year</Aging>")).result);
    EXPECT_HR(S_OK, GetData(L"/Archive[@ID='A1']/*").result);
}

TEST_F(ArchiveTest, StaleTicketIsReplacedOnce) {
    EXPECT_HR(S_OK, SetData(Document(L"A0")).result);
    scripts_.timer.subscribe = {PLATFORM_TICKET_STALE};
    EXPECT_HR(S_OK, SetData(Document(L"A1")).result);
    std::wstring clientId;
    EXPECT_HR(S_OK, SubscriptionPersistance().GetClientID(clientId));
    EXPECT_EQ(L"ticket-" + std::to_wstring(scripts_.timer.tickets), clientId);
    scripts_.timer.subscribe = {PLATFORM_TICKET_UNKNOWN, PLATFORM_TICKET_STALE};
    EXPECT_HR(RESULT_TIMER_REGISTRATION, SetData(Document(L"A2")).result);
    EXPECT_EQ(3u, scripts_.timer.schedules.size()) << "two archives and the maintenance timer";
}

TEST_F(ArchiveTest, DirectoryThatCannotBeMade) {
    fakes::ServiceScript script;
    script.serviceUri = L".hidden";
    auto service = fakes::MakeService(script);
    ExpectAnswer(SetData(Document(L"A1"), service.get()), E_FAIL, L"Directory creation failed");
    EXPECT_TRUE(scripts_.timer.schedules.empty());
    EXPECT_EQ(0u, FilesLeft());
}

TEST_F(ArchiveTest, AggregatorWithoutDataStillGivesASubscription) {
    for (HRESULT result : {S_FALSE, E_FAIL, S_OK}) {
        scripts_.aggregator.result = result;
        scripts_.aggregator.data.clear();
        EXPECT_HR(S_OK, SetData(Document(L"A1")).result);
        ExpectAnswer(GetData(L"/Archive[@ID='A1']/*"), E_FAIL, L"No Data Present in the Archive");
        EXPECT_HR(E_FAIL, Tick(Record(L"A1")).result);
        EXPECT_EQ(L"Subscription->HandleCallBack returned failure", Tick(Record(L"A1")).text);
        EXPECT_HR(S_OK, SetData(Document(L"A1", L"OFF")).result);
    }
}

TEST_F(ArchiveTest, RenewalOfALostRegistrationKeepsEverySnapshot) {
    const SubscriptionRecord before = Subscribe(L"A1");
    for (int minutes = 3; minutes > 0; --minutes)
        Capture(before, minutes, L"<Data><V>" + std::to_wstring(minutes) + L"</V></Data>");
    for (HRESULT answer : {S_OK, PLATFORM_ID_UNKNOWN, PLATFORM_ID_EXPIRED}) {
        scripts_.timer.modify = {answer};
        EXPECT_HR(S_OK, SetData(Document(L"A1", L"ON", L"<Aging>P2Y0M0DT0H0M0S</Aging>")).result);
        const SubscriptionRecord after = Record(L"A1");
        EXPECT_EQ(before.vornaId, after.vornaId);
        EXPECT_EQ(answer == S_OK, after.subscriptionId == before.subscriptionId);
        EXPECT_EQ(3u, after.snapShots.size());
        EXPECT_EQ(3, Streams(after));
        EXPECT_NE(std::wstring::npos, after.subscriptionText.find(L"<Aging>P2Y0M0DT0H0M0S</Aging>"));
        std::wstring end;
        EXPECT_HR(S_OK, SubscriptionPersistance().GetEndDateForSubscription(after.vornaId, end));
        EXPECT_EQ(std::to_wstring(LocalNow().wYear + 2), end.substr(0, 4));
    }
    EXPECT_EQ(3u, FilesLeft()) << "one persist, one configuration, one snapshot archive";
    // A modification that the timer refuses for another reason changes nothing.
    scripts_.timer.modify = {E_ACCESSDENIED};
    EXPECT_HR(E_ACCESSDENIED, SetData(Document(L"A1")).result);
    EXPECT_EQ(3u, Record(L"A1").snapShots.size());
}

TEST_F(ArchiveTest, RefusedUnregistrationInvalidatesTheSubscription) {
    EXPECT_HR(S_OK, SetData(Document(L"A1")).result);
    scripts_.timer.unsubscribe = {E_ACCESSDENIED};
    ExpectAnswer(SetData(Document(L"A1", L"OFF")), E_ACCESSDENIED, L"Subscription has been invalidated");
    EXPECT_HR(RESULT_NO_SUBSCRIPTION, GetData(L"/Archive[@ID='A1']/*").result);
}

TEST_F(ArchiveTest, WithoutDataManagementTheNewestSixStay) {
    const SubscriptionRecord record = Subscribe(L"A1");
    for (int minutes = 6; minutes > 0; --minutes)
        Capture(record, minutes * 600, L"<Data><V>" + std::to_wstring(minutes) + L"</V></Data>");
    EXPECT_HR(S_OK, Tick(record).result);
    const SubscriptionRecord after = Record(L"A1");
    ASSERT_EQ(6u, after.snapShots.size());
    EXPECT_EQ(6, Streams(after));
    const Answer answer = GetData(L"/Archive[@ID='A1']/Data");
    EXPECT_EQ(std::wstring::npos, answer.document.find(L"<V>6</V>")) << "the oldest went";
    EXPECT_NE(std::wstring::npos, answer.document.find(L"<V>5</V>"));
    EXPECT_NE(std::wstring::npos, answer.document.find(L"<Snapshot id=\"6\""));
}

TEST_F(ArchiveTest, SizeLimitShrinksTheArchiveBelowIt) {
    const SubscriptionRecord record = Subscribe(L"A1", Limit(L"<MaxStorageSize Units=\"KB\">100</MaxStorageSize>"));
    for (int minutes = 8; minutes > 0; --minutes)
        Capture(record, minutes, L"<Data>" + std::wstring(20000, L'x') + L"</Data>");
    const std::wstring path = record.Archive().SnapShotsPath();
    ASSERT_GT(std::filesystem::file_size(path), 200u * 1024);
    EXPECT_HR(S_OK, Tick(record).result);
    EXPECT_LT(std::filesystem::file_size(path), 100u * 1024);
    const SubscriptionRecord after = Record(L"A1");
    EXPECT_EQ(static_cast<long>(after.snapShots.size()), Streams(after));
    EXPECT_GE(after.snapShots.size(), 1u);
}

TEST_F(ArchiveTest, LifetimesRunFromTheCaptureAndFromTheLastRead) {
    // Times of last year are not read, and such a snapshot never ages.
    if (const SYSTEMTIME now = LocalNow(); now.wMonth == 1 && now.wDay == 1 && now.wHour < 2)
        GTEST_SKIP() << "the captures of this test would lie in two years";
    const SubscriptionRecord record =
        Subscribe(L"A1", Limit(L"<LifetimeBeforeRead>P0Y0M0DT1H0M0S</LifetimeBeforeRead>"
                               L"<LifetimeAfterRead>P0Y0M0DT0H10M0S</LifetimeAfterRead>"));
    Capture(record, 90, L"<Data>unread, too old</Data>");
    Capture(record, 40, L"<Data>read, too old</Data>", true);
    Capture(record, 30, L"<Data>unread</Data>");
    Capture(record, 5, L"<Data>read</Data>", true);
    const Answer answer = GetData(L"/Archive[@ID='A1']/Data");
    EXPECT_EQ(std::wstring::npos, answer.document.find(L"too old"));
    EXPECT_NE(std::wstring::npos, answer.document.find(L"<Data>unread</Data>"));
    EXPECT_EQ(2, Streams(record));
    EXPECT_EQ(2u, Record(L"A1").snapShots.size());
}

TEST_F(ArchiveTest, FailedCaptureLeavesNoEntryInTheIndex) {
    const SubscriptionRecord record = Subscribe(L"A1");
    Capture(record, 5, L"<Data>old</Data>");
    scripts_.archive.answer = [](auto& operation, auto& stream) {
        return operation == L"add" && stream.starts_with(L"20") ? HRESULT_FROM_WIN32(ERROR_DISK_FULL) : S_OK;
    };
    EXPECT_HR(HRESULT_FROM_WIN32(ERROR_DISK_FULL), Tick(record).result);
    scripts_.archive.answer = nullptr;
    EXPECT_EQ(1u, Record(L"A1").snapShots.size());
    EXPECT_EQ(1, Streams(record));
}

TEST_F(ArchiveTest, RetrievalThatSelectsNothingMarksNothingAsRead) {
    const SubscriptionRecord record = Subscribe(L"A1");
    Capture(record, 5, L"<Data><V>1</V></Data>");
    ExpectAnswer(GetData(L"/Archive[@ID='A1']/Other"), E_FAIL, L"Could not find the required data in the archive");
    EXPECT_EQ(0, Record(L"A1").snapShots.front().alreadyRead);
}

TEST_F(ArchiveTest, UnreadableSnapshotsLeaveNoGapInTheNumbers) {
    const SubscriptionRecord record = Subscribe(L"A1");
    for (int minutes = 3; minutes > 0; --minutes)
        Capture(record, minutes, L"<Data><V>" + std::to_wstring(minutes) + L"</V></Data>");
    const std::wstring second = Record(L"A1").snapShots[1].id;
    scripts_.archive.answer = [&](auto& operation, auto& stream) {
        return operation == L"get" && stream == second ? HRESULT_FROM_WIN32(ERROR_FILE_CORRUPT) : S_OK;
    };
    const Answer answer = GetData(L"/Archive[@ID='A1']/Data");
    EXPECT_HR(S_OK, answer.result);
    EXPECT_NE(std::wstring::npos, answer.document.find(L"<Snapshot id=\"2\""));
    EXPECT_EQ(std::wstring::npos, answer.document.find(L"<Snapshot id=\"3\""));
    EXPECT_EQ(0, Record(L"A1").snapShots[1].alreadyRead);
}

TEST_F(ArchiveTest, DamagedArchivesAreReportedAndNotTreatedAsMissing) {
    EXPECT_HR(S_OK, SetData(Document(L"A1")).result);
    EXPECT_HR(S_OK, SetData(Document(L"A2")).result);
    SubscriptionRecord record = Record(L"A1");
    support::DamageFile(record.Archive().ConfigPath(), 5000);
    ExpectAnswer(GetData(L"/Archive[@ID='A1']/*"), HRESULT_FROM_WIN32(ERROR_FILE_CORRUPT),
                 L"The subscription could not be read: its archive is damaged (0x80070570)");
    EXPECT_HR(HRESULT_FROM_WIN32(ERROR_FILE_CORRUPT), Tick(record).result);
    EXPECT_TRUE(scripts_.timer.unsubscribed.empty()) << "damage never ends a registration";
    EXPECT_HR(S_OK, GetData(L"/Archive[@ID='A2']/*").result);
    // It can still be ended, and its sender learns of it with the next tick.
    EXPECT_HR(HRESULT_FROM_WIN32(ERROR_FILE_CORRUPT), SetData(Document(L"A1", L"Off")).result);
    EXPECT_HR(HRESULT_FROM_WIN32(ERROR_FILE_CORRUPT), SetData(Document(L"A1")).result);
    EXPECT_HR(S_OK, SetData(Document(L"A1", L"OFF")).result);
    EXPECT_FALSE(std::filesystem::exists(record.Archive().ConfigPath()));
    EXPECT_HR(S_OK, Tick(record).result);
    EXPECT_EQ(0u, scripts_.timer.schedules.count(record.subscriptionId));
    EXPECT_HR(S_OK, SetData(Document(L"A1")).result);
    record = Record(L"A1");
    scripts_.timer.unsubscribed.clear();

    support::DamageFile(folder_.Path() / "Vorna", 5000);
    EXPECT_HR(HRESULT_FROM_WIN32(ERROR_FILE_CORRUPT), SetData(Document(L"A3")).result);
    EXPECT_HR(HRESULT_FROM_WIN32(ERROR_FILE_CORRUPT), Tick(record).result);
    EXPECT_TRUE(scripts_.timer.unsubscribed.empty());
}

TEST_F(ArchiveTest, MaintenanceTickAndForgedCookie) {
    EXPECT_HR(S_OK, SetData(Document(L"A1")).result);
    SubscriptionRecord record = Record(L"A1");
    EXPECT_HR(S_OK, Deliver(L"<TimerEvent><SubscriptionID>" + record.subscriptionId +
                            L"</SubscriptionID><ClientCookie></ClientCookie></TimerEvent>")
                        .result);
    EXPECT_EQ(1u, Record(L"A1").snapShots.size()) << "the maintenance tick captures nothing";
    record.clientCookie = L"press\\press-7\\7\\A2";
    EXPECT_HR(E_ACCESSDENIED, Tick(record).result);
    EXPECT_EQ(1u, Record(L"A1").snapShots.size());
}
