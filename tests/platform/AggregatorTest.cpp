#include "QXKeldan.h"
#include "common/com/bstr.h"
#include "common/com/com_ptr.h"
#include "common/com/com_server.h"
#include "common/com/results.h"
#include "common/services/platformservices.h"
#include "fakes/ScriptedPlatform.h"
#include "platform/data/ModelStore.h"
#include "support/Support.h"

#include <fstream>

namespace {

using keldan::ServiceIdentity;

const HRESULT NO_MODEL = HRESULT_FROM_WIN32(ERROR_NOT_FOUND);

vorna::com_ptr<IUnknown> MakeService(const ServiceIdentity& identity) {
    return fakes::MakeService({identity.portId, identity.serviceId, identity.serviceUri});
}

class AggregatorTest : public testing::Test {
  protected:
    const long live_ = vorna::module_uses;

    void TearDown() override {
        aggregator_.reset();
        // Processes that were ended may still hold objects of earlier tests; this test must add none.
        EXPECT_LE(vorna::module_uses, live_);
    }

    // Stores the answer in data_ and the message in message_.
    HRESULT Get(const ServiceIdentity& identity, std::wstring_view xpath, std::wstring_view prefixes = {}) {
        return Get(MakeService(identity).get(), xpath, prefixes);
    }
    HRESULT Get(IUnknown* service, std::wstring_view xpath, std::wstring_view prefixes = {}) {
        vorna::bstr path(xpath);
        vorna::bstr declarations(prefixes);
        BSTR data = reinterpret_cast<BSTR>(1);
        BSTR message = reinterpret_cast<BSTR>(1);
        const HRESULT result = aggregator_->GetData(service, path.get(), declarations.get(), &data, &message);
        vorna::bstr ownedData;
        vorna::bstr ownedMessage;
        *ownedData.put() = data;
        *ownedMessage.put() = message;
        EXPECT_EQ(result == S_OK, data != nullptr);
        EXPECT_FALSE(ownedMessage.empty());
        data_ = support::Narrow(ownedData.view());
        message_ = support::Narrow(ownedMessage.view());
        return result;
    }
    void Store(const ServiceIdentity& identity, std::string_view bytes) {
        const keldan::ModelStore store(keldan::DataFolder(folder_.Path().wstring()));
        std::filesystem::create_directories(folder_.Path() / L"models");
        std::ofstream(folder_.Path() / L"models" / keldan::ModelStore::FileName(identity), std::ios::binary) << bytes;
    }

