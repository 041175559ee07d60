// Sparse documents: of many small documents that the tests make up themselves, so that what they expect does not come
// from a parser, and of what they do not make up: namespaces, whole documents, other encodings, failures.
#include "common/com/bstr.h"
#include "common/services/platformservices.h"
#include "common/sparse/SparseXml.h"
#include "common/xml/msxml.h"
#include "support/LogLines.h"

#include <gmock/gmock.h>

#include <memory>
#include <random>
#include <regex>

using namespace vorna;
using support::Narrow;
using support::Repeated;
using testing::ElementsAre;

namespace {

std::wstring Sparse(std::wstring_view xml, std::wstring_view xpath) {
    std::wstring result = L"poison";
    VORNAUTILITY::GetSparseXMLFromXPath(xml, xpath, result);
    return result;
}

enum class Kind { Element, Text, Data, Comment, Instruction };

// A node of a made-up document, with its spelling in the source and the one that MSXML has for it.
struct Node {
    Kind kind = Kind::Element;
    // Of an element its name, of an instruction its target.
    std::wstring name;
    std::wstring source;
    std::wstring expected;
    struct Attribute {
        std::wstring name;
        std::wstring source;
        std::wstring expected;
        bool selected = false;
    };
    std::vector<Attribute> attributes;
    std::vector<std::unique_ptr<Node>> children;
    bool selected = false;
};

class Generator {
  public:
    explicit Generator(unsigned seed) : random_(seed) {}

    int Below(int limit) { return static_cast<int>(random_() % static_cast<unsigned>(limit)); }

    std::unique_ptr<Node> Root() {
        auto root = Element(0);
        root->attributes.insert(root->attributes.begin(), {L"xmlns:p", L"urn:p", L"urn:p"});
        return root;
    }

  private:
    struct Spelling {
        constexpr Spelling(const wchar_t* both) : Spelling(both, both) {}
        constexpr Spelling(const wchar_t* inSource, const wchar_t* cut) : source(inSource), expected(cut) {}
        const wchar_t* source;
        const wchar_t* expected;
    };

    template <std::size_t Size>
    const Spelling& One(const Spelling (&spellings)[Size]) {
        return spellings[Below(Size)];
    }

    std::unique_ptr<Node> Element(int depth) {
        static constexpr Spelling NAMES[] = {L"a", L"b", L"p:a", L"idNode"};
        auto node = std::make_unique<Node>();
        node->name = One(NAMES).source;
        for (const wchar_t* name : {L"k", L"p:k", L"idNode"})
            if (Below(3) == 0) {
                node->attributes.push_back({name, {}, {}});
                AddPieces(node->attributes.back().source, node->attributes.back().expected, true);
            }
        Kind last = Kind::Element;
        for (int count = depth < 4 ? Below(5) : 0; count > 0; --count) {
            auto child = Below(2) == 0 ? Element(depth + 1) : Leaf();
            // Neighbours of these kinds are one node.
            if (child->kind == last && (last == Kind::Text || last == Kind::Data))
                continue;
            last = child->kind;
            node->children.push_back(std::move(child));
        }
        return node;
    }

    std::unique_ptr<Node> Leaf() {
        static constexpr Spelling DATA[] = {L"d", L"<&&#13;idNode:", L"one ]]]]><![CDATA[> two",
                                            L"]]]]><![CDATA[>]]]]><![CDATA[>"};
        static constexpr Spelling COMMENTS[] = {L"", L"c", L"<a>&#78; ?>"};
        static constexpr Spelling INSTRUCTIONS[] = {L"", L" ", L" d", {L"  idNode: d", L" idNode: d"}, L" <a k=\">\""};
        auto node = std::make_unique<Node>();
        node->kind = static_cast<Kind>(1 + Below(4));
        switch (node->kind) {
        case Kind::Text:
            AddPieces(node->source, node->expected, false);
            break;
        case Kind::Data:
            Add(*node, L"<![CDATA[", One(DATA), L"]]>");
            break;
        case Kind::Comment:
            Add(*node, L"<!--", One(COMMENTS), L"-->");
            break;
        default:
            node->name = Below(2) == 0 ? L"q" : L"idNode";
            Add(*node, L"<?" + node->name, One(INSTRUCTIONS), L"?>");
        }
        return node;
    }

