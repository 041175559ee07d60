// How XPaths are read, which of them would take too long, and the scans of documents that decide it.
#include "common/sparse/XPathCost.h"
#include "common/sparse/DocumentShape.h"
#include "common/xml/XPathTokens.h"
#include "common/xml/XmlTags.h"
#include "support/Support.h"

#include <gtest/gtest.h>

using namespace vorna;
using support::Narrow;
using support::Repeated;

namespace {

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

TEST(XPathTokens, NamesOperatorsAndLiteralsAreDistinguished) {
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
                                 L"//item[.//c='x' and not(v/@g)]",
                                 L"//item[c=b/c]",
                                 L"//c[contains(., 'x')]",
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