    support::TestFolder folder_;
    support::PlatformData dataFolder_{folder_.Path()};
    const ServiceIdentity press_{L"1", L"press", L"urn:press"};
    vorna::com_ptr<IAggregator> aggregator_ = support::Create<IAggregator>(vorna::PROGID_AGGREGATOR);
    std::string data_;
    std::string message_;
};

TEST_F(AggregatorTest, ReturnsTheSelectedNodesOfAStoredModel) {
    Store(press_, "<m><v id=\"a&amp;b\">1</v><v id='2'>x &lt; y</v><!--note--><w/></m>");
    struct {
        const wchar_t* xpath;
        HRESULT result;
        const char* data;
    } const cases[] = {
        {L"/m", S_OK, "<m><v id=\"a&amp;b\">1</v><v id='2'>x &lt; y</v><!--note--><w/></m>"},
        {L"/", S_OK, "<m><v id=\"a&amp;b\">1</v><v id='2'>x &lt; y</v><!--note--><w/></m>"},
        {L"//*", S_OK, "<m><v id=\"a&amp;b\">1</v><v id='2'>x &lt; y</v><!--note--><w/></m>"},
        {L"/m/v [@id='2']", S_OK, "<Data service=\"urn:press\"><v id=\"2\">x &lt; y</v></Data>"},
        {L"/m/v", S_OK, "<Data service=\"urn:press\"><v id=\"a&amp;b\">1</v><v id=\"2\">x &lt; y</v></Data>"},
        {L"/m/v/@id", S_OK,
         "<Data service=\"urn:press\"><Attribute name=\"id\">a&amp;b</Attribute>"
         "<Attribute name=\"id\">2</Attribute></Data>"},
        {L"/m/v[2]/text()", S_OK, "<Data service=\"urn:press\"><Text>x &lt; y</Text></Data>"},
        {L"/m/comment()", S_OK, "<Data service=\"urn:press\"><!--note--></Data>"},
        {L"/m/none", S_FALSE, ""},
        {L"/m/v[", E_INVALIDARG, ""},
        {L"", E_INVALIDARG, ""},
        {L"/m/a:v", E_INVALIDARG, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(support::Narrow(c.xpath));
        EXPECT_HR(c.result, Get(press_, c.xpath));
        EXPECT_EQ(c.data, data_);
    }
}

TEST_F(AggregatorTest, UsesTheCallersPrefixesAndKeepsDeclarationsInScope) {
    Store(press_, "<m xmlns='urn:d' xmlns:x='urn:x'><x:v x:k='7'>1</x:v><p>2</p></m>");
    for (const wchar_t* prefixes : {L"xmlns:q='urn:x' xmlns:d='urn:d'", L"xmlns:d=\"urn:d\"\n xmlns:q=\"urn:x\"",
                                    L"q=urn:x d='urn:d'", L"xmlns='urn:other' q = 'urn:x' d=urn:d"}) {
        SCOPED_TRACE(support::Narrow(prefixes));
        ASSERT_HR(S_OK, Get(press_, L"/d:m/q:v[@q:k]", prefixes));
        const std::string answer = data_;
        EXPECT_TRUE(answer.find("xmlns:x='urn:x'") != answer.npos || answer.find("xmlns:x=\"urn:x\"") != answer.npos)
            << answer;
        // The answer stands alone: it works as a model too.
        Store({L"2", L"again", L"u"}, answer);
        EXPECT_HR(S_OK, Get({L"2", L"again", L"u"}, L"/Data/n:v[@n:k='7']", L"xmlns:n='urn:x'"));
        ASSERT_HR(S_OK, Get(press_, L"//d:p", prefixes));
        Store({L"2", L"again", L"u"}, std::string(data_));
        EXPECT_HR(S_OK, Get({L"2", L"again", L"u"}, L"/Data/n:p", L"xmlns:n='urn:d'"));
    }
    ASSERT_HR(S_OK, Get(press_, L"//@q:k", L"xmlns:q='urn:x'"));
    EXPECT_EQ("<Data service=\"urn:press\"><Attribute name=\"k\" namespace=\"urn:x\">7</Attribute></Data>", data_);
    for (const wchar_t* bad :
         {L"nonsense", L"xmlns:q='urn:x", L"xmlns:q=", L"xmlns:1='u'", L"a='u'b='v'", L"a='u' a='v'"}) {
        EXPECT_HR(E_INVALIDARG, Get(press_, L"/*", bad)) << support::Narrow(bad);
        EXPECT_NE(std::string::npos, message_.find("prefixes")) << message_;
    }
}

TEST_F(AggregatorTest, NamesTheFileOfAModelThatIsNotWellFormed) {
    for (const char* bytes : {"", "<m><half", "<m>\xFF</m>", "<?xml version='1.0' encoding='koi8-r'?><m>\xC1</m>",
                              "<!DOCTYPE m [<!ENTITY e 'x'>]><m>&e;</m>", "\xFF\xFE<"}) {
        Store(press_, bytes);
        EXPECT_HR(vorna::RESULT_XML_MALFORMED, Get(press_, L"/m")) << bytes;
        EXPECT_NE(std::string::npos, message_.find("press+urn%3Apress+1.xml")) << message_;
    }
}

TEST_F(AggregatorTest, ReportsServicesWithoutAModel) {
    EXPECT_HR(NO_MODEL, Get(press_, L"/m"));
    EXPECT_HR(NO_MODEL, Get({L"1", std::wstring(300, L'x'), L"u"}, L"/m"));
    EXPECT_HR(NO_MODEL, Get({L"1", L"\xD800", L"u"}, L"/m"));
    EXPECT_HR(NO_MODEL, Get({L"", L"", L"Host"}, L"/Host"));
    EXPECT_HR(vorna::RESULT_SERVICE_OBJECT, Get(static_cast<IUnknown*>(nullptr), L"/m"));
    EXPECT_HR(vorna::RESULT_SERVICE_OBJECT, Get(aggregator_.get(), L"/m"));
    EXPECT_HR(E_POINTER, aggregator_->GetData(nullptr, nullptr, nullptr, nullptr, nullptr));
}

TEST_F(AggregatorTest, ComputesTheHostModelFromTheOperatingSystem) {
    const ServiceIdentity host{L"", L"this machine", L"host"};
    ASSERT_HR(S_OK, Get(host, L"/Host/Processes/Process[@Id='" + std::to_wstring(GetCurrentProcessId()) + L"']"));
    EXPECT_NE(std::string::npos, data_.find("<Name>test_platform.exe</Name>")) << data_;
    MEMORYSTATUSEX memory{};
    memory.dwLength = sizeof memory;
    ASSERT_TRUE(GlobalMemoryStatusEx(&memory));
    ASSERT_HR(S_OK, Get(host, L"/Host/Memory/Total/text()"));
    EXPECT_EQ("<Data service=\"host\"><Text>" + std::to_string(memory.ullTotalPhys) + "</Text></Data>", data_);
    for (const wchar_t* xpath : {L"/Host/Name[.!='']", L"/Host/Time[@Utc]", L"/Host/Memory[Load <= 100]/Available",
                                 L"/Host/Disks/Disk[@Drive='C:' and Total >= Free and Total/@Unit='bytes']",
                                 L"/Host/Processors[@Count > 0]/Busy[. >= 0 and . <= 100]",
                                 L"/Host/Processes[@Count = count(Process)]/Process[Threads > 0]/Memory[. > 0]"})
        EXPECT_HR(S_OK, Get(host, xpath)) << support::Narrow(xpath);
    ASSERT_HR(S_OK, Get(host, L"/Host"));
    EXPECT_EQ(0u, data_.find("<Host>"));
}

} // namespace
