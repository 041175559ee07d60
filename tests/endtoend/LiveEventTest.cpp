// Archives driven by events, on real parts: event manager and event access in the host process, a device's stored
// model.
#include "LivePlatform.h"
#include "platform/data/ModelStore.h"
#include "subscription/Subscription.h"

#include <thread>

using namespace vorna;
using namespace vorna::endtoend;

namespace {

class LiveEvents : public LivePlatform {
  protected:
    LiveEvents() : LivePlatform(L"gauge") {}
    void SetUp() override {
        LivePlatform::SetUp();
        watch_.emplace(folder_.Path());
    }
    void TearDown() override {
        watch_.reset();
        LivePlatform::TearDown();
    }

    static std::wstring DoorDocument(const std::wstring& id, const std::wstring& floor, const std::wstring& more = L"",
                                     const std::wstring& collect = L"ON") {
        return L"<Archive ID=\"" + id + L"\"><Collect>" + collect + L"</Collect>" + more +
               L"<KROEvent><Name>Door &lt;opened&gt;</Name><EventPayload><XPath>/Payload/Door/Badge</XPath>"
               L"</EventPayload><Filter><Property Name=\"Floor\">" +
               floor + L"</Property><Property Name=\"Side\">A&amp;B</Property></Filter></KROEvent></Archive>";
    }
    // How many subscriptions it was queued for.
    long Raise(const std::wstring& floor, const std::wstring& badge) {
        com_ptr<IZEBEventManager> manager;
        EXPECT_HR(S_OK, PlatformServices::CreateInstance(PROGID_EVENT_MANAGER, nullptr, manager));
        long count = -1;
        EXPECT_HR(S_OK, manager->Raise(bstr(L"Door <opened>").get(),
                                       bstr(L"<EventProperties><Property Name=\"Floor\">" + floor +
                                            L"</Property><Property Name=\"Side\">A&amp;B</Property></EventProperties>")
                                           .get(),
                                       bstr(L"<Door><Badge>" + badge + L"</Badge><Lock/></Door>").get(), &count));
        return count;
    }
    void PutModel(const std::wstring& text) {
        std::wstring message;
        ASSERT_HR(
            S_OK,
            keldan::ModelStore(keldan::DataFolder::Configured()).Write({L"0", L"machine", L"gauge"}, text, message))
            << support::Narrow(message);
    }
    void PutPressure(int value) { PutModel(L"<Gauge><Pressure>" + std::to_wstring(value) + L"</Pressure></Gauge>"); }
    bool WaitForSnapshots(const std::wstring& id, size_t count) {
        return watch_->WaitUntil([&] { return Ids(id).size() >= count; });
    }
    std::optional<FolderWatch> watch_;
};

} // namespace

TEST_F(LiveEvents, OnlyTheRightDoorIsArchived) {
    ASSERT_HR(S_OK, SetData(DoorDocument(L"First", L"1")));
    ASSERT_HR(S_OK, SetData(DoorDocument(L"Second", L"2")));
    EXPECT_EQ(0, Raise(L"3", L"none"));
    EXPECT_EQ(1, Raise(L"1", L"4711"));
    ASSERT_TRUE(WaitForSnapshots(L"First", 1));
    const std::wstring document = GetData(L"/Archive[@ID='First']/*");
    EXPECT_NE(std::wstring::npos, document.find(L"<Payload><Door><Badge>4711</Badge></Door></Payload>"))
        << support::Narrow(document);
    EXPECT_TRUE(Ids(L"Second").empty());
    for (const wchar_t* id : {L"First", L"Second"})
        EXPECT_HR(S_OK, SetData(DoorDocument(id, L"1", L"", L"OFF")));
    EXPECT_EQ(0, Raise(L"1", L"4712")) << "nobody is registered any more";
    EXPECT_FALSE(std::filesystem::exists(folder_.Path() / "Archives" / "machine"));
}

TEST_F(LiveEvents, ThresholdFiresResetsAndFiresAgain) {
    PutPressure(3);
    ASSERT_HR(S_OK, SetData(L"<Archive ID=\"High\"><Collect>ON</Collect><XDMEvent><Event><XPath>/Gauge/Pressure</XPath>"
                            L"<Trigger>. &gt; 8</Trigger><Reset>. &lt; 5</Reset></Event><EventPayload/></XDMEvent>"
                            L"</Archive>"));
    ASSERT_HR(S_OK, SetData(L"<Archive ID=\"All\"><Collect>ON</Collect><XDMEvent><Event><XPath>/Gauge/Pressure</XPath>"
                            L"</Event><XMLDataModel><XPath>/Gauge/Pressure</XPath><XDMPrefixes>xmlns:g='urn:g'"
                            L"</XDMPrefixes></XMLDataModel></XDMEvent></Archive>"));
    // Each value is seen before the next one is put: the second archive takes every change.
    size_t changes = 0;
    const auto put = [&](int value) {
        PutPressure(value);
        ASSERT_TRUE(WaitForSnapshots(L"All", ++changes)) << value;
    };
    for (int value : {9, 10, 4}) {
        ASSERT_NO_FATAL_FAILURE(put(value));
        // The two are called side by side.
        EXPECT_TRUE(WaitForSnapshots(L"High", 1)) << value;
        EXPECT_EQ(1u, Ids(L"High").size()) << value;
        if (value == 10) {
            // Half a file, and one with a document type, are no readings and not the end of the watch.
            PutModel(L"<Gauge><Pressure>99</Press");
            PutModel(L"<!DOCTYPE Gauge><Gauge><Pressure>99</Pressure></Gauge>");
        }
    }
    ASSERT_NO_FATAL_FAILURE(put(12));
    ASSERT_TRUE(WaitForSnapshots(L"High", 2));
    EXPECT_EQ(2u, Ids(L"High").size());
    EXPECT_EQ(4u, Ids(L"All").size());
    const std::wstring document = GetData(L"/Archive[@ID='High']//Pressure");
    EXPECT_NE(std::wstring::npos, document.find(L"<Pressure>9</Pressure>")) << support::Narrow(document);
    EXPECT_NE(std::wstring::npos, document.find(L"<Pressure>12</Pressure>"));
    for (const wchar_t* id : {L"High", L"All"})
        EXPECT_HR(S_OK, SetData(L"<Archive ID=\"" + std::wstring(id) + L"\"><Collect>OFF</Collect></Archive>"));
}