    static void Add(Node& node, std::wstring_view begin, const Spelling& spelling, std::wstring_view end) {
        node.source.append(begin).append(spelling.source).append(end);
        node.expected.append(begin).append(spelling.expected).append(end);
    }

    void AddPieces(std::wstring& source, std::wstring& expected, bool attribute) {
        static constexpr Spelling TEXTS[] = {L"x",
                                             {L"id&#78;ode:y", L"idNode:y"},
                                             {L"&#13;&#10;", L"&#13;\n"},
                                             {L"&#xD;", L"&#13;"},
                                             L"&lt;&amp;",
                                             L"idNode",
                                             L" \n\t",
                                             {L"\u00e4&#x4e2d;\U0001F600", L"\u00e4\u4e2d\U0001F600"}};
        static constexpr Spelling VALUES[] = {L"x",
                                              {L"id&#78;ode:y", L"idNode:y"},
                                              L"&#13;&#10;",
                                              {L"&#xD;", L"&#13;"},
                                              L"&lt;&amp;",
                                              L"'&quot;",
                                              {L"\n\t&#9;", L"  &#9;"},
                                              {L"\u00e4&#x4e2d;\U0001F600", L"\u00e4\u4e2d\U0001F600"}};
        for (int count = attribute ? Below(3) : 1 + Below(3); count > 0; --count) {
            const Spelling& one = attribute ? One(VALUES) : One(TEXTS);
            source += one.source;
            expected += one.expected;
        }
    }

