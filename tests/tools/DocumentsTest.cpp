// The documents that commands pass to the component and to the platform.

#include "Refusal.h"
#include "common/com/results.h"
#include "tools/DataModel.h"
#include "tools/EventClient.h"
#include "tools/SubscriptionFile.h"
#include "tools/TextFile.h"

using namespace vornactl;

namespace {

TEST(PropertiesDocument, KeepsNamesAndValuesLetterForLetter) {
    const struct {
        std::vector<std::wstring> properties;
        std::wstring document;
    } cases[] = {
        {{}, L""},
        {{L"Door=", L"Time=7=8"},
         L"<EventProperties><Property Name=\"Door\"></Property><Property Name=\"Time\">7=8</Property></EventProperties>"},
        {{L"a\"<&\n=]]>&<\"\r"},
         L"<EventProperties><Property Name=\"a&quot;&lt;&amp;&#10;\">]]&gt;&amp;&lt;&quot;&#13;</Property>"
         L"</EventProperties>"},
    };
    for (const auto& each : cases)
        EXPECT_EQ(PropertiesDocument(each.properties), each.document);
    for (const std::vector<std::wstring>& refused :
         {std::vector<std::wstring>{L"=front"}, {L"a=1", L"a=2"}, {L"a=\x1"}})
        EXPECT_THROW(PropertiesDocument(refused), UsageError);
}

TEST(EndingDocument, AnIdIsEscaped) {
    EXPECT_EQ(EndingDocument(L"a\"b<c&d"), L"<Archive ID=\"a&quot;b&lt;c&amp;d\"><Collect>OFF</Collect></Archive>");
}

class Documents : public testing::Test {
  protected:
    void SetUp() override { support::RegisterPlatform(); }
    std::wstring File(const wchar_t* name, std::wstring_view text) {
        std::wstring path = (folder_.Path() / name).wstring();
        WriteDocument(path, text);
        return path;
    }

    support::TestFolder folder_;
};

TEST_F(Documents, ARelativeStylesheetPathBecomesAFullPath) {
    const auto document = [](const std::wstring& stylesheet) {
        return L"<Archive ID=\"a\"><KROEvent><EventPayload><TransformFile>" + stylesheet +
               L"</TransformFile></EventPayload></KROEvent><!-- kept --></Archive>";
    };
    const std::wstring full = File(L"a & b.xslt", L"<x/>");
    const std::wstring escaped = (folder_.Path() / L"a &amp; b.xslt").wstring();
    const struct {
        std::wstring given;
        std::wstring read;
    } cases[] = {{L"a &amp; b.xslt", escaped},
                 {L"\n .\\a &amp; b.xslt ", escaped},
                 {L"C:\\nowhere\\b.xslt", L"C:\\nowhere\\b.xslt"},
                 {L"", L""}};
    for (const auto& each : cases)
        EXPECT_EQ(ReadSubscription(File(L"s.xml", document(each.given))), document(each.read));
    EXPECT_HR(HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND),
              Refusal(L"missing.xslt", [&] { ReadSubscription(File(L"s.xml", document(L"missing.xslt"))); }));
}

TEST_F(Documents, ALimitThatKeepsNothingIsRefused) {
    const struct {
        std::wstring units;
        std::wstring size;
        std::wstring collect;
        // What the refusal says; empty if there is none.
        std::wstring named;
    } cases[] = {
        {L"KB", L"0", L"ON", L"is 0 KB"},
        {L"KB", L"20", L"ON", L"is 20 KB"},
        {L"KB", L"20", L"ON", L"smallest useful limit is 21 KB"},
        {L"KB", L"21", L"ON", L""},
        {L"NUMFILES", L"0", L"ON", L"smallest useful limit is 1 file"},
        {L"NUMFILES", L"1", L"ON", L""},
        {L"KB", L"20", L"OFF", L""},
        // Refused by the component, with its own text.
        {L"KB", L"-1", L"ON", L""},
    };
    for (const auto& each : cases) {
        const std::wstring document =
            L"<Archive ID=\"a\"><Collect>" + each.collect + L"</Collect><DataManagement><MaxStorageSize Units=\"" +
            each.units + L"\">" + each.size +
            L"</MaxStorageSize></DataManagement><KROEvent><Name>N</Name><EventPayload/></KROEvent></Archive>";
        EXPECT_HR(each.named.empty() ? S_OK : E_INVALIDARG,
                  Refusal(each.named, [&] { EXPECT_EQ(ReadSubscription(File(L"s.xml", document)), document); }))
            << support::Narrow(document);
    }
}

TEST_F(Documents, OnlyAWellFormedModelReplacesAStoredOne) {
    const support::PlatformData data(folder_.Path());
    const std::wstring model = File(L"model.xml", L"<Gauge>412</Gauge>");
    const std::wstring broken = File(L"broken.xml", L"<Gauge>");
    const auto service = [&](const wchar_t* serviceId, const wchar_t* uri) {
        return File(L"service.xml", support::ServiceDocument(L"p1", serviceId, uri));
    };
    const std::wstring written = PutModel(service(L"gauge", L"pressure"), model);
    EXPECT_EQ(written, (folder_.Path() / L"models" / L"gauge+pressure+p1.xml").wstring());
    const struct {
        const wchar_t* serviceId;
        const wchar_t* uri;
        const std::wstring& file;
        HRESULT result;
        std::wstring named;
    } cases[] = {{L"gauge", L"pressure", broken, vorna::RESULT_XML_MALFORMED, L"broken.xml"},
                 {L"gauge", L"host", model, E_INVALIDARG, L"\"host\""},
                 {L"", L"pressure", model, vorna::RESULT_SERVICE_OBJECT, L"serviceId"}};
    for (const auto& each : cases)
        EXPECT_HR(each.result, Refusal(each.named, [&] { PutModel(service(each.serviceId, each.uri), each.file); }));
    EXPECT_EQ(GetModel(service(L"gauge", L"pressure")), L"<Gauge>412</Gauge>");
    EXPECT_HR(HRESULT_FROM_WIN32(ERROR_NOT_FOUND),
              Refusal(L"other\\pressure\\p1", [&] { GetModel(service(L"other", L"pressure")); }));
}

} // namespace
