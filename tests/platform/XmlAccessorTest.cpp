// The registered accessor, created by its ProgID as clients create it.
#include "common/services/XmlAccessor.h"
#include "QXKeldan.h"
#include "common/com/bstr.h"
#include "common/com/results.h"
#include "common/com/unique_any.h"
#include "common/services/platformservices.h"
#include "support/Support.h"

#include <gtest/gtest.h>

#include <objbase.h>

#include <chrono>
#include <fstream>
#include <string>

namespace {

using support::Narrow;
using vorna::bstr;
using vorna::com_ptr;

const HRESULT NOT_FOUND = HRESULT_FROM_WIN32(ERROR_NOT_FOUND);

com_ptr<IXMLSimpleAccessor> MakeAccessor() {
    support::RegisterPlatform();
    CLSID clsid{};
    com_ptr<IXMLSimpleAccessor> accessor;
    EXPECT_HR(S_OK, CLSIDFromProgID(vorna::PROGID_XML_ACCESSOR, &clsid));
    EXPECT_HR(S_OK, CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, __uuidof(IXMLSimpleAccessor),
                                     accessor.put_void()));
    return accessor;
}

class XmlAccessorTest : public testing::Test {
  protected:
    HRESULT Load(std::wstring_view text) { return accessor_->Load(bstr(text).get()); }
    HRESULT Set(std::wstring_view xpath, std::wstring_view markup, long mode) {
        return accessor_->Set(bstr(xpath).get(), bstr(markup).get(), mode);
    }
    // Returns the answer, or the result code as a text.
    std::string Query(std::wstring_view xpath, long kind) {
        bstr text(L"poison");
        BSTR raw = text.get();
        const HRESULT result = accessor_->Query(bstr(xpath).get(), kind, &raw);
        bstr answer;
        *answer.put() = raw == text.get() ? nullptr : raw;
        if (result == S_OK)
            return Narrow(answer.view());
        EXPECT_EQ(nullptr, raw) << "a failure leaves no text";
        char code[16];
        snprintf(code, sizeof code, "%08lX", static_cast<unsigned long>(result));
        return code;
    }
    std::string Whole() { return Query(L"/", 8); }

    com_ptr<IXMLSimpleAccessor> accessor_ = MakeAccessor();
};

struct QueryCase {
    const wchar_t* document;
    const wchar_t* xpath;
    long kind;
    const char* expected;
};

class XmlAccessorQuery : public XmlAccessorTest, public testing::WithParamInterface<QueryCase> {};

TEST_P(XmlAccessorQuery, Answers) {
    ASSERT_HR(S_OK, Load(GetParam().document));
    EXPECT_EQ(GetParam().expected, Query(GetParam().xpath, GetParam().kind)) << Narrow(GetParam().xpath);
}

constexpr wchar_t LIST[] = L"<S><P ID=\"1\" V='TRUE'/><P ID='2' V='FALSE'>two</P><P ID='3' V='TRUE'>a<b>c</b>d</P></S>";
constexpr wchar_t SPACES[] = L"<r xmlns='urn:d' xmlns:p='urn:p' xmlns:q=\"urn:q\"><p:a q:x='1'><b/></p:a><c>"
                             L"<p:a xmlns:p='urn:other'/></c></r>";

INSTANTIATE_TEST_SUITE_P(
    Values, XmlAccessorQuery,
    testing::Values(
        QueryCase{LIST, L"/S/P [@ID=\"2\"]/@V", 4, "FALSE"}, QueryCase{LIST, L"/S/P [@ID=\"3\"] [@V='TRUE']", 4, "acd"},
        QueryCase{LIST, L"//P/@ID", 4,
                  "1\x01"
                  "2\x01"
                  "3"},
        QueryCase{LIST, L"//P[@V='TRUE']", 8, "<P ID=\"1\" V=\"TRUE\"/>\x01<P ID=\"3\" V=\"TRUE\">a<b>c</b>d</P>"},
        QueryCase{LIST, L"/S/P[@ID='9']", 8, ""}, QueryCase{LIST, L"/S/P[1]/@ID", 8, "ID=\"1\""},
        QueryCase{L"<e a='&lt;&amp;&quot;&#65;&#x1F600;'>x<![CDATA[<&]]>&gt;\r\ny</e>", L"/e/@a", 4,
                  "<&\"A\xF0\x9F\x98\x80"},
        QueryCase{L"<e>x<![CDATA[<&]]>&gt;\r\ny<!--no--></e>", L"/e", 4, "x<&>\ny"},
        QueryCase{L"<e a='1\r\n\t2&#10;3'/>", L"/e/@a", 4, "1  2\n3"}, QueryCase{LIST, L"/S/P[", 4, "80070057"},
        QueryCase{LIST, L"/S/P", 5, "80070057"}, QueryCase{LIST, L"count(//P)", 4, "80070057"},
        QueryCase{LIST, L"//z:P", 8, "80070057"}, QueryCase{LIST, L"", 8, "80070057"}));

