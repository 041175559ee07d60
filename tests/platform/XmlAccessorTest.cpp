// The registered accessor, created by its ProgID as clients create it.
#include "common/services/XmlAccessor.h"
#include "QXKeldan.h"
#include "common/com/bstr.h"
#include "common/com/results.h"
#include "common/services/platformservices.h"
#include "support/Support.h"

#include <algorithm>
#include <string>

namespace {

using support::Narrow;
using support::Repeated;
using vorna::bstr;
using vorna::com_ptr;

constexpr HRESULT NOT_FOUND = HRESULT_FROM_WIN32(ERROR_NOT_FOUND);
constexpr HRESULT MALFORMED = vorna::RESULT_XML_MALFORMED;

// The kinds of answers.
constexpr long TEXT = 4;
constexpr long MARKUP = 8;
// The places for new markup.
constexpr long FIRST = 1;
constexpr long LAST = 2;
constexpr long REPLACE = 3;

class XmlAccessorTest : public testing::Test {
  protected:
    HRESULT Load(std::wstring_view text) { return accessor_->Load(bstr(text).get()); }
    HRESULT Set(std::wstring_view xpath, std::wstring_view markup, long mode) {
        return accessor_->Set(bstr(xpath).get(), bstr(markup).get(), mode);
    }
    // Returns the answer, with "|" between the values of several nodes, or the result code as a text.
    std::string Query(std::wstring_view xpath, long kind) {
        bstr text(L"poison");
        BSTR raw = text.get();
        const HRESULT result = accessor_->Query(bstr(xpath).get(), kind, &raw);
        bstr answer;
        *answer.put() = raw == text.get() ? nullptr : raw;
        if (result == S_OK) {
            std::string values = Narrow(answer.view());
            std::replace(values.begin(), values.end(), '\x01', '|');
            return values;
        }
        EXPECT_EQ(nullptr, raw) << "a failure leaves no text";
        char code[16];
        snprintf(code, sizeof code, "%08lX", static_cast<unsigned long>(result));
        return code;
    }
    std::string Whole() { return Query(L"/", MARKUP); }

