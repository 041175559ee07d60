// Archives after failures, crashes and requests that come at the same time: nothing is lost, and nothing is left
// behind.
#include "ComponentTest.h"

#include "common/com/results.h"
#include "subscription/archive/SamAccessor.h"
#include "subscription/archive/SubscriptionArchive.h"

#include <set>
#include <thread>

using namespace vorna;

namespace {

class Recovery : public ComponentTest {
  protected:
    // One more class factory.
    Recovery() { live_ = module_uses; }
    static std::wstring EventDocument(std::wstring_view id, std::wstring_view more = L"") {
        return L"<Archive ID=\"" + std::wstring(id) + L"\"><Collect>ON</Collect>" + std::wstring(more) +
               L"<KROEvent><Name>N</Name><EventPayload/></KROEvent></Archive>";
    }
    static std::wstring Limit(int files) {
        return L"<DataManagement><MaxStorageSize Units=\"NUMFILES\">" + std::to_wstring(files) +
               L"</MaxStorageSize></DataManagement>";
    }
    Answer Off(std::wstring_view id) { return SetData(Document(id, L"OFF")); }
    Answer Fire(const SubscriptionRecord& record, int number) {
        return Deliver(CallBack(L"Event", record, L"<Payload>" + std::to_wstring(number) + L"</Payload>"));
    }
    // The payloads of an archive, oldest first. Every entry must have its stream, and every stream its entry.
    std::vector<int> Stored(std::wstring_view id) {
        const SubscriptionRecord record = Record(id);
        std::vector<int> numbers;
        std::vector<std::wstring> names, ids;
        EXPECT_HR(S_OK, SamAccessor(record.Archive().SnapShotsPath()).ListStreams(names));
        for (const SnapShot& snapShot : record.snapShots) {
            std::wstring text;
            EXPECT_HR(S_OK, ReadStream(record.Archive().SnapShotsPath(), snapShot.id, text));
            if (text.size() > 9)
                numbers.push_back(std::stoi(text.substr(9)));
            ids.push_back(snapShot.id);
        }
        EXPECT_EQ(std::set(ids.begin(), ids.end()), std::set(names.begin(), names.end()));
        return numbers;
    }
    size_t Valid() {
        SubscriptionList list;
        (void)SubscriptionPersistance().GetSubscriptionsList(list);
        return static_cast<size_t>(
            std::count_if(list.begin(), list.end(), [](const SubscriptionListEntry& entry) { return entry.valid; }));
    }

    fakes::InstalledClass<fakes::ScriptedXmlAccessor> accessor_{PROGID_XML_ACCESSOR};
    fakes::SenderScript& manager_ = scripts_.eventManager;
};

} // namespace