INSTANTIATE_TEST_SUITE_P(
    WholeDocument, XmlAccessorQuery,
    testing::Values(QueryCase{L"<?xml version='1.0' encoding=\"UTF-8\"?>\n<!-- c --><r  a = 'x' ><e ></e>\t<f/></r >",
                              L"/r", 8, "<!-- c --><r  a = 'x' ><e ></e>\t<f/></r >"},
                    QueryCase{L"<?xml version=\"1.0\" encoding=\"ISO-8859-1\" standalone='yes'?><r>\xE9\x20AC</r>",
                              L"/", 8, "<r>\xC3\xA9\xE2\x82\xAC</r>"},
                    QueryCase{L"\xFEFF<r/>", L"/*", 8, "<r/>"}));

INSTANTIATE_TEST_SUITE_P(
    Namespaces, XmlAccessorQuery,
    testing::Values(
        QueryCase{SPACES, L"//p:a/@q:x", 4, "1"}, QueryCase{SPACES, L"//c", 8, ""},
        QueryCase{SPACES, L"//*[local-name()='b']", 8, "<b xmlns=\"urn:d\"/>"},
        QueryCase{SPACES, L"//p:a", 8, "<p:a xmlns:p=\"urn:p\" xmlns:q=\"urn:q\" xmlns=\"urn:d\" q:x=\"1\"><b/></p:a>"},
        QueryCase{SPACES, L"//*[local-name()='c']", 8, "<c xmlns=\"urn:d\"><p:a xmlns:p=\"urn:other\"/></c>"},
        QueryCase{SPACES, L"namespace-uri(/*)", 4, "80070057"}));

constexpr wchar_t TREE[] = L"<t><a n='1'><x>5</x><x>7</x></a><a n='2'><x>9</x><y/></a><b or='1'><div>3</div></b>"
                           L"<?pi data?><!--note--></t>";

// Special cases of XPath 1.0.
INSTANTIATE_TEST_SUITE_P(
    XPath, XmlAccessorQuery,
    testing::Values(QueryCase{TREE, L"//x[1]", 4,
                              "5\x01"
                              "9"},
                    QueryCase{TREE, L"(//x)[2]", 4, "7"},
                    QueryCase{TREE, L"//x[last()]/..", 8,
                              "<a n=\"1\"><x>5</x><x>7</x></a>\x01<a n=\"2\"><x>9</x><y/></a>"},
                    QueryCase{TREE, L"//x[. > 5 and not(. = 9)]", 4, "7"},
                    QueryCase{TREE, L"//x[. div 3 = 3 or . mod 5 = 0]", 4,
                              "5\x01"
                              "9"},
                    QueryCase{TREE, L"/t/b/@or | /t/a/@n", 4,
                              "1\x01"
                              "2\x01"
                              "1"},
                    QueryCase{TREE, L"//div[* * 2 = 0 or text() = '3']", 8, "<div>3</div>"},
                    QueryCase{TREE, L"//y/preceding::x[1]", 4, "9"},
                    QueryCase{TREE, L"//y/preceding-sibling::*", 4, "9"},
                    QueryCase{TREE, L"//a[1]/following-sibling::a/@n", 4, "2"},
                    QueryCase{TREE, L"//div/ancestor::*[position()=last()]/a[count(x)=sum(//div)-1]/@n", 4, "1"},
                    QueryCase{TREE, L"//processing-instruction('pi') | //comment()", 8, "<?pi data?>\x01<!--note-->"},
                    QueryCase{TREE, L"//a[substring(concat('ab', @n), 3) = '2']/x", 4, "9"},
                    QueryCase{TREE, L"//a[translate(@n, '12', 'xy') = normalize-space('  y ')]/@n", 4, "2"},
                    QueryCase{TREE, L"//a[starts-with(name(..), 't')][contains(x, '7') or x = 7]/@n", 4, "1"},
                    QueryCase{TREE, L"//a[string-length(string(x)) = round(0.6)][number(@n) < 1.5]/@n", 4, "1"},
                    QueryCase{TREE, L"/t/a[-@n = --1 - 2]/@n", 4, "1"}, QueryCase{TREE, L"//*[self::y]", 8, "<y/>"},
                    QueryCase{TREE, L"$v", 8, "80070057"}, QueryCase{TREE, L"//a[foo()]", 8, "80070057"}));

