// What the component answers to requests that cannot be served, and that they leave nothing behind.
#include "ComponentTest.h"

#include "common/com/results.h"

#include <thread>

using namespace vorna;

namespace {

constexpr wchar_t TIMER[] = L"<Timer><XMLDataModel><XPath>/D</XPath><XDMPrefixes>p</XDMPrefixes></XMLDataModel>"
                            L"<Frequency>P0Y0M0DT0H1M0S</Frequency></Timer>";

} // namespace

TEST_F(ComponentTest, RefusedArguments) {
    EXPECT_HR(RESULT_SERVICE_OBJECT, GetData(L"", nullptr).result);
    EXPECT_EQ(L"Invalid Service Object", GetData(L"", nullptr).text);
    EXPECT_HR(RESULT_SERVICE_OBJECT, SetData(L"", nullptr).result);
    EXPECT_EQ(L"Invalid Service Object", SetData(L"", nullptr).text);
    EXPECT_HR(RESULT_XPATH, GetData(L"").result);
    EXPECT_EQ(L"Invalid XPath", GetData(L"").text);
    EXPECT_HR(RESULT_INPUT_STRING, SetData(L"").result);
    EXPECT_EQ(L"Invalid Input String", SetData(L"").text);
    EXPECT_EQ(0u, FilesLeft());
}

TEST_F(ComponentTest, RefusedPaths) {
    const struct {
        const wchar_t* xpath;
        HRESULT result;
        const wchar_t* text;
    } cases[] = {
        {L"/Archive[@ID='A 1']", RESULT_XPATH, L"Invalid xPath"},
        {L"/Store[@ID='A1']", RESULT_XPATH, L"Invalid xPath. No Archive ID specified"},
        {L"/Archive[@Name='A1']", RESULT_XPATH, L"Invalid xPath. No Archive ID specified"},
        {L"/Archive", RESULT_XPATH, L"Invalid xPath. No Archive ID specified"},
        {L"////", RESULT_XPATH, L"Invalid xPath. No Archive ID specified"},
        {L"/Archive[@ID='']/Data", RESULT_XPATH, L"Invalid xPath. No Archive ID specified"},
        {L"/Archive[@ID='A1']/Data", RESULT_NO_SUBSCRIPTION, L"No Subscription exists for the service and archive id"},
        {L"/Archive[@ID=\"A1\"]/Data", RESULT_NO_SUBSCRIPTION,
         L"No Subscription exists for the service and archive id"},
    };
    for (const auto& item : cases) {
        SCOPED_TRACE(support::Narrow(item.xpath));
        const Answer answer = GetData(item.xpath);
        EXPECT_HR(item.result, answer.result);
        EXPECT_EQ(item.text, answer.text);
    }
    EXPECT_EQ(0u, FilesLeft());
}

TEST_F(ComponentTest, RefusedDocuments) {
    const std::wstring bomb = L"<!DOCTYPE Archive [<!ENTITY a \"aaaaaaaaaa\"><!ENTITY b \"&a;&a;&a;&a;\">]>";
    const struct {
        std::wstring document;
        HRESULT result;
        std::wstring text;
    } cases[] = {
        {L"<Archive ID=\"A1\"", RESULT_XML_MALFORMED, L"XML not properly formatted"},
        {bomb + Document(L"&b;"), RESULT_XML_MALFORMED, L"XML not properly formatted"},
        {L"<Archive ID=\"   \"><Collect>ON</Collect></Archive>", RESULT_ARCHIVE_ID,
         L"Subscription Info Error : Invalid Archieve ID"},
        {L"<Archive ID=\"A1\">" + std::wstring(TIMER) + L"</Archive>", RESULT_COLLECT,
         L"Subscription Info Error : Data Collect is mandatory field"},
        {Document(L"A1", L"On"), RESULT_COLLECT,
         L"Subscription Info Error - Some  value other than \"On\" or \"Off\" for collect is found"},
        {Document(L"A1", L"OFF"), RESULT_NO_SUBSCRIPTION,
         L"No subscription exists for the ArchiveID and Service params combination specified"},
        {Document(L"A1", L"ON", L"<Aging>P1D</Aging>"), RESULT_AGING,
         L"Subscription Info Error: Invalid Aging duration found"},
        {Document(L"A1", L"ON", L"<DataManagement><MaxStorageSize>10</MaxStorageSize></DataManagement>"),
         RESULT_STORAGE_UNITS, L"Subscription Info Error: Invalid  units for MaxStorageSize"},
        {L"<Archive ID=\"A1\"><Collect>ON</Collect></Archive>", RESULT_EVENT_TYPE, L"Invalid event type"},
    };
    for (const auto& item : cases) {
        SCOPED_TRACE(support::Narrow(item.document));
        const Answer answer = SetData(item.document);
        EXPECT_HR(item.result, answer.result);
        EXPECT_EQ(item.text, answer.text);
    }
    EXPECT_EQ(0u, FilesLeft());
    EXPECT_EQ(0, fakes::CurrentScripts().timer.tickets);
}

TEST_F(ComponentTest, IdentitiesThatCouldLeaveTheFolderOrBreakTheDocument) {
    for (const wchar_t* uri : {L"..\\..", L"..", L"a/b", L"a\\b", L"C:", L"a\"b", L"a<b", L"a&b", L"", L"a\nb"}) {
        SCOPED_TRACE(support::Narrow(uri));
        fakes::ServiceScript script;
        script.serviceUri = uri;
        auto service = fakes::MakeService(script);
        const Answer answer = SetData(Document(L"A1"), service.get());
        EXPECT_HR(RESULT_SERVICE_OBJECT, answer.result);
        EXPECT_EQ(L"Invalid Service Object", answer.text);
        EXPECT_HR(E_FAIL, GetData(L"/Archive[@ID='A1']/*", service.get()).result);
    }
    EXPECT_EQ(0u, FilesLeft());
}