    com_ptr<IXMLSimpleAccessor> accessor_ = support::Create<IXMLSimpleAccessor>(vorna::PROGID_XML_ACCESSOR);
};

constexpr wchar_t LIST[] = L"<S><P ID=\"1\" V='TRUE'/><P ID='2' V='FALSE'>two</P><P ID='3' V='TRUE'>a<b>c</b>d</P></S>";
constexpr wchar_t SPACES[] =
    L"<r xmlns='urn:d' xmlns:p='urn:p' xmlns:q=\"urn:q\"><p:a q:x='1'><b/></p:a><c><p:a xmlns:p='urn:other'/></c></r>";
constexpr char INVALID[] = "80070057";

TEST_F(XmlAccessorTest, QueriesReturnTextsOrMarkup) {
    const struct {
        const wchar_t* document;
        const wchar_t* xpath;
        long kind;
        const char* expected;
    } cases[] = {
        {LIST, L"/S/P [@ID=\"2\"]/@V", TEXT, "FALSE"},
        {LIST, L"/S/P [@ID=\"3\"] [@V='TRUE']", TEXT, "acd"},
        {LIST, L"//P/@ID", TEXT, "1|2|3"},
        {LIST, L"//P[@V='TRUE']", MARKUP, "<P ID=\"1\" V=\"TRUE\"/>|<P ID=\"3\" V=\"TRUE\">a<b>c</b>d</P>"},
        {LIST, L"/S/P[1]/@ID", MARKUP, "ID=\"1\""},
        {L"<e a='&lt;&amp;&quot;&#65;&#x1F600;'/>", L"/e/@a", TEXT, "<&\"A\xF0\x9F\x98\x80"},
        {L"<e>x<![CDATA[<&]]>&gt;\r\ny<!--no--></e>", L"/e", TEXT, "x<&>\ny"},
        {L"<e a='1\r\n\t2&#10;3'/>", L"/e/@a", TEXT, "1  2\n3"},
        // Requests that are not valid.
        {LIST, L"/S/P[", TEXT, INVALID},
        {LIST, L"/S/P", 5, INVALID},
        {LIST, L"count(//P)", TEXT, INVALID},
        {LIST, L"//z:P", MARKUP, INVALID},
        {LIST, L"$v", MARKUP, INVALID},
        {LIST, L"", MARKUP, INVALID},
        // A document that is selected as a whole is returned as it was loaded, without its declaration.
        {L"<?xml version='1.0' encoding=\"UTF-8\"?>\n<!-- c --><r  a = 'x' ><e ></e>\t<f/></r >", L"/r", MARKUP,
         "<!-- c --><r  a = 'x' ><e ></e>\t<f/></r >"},
        {L"<?xml version=\"1.0\" encoding=\"ISO-8859-1\" standalone='yes'?><r>\xE9\x20AC</r>", L"/", MARKUP,
         "<r>\xC3\xA9\xE2\x82\xAC</r>"},
        {L"\xFEFF<r/>", L"/*", MARKUP, "<r/>"},
        // Prefixes are those of the document; markup declares what it uses.
        {SPACES, L"//p:a/@q:x", TEXT, "1"},
        {SPACES, L"//c", MARKUP, ""},
        {SPACES, L"//*[local-name()='b']", MARKUP, "<b xmlns=\"urn:d\"/>"},
        {SPACES, L"//p:a", MARKUP, "<p:a xmlns:p=\"urn:p\" xmlns:q=\"urn:q\" xmlns=\"urn:d\" q:x=\"1\"><b/></p:a>"},
        {SPACES, L"//*[local-name()='c']", MARKUP, "<c xmlns=\"urn:d\"><p:a xmlns:p=\"urn:other\"/></c>"},
        // XPath 1.0, not MSXML's older language.
        {L"<t><a><x>5</x><x>7</x></a><a><x>9</x></a></t>", L"//x[1]", TEXT, "5|9"},
        {L"<t><a><x>5</x><x>7</x></a><a><x>9</x></a></t>", L"//x[. div 3 = 3 or . mod 5 = 0]", TEXT, "5|9"},
        {L"<t><x/><x/><y/></t>", L"//y/preceding-sibling::x[1]/preceding-sibling::*", MARKUP, "<x/>"},
        {L"<t><a n='1'/></t>", L"//a[starts-with(name(..), 't')][number(@n) < 1.5]/@n", TEXT, "1"},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(Narrow(one.document) + ", " + Narrow(one.xpath));
        ASSERT_HR(S_OK, Load(one.document));
        EXPECT_EQ(one.expected, Query(one.xpath, one.kind));
    }
}

constexpr wchar_t KEPT[] = L"<S  a='1'><P ID=\"1\" ><q/></P>\r\n <P ID='2'/></S>";

TEST_F(XmlAccessorTest, SetChangesTheFirstSelectedNode) {
    const struct {
        const wchar_t* document;
        const wchar_t* xpath;
        const wchar_t* markup;
        long mode;
        const char* expected;
    } cases[] = {
        {KEPT, L"/S", L"<N  x='&lt;'/>t<M></M>", FIRST,
         "<S a=\"1\"><N  x='&lt;'/>t<M></M><P ID=\"1\"><q/></P>\n <P ID=\"2\"/></S>"},
        {KEPT, L"/S", L"<N/>", LAST, "<S a=\"1\"><P ID=\"1\"><q/></P>\n <P ID=\"2\"/><N/></S>"},
        {KEPT, L"/S/P [@ID=\"2\"]", L"text", FIRST, "<S a=\"1\"><P ID=\"1\"><q/></P>\n <P ID=\"2\">text</P></S>"},
        {L"<S />", L"/S", L"a & b > c", LAST, "<S>a &amp; b &gt; c</S>"},
        {L"<S/>", L"/S", L"a &amp; b", FIRST, "<S>a &amp; b</S>"},
        {KEPT, L"//P", L"<R/>", REPLACE, "<S a=\"1\"><R/>\n <P ID=\"2\"/></S>"},
        {KEPT, L"/S/P[@ID='1']", L"", REPLACE, "<S a=\"1\">\n <P ID=\"2\"/></S>"},
        {KEPT, L"/S", L"<?xml version='1.0'?><T>new</T>", REPLACE, "<T>new</T>"},
        {KEPT, L"/", L"<T/>", REPLACE, "<T/>"},
        {KEPT, L"/S/P/@ID", L"x'\"<&", REPLACE, "<S a=\"1\"><P ID=\"x'&quot;&lt;&amp;\"><q/></P>\n <P ID=\"2\"/></S>"},
        {KEPT, L"/S/@a", L"", REPLACE, "<S><P ID=\"1\"><q/></P>\n <P ID=\"2\"/></S>"},
        {L"<?xml version='1.0'?><S><P/></S>", L"//P", L"<Q/>", REPLACE, "<S><Q/></S>"},
        {L"<p:S xmlns:p='urn:p'/>", L"/p:S", L"<p:c/>", LAST, "<p:S xmlns:p=\"urn:p\"><p:c/></p:S>"},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(Narrow(one.xpath) + ", " + Narrow(one.markup));
        ASSERT_HR(S_OK, Load(one.document));
        EXPECT_HR(S_OK, Set(one.xpath, one.markup, one.mode));
        EXPECT_EQ(one.expected, Whole());
    }
}

TEST_F(XmlAccessorTest, RefusedChangesLeaveTheDocumentAsItWas) {
    const struct {
        const wchar_t* xpath;
        const wchar_t* markup;
        long mode;
        HRESULT result;
    } cases[] = {
        {L"/S/none", L"<R/>", FIRST, NOT_FOUND},    {L"/S/none", L"", REPLACE, NOT_FOUND},
        {L"/S/P[", L"<R/>", REPLACE, E_INVALIDARG}, {L"/S", L"<R/>", 4, E_INVALIDARG},
        {L"/S/@a", L"<R/>", LAST, E_INVALIDARG},    {L"/S", L"</S><S>", FIRST, MALFORMED},
        {L"/S", L"<R>", FIRST, MALFORMED},          {L"/S", L"<u:R/>", FIRST, MALFORMED},
        {L"/S", L"", REPLACE, MALFORMED},           {L"/S", L"<R/><R/>", REPLACE, MALFORMED},
        {L"/S", L"<!DOCTYPE S>", FIRST, MALFORMED},
    };
    ASSERT_HR(S_OK, Load(KEPT));
    for (const auto& one : cases) {
        EXPECT_HR(one.result, Set(one.xpath, one.markup, one.mode)) << Narrow(one.xpath) << ", " << Narrow(one.markup);
        EXPECT_EQ(Narrow(KEPT), Whole());
    }
}

TEST_F(XmlAccessorTest, RefusedDocumentsLeaveNoDocument) {
    using namespace std::string_view_literals;
    for (
        const std::wstring_view document :
        {L""sv, L"text"sv, L"<a>"sv, L"<a/></a>"sv, L"<a/><b/>"sv, L"<a>&#0;</a>"sv, L"<a>\xD800</a>"sv, L"<a b=c/>"sv,
         L"<p:a/>"sv, L"<a xmlns:p=''/>"sv, L"<a:b:c/>"sv, L"<a/>\0x"sv,
         L"<a xmlns:p='u' xmlns:q='u' p:x='' q:x=''/>"sv, L"<?xml version='1.0'?><?xml version='1.0'?><a/>"sv,
         L"<?xml encoding='UTF-8'?><a/>"sv, L"<a"sv, L"<a b"sv, L"<a b='"sv, L"<a><![CDATA["sv, L"<!--"sv, L"<?p"sv,
         // Document types.
         L"<!DOCTYPE a><a/>"sv, L"<a><!DOCTYPE b></a>"sv, L"<a/><!DOCTYPE a>"sv, L"<!doctype a><a/>"sv,
         L"<!DOCTYPE a SYSTEM 'file:///c:/windows/win.ini'><a/>"sv,
         L"<?xml version='1.0'?><!--<a/>--><?p <a/>?>\n<!DOCTYPE a [<!ENTITY b 'bb'><!ENTITY c '&b;&b;'>]><a>&c;</a>"sv}) {
        SCOPED_TRACE(Narrow(document));
        ASSERT_HR(S_OK, Load(L"<before/>"));
        EXPECT_HR(MALFORMED, Load(document));
        EXPECT_EQ("8000FFFF", Whole());
    }
}

TEST_F(XmlAccessorTest, TextThatLooksLikeADocumentTypeIsText) {
    const wchar_t text[] = L"<!--<!DOCTYPE a>--><a><![CDATA[<!DOCTYPE a>]]></a>";
    ASSERT_HR(S_OK, Load(text));
    EXPECT_EQ("<!DOCTYPE a>", Query(L"/a", TEXT));
    EXPECT_EQ(Narrow(text), Whole());
}

std::wstring Nested(size_t depth) {
    return Repeated(depth, L"<a>") + Repeated(depth, L"</a>");
}

TEST_F(XmlAccessorTest, NestingIsBounded) {
    EXPECT_HR(S_OK, Load(Nested(256)));
    EXPECT_HR(MALFORMED, Set(L"//a[not(a)]", L"<a/>", FIRST));
    EXPECT_HR(MALFORMED, Load(Nested(257)));
    EXPECT_HR(MALFORMED, Load(Nested(1'000'000)));
}

TEST_F(XmlAccessorTest, HostilePathsEnd) {
    ASSERT_HR(S_OK, Load(L"<r>" + Repeated(3000, L"<e><f/></e>") + L"</r>"));
    EXPECT_EQ("80070718", Query(L"//*[count(//*[count(//*) > 0]) > 0]", MARKUP));
    EXPECT_EQ(INVALID, Query(std::wstring(100'000, L'(') + L"/" + std::wstring(100'000, L')'), MARKUP));
    EXPECT_EQ(INVALID, Query(L"/r" + std::wstring(100'000, L'['), MARKUP));
    EXPECT_NE("", Query(L"/r[1" + Repeated(50'000, L"+0") + L"]", MARKUP)) << "a long chain is not nested";
    EXPECT_EQ(Query(L"/r", MARKUP), Query(L"/r[" + std::wstring(100'000, L'-') + L"1]", MARKUP));
}

TEST_F(XmlAccessorTest, FiftyMegabytesAreLoaded) {
    const std::wstring item = L"<item id='12345678'>" + std::wstring(200, L'x') + L"</item>";
    ASSERT_HR(S_OK, Load(L"<r>" + Repeated(50'000'000 / item.size(), item) + L"</r>"));
    EXPECT_EQ("12345678", Query(L"/r/item[last()]/@id", TEXT));
    EXPECT_HR(S_OK, Set(L"/r", L"<end/>", LAST));
    EXPECT_EQ("<end/>", Query(L"/r/end", MARKUP));
}

TEST_F(XmlAccessorTest, RootNameAndNamespaceList) {
    const auto read = [&](HRESULT (STDMETHODCALLTYPE IXMLSimpleAccessor::*get)(BSTR*)) {
        bstr text;
        EXPECT_HR(S_OK, (accessor_.get()->*get)(text.put()));
        return Narrow(text.view());
    };
    ASSERT_HR(
        S_OK,
        Load(L"<e:Event xmlns:e=\"urn:e\" xmlns='urn:d'><x xmlns:f=\"urn:f'g&amp;h\"/><y xmlns:e='urn:z'/></e:Event>"));
    EXPECT_EQ("e:Event", read(&IXMLSimpleAccessor::get_RootName));
    EXPECT_EQ("xmlns:e='urn:e' xmlns:f='urn:f&apos;g&amp;h'", read(&IXMLSimpleAccessor::get_NamespaceList));
    ASSERT_HR(S_OK, Load(L"<a xmlns='urn:d'/>"));
    EXPECT_EQ("", read(&IXMLSimpleAccessor::get_NamespaceList));
}

TEST_F(XmlAccessorTest, BeforeALoadThereIsNoDocument) {
    EXPECT_EQ("8000FFFF", Whole());
    EXPECT_HR(E_UNEXPECTED, Set(L"/", L"<a/>", REPLACE));
    EXPECT_HR(E_POINTER, accessor_->Query(nullptr, 4, nullptr));
    EXPECT_HR(MALFORMED, accessor_->Load(nullptr));
}

// An object of the multithreaded apartment, called from a single-threaded one through the type library's proxy.
TEST_F(XmlAccessorTest, ProxiesCarryItsCalls) {
    ASSERT_HR(S_OK, Load(L"<a b='7'/>"));
    IStream* stream = nullptr;
    ASSERT_HR(S_OK, CoMarshalInterThreadInterfaceInStream(__uuidof(IXMLSimpleAccessor), accessor_.get(), &stream));
    support::RunInApartment(COINIT_APARTMENTTHREADED, [&] {
        com_ptr<IXMLSimpleAccessor> proxy;
        ASSERT_HR(S_OK, CoGetInterfaceAndReleaseStream(stream, __uuidof(IXMLSimpleAccessor), proxy.put_void()));
        EXPECT_TRUE(proxy.try_as<IClientSecurity>()) << "only a proxy has this interface";
        bstr text;
        EXPECT_HR(S_OK, proxy->Query(bstr(L"/a/@b").get(), TEXT, text.put()));
        EXPECT_EQ(L"7", text.view());
    });
}

class StylesheetTest : public XmlAccessorTest {
  protected:
    HRESULT Transform(std::string_view body, std::string& answer) {
        const auto file = folder_.Path() / "sheet.xsl";
        support::WriteFileBytes(file,
                                "<xsl:stylesheet version='1.0' xmlns:xsl='http://www.w3.org/1999/XSL/Transform'>" +
                                    std::string(body) + "</xsl:stylesheet>");
        bstr text;
        const HRESULT result = accessor_->TransformByFile(bstr(file.wstring()).get(), text.put());
        answer = Narrow(text.view());
        return result;
    }
    support::TestFolder folder_;
};

TEST_F(StylesheetTest, TransformsTheDocument) {
    ASSERT_HR(S_OK, Load(L"<?xml version='1.0' encoding='UTF-8'?><a><b>\xE9</b></a>"));
    std::string answer;
    EXPECT_HR(S_OK, Transform("<xsl:output omit-xml-declaration='yes'/><xsl:template match='/'><c d='\xC3\xBC'>"
                              "<xsl:value-of select='a/b'/></c></xsl:template>",
                              answer));
    ASSERT_HR(S_OK, Load(support::Wide(answer)));
    EXPECT_EQ("\xC3\xBC", Query(L"/c/@d", TEXT));
    EXPECT_EQ("\xC3\xA9", Query(L"/c", TEXT));
}

TEST_F(StylesheetTest, RefusesAccessToOtherFilesAndCode) {
    ASSERT_HR(S_OK, Load(L"<a/>"));
    const std::string templateBegin = "<xsl:template match='/'>";
    for (const std::string& body :
         {std::string("<xsl:import href='x.xsl'/>"), std::string("<xsl:include href='x.xsl'/>"),
          std::string("<m:script xmlns:m='urn:schemas-microsoft-com:xslt'>1</m:script>"),
          templateBegin + "<xsl:copy-of select=\"document ( 'c:/x.xml')\"/></xsl:template>",
          templateBegin + "<b c='{document(\"x\")}'/></xsl:template>",
          templateBegin + "<xsl:value-of select='d:evaluate(\"1\")' xmlns:d='urn:d'/></xsl:template>",
          templateBegin + "<xsl:document href='x'/></xsl:template>",
          templateBegin + "<b xsl:extension-element-prefixes='e' xmlns:e='urn:e'/></xsl:template>"}) {
        std::string answer = "poison";
        EXPECT_HR(E_ACCESSDENIED, Transform(body, answer)) << body;
        EXPECT_EQ("", answer);
    }
    std::string answer;
    EXPECT_HR(MALFORMED, Transform("<!DOCTYPE x>", answer));
    bstr text;
    EXPECT_HR(HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND),
              accessor_->TransformByFile(bstr((folder_.Path() / "none.xsl").wstring()).get(), text.put()));
    for (const wchar_t* path :
         {L"", L"sheet.xsl", L"C:sheet.xsl", L"\\\\elsewhere\\share\\sheet.xsl", L"http://elsewhere/sheet.xsl",
          L"\\\\.\\pipe\\sheet", L"\\\\?\\UNC\\elsewhere\\share\\sheet.xsl"})
        EXPECT_HR(E_ACCESSDENIED, accessor_->TransformByFile(bstr(path).get(), text.put())) << Narrow(path);
}

// Some processors fail, some limit the recursion themselves; none may end the process.
TEST_F(StylesheetTest, EndlessRecursionEnds) {
    ASSERT_HR(S_OK, Load(L"<a/>"));
    std::string answer;
    (void)Transform("<xsl:template match='/'><xsl:call-template name='t'/></xsl:template>"
                    "<xsl:template name='t'><b><xsl:call-template name='t'/></b></xsl:template>",
                    answer);
    EXPECT_EQ("<a/>", Whole());
}

// The component's binding to the registered accessor.
TEST(XmlAccessorBindingTest, EmptyAnswersAreDistinguishedFromFailures) {
    support::RegisterPlatform();
    vorna::XmlAccessor accessor;
    std::wstring text = L"poison";
    EXPECT_HR(E_UNEXPECTED, accessor.QueryText(L"/a", text));
    ASSERT_HR(S_OK, accessor.Create());
    ASSERT_HR(S_OK, accessor.Load(L"<a b='' c='1'><d/><d>2</d></a>"));
    EXPECT_HR(S_OK, accessor.QueryText(L"/a/@c", text));
    EXPECT_EQ(L"1", text);
    EXPECT_HR(S_FALSE, accessor.QueryText(L"/a/@b", text));
    EXPECT_EQ(L"", text);
    EXPECT_HR(S_FALSE, accessor.QueryMarkup(L"/a/none", text));
    EXPECT_HR(E_INVALIDARG, accessor.QueryMarkup(L"/a[", text));
    std::vector<std::wstring> texts;
    EXPECT_HR(S_OK, accessor.QueryTexts(L"/a/d", texts));
    EXPECT_EQ(std::vector<std::wstring>{L"2"}, texts) << "empty texts are left out";
}

} // namespace
