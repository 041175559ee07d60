// The registered component among scripted siblings, in a folder of the test's own.
#pragma once

#include "VornaLib.h"
#include "common/services/platformservices.h"
#include "fakes/ScriptedPlatform.h"
#include "persist/SubscriptionPersistance.h"

#include <optional>

struct Answer {
    HRESULT result;
    // What the caller had put into ExceptionInfo where the component left it alone.
    std::wstring text;
    std::wstring document;
};

inline constexpr wchar_t UNTOUCHED[] = L"untouched";

class ComponentTest : public testing::Test {
  protected:
    static void SetUpTestSuite() { support::RegisterPlatform(); }
    void SetUp() override {
        fakes::ResetScripts();
        support::InstallComponent(folder_.Path());
        service_ = fakes::MakeService();
        component_ = support::Create<IXDMAccessEx>(vorna::PROGID_VORNA);
    }
    void TearDown() override {
        service_.reset();
        component_.reset();
        EXPECT_EQ(live_, vorna::module_uses) << "objects of the test were not released";
    }

    static void ExpectAnswer(const Answer& answer, HRESULT result, std::wstring_view text) {
        EXPECT_HR(result, answer.result);
        EXPECT_EQ(text, answer.text);
    }
    Answer SetData(std::wstring_view document, IUnknown* service) {
        vorna::bstr text(UNTOUCHED);
        BSTR info = text.get();
        HRESULT result = component_->SetData(service, vorna::bstr(document).get(), 0, &info);
        return {result, Take(info, text), L""};
    }
    Answer SetData(std::wstring_view document) { return SetData(document, service_.get()); }

    Answer GetData(std::wstring_view xpath, IUnknown* service) {
        vorna::bstr text(UNTOUCHED), document;
        BSTR info = text.get();
        HRESULT result =
            component_->GetData(service, vorna::bstr(xpath).get(), vorna::bstr(L"").get(), &info, document.put());
        return {result, Take(info, text), document.str()};
    }
    Answer GetData(std::wstring_view xpath) { return GetData(xpath, service_.get()); }

    Answer Deliver(std::optional<std::wstring> document) {
        vorna::bstr text(UNTOUCHED);
        BSTR info = text.get();
        vorna::bstr event;
        if (document)
            event = vorna::bstr(*document);
        auto client = component_.try_as<IComBaseClient>();
        HRESULT result = client->Deliver(event.get(), &info);
        return {result, Take(info, text), L""};
    }

    // The first record of the archive.
    vorna::SubscriptionRecord Record(std::wstring_view archiveId) {
        vorna::SubscriptionRecord record;
        EXPECT_HR(S_OK, vorna::SubscriptionPersistance().GetSubscription(
                            L"press\\press-7\\7\\" + std::wstring(archiveId), record));
        return record;
    }
    // A callback of any sender. body follows the subscription's ID and cookie.
    static std::wstring CallBack(std::wstring_view root, const vorna::SubscriptionRecord& record,
                                 std::wstring_view body = L"") {
        const std::wstring name(root);
        return L"<" + name + L"><SubscriptionID>" + record.subscriptionId + L"</SubscriptionID><ClientCookie>" +
               record.clientCookie + L"</ClientCookie>" + std::wstring(body) + L"</" + name + L">";
    }
    Answer Tick(const vorna::SubscriptionRecord& record) { return Deliver(CallBack(L"TimerEvent", record)); }
    Answer MaintenanceTick() {
        return Deliver(L"<TimerEvent><SubscriptionID>m</SubscriptionID><ClientCookie></ClientCookie></TimerEvent>");
    }

    static std::wstring Document(std::wstring_view id, std::wstring_view collect = L"ON",
                                 std::wstring_view more = L"") {
        return L"<Archive ID=\"" + std::wstring(id) + L"\"><Collect>" + std::wstring(collect) + L"</Collect>" +
               std::wstring(more) +
               L"<Timer><XMLDataModel><XPath>/Data</XPath><XDMPrefixes>xmlns:a='urn:a'</XDMPrefixes></XMLDataModel>"
               L"<Frequency>P0Y0M0DT0H1M0S</Frequency></Timer></Archive>";
    }

    // Files below the component's folder, besides its module.
    size_t FilesLeft() const {
        size_t count = 0;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_.Path()))
            count += entry.is_regular_file() && entry.path().extension() != ".dll";
        return count;
    }

    support::TestFolder folder_;
    fakes::InstalledClass<fakes::ScriptedTimer> timer_{vorna::PROGID_TIMER};
    fakes::InstalledClass<fakes::ScriptedEventManager> eventManager_{vorna::PROGID_EVENT_MANAGER};
    fakes::InstalledClass<fakes::ScriptedEventAccess> eventAccess_{vorna::PROGID_EVENT_ACCESS};
    fakes::InstalledClass<fakes::ScriptedAggregator> aggregator_{vorna::PROGID_AGGREGATOR};
    fakes::InstalledClass<fakes::ScriptedArchiveManager> archive_{vorna::PROGID_ARCHIVE_MANAGER};
    fakes::Scripts& scripts_ = fakes::CurrentScripts();
    // After the class factories, which live as long as the test.
    long live_ = vorna::module_uses;
    vorna::com_ptr<IUnknown> service_;
    vorna::com_ptr<IXDMAccessEx> component_;

  private:
    static std::wstring Take(BSTR info, const vorna::bstr& before) {
        std::wstring text(vorna::view_of(info));
        if (info != before.get())
            SysFreeString(info);
        return text;
    }
};
