// Archives driven by events, on real parts: event manager and event access in the host process, a device's stored
// model.
#include "LivePlatform.h"
#include "platform/data/ModelStore.h"

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

    static std::wstring DoorDocument(const std::wstring& id) {
        return L"<Archive ID=\"" + id +
               L"\"><Collect>ON</Collect><KROEvent><Name>Door &lt;opened&gt;</Name><EventPayload><XPath>/Payload/Door/Badge"
               L"</XPath></EventPayload><Filter><Property Name=\"Floor\">1</Property><Property Name=\"Side\">A&amp;B"
               L"</Property></Filter></KROEvent></Archive>";
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

TEST_F(LiveEvents, ThresholdFiresResetsAndFiresAgain) {
    PutPressure(3);
    ASSERT_HR(S_OK, SetData(L"<Archive ID=\"High\"><Collect>ON</Collect><XDMEvent><Event><XPath>/Gauge/Pressure</XPath>"
                            L"<Trigger>. &gt; 8</Trigger><Reset>. &lt; 5</Reset></Event><EventPayload/></XDMEvent>"
                            L"</Archive>"));
    ASSERT_HR(S_OK, SetData(L"<Archive ID=\"All\"><Collect>ON</Collect><XDMEvent><Event><XPath>/Gauge/Pressure</XPath>"
                            L"</Event><XMLDataModel><XPath>/Gauge/Pressure</XPath><XDMPrefixes>xmlns:g='urn:g'"
                            L"</XDMPrefixes></XMLDataModel></XDMEvent></Archive>"));
    const auto has = [&](const std::wstring& id, int value) {
        const std::wstring element = L"<Pressure>" + std::to_wstring(value) + L"</Pressure>";
        return GetData(L"/Archive[@ID='" + id + L"']//Pressure").find(element) != std::wstring::npos;
    };
    // Each value is seen before the next one is put: the second archive takes every change. Of several values in one
    // second it keeps the newest.
    for (int value : {9, 10, 4, 12}) {
        PutPressure(value);
        ASSERT_TRUE(WaitForSnapshots(L"All", 1) && watch_->WaitUntil([&] { return has(L"All", value); })) << value;
        // The two are called side by side.
        const size_t fired = value == 12 ? 2 : 1;
        ASSERT_TRUE(WaitForSnapshots(L"High", fired)) << value;
        EXPECT_EQ(fired, Ids(L"High").size()) << value;
    }
    EXPECT_TRUE(has(L"High", 9) && has(L"High", 12));
    for (const wchar_t* id : {L"High", L"All"})
        EXPECT_HR(S_OK, SetData(L"<Archive ID=\"" + std::wstring(id) + L"\"><Collect>OFF</Collect></Archive>"));
}

TEST_F(LiveEvents, KilledHostLosesNoEventOfTheRightDoor) {
    const std::vector<std::wstring> archives = {L"A1", L"A2", L"A3"};
    for (const std::wstring& id : archives)
        ASSERT_HR(S_OK, SetData(DoorDocument(id)));
    // Two in one second: the second does not replace the first.
    for (const wchar_t* badge : {L"1", L"2"})
        EXPECT_EQ(3, Raise(L"1", badge));
    ASSERT_NO_FATAL_FAILURE(KillHost());
    // Any use of the event manager brings the host back, and with it what was not delivered.
    EXPECT_EQ(0, Raise(L"2", L"other"));
    for (const std::wstring& id : archives) {
        std::wstring document;
        EXPECT_TRUE(WaitForSnapshots(id, 1) && watch_->WaitUntil([&] {
            document = GetData(L"/Archive[@ID='" + id + L"']/*");
            return document.find(L"<Badge>2</Badge>") != std::wstring::npos;
        })) << support::Narrow(id);
        EXPECT_NE(std::wstring::npos, document.find(L"<Payload><Door><Badge>1</Badge></Door></Payload>"))
            << support::Narrow(document);
        ExpectWhole(id, L"Badge", 1);
        EXPECT_HR(S_OK, SetData(L"<Archive ID=\"" + id + L"\"><Collect>OFF</Collect></Archive>"));
    }
    EXPECT_EQ(0, Raise(L"1", L"3")) << "no registration is left";
    EXPECT_FALSE(std::filesystem::exists(folder_.Path() / "Archives" / "machine"));
}