TEST_F(LiveEvents, KilledHostLosesNoEvent) {
    // What was in a client's hands when the host ended comes twice.
    const std::wstring room =
        L"<DataManagement><MaxStorageSize Units=\"NUMFILES\">100</MaxStorageSize></DataManagement>";
    std::vector<std::wstring> archives;
    for (int number = 1; number <= 6; ++number) {
        archives.push_back(L"A" + std::to_wstring(number));
        ASSERT_HR(S_OK, SetData(DoorDocument(archives.back(), L"1", room)));
    }
    int raised = 0;
    for (int round = 1; round <= 3; ++round) {
        // Several in one second: none takes the place of another.
        for (int event = 0; event < 2; ++event)
            EXPECT_EQ(6, Raise(L"1", std::to_wstring(++raised)));
        ASSERT_NO_FATAL_FAILURE(KillHost());
        // Any use of the event manager brings the host back, and with it what was not delivered.
        EXPECT_EQ(0, Raise(L"2", L"other"));
        for (const std::wstring& id : archives) {
            std::wstring document;
            const auto holds = [&](int badge) {
                return document.find(L"<Badge>" + std::to_wstring(badge) + L"</Badge>") != std::wstring::npos;
            };
            // They come in order.
            EXPECT_TRUE(WaitForSnapshots(id, 1) && watch_->WaitUntil([&] {
                document = GetData(L"/Archive[@ID='" + id + L"']/*");
                return holds(raised);
            })) << support::Narrow(id)
                << ", round " << round;
            for (int badge = 1; badge < raised; ++badge)
                EXPECT_TRUE(holds(badge)) << badge << " in " << support::Narrow(document);
        }
    }
    StopHost();
    for (const std::wstring& id : archives)
        ExpectWhole(id, L"Badge", 3);
}

TEST_F(LiveEvents, AgedArchiveStaysReadableAndComesBack) {
    ASSERT_HR(S_OK, SetData(DoorDocument(L"Short", L"1")));
    EXPECT_EQ(1, Raise(L"1", L"before"));
    ASSERT_TRUE(WaitForSnapshots(L"Short", 1));
    ASSERT_HR(S_OK, SetData(DoorDocument(L"Short", L"1", L"<Aging>P0Y0M0DT0H0M1S</Aging>")));
    const std::wstring vornaId = Record(L"Short").vornaId;
    std::wstring endDate;
    ASSERT_HR(S_OK, SubscriptionPersistance().GetEndDateForSubscription(vornaId, endDate));
    while (!Subscription::HasReachedEnd(endDate))
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(1, Raise(L"1", L"after"));
    EXPECT_TRUE(watch_->WaitUntil([&] { return SubscriptionPersistance().IsSubscriptionAged(vornaId); }));
    EXPECT_EQ(0, Raise(L"1", L"later")) << "the registration is gone";
    const std::wstring document = GetData(L"/Archive[@ID='Short']/*");
    EXPECT_NE(std::wstring::npos, document.find(L"before"));
    EXPECT_EQ(std::wstring::npos, document.find(L"after"));

    ASSERT_HR(S_OK, SetData(DoorDocument(L"Short", L"1", L"<Aging>P1Y0M0DT0H0M0S</Aging>")));
    EXPECT_EQ(1, Raise(L"1", L"again"));
    EXPECT_TRUE(WaitForSnapshots(L"Short", 2));
    EXPECT_HR(S_OK, SetData(DoorDocument(L"Short", L"1", L"", L"OFF")));
}

TEST_F(LiveEvents, RefusedTriggersLeaveNothing) {
    for (const wchar_t* trigger : {L"][", L"1] | //*[1", L"'open", L"count("}) {
        std::wstring text;
        EXPECT_HR(E_INVALIDARG,
                  SetData(L"<Archive ID=\"Bad\"><Collect>ON</Collect><XDMEvent><Event><XPath>/Gauge"
                          L"</XPath><Trigger>" +
                              std::wstring(trigger) + L"</Trigger></Event><EventPayload/></XDMEvent></Archive>",
                          &text));
        EXPECT_EQ(L"Failed to subscribe with ZEB's EventAccess component", text);
    }
    EXPECT_FALSE(std::filesystem::exists(folder_.Path() / "Archives"));
}