struct SetCase {
    const wchar_t* document;
    const wchar_t* xpath;
    const wchar_t* markup;
    long mode;
    HRESULT result;
    // The document afterwards.
    const char* expected;
};

class XmlAccessorSet : public XmlAccessorTest, public testing::WithParamInterface<SetCase> {};

TEST_P(XmlAccessorSet, Changes) {
    const SetCase& tried = GetParam();
    ASSERT_HR(S_OK, Load(tried.document));
    EXPECT_HR(tried.result, Set(tried.xpath, tried.markup, tried.mode));
    EXPECT_EQ(tried.expected, Whole());
}

constexpr wchar_t KEPT[] = L"<S  a='1'><P ID=\"1\" ><q/></P>\r\n <P ID='2'/></S>";

INSTANTIATE_TEST_SUITE_P(
    Modes, XmlAccessorSet,
    testing::Values(SetCase{KEPT, L"/S", L"<N  x='&lt;'/>t<M></M>", 1, S_OK,
                            "<S a=\"1\"><N  x='&lt;'/>t<M></M><P ID=\"1\"><q/></P>\n <P ID=\"2\"/></S>"},
                    SetCase{KEPT, L"/S", L"<N/>", 2, S_OK, "<S a=\"1\"><P ID=\"1\"><q/></P>\n <P ID=\"2\"/><N/></S>"},
                    SetCase{KEPT, L"/S/P [@ID=\"2\"]", L"text", 1, S_OK,
                            "<S a=\"1\"><P ID=\"1\"><q/></P>\n <P ID=\"2\">text</P></S>"},
                    SetCase{L"<S />", L"/S", L"a & b > c", 2, S_OK, "<S>a &amp; b &gt; c</S>"},
                    SetCase{L"<S/>", L"/S", L"a &amp; b", 1, S_OK, "<S>a &amp; b</S>"},
                    SetCase{KEPT, L"//P", L"<R/>", 3, S_OK, "<S a=\"1\"><R/>\n <P ID=\"2\"/></S>"},
                    SetCase{KEPT, L"/S/P[@ID='1']", L"", 3, S_OK, "<S a=\"1\">\n <P ID=\"2\"/></S>"},
                    SetCase{KEPT, L"/S", L"<?xml version='1.0'?><T>new</T>", 3, S_OK, "<T>new</T>"},
                    SetCase{KEPT, L"/", L"<T/>", 3, S_OK, "<T/>"},
                    SetCase{KEPT, L"/S/P/@ID", L"x'\"<&", 3, S_OK,
                            "<S a=\"1\"><P ID=\"x'&quot;&lt;&amp;\"><q/></P>\n <P ID=\"2\"/></S>"},
                    SetCase{KEPT, L"/S/@a", L"", 3, S_OK, "<S><P ID=\"1\"><q/></P>\n <P ID=\"2\"/></S>"},
                    SetCase{L"<?xml version='1.0'?><S><P/></S>", L"//P", L"<Q/>", 3, S_OK, "<S><Q/></S>"},
                    SetCase{L"<p:S xmlns:p='urn:p'/>", L"/p:S", L"<p:c/>", 2, S_OK,
                            "<p:S xmlns:p=\"urn:p\"><p:c/></p:S>"}));

constexpr char UNCHANGED[] = "<S  a='1'><P ID=\"1\" ><q/></P>\r\n <P ID='2'/></S>";

