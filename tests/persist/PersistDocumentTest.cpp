// The persist document and the snapshot index as they lie on disk.
#include "common/com/results.h"
#include "common/services/Directories.h"
#include "persist/SubscriptionPersistance.h"
#include "subscription/archive/SamAccessor.h"
#include "subscription/archive/SubscriptionArchive.h"
#include "support/Support.h"

#include <optional>
#include <tuple>

using namespace vorna;

namespace {

class PersistDocument : public testing::Test {
  protected:
    void SetUp() override {
        support::RegisterPlatform();
        support::InstallComponent(folder_.Path());
        persistance_.emplace();
        record_.clientCookie = L"press\\press-7\\7\\A1";
        record_.vornaId = L"{V}";
        record_.subscriptionId = L"S1";
        record_.serviceXml = L"<service><portID>7</portID><serviceId>press</serviceId><serviceURI>press-7</serviceURI>"
                             L"</service>";
        record_.subscriptionText = L"<Archive ID=\"A1\"/>";
        record_.lifetime.years = 1;
        record_.archiveDirectory = ArchiveDirectory(L"press\\press-7\\7");
        std::filesystem::create_directories(record_.archiveDirectory);
    }
    std::wstring Text(const std::wstring& archive, const std::wstring& stream) {
        bstr text;
        EXPECT_HR(S_OK, SamAccessor(archive, stream).getStreamFromArchive(text));
        return text.str();
    }
    std::wstring Document() { return Text((folder_.Path() / "Vorna").wstring(), L"VornaPersist"); }
    void Overwrite(std::wstring_view text) {
        ASSERT_HR(S_OK, SamAccessor((folder_.Path() / "Vorna").wstring(), L"VornaPersist").addStreamToArchive(text));
    }
    static void ExpectHolds(const std::wstring& text, const std::wstring& part) {
        EXPECT_NE(std::wstring::npos, text.find(part)) << support::Narrow(part) << "\nin " << support::Narrow(text);
    }

    support::TestFolder folder_;
    SubscriptionRecord record_;
    // Made when the component is installed: it looks its folder up once.
    std::optional<SubscriptionPersistance> persistance_;
};

} // namespace

TEST_F(PersistDocument, NodesAreRewrittenByTheirTemplates) {
    ASSERT_HR(S_OK, persistance_->AddSubscription(record_, L"T1", L"M1"));
    std::wstring document = Document();
    const std::wstring head = L"<Subscription PATH=\"press\\press-7\\7\\A1\" VORNAID=\"{V}\" ID=\"S1\" ";
    ExpectHolds(document, L"<ClientID ID=\"T1\"");
    ExpectHolds(document, L"<MaintainanceID ID=\"M1\"");
    ExpectHolds(document, head + L"ENDDATE=\"" + std::to_wstring(LocalNow().wYear + 1) + L"-");
    ExpectHolds(document, L"\" VALID=\"TRUE\">" + record_.serviceXml + L"</Subscription>");
    EXPECT_EQ(record_.subscriptionText, Text(record_.Archive().ConfigPath(), L"S1_Subscription"));

    // A new registration of the same component ID keeps its end; a modification needs the time of the last one.
    record_.lifetime.years = 5;
    ASSERT_HR(S_OK, persistance_->AddSubscription(record_, L"T2", L""));
    document = Document();
    ExpectHolds(document, L"<ClientID ID=\"T2\"");
    ExpectHolds(document, L"<MaintainanceID ID=\"M1\"");
    ExpectHolds(document, head + L"ENDDATE=\"" + std::to_wstring(LocalNow().wYear + 1) + L"-");
    EXPECT_EQ(document.find(L"<Subscription "), document.rfind(L"<Subscription "));
    record_.kind = RegistrationKind::Modification;
    ASSERT_HR(S_OK, persistance_->AddSubscription(record_, L"T2", L""));
    ExpectHolds(Document(), head + L"ENDDATE=\"" + std::to_wstring(LocalNow().wYear + 5) + L"-");

    std::wstring endDate;
    ASSERT_HR(S_OK, persistance_->GetEndDateForSubscription(L"{V}", endDate));
    EXPECT_HR(S_FALSE, persistance_->SetAgingForSubscription(L"S1", L"2026-1-1T0:0:0")) << "it was renewed meanwhile";
    EXPECT_FALSE(persistance_->IsSubscriptionAged(L"{V}"));
    ASSERT_HR(S_OK, persistance_->SetAgingForSubscription(L"S1", endDate));
    ExpectHolds(Document(), L"\" AGED=\"TRUE\" VALID=\"TRUE\">" + record_.serviceXml);
    EXPECT_TRUE(persistance_->IsSubscriptionAged(L"{V}"));
    EXPECT_HR(E_FAIL, persistance_->AddSubscription(record_, L"T2", L"")) << "the aged node has lost the time";

    ASSERT_HR(S_OK, persistance_->DeleteSubscription(L"S1"));
    ExpectHolds(Document(), head + L"VALID=\"FALSE\">" + record_.serviceXml + L"</Subscription>");
    SubscriptionList list;
    EXPECT_HR(RESULT_NO_SUBSCRIPTION, persistance_->GetSubscriptionsList(list));
    ASSERT_EQ(1u, list.size());
    EXPECT_FALSE(list.front().valid);
}