TEST_F(ComponentTest, ServiceObjectsThatMisbehave) {
    const struct {
        const char* name;
        std::function<HRESULT(BSTR*)> read;
        HRESULT result;
    } cases[] = {
        {"refuses", [](BSTR*) { return E_NOTIMPL; }, RESULT_SERVICE_OBJECT},
        {"returns null", [](BSTR* value) { return *value = nullptr, S_OK; }, RESULT_SERVICE_OBJECT},
        {"faults",
         [](BSTR*) {
             int* volatile nowhere = nullptr;
             RaiseException(EXCEPTION_ACCESS_VIOLATION, 0, 0, nullptr);
             return nowhere ? S_OK : E_FAIL;
         },
         RESULT_EXCEPTION},
        {"writes to nowhere",
         [](BSTR*) {
             char* volatile nowhere = reinterpret_cast<char*>(16);
             __asm__ volatile("movb $1, (%0)" : : "r"(nowhere) : "memory");
             return S_OK;
         },
         RESULT_EXCEPTION},
        {"throws as another compiler does",
         [](BSTR*) {
             RaiseException(0xE06D7363, EXCEPTION_NONCONTINUABLE, 0, nullptr);
             return S_OK;
         },
         RESULT_EXCEPTION},
    };
    for (const auto& item : cases) {
        SCOPED_TRACE(item.name);
        fakes::ServiceScript script;
        script.readServiceUri = item.read;
        auto service = fakes::MakeService(script);
        EXPECT_HR(item.result, SetData(Document(L"A1"), service.get()).result);
    }
    fakes::ServiceScript faulting;
    faulting.readServiceUri = cases[3].read;
    auto service = fakes::MakeService(faulting);
    EXPECT_EQ(L"Unknown Error", SetData(Document(L"A1"), service.get()).text);
    EXPECT_EQ(L"Unknown Exception", GetData(L"/Archive[@ID='A1']/*", service.get()).text);
    // An object of another kind altogether.
    EXPECT_HR(RESULT_SERVICE_OBJECT, SetData(Document(L"A1"), component_.get()).result);
    EXPECT_EQ(0u, FilesLeft());
    // The component is none the worse for it.
    EXPECT_HR(S_OK, SetData(Document(L"A1")).result);
}

TEST_F(ComponentTest, RefusedCallBacks) {
    const struct {
        std::optional<std::wstring> document;
        HRESULT result;
        std::wstring text;
    } cases[] = {
        {std::nullopt, RESULT_XML_MALFORMED, L"Failed to Load XML: the call back XML is not well formed"},
        {L"", RESULT_XML_MALFORMED, L"Failed to Load XML: the call back XML is not well formed"},
        {L"tick", RESULT_XML_MALFORMED, L"Failed to Load XML: the call back XML is not well formed"},
        {L"<TimerEvent><ClientCookie>c</ClientCookie></TimerEvent>", E_FAIL,
         L"Failed to get subscription ID from Call back XML"},
        {L"<Event><Payload/></Event>", E_FAIL, L"Failed to get subscription ID from Call back XML"},
        {L"<Other><SubscriptionID>x</SubscriptionID></Other>", E_FAIL,
         L"Invalid callback string. Root doesnt match with timer, eventmanager or event access callback root"},
        {L"<TimerEvent><SubscriptionID>x\"] | //*[@ID=\"</SubscriptionID><ClientCookie>c</ClientCookie></TimerEvent>",
         PLATFORM_ID_UNKNOWN, L"Unsubscription with timer Failed"},
    };
    for (const auto& item : cases) {
        SCOPED_TRACE(support::Narrow(item.document.value_or(L"null")));
        const Answer answer = Deliver(item.document);
        EXPECT_HR(item.result, answer.result);
        EXPECT_EQ(item.text, answer.text);
    }
}

TEST_F(ComponentTest, CallBackForAnUnknownSubscriptionEndsItsRegistration) {
    fakes::CurrentScripts().timer.schedules[L"lost"] = L"";
    EXPECT_HR(S_OK, Deliver(L"<TimerEvent><SubscriptionID>lost</SubscriptionID><ClientCookie>c</ClientCookie>"
                            L"</TimerEvent>")
                        .result);
    EXPECT_TRUE(fakes::CurrentScripts().timer.schedules.empty());
}

TEST_F(ComponentTest, TickBeforeTheRecordStandsDoesNotEndTheRegistration) {
    std::thread early;
    Answer answer{E_FAIL, L"", L""};
    fakes::CurrentScripts().timer.onSubscribed = [&](const std::wstring& id) {
        // The maintenance timer subscribes too; only the first registration ticks.
        if (!early.joinable())
            early = std::thread([&, id] {
                CoInitializeEx(nullptr, COINIT_MULTITHREADED);
                answer = Deliver(L"<TimerEvent><SubscriptionID>" + id +
                                 L"</SubscriptionID><ClientCookie>press\\press-7\\7\\A1</ClientCookie></TimerEvent>");
                CoUninitialize();
            });
    };
    EXPECT_HR(S_OK, SetData(Document(L"A1")).result);
    early.join();
    EXPECT_HR(S_OK, answer.result);
    EXPECT_TRUE(fakes::CurrentScripts().timer.unsubscribed.empty());
}

TEST_F(ComponentTest, FilledExceptionInfoIsLeftAloneOnSuccess) {
    const Answer answer = SetData(Document(L"A1"));
    EXPECT_HR(S_OK, answer.result);
    EXPECT_EQ(UNTOUCHED, answer.text);
}