INSTANTIATE_TEST_SUITE_P(Refused, XmlAccessorSet,
                         testing::Values(SetCase{KEPT, L"/S/none", L"<R/>", 1, NOT_FOUND, UNCHANGED},
                                         SetCase{KEPT, L"/S/none", L"", 3, NOT_FOUND, UNCHANGED},
                                         SetCase{KEPT, L"/S/P[", L"<R/>", 3, E_INVALIDARG, UNCHANGED},
                                         SetCase{KEPT, L"/S", L"<R/>", 4, E_INVALIDARG, UNCHANGED},
                                         SetCase{KEPT, L"/S/@a", L"<R/>", 2, E_INVALIDARG, UNCHANGED},
                                         SetCase{KEPT, L"/S", L"</S><S>", 1, vorna::RESULT_XML_MALFORMED, UNCHANGED},
                                         SetCase{KEPT, L"/S", L"<R>", 1, vorna::RESULT_XML_MALFORMED, UNCHANGED},
                                         SetCase{KEPT, L"/S", L"<u:R/>", 1, vorna::RESULT_XML_MALFORMED, UNCHANGED},
                                         SetCase{KEPT, L"/S", L"", 3, vorna::RESULT_XML_MALFORMED, UNCHANGED},
                                         SetCase{KEPT, L"/S", L"<R/><R/>", 3, vorna::RESULT_XML_MALFORMED, UNCHANGED},
                                         SetCase{KEPT, L"/S", L"<!DOCTYPE S>", 1, vorna::RESULT_XML_MALFORMED,
                                                 UNCHANGED}));

class XmlAccessorRefusal : public XmlAccessorTest, public testing::WithParamInterface<const wchar_t*> {};

TEST_P(XmlAccessorRefusal, LeavesNoDocument) {
    ASSERT_HR(S_OK, Load(L"<before/>"));
    EXPECT_HR(vorna::RESULT_XML_MALFORMED, Load(GetParam()));
    EXPECT_EQ("8000FFFF", Whole());
}

INSTANTIATE_TEST_SUITE_P(
    Documents, XmlAccessorRefusal,
    testing::Values(L"", L" ", L"text", L"<a>", L"<a></b>", L"<a/><b/>", L"<a/>text", L"<a b=c/>", L"<a b='1' b='2'/>",
                    L"<a b='1'c='2'/>", L"<a>&nbsp;</a>", L"<a>&#0;</a>", L"<a>&#x110000;</a>", L"<a>\x01</a>",
                    L"<a>&#1;</a>", L"<a>\xD800</a>", L"<a>]]></a>", L"<a b='<'/>", L"<a><!-- -- --></a>", L"<p:a/>",
                    L"<a xmlns:p=''/>", L"<a xmlns:p='u' xmlns:q='u' p:x='' q:x=''/>", L" <?xml version='1.0'?><a/>",
                    L"<?xml version='1.0'?><?xml version='1.0'?><a/>", L"<?xml encoding='UTF-8'?><a/>", L"<a:b:c/>",
                    L"<1/>", L"<a", L"<a b", L"<a b='", L"<a><![CDATA[", L"<!--", L"<?p", L"<a/><![CDATA[x]]>"));

INSTANTIATE_TEST_SUITE_P(DocumentTypes, XmlAccessorRefusal,
                         testing::Values(L"<!DOCTYPE a><a/>",
                                         L"<?xml version='1.0' encoding='x'?><!--<a/>--><?p <a/>?>\n<!DOCTYPE a ["
                                         L"<!ENTITY b 'bb'><!ENTITY c '&b;&b;&b;'>]><a>&c;</a>",
                                         L"<!DOCTYPE a SYSTEM 'file:///c:/windows/win.ini'><a/>",
                                         L"<a><!DOCTYPE b></a>", L"<a/><!DOCTYPE a>", L"<!doctype a><a/>"));

TEST_F(XmlAccessorTest, TextThatLooksLikeADocumentTypeIsText) {
    const wchar_t text[] = L"<!--<!DOCTYPE a>--><a><![CDATA[<!DOCTYPE a>]]></a>";
    ASSERT_HR(S_OK, Load(text));
    EXPECT_EQ("<!DOCTYPE a>", Query(L"/a", 4));
    EXPECT_EQ(Narrow(text), Whole());
}

std::wstring Nested(size_t depth) {
    std::wstring text;
    for (size_t i = 0; i < depth; ++i)
        text += L"<a>";
    for (size_t i = 0; i < depth; ++i)
        text += L"</a>";
    return text;
}

TEST_F(XmlAccessorTest, NestingIsBounded) {
    EXPECT_HR(S_OK, Load(Nested(256)));
    EXPECT_HR(vorna::RESULT_XML_MALFORMED, Set(L"//a[not(a)]", L"<a/>", 1));
    EXPECT_HR(vorna::RESULT_XML_MALFORMED, Load(Nested(257)));
    EXPECT_HR(vorna::RESULT_XML_MALFORMED, Load(Nested(1'000'000)));
}