TEST_F(PersistDocument, NoDocumentIsNoSubscriptionAndADamagedOneIsNotBegunAnew) {
    SubscriptionRecord found;
    std::wstring value;
    EXPECT_HR(RESULT_NO_SUBSCRIPTION, persistance_->GetSubscription(L"S1", found));
    EXPECT_NE(S_OK, persistance_->GetClientID(value));
    ASSERT_NO_FATAL_FAILURE(Overwrite(L"<Subscriptions><Subscription"));
    EXPECT_HR(RESULT_XML_MALFORMED, persistance_->GetSubscription(L"S1", found));
    EXPECT_HR(RESULT_XML_MALFORMED, persistance_->AddSubscription(record_, L"T", L""));
    EXPECT_EQ(L"<Subscriptions><Subscription", Document());
    ASSERT_NO_FATAL_FAILURE(Overwrite(L""));
    EXPECT_HR(S_OK, persistance_->AddSubscription(record_, L"T", L""));
}

TEST_F(PersistDocument, ValuesThatWouldBreakItAreRefused) {
    ASSERT_HR(S_OK, persistance_->AddSubscription(record_, L"T1", L""));
    const std::wstring before = Document();
    for (std::wstring SubscriptionRecord::*field :
         {&SubscriptionRecord::clientCookie, &SubscriptionRecord::vornaId, &SubscriptionRecord::subscriptionId}) {
        SubscriptionRecord bad = record_;
        bad.*field = L"x\" VALID=\"TRUE";
        EXPECT_HR(E_INVALIDARG, persistance_->AddSubscription(bad, L"T1", L""));
    }
    SubscriptionRecord found;
    EXPECT_HR(RESULT_NO_SUBSCRIPTION, persistance_->GetSubscription(L"x\"] | //*[@ID=\"S1", found));
    EXPECT_EQ(before, Document());
}

