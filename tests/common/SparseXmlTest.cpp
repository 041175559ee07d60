#include "common/sparse/SparseXml.h"
#include "common/com/bstr.h"
#include "common/services/platformservices.h"
#include "common/xml/XmlTags.h"
#include "common/xml/msxml.h"
#include "support/LogLines.h"

#include <gmock/gmock.h>

#include <regex>

using namespace vorna;
using support::Narrow;
using testing::ElementsAre;

namespace {

std::wstring Sparse(std::wstring_view xml, std::wstring_view xpath) {
    std::wstring result = L"poison";
    VORNAUTILITY::GetSparseXMLFromXPath(xml, xpath, result);
    return result;
}

TEST(SparseXml, GivesTheSelectedNodesUnderTheirAncestors) {
    support::RegisterPlatform();
    const struct {
        const char* what;
        const wchar_t* xml;
        const wchar_t* xpath;
        const wchar_t* expected;
    } cases[] = {
        {"shared ancestor", LR"(<r><m k="1"><b>1</b><c/><b>2</b></m></r>)", L"//b",
         LR"(<r><m k="1"><b>1</b><b>2</b></m></r>)"},
        {"alike ancestors stay apart", L"<r><m><b/></m><m><b/></m></r>", L"//b", L"<r><m><b/></m><m><b/></m></r>"},
        {"document order", L"<r><a>1</a><b>2</b><x/><a>3</a></r>", L"//b|//a", L"<r><a>1</a><b>2</b><a>3</a></r>"},
        {"default namespace", LR"(<r xmlns="urn:x"><m k="1"><b>1</b><c/><b>2</b></m></r>)", L"//*[local-name()='b']",
         LR"(<r xmlns="urn:x"><m k="1"><b>1</b><b>2</b></m></r>)"},
        {"prefixed", LR"(<a:r xmlns:a="urn:a" v="1"><a:m a:k="2"><a:b>1</a:b><c/><a:b/></a:m></a:r>)", L"//a:b",
         LR"(<a:r xmlns:a="urn:a" v="1"><a:m a:k="2"><a:b>1</a:b><a:b/></a:m></a:r>)"},
        {"declared below", LR"(<r><m xmlns:a="urn:a"><a:b/><c/></m><c xmlns:a="urn:a" a:k="1"><d/></c></r>)",
         L"//a:b|//d", LR"(<r><m xmlns:a="urn:a"><a:b/></m><c xmlns:a="urn:a" a:k="1"><d/></c></r>)"},
        {"prefix declared twice", LR"(<r><m xmlns:a="u"><a:b/></m><m xmlns:a="w"><a:b/></m></r>)", L"//a:b",
         LR"(<r><m xmlns:a="u"><a:b/></m></r>)"},
        {"prefix not declared", L"<r><b/></r>", L"//a:b", L""},
        {"prefix declared in other places than tags only",
         LR"(<r>xmlns:a='u'<!-- xmlns:a="u" --><![CDATA[<b xmlns:a='u'/>]]><?p xmlns:a='u'?><b k=" xmlns:a='u'"/></r>)",
         L"//a:b", L""},
        {"nothing selected", L"<r><b/></r>", L"//q", L""},
        {"root", LR"(<r k="1"><b/><c>t</c></r>)", L"/r", LR"(<r k="1"><b/><c>t</c></r>)"},
        {"document", LR"(<r k="1"><b/></r>)", L"/", LR"(<r k="1"><b/></r>)"},
        {"root beside others", LR"(<?xml version="1.0"?><r><b/></r>)", L"/r", L""},
        {"below root beside others", LR"(<?xml version="1.0"?><!--c--><r><b/></r>)", L"/r/b", L"<r><b/></r>"},
        {"nested in selected", L"<r><a><a><x/></a></a><b/><a/></r>", L"//a", L"<r><a><a><x/></a></a><a/></r>"},
        {"attribute", LR"(<r><a i="1" k="2"><b/></a><a i="3"/><c/></r>)", L"//@i",
         LR"(<r><a i="1" k="2"/><a i="3"/></r>)"},
        {"text", L"<r><a>x<b>y</b>z</a><c/></r>", L"//a/text()", L"<r><a>xz</a></r>"},
        {"comment and instruction", L"<r><a><!--x--><!--y--><?p d?><b/></a></r>",
         L"//comment()[.='x']|//processing-instruction()", L"<r><a><!--x--><?p d?></a></r>"},
        {"empty values", LR"(<r><a k=""/><!----><?p?><b/></r>)", L"//@k|//comment()|//processing-instruction()",
         LR"(<r><a k=""/><!----><?p?></r>)"},
        {"comment beside the root", L"<!--c--><r><!--d--></r>", L"//comment()", L"<r><!--d--></r>"},
        {"character data", L"<r><a><![CDATA[<&]]></a><b/></r>", L"//a/text()", L"<r><a><![CDATA[<&]]></a></r>"},
        {"namespace nodes", LR"(<r xmlns:a="u"><b/></r>)", L"//b/namespace::*", L""},
        {"user marks", LR"(<r idNode="9"><a idNode="x"><b idNode="7"/></a><c/><a><b/></a></r>)", L"//b",
         LR"(<r idNode="9"><a idNode="x"><b idNode="7"/></a><a><b/></a></r>)"},
        {"special characters", LR"(<r k="&amp;&lt;&quot;&#10;"><a>a &amp; b &lt; c</a><b>"'</b><c/></r>)", L"//a|//b",
         LR"(<r k="&amp;&lt;&quot;&#10;"><a>a &amp; b &lt; c</a><b>"'</b></r>)"},
        {"beyond ascii", L"<r k=\"\u00e4\u4e2d\U0001F600\"><a>\u00e4\U0001F600<!--&#xE4;--></a></r>", L"//a",
         L"<r k=\"\u00e4\u4e2d\U0001F600\"><a>\u00e4\U0001F600<!--&#xE4;--></a></r>"},
        {"white space kept", L"<r>\n <a>\n  <b> 1\t<c/>\n </b>\n </a></r>", L"//b",
         L"<r><a><b> 1\t<c/>\n </b></a></r>"},
        {"two character line ends kept", L"<r>\r\n<b>1\r\n<c/>\r\n</b></r>", L"//b", L"<r><b>1\r\n<c/>\r\n</b></r>"},
        {"not well formed", L"<r><b></r>", L"//b", L""},
        {"document type", L"<!-- --><!DOCTYPE r [<!ENTITY e 'x'>]><r><b>&e;</b></r>", L"//b", L""},
        {"empty xpath", L"<r/>", L"", L""},
        {"xpath not valid", L"<r/>", L"//[", L""},
        {"xpath of a number", L"<r/>", L"count(//*)", L""},
    };
    for (const auto& one : cases)
        EXPECT_EQ(Narrow(one.expected), Narrow(Sparse(one.xml, one.xpath))) << one.what;
}

std::wstring Repeated(int count, std::wstring_view text) {
    std::wstring all;
    while (count-- > 0)
        all += text;
    return all;
}

TEST(SparseXmlSize, ManyNodesAndManyAncestors) {
    const auto wide = [](std::wstring_view sibling) {
        std::wstring items;
        for (int i = 0; i < 10'000; ++i)
            items.append(L"<item n=\"" + std::to_wstring(i) + L"\"><v/>").append(sibling).append(L"</item>");
        return L"<r><list>" + items + L"</list></r>";
    };
    EXPECT_TRUE(Sparse(wide(L"<w/>"), L"//v") == wide(L""));

    const auto deep = [](std::wstring_view sibling) {
        return L"<r>" + Repeated(50, Repeated(200, L"<d>").append(sibling) + L"<v/>" + Repeated(200, L"</d>")) +
               L"</r>";
    };
    EXPECT_TRUE(Sparse(deep(L"<w/>"), L"//v") == deep(L""));
}

TEST(SparseXmlSize, WhatCouldExhaustTheStackFails) {
    EXPECT_EQ("", Narrow(Sparse(Repeated(200'000, L"<d>") + Repeated(200'000, L"</d>"), L"//d")));
    EXPECT_EQ("", Narrow(Sparse(L"<r><b/></r>", Repeated(4000, L"(") + L"//b" + Repeated(4000, L")"))));
    EXPECT_EQ("", Narrow(Sparse(L"<r><b/></r>", L"//b" + Repeated(3000, L"|/x"))));
}

TEST(SparseXmlSize, NullsFail) {
    EXPECT_EQ("", Narrow(Sparse(std::wstring_view(L"<r><b/></r>\0<q", 14), L"//b")));
    EXPECT_EQ("", Narrow(Sparse(L"<r><b/></r>", std::wstring_view(L"//b\0[", 5))));
}

// The functions alone, on documents of the caller's.
class SparseDocument : public testing::Test {
  protected:
    static com_ptr<IXMLDOMDocument2> Document(std::wstring_view xml = {}) {
        com_ptr<IXMLDOMDocument2> document;
        EXPECT_HR(S_OK, PlatformServices::CreateInstance(L"MSXML2.DOMDocument.4.0", nullptr, document));
        document->put_preserveWhiteSpace(VARIANT_TRUE);
        VARIANT_BOOL loaded = VARIANT_FALSE;
        if (!xml.empty()) {
            EXPECT_HR(S_OK, document->loadXML(bstr(xml).get(), &loaded));
        }
        return document;
    }
    static com_ptr<IXMLDOMNode> Node(IXMLDOMNode* from, std::wstring_view xpath) {
        com_ptr<IXMLDOMNode> node;
        from->selectSingleNode(bstr(xpath).get(), node.put());
        return node;
    }
    // Of an attribute, the value; nothing where there is none.
    static std::string Text(IXMLDOMNode* from, std::wstring_view xpath) {
        bstr text;
        if (auto node = Node(from, xpath))
            node->get_text(text.put());
        return Narrow(text.view());
    }
    static std::size_t Size(IXMLDOMNode* from, std::wstring_view xpath) {
        com_ptr<IXMLDOMNodeList> nodes;
        long count = 0;
        if (from->selectNodes(bstr(xpath).get(), nodes.put()) == S_OK)
            nodes->get_length(&count);
        return static_cast<std::size_t>(count);
    }
};

TEST_F(SparseDocument, SingleMountsShareAncestorsInAnyOrder) {
    auto source = Document(LR"(<r xmlns:a="urn:a"><a:m k="1"><b>1</b><b>2</b></a:m><m><b>3</b></m>)"
                           LR"(<m xmlns="urn:m"><b>4</b><b>5</b></m></r>)");
    auto target = Document();
    for (const wchar_t* xpath : {L"//*[.='1']", L"//*[.='4']", L"//b[.='3']", L"//*[.='5']", L"//*[.='2']"})
        EXPECT_HR(S_OK, VORNAUTILITY::MountDocument(Node(source.get(), xpath).get(), target.get()));
    EXPECT_EQ(3U, Size(target.get(), L"/r/*"));
    EXPECT_EQ(2U, Size(target.get(), L"/r/*[1][@k='1']/b"));
    EXPECT_EQ(2U, Size(target.get(), L"/r/*[2]/*"));
    EXPECT_EQ("3", Text(target.get(), L"/r/m/b"));
    // The copy has the mark of its source.
    EXPECT_NE("", Text(target.get(), L"/r/m/@idNode"));
    EXPECT_EQ(Text(source.get(), L"/r/m/@idNode"), Text(target.get(), L"/r/m/@idNode"));
    EXPECT_NE(Text(target.get(), L"/r/@idNode"), Text(target.get(), L"/r/m/@idNode"));

    VORNAUTILITY::RemoveIdNode(target.get());
    EXPECT_EQ(0U, Size(target.get(), L"//@idNode"));
    EXPECT_EQ(1U, Size(target.get(), L"//@*"));
}

TEST_F(SparseDocument, AttributesAndTheDocumentAreMountedAsElements) {
    auto source = Document(L"<!--c--><r><m k='1'><b/></m></r>");
    auto target = Document();
    EXPECT_HR(S_OK, VORNAUTILITY::MountDocument(Node(source.get(), L"//@k").get(), target.get()));
    EXPECT_EQ(1U, Size(target.get(), L"/r/m[@k='1'][not(*)]"));
    EXPECT_HR(S_FALSE, VORNAUTILITY::MountDocument(Node(source.get(), L"/r").get(), Document().get()));
    target = Document();
    EXPECT_HR(S_OK, VORNAUTILITY::MountDocument(source.get(), target.get()));
    EXPECT_EQ(1U, Size(target.get(), L"/r/m/b"));
}

TEST_F(SparseDocument, NodesThatCannotBeMountedLeaveTheTarget) {
    auto source = Document(L"<r/>");
    auto target = Document(L"<other/>");
    EXPECT_HR(E_POINTER, VORNAUTILITY::MountDocument(nullptr, target.get()));
    EXPECT_HR(E_POINTER, VORNAUTILITY::MountDocument(target.get(), nullptr));
    VORNAUTILITY::RemoveIdNode(nullptr);
    EXPECT_HR(S_FALSE, VORNAUTILITY::MountDocument(Node(source.get(), L"/r").get(), target.get()));
    EXPECT_HR(S_FALSE, VORNAUTILITY::MountDocument(Document().get(), target.get()));
    EXPECT_EQ(1U, Size(target.get(), L"//*"));
}

// The messages and the scopes entered in one call.
std::vector<std::string> Logged(std::wstring_view xml, std::wstring_view xpath) {
    const support::LogLines log(5);
    Sparse(xml, xpath);
    const std::regex wanted("ENTER VORNAUTILITY::\\w+|(GetSparseXMLFromXPath: |nodeList->|Unknown).*");
    std::vector<std::string> found;
    for (const std::string& line : log.Read())
        if (std::smatch match; std::regex_search(line, match, wanted))
            found.push_back(match.str());
    return found;
}

TEST(SparseXmlLog, OperationsAndFailuresAreNamed) {
    const std::string whole = "ENTER VORNAUTILITY::GetSparseXMLFromXPath";
    const std::string mount = "ENTER VORNAUTILITY::MountDocument";
    const std::string remove = "ENTER VORNAUTILITY::RemoveIdNode";
    EXPECT_THAT(Logged(L"<r><b/><b/></r>", L"//b"), ElementsAre(whole, mount, mount, remove));
    EXPECT_THAT(Logged(L"<r/>", L"//b"), ElementsAre(whole));
    EXPECT_THAT(Logged(L"<r>", L"//b"), ElementsAre(whole, "GetSparseXMLFromXPath: Failed to load input XML"));
    EXPECT_THAT(Logged(L"<r/>", L"//a:b"), ElementsAre(whole, "GetSparseXMLFromXPath: Failed in call to SelectNodes"));
    EXPECT_THAT(Logged(L"<!--c--><r/>", L"/r"),
                ElementsAre(whole, mount, "nodeList->get_length failed l1 value returned is not 1", remove));
}

// Cut anywhere, a text may give anything but a fault.
TEST(XmlTags, TextsThatBreakOffAreRead) {
    const std::wstring xml = L"<?x y?><!--c--><r xmlns:a='u' k = \"v\"><![CDATA[d]]></r>";
    for (std::size_t size = 0; size < xml.size(); ++size) {
        // A buffer of its own, so that a checked library sees a read behind it.
        const std::wstring part = xml.substr(0, size);
        HasDoctype(part);
        EXPECT_LE(NamespaceDeclarations(part, {L"a"}).size(), 30U) << size;
    }
}

} // namespace
