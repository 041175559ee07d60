#include "common/sparse/SparseXml.h"
#include "common/com/bstr.h"
#include "common/log/Logging.h"
#include "common/services/platformservices.h"
#include "common/xml/XmlTags.h"
#include "common/xml/msxml.h"
#include "support/Support.h"

#include <gmock/gmock.h>

#include <fstream>
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

struct Case {
    const char* name;
    const wchar_t* xml;
    const wchar_t* xpath;
    const wchar_t* expected;
};

void PrintTo(const Case& c, std::ostream* stream) {
    *stream << c.name;
}

class SparseXml : public testing::TestWithParam<Case> {
  protected:
    static void SetUpTestSuite() { support::RegisterPlatform(); }
};

TEST_P(SparseXml, GivesTheSelectedNodesUnderTheirAncestors) {
    EXPECT_EQ(Narrow(GetParam().expected), Narrow(Sparse(GetParam().xml, GetParam().xpath)));
}

const Case CASES[] = {
    {"shared_ancestor", LR"(<r><m k="1"><b>1</b><c/><b>2</b></m></r>)", L"//b",
     LR"(<r><m k="1"><b>1</b><b>2</b></m></r>)"},
    {"own_ancestors", LR"(<r><m k="1"><b>1</b><c/></m><m k="2"><b>2</b></m></r>)", L"//b",
     LR"(<r><m k="1"><b>1</b></m><m k="2"><b>2</b></m></r>)"},
    {"alike_ancestors_stay_apart", L"<r><m><b/></m><m><b/></m></r>", L"//b", L"<r><m><b/></m><m><b/></m></r>"},
    {"document_order", L"<r><a>1</a><b>2</b><x/><a>3</a></r>", L"//b|//a", L"<r><a>1</a><b>2</b><a>3</a></r>"},
    {"different_depths", L"<r><a><b><c>1</c></b><c>2</c></a><c>3</c><a><c>4</c></a></r>", L"//c",
     L"<r><a><b><c>1</c></b><c>2</c></a><c>3</c><a><c>4</c></a></r>"},
    {"default_namespace", LR"(<r xmlns="urn:x"><m k="1"><b>1</b><c/><b>2</b></m></r>)", L"//*[local-name()='b']",
     LR"(<r xmlns="urn:x"><m k="1"><b>1</b><b>2</b></m></r>)"},
    {"prefixed", LR"(<a:r xmlns:a="urn:a" v="1"><a:m a:k="2"><a:b>1</a:b><c/><a:b/></a:m></a:r>)", L"//a:b",
     LR"(<a:r xmlns:a="urn:a" v="1"><a:m a:k="2"><a:b>1</a:b><a:b/></a:m></a:r>)"},
    {"declared_below", LR"(<r><m xmlns:a="urn:a"><a:b/><c/></m><c xmlns:a="urn:a" a:k="1"><d/></c></r>)", L"//a:b|//d",
     LR"(<r><m xmlns:a="urn:a"><a:b/></m><c xmlns:a="urn:a" a:k="1"><d/></c></r>)"},
    {"repeated_declarations", LR"(<r xmlns="u"><b xmlns="u"><c xmlns="u"/></b><d/></r>)", L"//*[local-name()='c']",
     LR"(<r xmlns="u"><b xmlns="u"><c xmlns="u"/></b></r>)"},
    {"namespace_taken_back", LR"(<r xmlns="u"><q xmlns=""><s/></q><t/></r>)", L"//s",
     LR"(<r xmlns="u"><q xmlns=""><s/></q></r>)"},
    {"prefix_declared_twice", LR"(<r><m xmlns:a="u"><a:b/></m><m xmlns:a="w"><a:b/></m></r>)", L"//a:b",
     LR"(<r><m xmlns:a="u"><a:b/></m></r>)"},
    {"prefix_not_declared", L"<r><b/></r>", L"//a:b", L""},
    {"prefix_declared_in_a_comment_only", LR"(<r><!-- xmlns:a="urn:a" --><b k=" xmlns:a='u'"/></r>)", L"//a:b", L""},
    {"nothing_selected", L"<r><b/></r>", L"//q", L""},
    {"root", LR"(<r k="1"><b/><c>t</c></r>)", L"/r", LR"(<r k="1"><b/><c>t</c></r>)"},
    {"document", LR"(<r k="1"><b/></r>)", L"/", LR"(<r k="1"><b/></r>)"},
    {"document_with_declaration", LR"(<?xml version="1.0" encoding="utf-16"?><r><b/></r>)", L"/", L"<r><b/></r>"},
    {"root_beside_others", LR"(<?xml version="1.0"?><r><b/></r>)", L"/r", L""},
    {"below_root_beside_others", LR"(<?xml version="1.0"?><!--c--><r><b/></r>)", L"/r/b", L"<r><b/></r>"},
    {"nested_in_selected", L"<r><a><a><x/></a></a><b/><a/></r>", L"//a", L"<r><a><a><x/></a></a><a/></r>"},
    {"everything", L"<r><a><b>1</b><c/></a><d/></r>", L"//*", L"<r><a><b>1</b><c/></a><d/></r>"},
    {"attribute", LR"(<r><a i="1" k="2"><b/></a><a i="3"/><c/></r>)", L"//@i", LR"(<r><a i="1" k="2"/><a i="3"/></r>)"},
    {"attribute_and_child", LR"(<r><a i="1"><b/><c/></a></r>)", L"//a/@i|//c", LR"(<r><a i="1"><c/></a></r>)"},
    {"attribute_of_selected", LR"(<r><a i="1"><b/></a></r>)", L"//a|//a/@i", LR"(<r><a i="1"><b/></a></r>)"},
    {"root_attribute", LR"(<r i="1"><b/></r>)", L"/r/@i", LR"(<r i="1"/>)"},
    {"text", L"<r><a>x<b>y</b>z</a><c/></r>", L"//a/text()", L"<r><a>xz</a></r>"},
    {"comment_and_instruction", L"<r><a><!--x--><!--y--><?p d?><b/></a></r>",
     L"//comment()[.='x']|//processing-instruction()", L"<r><a><!--x--><?p d?></a></r>"},
    {"empty_values", LR"(<r><a k=""/><!----><?p?><b/></r>)", L"//@k|//comment()|//processing-instruction()",
     LR"(<r><a k=""/><!----><?p?></r>)"},
    {"comment_beside_the_root", L"<!--c--><r><!--d--></r>", L"//comment()", L"<r><!--d--></r>"},
    {"character_data", L"<r><a><![CDATA[<&]]></a><b/></r>", L"//a/text()", L"<r><a><![CDATA[<&]]></a></r>"},
    {"namespace_nodes", LR"(<r xmlns:a="u"><b/></r>)", L"//b/namespace::*", L""},
    {"user_marks", LR"(<r idNode="9"><a idNode="x"><b idNode="7"/></a><c/><a><b/></a></r>)", L"//b",
     LR"(<r idNode="9"><a idNode="x"><b idNode="7"/></a><a><b/></a></r>)"},
    {"user_marks_selected", LR"(<r><a idNode="x"/><b idNode1="y"/></r>)", L"//@idNode|//@idNode1",
     LR"(<r><a idNode="x"/><b idNode1="y"/></r>)"},
    {"special_characters", LR"(<r k="&amp;&lt;&quot;&#10;"><a>a &amp; b &lt; c</a><b>"'</b><c/></r>)", L"//a|//b",
     LR"(<r k="&amp;&lt;&quot;&#10;"><a>a &amp; b &lt; c</a><b>"'</b></r>)"},
    {"special_characters_selected", LR"(<r><a k="a&amp;&lt;&quot;b">x&amp;y&#13;z</a></r>)", L"//@k|//text()",
     LR"(<r><a k="a&amp;&lt;&quot;b">x&amp;y&#13;z</a></r>)"},
    {"beyond_ascii", L"<r k=\"\u00e4\u4e2d\U0001F600\"><a>\u00e4\U0001F600<!--&#xE4;--></a></r>", L"//a",
     L"<r k=\"\u00e4\u4e2d\U0001F600\"><a>\u00e4\U0001F600<!--&#xE4;--></a></r>"},
    {"no_white_space_added", L"<r><a><b><c><d/></c></b></a></r>", L"//b", L"<r><a><b><c><d/></c></b></a></r>"},
    {"white_space_kept", L"<r>\n <a>\n  <b> 1\t<c/>\n </b>\n </a></r>", L"//b", L"<r><a><b> 1\t<c/>\n </b></a></r>"},
    {"two_character_line_ends_kept", L"<r>\r\n<b>1\r\n<c/>\r\n</b></r>", L"//b", L"<r><b>1\r\n<c/>\r\n</b></r>"},
    {"mixed_content", L"<r><p>one <i>two</i> three<br/> <b> </b></p></r>", L"//p",
     L"<r><p>one <i>two</i> three<br/> <b> </b></p></r>"},
    {"not_well_formed", L"<r><b></r>", L"//b", L""},
    {"empty_document", L"", L"//b", L""},
    {"document_type", L"<!-- --><!DOCTYPE r [<!ENTITY e 'x'>]><r><b>&e;</b></r>", L"//b", L""},
    {"empty_xpath", L"<r/>", L"", L""},
    {"xpath_not_valid", L"<r/>", L"//[", L""},
    {"xpath_of_a_number", L"<r/>", L"count(//*)", L""},
};

INSTANTIATE_TEST_SUITE_P(Cases, SparseXml, testing::ValuesIn(CASES),
                         [](const auto& one) { return std::string(one.param.name); });

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
    // A mark on the copy is the source's.
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

TEST_F(SparseDocument, NullsAreRefused) {
    auto target = Document();
    EXPECT_HR(E_POINTER, VORNAUTILITY::MountDocument(nullptr, target.get()));
    EXPECT_HR(E_POINTER, VORNAUTILITY::MountDocument(target.get(), nullptr));
    VORNAUTILITY::RemoveIdNode(nullptr);
}

TEST_F(SparseDocument, NodesThatCannotBeMountedLeaveTheTarget) {
    auto source = Document(L"<r/>");
    auto target = Document(L"<other/>");
    EXPECT_HR(S_FALSE, VORNAUTILITY::MountDocument(Node(source.get(), L"/r").get(), target.get()));
    EXPECT_HR(S_FALSE, VORNAUTILITY::MountDocument(Document().get(), target.get()));
    EXPECT_EQ(1U, Size(target.get(), L"//*"));
}

// The messages and the scopes entered in one call.
std::vector<std::string> Logged(std::wstring_view xml, std::wstring_view xpath) {
    support::TestFolder folder;
    const auto file = folder.Path() / "a.log";
    support::RegistryValue value(L"SOFTWARE\\Ostrevane\\QXKeldan\\Logging", L"VORNATEST.Sparse",
                                 L"file," + file.wstring() + L",5");
    StartLogging("VORNATEST.Sparse");
    Sparse(xml, xpath);
    StopLogging();
    std::ifstream stream(file, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(stream), {}};
    const std::regex wanted("ENTER VORNAUTILITY::\\w+|(GetSparseXMLFromXPath: |nodeList->|Unknown).*");
    std::vector<std::string> found;
    for (std::sregex_iterator match(text.begin(), text.end(), wanted), end; match != end; ++match)
        found.push_back(match->str());
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

TEST(XmlTags, DeclarationsAreFoundInStartTagsOnly) {
    EXPECT_EQ("", Narrow(NamespaceDeclarations(L"<r>xmlns:a='u'<![CDATA[<b xmlns:a='u'/>]]><?p xmlns:a='u'?></r>")));
    EXPECT_EQ("", Narrow(NamespaceDeclarations(L"<r k=\"> xmlns:a='u'\" xmlns='v'/>")));
    EXPECT_EQ(
        "<d><d xmlns:a='u'/><d xmlns:b=\"v>\"/><d xmlns:a='w'/></d>",
        Narrow(NamespaceDeclarations(L"<r xmlns:a='u'><s\n xmlns:b=\"v>\" k=''/><t xmlns:a='w' xmlns:a='u'/></r>")));
}

// Cut anywhere, a text may give anything but a fault.
TEST(XmlTags, TextsThatBreakOffAreRead) {
    const std::wstring xml = L"<?x y?><!--c--><r xmlns:a='u' k = \"v\"><![CDATA[d]]></r>";
    for (std::size_t size = 0; size < xml.size(); ++size) {
        // A buffer of its own, so that a checked library sees a read behind it.
        const std::wstring part = xml.substr(0, size);
        HasDoctype(part);
        EXPECT_LE(NamespaceDeclarations(part).size(), 30U) << size;
    }
}

} // namespace