    std::mt19937 random_;
};

std::wstring Tag(const Node& node, bool source) {
    std::wstring tag = L"<" + node.name;
    for (const auto& attribute : node.attributes)
        tag += L" " + attribute.name + L"=\"" + (source ? attribute.source : attribute.expected) + L"\"";
    return tag;
}

// The node with all its content.
std::wstring Whole(const Node& node, bool source) {
    if (node.kind != Kind::Element)
        return source ? node.source : node.expected;
    std::wstring content;
    for (const auto& child : node.children)
        content += Whole(*child, source);
    const std::wstring tag = Tag(node, source);
    return content.empty() ? tag + L"/>" : tag + L">" + content + L"</" + node.name + L">";
}

// What a cut leaves of the node; empty if nothing in it is selected.
std::wstring Cut(const Node& node) {
    if (node.selected)
        return Whole(node, false);
    std::wstring content;
    for (const auto& child : node.children)
        content += Cut(*child);
    bool needed = !content.empty();
    for (const auto& attribute : node.attributes)
        needed = needed || attribute.selected;
    if (!needed)
        return {};
    const std::wstring tag = Tag(node, false);
    return content.empty() ? tag + L"/>" : tag + L">" + content + L"</" + node.name + L">";
}

template <typename Function>
void ForEach(Node& node, const std::wstring& path, const Function& function) {
    function(node, path);
    for (std::size_t i = 0; i < node.children.size(); ++i)
        ForEach(*node.children[i], path + L"/node()[" + std::to_wstring(i + 1) + L"]", function);
}

// Selects by kind and name what the XPath selects, or one node by its place.
std::wstring Select(Node& root, Generator& generator) {
    struct Choice {
        const wchar_t* xpath;
        bool (*selects)(const Node&);
        const wchar_t* attribute;
    };
    static constexpr Choice CHOICES[] = {
        {L"//a", [](const Node& node) { return node.name == L"a"; }, L""},
        {L"//p:a", [](const Node& node) { return node.name == L"p:a"; }, L""},
        {L"//idNode", [](const Node& node) { return node.kind == Kind::Element && node.name == L"idNode"; }, L""},
        {L"//text()", [](const Node& node) { return node.kind == Kind::Text || node.kind == Kind::Data; }, L""},
        {L"//comment()", [](const Node& node) { return node.kind == Kind::Comment; }, L""},
        {L"//processing-instruction()", [](const Node& node) { return node.kind == Kind::Instruction; }, L""},
        {L"//@k", [](const Node&) { return false; }, L"k"},
        {L"//@p:k", [](const Node&) { return false; }, L"p:k"},
        {L"//@idNode|//comment()", [](const Node& node) { return node.kind == Kind::Comment; }, L"idNode"},
    };
    const auto size = static_cast<int>(std::size(CHOICES));
    const int choice = generator.Below(2 * size);
    if (choice < size) {
        ForEach(root, L"", [&](Node& node, const std::wstring&) {
            node.selected = CHOICES[choice].selects(node);
            for (auto& attribute : node.attributes)
                attribute.selected = attribute.name == CHOICES[choice].attribute;
        });
        return CHOICES[choice].xpath;
    }
    std::vector<std::pair<Node*, std::wstring>> nodes;
    ForEach(root, L"/node()[1]", [&](Node& node, const std::wstring& path) { nodes.emplace_back(&node, path); });
    const auto& [node, path] = nodes[static_cast<std::size_t>(generator.Below(static_cast<int>(nodes.size())))];
    if (node->attributes.empty() || generator.Below(3) > 0) {
        node->selected = true;
        return path;
    }
    auto& attribute = node->attributes.front();
    const bool declares = attribute.name == L"xmlns:p";
    attribute.selected = !declares;
    return path + L"/@" + (declares ? L"nothing" : attribute.name);
}

TEST(SparseCut, MadeUpDocumentsAreCutAsTheirTreesSay) {
    support::RegisterPlatform();
    for (unsigned seed = 0; seed < 3000; ++seed) {
        Generator generator(seed);
        const auto root = generator.Root();
        const std::wstring source = Whole(*root, true);
        const std::wstring xpath = Select(*root, generator);
        ASSERT_EQ(Narrow(Cut(*root)), Narrow(Sparse(source, xpath)))
            << "seed " << seed << ": " << Narrow(xpath) << " of " << Narrow(source);
    }
}

TEST(SparseCut, TheTextIsTakenAsDecoded) {
    const std::wstring content = L"<r k='\u00e4'><b>\u4e2d</b></r>";
    for (const wchar_t* before :
         {L"<?xml version='1.0' encoding='ISO-8859-1'?>",
          L"<?xml version='1.0' encoding = \"x-unknown\" standalone='yes' ?>",
          L"<?xml version='1.0' encoding='utf-16'?>\n", L"\xFEFF", L"\xFEFF<?xml version='1.0' encoding='UTF-8'?>"}) {
        EXPECT_EQ(Narrow(L"<r k=\"\u00e4\"><b>\u4e2d</b></r>"), Narrow(Sparse(before + content, L"/r/b")))
            << Narrow(before);
        // The declaration is a node beside the root.
        EXPECT_EQ(std::wstring_view(before) != L"\xFEFF", Sparse(before + content, L"/r").empty()) << Narrow(before);
    }
    EXPECT_EQ("", Narrow(Sparse(L"<?xml encoding='UTF-8'?>" + content, L"/r/b")));
    EXPECT_EQ("<r><?xml-model encoding='x'?></r>",
              Narrow(Sparse(L"<?xml-model encoding='x'?><r><?xml-model encoding='x'?></r>", L"/r/node()")));
}

TEST(SparseCut, OnlyPrefixesOfTheXPathAreDeclared) {
    support::RegisterPlatform();
    const std::wstring xml = L"<r xmlns:bad='u v' xmlns:quote=\"it's\" xmlns:a='u'><a:b bad:k='1'/><c>bad:d</c></r>";
    const std::wstring root = L"<r xmlns:bad=\"u v\" xmlns:quote=\"it's\" xmlns:a=\"u\">";
    EXPECT_EQ(Narrow(root + L"<a:b bad:k=\"1\"/></r>"), Narrow(Sparse(xml, L"//a:b")));
    EXPECT_EQ(Narrow(root + L"<c>bad:d</c></r>"), Narrow(Sparse(xml, L"/descendant::c[.='bad:d']")));

    std::wstring many;
    for (int i = 0; i < 50'000; ++i)
        many += L"<e xmlns:p" + std::to_wstring(i) + L"='u'/>";
    EXPECT_EQ("<r><e xmlns:p7=\"u\"><p7:x/></e></r>",
              Narrow(Sparse(L"<r>" + many + L"<e xmlns:p7='u'><p7:x/></e></r>", L"//p7:x")));
}

TEST(SparseCut, OtherDocuments) {
    support::RegisterPlatform();
    const struct {
        const char* what;
        const wchar_t* xml;
        const wchar_t* xpath;
        const wchar_t* expected;
    } cases[] = {
        {"document order", L"<r><a>1</a><b>2</b><x/><a>3</a></r>", L"//b|//a", L"<r><a>1</a><b>2</b><a>3</a></r>"},
        {"default namespace", LR"(<r xmlns="urn:x"><m k="1"><b>1</b><c/><b>2</b></m></r>)", L"//*[local-name()='b']",
         LR"(<r xmlns="urn:x"><m k="1"><b>1</b><b>2</b></m></r>)"},
        {"declared below", LR"(<r><m xmlns:a="urn:a"><a:b/><c/></m><c xmlns:a="urn:a" a:k="1"><d/></c></r>)",
         L"//a:b|//d", LR"(<r><m xmlns:a="urn:a"><a:b/></m><c xmlns:a="urn:a" a:k="1"><d/></c></r>)"},
        {"prefix not declared", L"<r><b/></r>", L"//a:b", L""},
        {"root", LR"(<r k="1"><b/><c>t</c></r>)", L"/r", LR"(<r k="1"><b/><c>t</c></r>)"},
        {"document", LR"(<r k="1"><b/></r>)", L"/", LR"(<r k="1"><b/></r>)"},
        {"root beside others", LR"(<?xml version="1.0"?><r><b/></r>)", L"/r", L""},
        {"below root beside others", LR"(<?xml version="1.0"?><!--c--><r><b/></r>)", L"/r/b", L"<r><b/></r>"},
        {"comment beside the root", L"<!--c--><r><!--d--></r>", L"//comment()", L"<r><!--d--></r>"},
        {"namespace nodes", LR"(<r xmlns:a="u"><b/></r>)", L"//b/namespace::*", L""},
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

TEST(SparseCut, ManyNodesAndManyAncestors) {
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

TEST(SparseCut, WhatCouldExhaustTheStackFails) {
    EXPECT_EQ("", Narrow(Sparse(Repeated(200'000, L"<d>") + Repeated(200'000, L"</d>"), L"//d")));
    EXPECT_EQ("", Narrow(Sparse(L"<r><b/></r>", Repeated(4000, L"(") + L"//b" + Repeated(4000, L")"))));
    EXPECT_EQ("", Narrow(Sparse(L"<r><b/></r>", L"//b" + Repeated(3000, L"|/x"))));
    // Brackets in literals nest nothing.
    EXPECT_EQ("<r><b>x</b></r>", Narrow(Sparse(L"<r><b>x</b></r>", L"//b[.!='" + Repeated(200, L"[(") + L"']")));
}

TEST(SparseCut, NullsFail) {
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
    // Of an attribute, the value; nothing if there is none.
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
    EXPECT_THAT(Logged(L"<r>" + Repeated(1000, L"<a/>") + L"</r>", L"//a[count(//*[count(//*[//*])>0])>0]"),
                ElementsAre(whole, "GetSparseXMLFromXPath: The XPath would take too long: "
                                   "//a[count(//*[count(//*[//*])>0])>0]"));
    EXPECT_THAT(Logged(L"<!--c--><r/>", L"/r"),
                ElementsAre(whole, mount, "nodeList->get_length failed l1 value returned is not 1", remove));
}

} // namespace