TEST_F(XmlAccessorTest, HostilePathsEnd) {
    std::wstring document = L"<r>";
    for (int i = 0; i < 3000; ++i)
        document += L"<e><f/></e>";
    ASSERT_HR(S_OK, Load(document + L"</r>"));
    EXPECT_EQ("80070718", Query(L"//*[count(//*[count(//*) > 0]) > 0]", 8));
    EXPECT_EQ("80070057", Query(std::wstring(100'000, L'(') + L"/" + std::wstring(100'000, L')'), 8));
    EXPECT_EQ("80070057", Query(L"/r" + std::wstring(100'000, L'['), 8));
    std::wstring chain = L"/r[1";
    for (int i = 0; i < 50'000; ++i)
        chain += L"+0";
    EXPECT_NE("", Query(chain + L"]", 8)) << "a long chain is not nested";
    EXPECT_EQ(Query(L"/r", 8), Query(L"/r[" + std::wstring(100'000, L'-') + L"1]", 8));
}

TEST_F(XmlAccessorTest, FiftyMegabytesAreLoaded) {
    std::wstring document = L"<r>";
    const std::wstring item = L"<item id='12345678'>" + std::wstring(200, L'x') + L"</item>";
    while (document.size() < 50'000'000)
        document += item;
    document += L"</r>";
    ASSERT_HR(S_OK, Load(document));
    EXPECT_EQ("12345678", Query(L"/r/item[last()]/@id", 4));
    EXPECT_HR(S_OK, Set(L"/r", L"<end/>", 2));
    EXPECT_EQ("<end/>", Query(L"/r/end", 8));
}

TEST_F(XmlAccessorTest, QueryTimeGrowsWithTheNumberOfNodes) {
    const auto measure = [&](int nodes) {
        std::wstring document = L"<S xmlns:p='urn:p'>";
        for (int i = 0; i < nodes; ++i)
            document += L"<p:SnapShot Id='" + std::to_wstring(i) + L"'><AccessTime>2024</AccessTime></p:SnapShot>";
        EXPECT_HR(S_OK, Load(document + L"</S>"));
        auto best = std::chrono::nanoseconds::max();
        for (int round = 0; round < 5; ++round) {
            const auto start = std::chrono::steady_clock::now();
            EXPECT_LT(static_cast<size_t>(nodes) * 40, Query(L"//p:SnapShot", 8).size());
            best = std::min<std::chrono::nanoseconds>(best, std::chrono::steady_clock::now() - start);
        }
        return best;
    };
    const auto small = measure(5'000);
    // Ten times the nodes; quadratic work would take a hundred times as long.
    EXPECT_LT(measure(50'000), small * 60);
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
    EXPECT_HR(E_UNEXPECTED, Set(L"/", L"<a/>", 3));
    EXPECT_HR(E_POINTER, accessor_->Query(nullptr, 4, nullptr));
    EXPECT_HR(vorna::RESULT_XML_MALFORMED, accessor_->Load(nullptr));
}

TEST_F(XmlAccessorTest, ScriptsCallItLateBound) {
    ASSERT_HR(S_OK, Load(L"<a b='7'/>"));
    auto dispatch = accessor_.try_as<IDispatch>();
    ASSERT_TRUE(dispatch);
    bstr name(L"query");
    BSTR names[] = {name.get()};
    DISPID id = 0;
    ASSERT_HR(S_OK, dispatch->GetIDsOfNames(IID_NULL, names, 1, LOCALE_NEUTRAL, &id));
    bstr path(L"/a/@b");
    VARIANTARG arguments[2]{};
    arguments[0].vt = VT_I2;
    arguments[0].iVal = 4;
    arguments[1].vt = VT_BSTR;
    arguments[1].bstrVal = path.get();
    DISPPARAMS parameters{arguments, nullptr, 2, 0};
    VARIANT answer{};
    ASSERT_HR(S_OK,
              dispatch->Invoke(id, IID_NULL, LOCALE_NEUTRAL, DISPATCH_METHOD, &parameters, &answer, nullptr, nullptr));
    ASSERT_EQ(VT_BSTR, answer.vt);
    EXPECT_STREQ(L"7", answer.bstrVal);
    VariantClear(&answer);
}

struct ProxyCall {
    IStream* stream = nullptr;
    bool proxied = false;
    HRESULT result = E_FAIL;
    std::wstring text;
};

DWORD WINAPI CallFromSingleThreadedApartment(void* argument) {
    auto& call = *static_cast<ProxyCall*>(argument);
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    {
        com_ptr<IXMLSimpleAccessor> proxy;
        call.result = CoGetInterfaceAndReleaseStream(call.stream, __uuidof(IXMLSimpleAccessor), proxy.put_void());
        bstr text;
        if (SUCCEEDED(call.result))
            call.result = proxy->Query(bstr(L"/a/@b").get(), 4, text.put());
        call.proxied = proxy.try_as<IClientSecurity>().get() != nullptr;
        call.text = text.str();
    }
    CoUninitialize();
    return 0;
}

// An object of the multithreaded apartment, called from a single-threaded one through the type library's proxy.
TEST_F(XmlAccessorTest, ProxiesCarryItsCalls) {
    ASSERT_HR(S_OK, Load(L"<a b='7'/>"));
    ProxyCall call;
    ASSERT_HR(S_OK, CoMarshalInterThreadInterfaceInStream(__uuidof(IXMLSimpleAccessor), accessor_.get(), &call.stream));
    vorna::unique_handle thread(CreateThread(nullptr, 0, CallFromSingleThreadedApartment, &call, 0, nullptr));
    ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(thread.get(), 30'000));
    EXPECT_HR(S_OK, call.result);
    EXPECT_TRUE(call.proxied);
    EXPECT_EQ(L"7", call.text);
}

class StylesheetTest : public XmlAccessorTest {
  protected:
    HRESULT Transform(std::string_view body, std::string& answer) {
        const auto file = folder_.Path() / "sheet.xsl";
        std::ofstream(file, std::ios::binary)
            << "<xsl:stylesheet version='1.0' xmlns:xsl='http://www.w3.org/1999/XSL/Transform'>" << body
            << "</xsl:stylesheet>";
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
    EXPECT_EQ("\xC3\xBC", Query(L"/c/@d", 4));
    EXPECT_EQ("\xC3\xA9", Query(L"/c", 4));
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
    EXPECT_HR(vorna::RESULT_XML_MALFORMED, Transform("<!DOCTYPE x>", answer));
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
    const auto start = GetTickCount64();
    (void)Transform("<xsl:template match='/'><xsl:call-template name='t'/></xsl:template>"
                    "<xsl:template name='t'><b><xsl:call-template name='t'/></b></xsl:template>",
                    answer);
    EXPECT_GT(35'000u, GetTickCount64() - start);
    EXPECT_EQ("<a/>", Whole());
}

// The component's binding to the registered accessor.
TEST(XmlAccessorBindingTest, DistinguishesMissingNodesFromFailures) {
    support::RegisterPlatform();
    vorna::XmlAccessor accessor;
    std::wstring text = L"poison";
    EXPECT_HR(E_UNEXPECTED, accessor.QueryText(L"/a", text));
    ASSERT_HR(S_OK, accessor.Create());
    EXPECT_HR(vorna::RESULT_XML_MALFORMED, accessor.Load(L"<a>"));
    ASSERT_HR(S_OK, accessor.Load(L"<a b='' c='1'/>"));
    EXPECT_HR(S_OK, accessor.QueryText(L"/a/@c", text));
    EXPECT_EQ(L"1", text);
    EXPECT_HR(S_FALSE, accessor.QueryText(L"/a/@b", text));
    EXPECT_EQ(L"", text);
    EXPECT_HR(S_FALSE, accessor.QueryMarkup(L"/a/none", text));
    EXPECT_HR(E_INVALIDARG, accessor.QueryMarkup(L"/a[", text));
    EXPECT_HR(S_OK, accessor.Set(L"/a", L"<d/><d/>", vorna::XmlChange::Append));
    EXPECT_HR(S_OK, accessor.Set(L"/a/@b", L"", vorna::XmlChange::Replace));
    std::vector<std::wstring> pieces;
    EXPECT_HR(S_OK, accessor.QueryMarkups(L"/a/d", pieces));
    EXPECT_EQ((std::vector<std::wstring>{L"<d/>", L"<d/>"}), pieces);
    EXPECT_HR(S_OK, accessor.Load(L"<a><b>1</b><b/><b>2</b></a>"));
    EXPECT_HR(S_OK, accessor.QueryTexts(L"/a/b", pieces));
    EXPECT_EQ((std::vector<std::wstring>{L"1", L"2"}), pieces) << "empty texts are left out";
    EXPECT_HR(S_OK, accessor.QueryTexts(L"/a/none", pieces));
    EXPECT_TRUE(pieces.empty());
}

} // namespace
