// What the component answers to requests that cannot be served, and that they leave nothing behind.
#include "ComponentTest.h"

#include "common/com/results.h"

#include <thread>

using namespace vorna;

TEST_F(ComponentTest, RefusedArguments) {
    ExpectAnswer(GetData(L"", nullptr), RESULT_SERVICE_OBJECT, L"Invalid Service Object");
    ExpectAnswer(SetData(L"", nullptr), RESULT_SERVICE_OBJECT, L"Invalid Service Object");
    ExpectAnswer(GetData(L""), RESULT_XPATH, L"Invalid XPath");
    ExpectAnswer(SetData(L""), RESULT_INPUT_STRING, L"Invalid Input String");
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
        ExpectAnswer(GetData(item.xpath), item.result, item.text);
    }
    EXPECT_EQ(0u, FilesLeft());
}

TEST_F(ComponentTest, RefusedDocuments) {
    const struct {
        std::wstring document;
        HRESULT result;
        std::wstring text;
    } cases[] = {
        {L"<!DOCTYPE Archive [<!ENTITY a \"aaaaaaaaaa\"><!ENTITY b \"&a;&a;&a;&a;\">]>" + Document(L"&b;"),
         RESULT_XML_MALFORMED, L"XML not properly formatted"},
        {Document(L"A1", L"OFF"), RESULT_NO_SUBSCRIPTION,
         L"No subscription exists for the ArchiveID and Service params combination specified"},
        {Document(L"A1", L"On"), RESULT_NO_SUBSCRIPTION,
         L"No subscription exists for the ArchiveID and Service params combination specified"},
        {L"<Archive ID=\"A1\"><Collect>ON</Collect></Archive>", RESULT_EVENT_TYPE, L"Invalid event type"},
    };
    for (const auto& item : cases) {
        const Answer answer = SetData(item.document);
        EXPECT_HR(item.result, answer.result) << support::Narrow(item.document);
        EXPECT_EQ(item.text, answer.text);
    }
    EXPECT_EQ(0u, FilesLeft());
    EXPECT_EQ(0, scripts_.timer.tickets);
}

TEST_F(ComponentTest, IdentitiesThatCouldLeaveTheFolderOrBreakTheDocument) {
    for (const wchar_t* uri : {L"..\\..", L"..", L"a/b", L"a\\b", L"C:", L"a\"b", L"a<b", L"a&b", L"", L"a\nb", L"COM1",
                               L"nul", L"Lpt9.7", L"con .x"}) {
        SCOPED_TRACE(support::Narrow(uri));
        fakes::ServiceScript script;
        script.serviceUri = uri;
        auto service = fakes::MakeService(script);
        ExpectAnswer(SetData(Document(L"A1"), service.get()), RESULT_SERVICE_OBJECT, L"Unknown Error");
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
        {"stops at a breakpoint",
         [](BSTR*) {
             __asm__ volatile("int3");
             return S_OK;
         },
         RESULT_EXCEPTION},
        {"divides by zero with x87 exceptions",
         [](BSTR*) {
             const unsigned short unmasked = 0x037B;
             __asm__ volatile("fldcw %0\n\tfld1\n\tfldz\n\tfdivrp\n\tfwait" : : "m"(unmasked));
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
        if (item.result == RESULT_EXCEPTION) {
            EXPECT_EQ(L"Unknown Error", SetData(Document(L"A1"), service.get()).text);
            EXPECT_EQ(L"Unknown Exception", GetData(L"/Archive[@ID='A1']/*", service.get()).text);
        }
    }
    // An object of another kind altogether.
    EXPECT_HR(RESULT_SERVICE_OBJECT, SetData(Document(L"A1"), component_.get()).result);
    EXPECT_EQ(0u, FilesLeft());
    // The component still works.
    EXPECT_HR(S_OK, SetData(Document(L"A1")).result);
}

TEST_F(ComponentTest, RefusedCallBacks) {
    const struct {
        std::optional<std::wstring> document;
        HRESULT result;
        std::wstring text;
    } cases[] = {
        {std::nullopt, RESULT_XML_MALFORMED, L"Failed to Get the root of call back XML"},
        {L"", RESULT_XML_MALFORMED, L"Failed to Get the root of call back XML"},
        {L"tick", RESULT_XML_MALFORMED, L"Failed to Get the root of call back XML"},
        {L"<TimerEvent><ClientCookie>c</ClientCookie></TimerEvent>", E_FAIL,
         L"Failed to get subscription ID from Call back XML"},
        {L"<Event><Payload/></Event>", E_FAIL, L"Failed to get subscription ID from Call back XML"},
        {L"<Other><SubscriptionID>x</SubscriptionID></Other>", E_FAIL,
         L"Invalid callback string. Root doesnt match with timer, eventmanager or event access callback root"},
        {L"<TimerEvent><SubscriptionID>x\"] | //*[@ID=\"</SubscriptionID><ClientCookie>c</ClientCookie></TimerEvent>",
         E_ACCESSDENIED, L"Unsubscription with timer Failed"},
    };
    scripts_.timer.unsubscribe = {E_ACCESSDENIED};
    ASSERT_HR(S_OK, SetData(Document(L"A1")).result);
    for (const auto& item : cases) {
        SCOPED_TRACE(support::Narrow(item.document.value_or(L"null")));
        ExpectAnswer(Deliver(item.document), item.result, item.text);
    }
}

TEST_F(ComponentTest, CallBackForAnUnknownSubscriptionEndsItsRegistration) {
    const wchar_t tick[] =
        L"<TimerEvent><SubscriptionID>lost</SubscriptionID><ClientCookie>c</ClientCookie></TimerEvent>";
    scripts_.timer.schedules[L"lost"] = L"";
    ExpectAnswer(Deliver(tick), E_FAIL, L"Unable to get subscription object");
    EXPECT_TRUE(scripts_.timer.schedules.contains(L"lost")) << "there is no persist document";
    ASSERT_HR(S_OK, SetData(Document(L"A1")).result);
    EXPECT_HR(S_OK, Deliver(tick).result);
    EXPECT_FALSE(scripts_.timer.schedules.contains(L"lost"));
    EXPECT_HR(S_OK, Deliver(tick).result) << "the timer no longer knows it";
}

TEST_F(ComponentTest, TickBeforeTheRecordIsWrittenDoesNotEndTheRegistration) {
    std::thread early;
    Answer answer{E_FAIL, L"", L""};
    scripts_.timer.onSubscribed = [&](const std::wstring& id) {
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
    EXPECT_TRUE(scripts_.timer.unsubscribed.empty());
}