TEST_F(Recovery, TwoRegistrationsAtOnceMakeOneArchive) {
    std::thread other;
    Answer second{E_FAIL, L"", L""};
    const unique_handle looked(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    scripts_.timer.onSubscribed = [&](const std::wstring&) {
        if (other.joinable())
            return;
        // The second request gathers its first data when it has found no archive.
        scripts_.aggregator.onGetData = [&] { SetEvent(looked.get()); };
        other = std::thread([&] {
            CoInitializeEx(nullptr, COINIT_MULTITHREADED);
            second = SetData(Document(L"A1", L"ON", L"<Aging>P7Y0M0DT0H0M0S</Aging>"));
            CoUninitialize();
        });
        WaitForSingleObject(looked.get(), INFINITE);
    };
    EXPECT_HR(S_OK, SetData(Document(L"A1")).result);
    other.join();
    EXPECT_HR(S_OK, second.result) << support::Narrow(second.text);
    EXPECT_EQ(2u, scripts_.timer.schedules.size()) << "one archive and the maintenance";
    EXPECT_EQ(3u, FilesLeft());
    EXPECT_NE(std::wstring::npos, Record(L"A1").subscriptionText.find(L"<Aging>P7Y")) << "the second is a modification";
}

TEST_F(Recovery, ModificationAndEndFollowARenewalOfAnotherClient) {
    ASSERT_HR(S_OK, SetData(EventDocument(L"A1")).result);
    ASSERT_HR(S_OK, Fire(Record(L"A1"), 1).result);
    // Another client renews the archive while this one's request is with the event manager.
    const auto renew = [&] {
        manager_.modify = {E_FAIL};
        EXPECT_HR(S_OK, SetData(EventDocument(L"A1")).result);
    };
    const std::wstring before = Record(L"A1").subscriptionId;
    manager_.onModified = renew;
    EXPECT_HR(S_OK, SetData(EventDocument(L"A1", L"<Aging>P7Y0M0DT0H0M0S</Aging>")).result);
    EXPECT_NE(before, Record(L"A1").subscriptionId);
    EXPECT_NE(std::wstring::npos, Record(L"A1").subscriptionText.find(L"<Aging>P7Y"));
    EXPECT_EQ(std::vector{1}, Stored(L"A1"));
    EXPECT_EQ(1u, manager_.schedules.size());

    manager_.onUnsubscribed = renew;
    EXPECT_HR(S_OK, Off(L"A1").result);
    EXPECT_EQ(0u, Valid());
    EXPECT_TRUE(manager_.schedules.empty());
    EXPECT_EQ(1u, FilesLeft());
}

TEST_F(Recovery, RenewalKeepsTimesThatCannotBeParsed) {
    ASSERT_HR(S_OK, SetData(EventDocument(L"A1")).result);
    const SubscriptionArchive before = Record(L"A1").Archive();
    const std::wstring entry = L"<SnapShot Id=\"2005-3-7T14_5_9\"><AccessTime>2005-3-7T14:5:9</AccessTime>"
                               L"<AlreadyRead>TRUE</AlreadyRead></SnapShot>";
    ASSERT_HR(S_OK, before.WriteIndex(SnapShotIndex(L"<SnapShots>" + entry + L"</SnapShots>")));
    ASSERT_HR(S_OK, before.Store(L"2005-3-7T14_5_9", L"<Payload>5</Payload>"));
    manager_.modify = {E_FAIL};
    ASSERT_HR(S_OK, SetData(EventDocument(L"A1")).result);
    SnapShotIndex index;
    ASSERT_HR(S_OK, Record(L"A1").Archive().ReadIndex(index));
    EXPECT_NE(std::wstring::npos, index.Text().find(entry)) << support::Narrow(index.Text());
    EXPECT_EQ(std::vector{5}, Stored(L"A1"));
}

TEST_F(Recovery, SubscriptionIdsOfTheSender) {
    manager_.ids = {L"1", L"17"};
    ASSERT_HR(S_OK, SetData(EventDocument(L"A1")).result);
    ASSERT_HR(S_OK, SetData(EventDocument(L"A2")).result);
    ASSERT_HR(S_OK, Fire(Record(L"A2"), 2).result);
    // An ID that another archive has.
    manager_.ids = {L"17"};
    EXPECT_HR(E_UNEXPECTED, SetData(EventDocument(L"A3")).result);
    EXPECT_EQ(std::vector{2}, Stored(L"A2"));
    EXPECT_HR(S_OK, Off(L"A1").result);
    EXPECT_EQ(std::vector{2}, Stored(L"A2")) << "its ID begins like that of the archive that was ended";
    // The same ID again, from an event manager that has lost its registrations.
    manager_.schedules.clear();
    manager_.ids = {L"17"};
    EXPECT_HR(S_OK, SetData(EventDocument(L"A2")).result);
    EXPECT_EQ(std::vector{2}, Stored(L"A2"));
    EXPECT_TRUE(manager_.schedules.contains(L"17"));
}

TEST_F(Recovery, PayloadsOfOneSecondAreAllKeptInOrder) {
    ASSERT_HR(S_OK, SetData(EventDocument(L"A1", Limit(100))).result);
    const SubscriptionRecord record = Record(L"A1");
    std::vector<int> sent;
    for (int number = 1; number <= 14; ++number) {
        ASSERT_HR(S_OK, Fire(record, number).result);
        sent.push_back(number);
    }
    EXPECT_EQ(sent, Stored(L"A1"));
    for (const SnapShot& snapShot : Record(L"A1").snapShots)
        EXPECT_FALSE(IsLater(snapShot.accessTime, LocalNow())) << "the time is the real one";

    // Every second of the next ten minutes and a little more is taken.
    std::wstring index = L"<SnapShots>", entry;
    for (int second = 0; second < SnapShotIndex::FURTHEST_SECOND + 60; ++second) {
        SnapShot(support::FromNow(second)).ToXML(entry);
        index += entry;
    }
    ASSERT_HR(S_OK, record.Archive().WriteIndex(SnapShotIndex(index + L"</SnapShots>")));
    EXPECT_HR(HRESULT_FROM_WIN32(ERROR_BUSY), Fire(record, 15).result);
}

TEST_F(Recovery, CaptureAfterACrashLeavesExactlyTheLimit) {
    for (const int limit : {1, 3}) {
        SCOPED_TRACE(limit);
        ASSERT_HR(S_OK, SetData(EventDocument(L"A1", Limit(limit))).result);
        const SubscriptionRecord record = Record(L"A1");
        const SubscriptionArchive archive = record.Archive();
        SnapShot old({2026, 1, 0, 2, 3, 4, 5, 0});
        const std::function<void()> crashes[] = {
            [] {},
            // Between the entry and the stream.
            [&] { EXPECT_HR(S_OK, SubscriptionPersistance().AddSnapShot(archive, old)); },
            // Between the removal of the entry and that of the stream.
            [&] { EXPECT_HR(S_OK, archive.Store(L"2026-1-2T3_4_6", L"<Payload>0</Payload>")); },
            // Between the stream and the check of the limit.
            [&] {
                SnapShot late(support::FromNow(-1));
                EXPECT_HR(S_OK, SubscriptionPersistance().AddSnapShot(archive, late));
                EXPECT_HR(S_OK, archive.Store(late.id, L"<Payload>0</Payload>"));
            },
        };
        int number = 0;
        for (const auto& crash : crashes) {
            while (number % 10 < limit + 1)
                ASSERT_HR(S_OK, Fire(record, ++number).result);
            crash();
            number += 10 - number % 10;
            ASSERT_HR(S_OK, Fire(record, number).result);
            const std::vector<int> stored = Stored(L"A1");
            EXPECT_EQ(static_cast<size_t>(limit), stored.size());
            EXPECT_EQ(number, stored.back());
        }
        EXPECT_HR(S_OK, Off(L"A1").result);
    }
}

TEST_F(Recovery, RemovalThatFailsKeepsItsEntry) {
    const std::wstring hour =
        L"<DataManagement><LifetimeBeforeRead>P0Y0M0DT1H0M0S</LifetimeBeforeRead></DataManagement>";
    ASSERT_HR(S_OK, SetData(EventDocument(L"A1", hour)).result);
    const SubscriptionRecord record = Record(L"A1");
    for (int minutes : {90, 80, 70}) {
        SnapShot snapShot(support::FromNow(-60 * minutes));
        ASSERT_HR(S_OK, SubscriptionPersistance().AddSnapShot(record.Archive(), snapShot));
        ASSERT_HR(S_OK, record.Archive().Store(snapShot.id, L"<Payload>" + std::to_wstring(minutes) + L"</Payload>"));
    }
    int removals = 0;
    scripts_.archive.answer = [&](const std::wstring& operation, const std::wstring&) {
        return operation == L"remove" && ++removals == 2 ? HRESULT_FROM_WIN32(ERROR_DISK_FULL) : S_OK;
    };
    EXPECT_HR(S_OK, Fire(record, 1).result);
    EXPECT_EQ((std::vector{80, 1}), Stored(L"A1"));
    EXPECT_HR(S_OK, Fire(record, 2).result);
    EXPECT_EQ((std::vector{1, 2}), Stored(L"A1"));
}

TEST_F(Recovery, EveryCallToThePlatformFailsOnce) {
    SubscriptionRecord record;
    const auto subscribe = [&] { return SetData(EventDocument(L"A1", Limit(2))).result; };
    const auto capture = [&] { return Fire(record, 1).result; };
    const struct {
        const char* name;
        // Before each request.
        std::function<void()> prepare;
        std::function<HRESULT()> request;
        bool ends;
    } cases[] = {
        {"capture", [&] { record = Record(L"A1"); }, capture, false},
        {"modify", [] {}, subscribe, false},
        {"renew", [&] { manager_.schedules.clear(); }, subscribe, false},
        {"read", [] {}, [&] { return GetData(L"/Archive[@ID='A1']/*").result; }, false},
        {"maintain", [] {}, [&] { return MaintenanceTick().result; }, false},
        {"restore", [&] { manager_.schedules.clear(); }, [&] { return MaintenanceTick().result; }, false},
        {"end",
         [&] {
             EXPECT_HR(S_OK, subscribe());
             record = Record(L"A1");
             EXPECT_HR(S_OK, capture());
         },
         [&] { return Off(L"A1").result; }, true},
        {"register", [&] { (void)Off(L"A1"); }, subscribe, false},
    };
    EXPECT_HR(S_OK, subscribe());
    fakes::FailingCall& failing = scripts_.failing;
    int first = 0;
    for (const auto& item : cases) {
        // Every third of the first hundred calls, beginning with another one for each request: all of them take
        // minutes.
        bool reached = true;
        first = first % 3 + 1;
        for (int number = first; reached && number < 100 && !HasFailure(); number += 3) {
            SCOPED_TRACE(std::string(item.name) + ", call " + std::to_string(number));
            item.prepare();
            failing = {number, 0, number % 2 ? E_FAIL : E_OUTOFMEMORY};
            const HRESULT result = item.request();
            reached = failing.calls >= number;
            failing.number = 0;
            const HRESULT again = FAILED(result) ? item.request() : S_OK;
            // A refused end leaves a record that is not valid.
            EXPECT_TRUE(again == S_OK || (item.ends && again == RESULT_NO_SUBSCRIPTION)) << std::hex << again;
            EXPECT_EQ(item.ends ? 0u : 1u, Valid());
            if (item.name == std::string("capture")) {
                EXPECT_HR(S_OK, capture()) << "the next one leaves exactly the limit";
            }
            if (!item.ends) {
                const std::vector<int> stored = Stored(L"A1");
                EXPECT_EQ(item.name == std::string("register"), stored.empty());
                EXPECT_LE(stored.size(), 2u);
            }
        }
    }
}
