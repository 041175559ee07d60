// Sparse documents of many small documents that the tests make up themselves, so that what they expect does not come
// from a parser; and what a cut must survive.
#include "common/log/Logging.h"
#include "common/sparse/DocumentShape.h"
#include "common/sparse/SparseXml.h"
#include "common/sparse/XPathCost.h"
#include "common/xml/XPathTokens.h"
#include "common/xml/XmlTags.h"
#include "support/Support.h"

#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <random>
#include <sstream>
#include <vector>

using namespace vorna;
using support::Narrow;

namespace {

std::wstring Sparse(std::wstring_view xml, std::wstring_view xpath) {
    std::wstring result;
    VORNAUTILITY::GetSparseXMLFromXPath(xml, xpath, result);
    return result;
}

std::wstring Repeated(int count, std::wstring_view text) {
    std::wstring all;
    while (count-- > 0)
        all += text;
    return all;
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
        const wchar_t* source;
        const wchar_t* expected;
    };

    template <std::size_t Size>
    const Spelling& One(const Spelling (&spellings)[Size]) {
        return spellings[Below(Size)];
    }

    std::unique_ptr<Node> Element(int depth) {
        static constexpr Spelling NAMES[] = {{L"a", L""}, {L"b", L""}, {L"p:a", L""}, {L"idNode", L""}};
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
        static constexpr Spelling DATA[] = {{L"d", L"d"},
                                            {L"<&&#13;idNode:", L"<&&#13;idNode:"},
                                            {L"one ]]]]><![CDATA[> two", L"one ]]]]><![CDATA[> two"},
                                            {L"]]]]><![CDATA[>]]]]><![CDATA[>", L"]]]]><![CDATA[>]]]]><![CDATA[>"}};
        static constexpr Spelling COMMENTS[] = {{L"", L""}, {L"c", L"c"}, {L"<a>&#78; ?>", L"<a>&#78; ?>"}};
        static constexpr Spelling INSTRUCTIONS[] = {{L"", L""},
                                                    {L" ", L" "},
                                                    {L" d", L" d"},
                                                    {L"  idNode: d", L" idNode: d"},
                                                    {L" <a k=\">\"", L" <a k=\">\""}};
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
        static constexpr Spelling TEXTS[] = {{L"x", L"x"},
                                             {L"id&#78;ode:y", L"idNode:y"},
                                             {L"&#13;&#10;", L"&#13;\n"},
                                             {L"&#xD;", L"&#13;"},
                                             {L"&lt;&amp;", L"&lt;&amp;"},
                                             {L"idNode", L"idNode"},
                                             {L" \n\t", L" \n\t"},
                                             {L"\u00e4&#x4e2d;\U0001F600", L"\u00e4\u4e2d\U0001F600"}};
        static constexpr Spelling VALUES[] = {{L"x", L"x"},
                                              {L"id&#78;ode:y", L"idNode:y"},
                                              {L"&#13;&#10;", L"&#13;&#10;"},
                                              {L"&#xD;", L"&#13;"},
                                              {L"&lt;&amp;", L"&lt;&amp;"},
                                              {L"'&quot;", L"'&quot;"},
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

// The marks were once "idNode:" if the text of the document did not have it.
TEST(SparseCut, NothingInADocumentIsAMark) {
    for (const wchar_t* secret :
         {L"<b>id&#78;ode:secret</b>", L"<b k='id&#78;ode:secret'/>", L"<b>&#105;dNode</b>", L"<b k='&#x69;dNode:'/>",
          L"<!--id&#78;ode:secret-->", L"<?p id&#78;ode:secret?>", L"<b><![CDATA[id&#78;ode:secret]]></b>"})
        EXPECT_EQ("<a><c/></a>", Narrow(Sparse(std::wstring(L"<a>") + secret + L"<c/></a>", L"/a/c")))
            << Narrow(secret);
    EXPECT_EQ("<a><b k=\"idNode:x\">idNode:y</b></a>",
              Narrow(Sparse(L"<a><b k='id&#78;ode:x'>id&#78;ode:y</b></a>", L"//b")));
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

TEST(XmlTags, TheFirstDeclarationOfAPrefixCounts) {
    const std::set<std::wstring_view> prefixes{L"a", L"b", L"c"};
    EXPECT_EQ("", Narrow(NamespaceDeclarations(L"<r xmlns:a='u'/>", {})));
    EXPECT_EQ("", Narrow(NamespaceDeclarations(L"<r>xmlns:a='u'<![CDATA[<b xmlns:a='u'/>]]><?p xmlns:a='u'?></r>",
                                               prefixes)));
    EXPECT_EQ("", Narrow(NamespaceDeclarations(L"<r k=\"> xmlns:a='u'\" xmlns='v' xmlns:d='w'/>", prefixes)));
    EXPECT_EQ(
        "<d xmlns:a='u' xmlns:b=\"v>\"/>",
        Narrow(NamespaceDeclarations(L"<r xmlns:a='u'><s\n xmlns:b=\"v>\" k=''/><t xmlns:a='w'/></r>", prefixes)));
}

std::string Tokens(std::wstring_view xpath) {
    std::string text;
    for (const XPathToken& token : TokenizeXPath(xpath))
        text += "NULOS."[static_cast<int>(token.kind)] + Narrow(token.text) + " ";
    return text;
}

TEST(XPathTokens, NamesOperatorsAndLiteralsAreToldApart) {
    EXPECT_EQ("S// N* O* N* S[ S@ Np:* Oand Ndiv Odiv U.5 Oor S.. O!= U1. S] . ",
              Tokens(L" //* * *[@p:* and div div .5 or ..!=1.]"));
    EXPECT_EQ("Nchild S:: Np:a-b S/ Nancestor S:: Na O- U1 O| S$ Nv . ", Tokens(L"child :: p:a-b/ancestor::a - 1|$v"));
    EXPECT_EQ("Nf S( L\"a[(b\" S, L'\"' S) O<= S. . ", Tokens(L"f(\"a[(b\",'\"')<=."));
    EXPECT_EQ("Na . ", Tokens(L"a 'without end"));
    EXPECT_EQ("Na . ", Tokens(L"a # b"));
}

// 5 MB: a list of 75,000 items, each with attributes, and children two levels deep.
const std::wstring& LargeDocument() {
    static const std::wstring xml = [] {
        std::wstring items;
        for (int i = 0; i < 75'000; ++i)
            items += L"\n <item id='" + std::to_wstring(i) + L"'><c>x</c><b><c>some text</c></b><v g='1'/></item>";
        return L"<r xmlns:p='u'><a>" + items + L"</a><p:z/></r>";
    }();
    return xml;
}

TEST(XPathCost, OrdinaryXPathsAreNotRefused) {
    const std::wstring dense = L"<a>" + Repeated(600'000, L"<b><c/></b>") + L"</a>";
    for (const wchar_t* xpath : {L"//item",
                                 L"//item//c[.='x']/..",
                                 L"//*[@id='x']",
                                 L"/r/a/item[position()<5]",
                                 L"/r/a/item[last()]",
                                 L"//item[.//c]",
                                 L"//item[.//c='x' and not(v/@g)]",
                                 L"//item|//v|//@g",
                                 L"//item[c=b/c]",
                                 L"//text()",
                                 L"//item[starts-with(c, 'x')]/b/c",
                                 L"//c[contains(., 'x')]",
                                 L"//*[local-name()='c' or name()='p:z']",
                                 L"//c/ancestor::item",
                                 L"//c[ancestor::item/@id > 7]",
                                 L"//item/following-sibling::item[1]",
                                 L"//item/following-sibling::*[1]",
                                 L"//item[preceding-sibling::item[1]/c='x']",
                                 L"//p:z/preceding::item",
                                 L"//p:z/preceding-sibling::a/item",
                                 L"//p:z[@id=//item/@id]",
                                 L"(//item)[3]/following::v[1]",
                                 L"//item[count(b/c) > 1][v]/@id",
                                 L"sum(//v/@g) > 3",
                                 L"//*[count(*)=0]",
                                 L"//item[normalize-space()='']"})
        EXPECT_FALSE(TakesTooLong(TokenizeXPath(xpath), LargeDocument())) << Narrow(xpath);
    for (const wchar_t* xpath : {L"//b//c[c='x']/..", L"//*[@id='x']", L"/a/b[position()<5]", L"//b[.//c]", L"//b|//c",
                                 L"//*//*", L"//*[.='x']", L"//c/ancestor::b"})
        EXPECT_FALSE(TakesTooLong(TokenizeXPath(xpath), dense)) << Narrow(xpath);
}

TEST(XPathCost, WhatWouldTakeHoursIsRefused) {
    const std::wstring small = L"<r>" + Repeated(1000, L"<a>t</a>") + L"</r>";
    for (const wchar_t* xpath :
         {L"//a[count(//*[count(//*[count(//*)>0])>0])>0]", L"//a [ count( // * [count(/ descendant :: *[//a])>0])>0]",
          L"//a[//a[//a[//a='x']]]", L"//a[../a[../a[../a='x']]]", L"//a[string(/)=//a[string(/)=string(//a)]]",
          L"//*[following::*[preceding::*[following::*]]]", L"//a[following-sibling::a[preceding-sibling::a[//a]]]",
          L"//a[/r[a=a][a!=a]/a='x']", L"//a[(//a|//a)[//a|//a]/a]", L"//a[sum(//a[sum(//a)>0])>0]",
          L"//a[-count(//*) < -count(//*[//*[. = '[']])]"})
        EXPECT_TRUE(TakesTooLong(TokenizeXPath(xpath), small)) << Narrow(xpath);
    for (const wchar_t* xpath :
         {L"//item[//item]", L"//item/following-sibling::item", L"//item/following-sibling::z[1]", L"//item[.=//c]",
          L"//item[@id=//p:z/@id]", L"//v/preceding::item", L"//*[string(/)='x']", L"//item[../item/@id=@id]"})
        EXPECT_TRUE(TakesTooLong(TokenizeXPath(xpath), LargeDocument())) << Narrow(xpath);
    // What is long is not the evaluation.
    EXPECT_FALSE(TakesTooLong(TokenizeXPath(L"//a" + Repeated(500, L"[. != '[count(//*[//*[//*]])']")), small));
}

TEST(XPathCost, NoExpressionIsReadForEver) {
    const std::wstring xpath = L"/r//a[@k='x' and p:b[1]|(../c)[2]] = -f(., $v)/text()";
    for (std::size_t begin = 0; begin < xpath.size(); ++begin)
        for (std::size_t size = 0; size <= xpath.size() - begin; ++size)
            EXPECT_GE(XPathCost(TokenizeXPath(xpath.substr(begin, size)), DocumentShape::Largest(1000)), 1.0);
}

TEST(DocumentShape, ElementsAndTheirPlacesAreCounted) {
    const DocumentShape shape = DocumentShape::Of(
        L"<?xml version='1.0'?><r k='1'><a/>t<p:a x=''><!--c--><b/></p:a><b/><c/><b><![CDATA[<a>]]></b></r>\n",
        {L"*", L"a", L"b", L"none"});
    EXPECT_EQ(11, shape.nodes);
    EXPECT_EQ(6, shape.children);
    EXPECT_EQ(4, shape.depth);
    EXPECT_EQ(2 + 2 + 6 * 3 + 3 * 4, shape.depths);
    EXPECT_EQ(7, shape.Named(L"*").count);
    EXPECT_EQ(2, shape.Named(L"a").count);
    EXPECT_EQ(3, shape.Named(L"b").count);
    EXPECT_EQ(2, shape.Named(L"b").ofOneParent);
    EXPECT_EQ(4, shape.Named(L"b").siblingGap);
    EXPECT_EQ(7, shape.Named(L"b").documentGap);
    EXPECT_EQ(0, shape.Named(L"none").count);
    EXPECT_EQ(11, shape.Named(L"c").count);
}

TEST(SparseCut, AnXPathThatTakesTooLongIsNamedInTheLog) {
    support::TestFolder folder;
    const auto file = folder.Path() / "a.log";
    support::RegistryValue value(L"SOFTWARE\\Ostrevane\\QXKeldan\\Logging", L"VORNATEST.SparseCut",
                                 L"file," + file.wstring() + L",4");
    StartLogging("VORNATEST.SparseCut");
    const std::wstring xml = L"<r>" + Repeated(1000, L"<a/>") + L"</r>";
    EXPECT_EQ("", Narrow(Sparse(xml, L"//a[count(//*[count(//*[//*])>0])>0]")));
    // Brackets in literals nest nothing.
    EXPECT_EQ("<r><b>x</b></r>", Narrow(Sparse(L"<r><b>x</b></r>", L"//b[.!='" + Repeated(200, L"[(") + L"']")));
    StopLogging();
    std::stringstream text;
    text << std::ifstream(file, std::ios::binary).rdbuf();
    EXPECT_NE(std::string::npos, text.str().find("The XPath would take too long: //a[count(//*[count(//*[//*])>0])>0]"))
        << text.str();
    EXPECT_EQ(std::string::npos, text.str().find("SelectNodes"));
}

} // namespace