TEST_F(PersistDocument, SnapshotIndex) {
    SnapShot first({2005, 3, 0, 7, 14, 5, 9, 0}), second({2005, 3, 0, 7, 14, 5, 10, 0});
    EXPECT_HR(RESULT_NO_SUBSCRIPTION, persistance_->AddSnapShot(record_.Archive(), first))
        << "a subscription that is not there gets no index";
    ASSERT_HR(S_OK, persistance_->AddSubscription(record_, L"T1", L""));
    ASSERT_HR(S_OK, persistance_->AddSnapShot(record_.Archive(), first));
    ASSERT_HR(S_OK, persistance_->AddSnapShot(record_.Archive(), second));
    const auto index = [&] { return Text(record_.Archive().ConfigPath(), L"S1_SnapShotInfo"); };
    const auto entry = [](const wchar_t* id, const wchar_t* time, const wchar_t* read) {
        return L"<SnapShot Id=\"" + std::wstring(id) + L"\"><AccessTime>" + time + L"</AccessTime><AlreadyRead>" +
               read + L"</AlreadyRead></SnapShot>";
    };
    SubscriptionRecord whole;
    ASSERT_HR(S_OK, persistance_->GetSubscription(L"S1", whole));
    ASSERT_EQ(2u, whole.snapShots.size());
    EXPECT_EQ(second.id, whole.snapShots[1].id);
    const std::wstring firstEntry = entry(L"2005-3-7T14_5_9", L"2005-3-7T14:5:9", L"FALSE");
    EXPECT_EQ(L"<SnapShots>" + firstEntry + entry(L"2005-3-7T14_5_10", L"2005-3-7T14:5:10", L"FALSE") + L"</SnapShots>",
              index());

    second.alreadyRead = 1;
    second.accessTime.wYear = 2031;
    const SnapShot gone({2004, 1, 0, 1, 1, 1, 1, 0});
    const SnapShot updates[] = {second, gone};
    const std::wstring updated =
        L"<SnapShots>" + firstEntry + entry(L"2005-3-7T14_5_10", L"2031-3-7T14:5:10", L"TRUE") + L"</SnapShots>";
    ASSERT_HR(S_OK, persistance_->RefreshSnapShots(record_.Archive(), updates));
    EXPECT_EQ(updated, index());
    ASSERT_HR(S_OK, persistance_->AddSnapShot(record_.Archive(), second));
    EXPECT_EQ(updated, index()) << "one entry for one Id";

    EXPECT_EQ(0, persistance_->DeleteSnapShot(record_.Archive(), gone.id));
    EXPECT_EQ(1, persistance_->DeleteSnapShot(record_.Archive(), second.id));
    EXPECT_EQ(L"<SnapShots>" + firstEntry + L"</SnapShots>", index());
    SubscriptionRecord found;
    EXPECT_HR(S_OK,
              WriteStream(record_.Archive().ConfigPath(), L"S1_SnapShotInfo",
                          L"<SnapShots><SnapShot Id=\"a\"><AccessTime/><AlreadyRead>TRUE</AlreadyRead></SnapShot>" +
                              firstEntry + L"</SnapShots>"));
    ASSERT_HR(S_OK, persistance_->GetSubscription(L"S1", found));
    ASSERT_EQ(2u, found.snapShots.size()) << "an entry without a time does not shift the others";
    EXPECT_EQ(0, found.snapShots[0].alreadyRead);
    EXPECT_EQ(first.id, found.snapShots[1].id);
    EXPECT_EQ(1, persistance_->DeleteSnapShot(record_.Archive(), L"a"));
    EXPECT_EQ(1, persistance_->DeleteSnapShot(record_.Archive(), first.id));
    EXPECT_HR(S_OK, persistance_->GetSubscription(L"S1", found)) << "an empty index is an empty list";
    EXPECT_TRUE(found.snapShots.empty());
}

TEST_F(PersistDocument, SnapshotRecordsFromXml) {
    const std::tuple<const wchar_t*, const wchar_t*, int> cases[] = {
        {L"<SnapShot Id=\"a\"><AccessTime>2099-1-2T3:4:5</AccessTime><AlreadyRead>TRUE</AlreadyRead></SnapShot>", L"a",
         1},
        {L"<SnapShot Id=\"a\"><AccessTime>2099-1-2T3:4:5</AccessTime><AlreadyRead>true</AlreadyRead></SnapShot>", L"a",
         0},
        {L"<SnapShot Id=\"a\"><AccessTime></AccessTime><AlreadyRead>TRUE</AlreadyRead></SnapShot>", L"a", 0},
        {L"<SnapShot Id=\"a\">", L"", 0},
        {L"<SnapShot><AlreadyRead>TRUE</AlreadyRead></SnapShot>", L"", 0},
    };
    for (const auto& [xml, id, read] : cases) {
        const SnapShot snapShot{std::wstring_view(xml)};
        EXPECT_EQ(id, snapShot.id) << support::Narrow(xml);
        EXPECT_EQ(read, snapShot.alreadyRead) << support::Narrow(xml);
    }
    std::wstring xml;
    SnapShot().ToXML(xml);
    EXPECT_EQ(L"<SnapShot Id=\"\"><AccessTime></AccessTime><AlreadyRead>FALSE</AlreadyRead></SnapShot>", xml);
}
