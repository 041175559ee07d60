// A sparse document compared with the minimum for making one: load, selectNodes, and cloneNode of each selected node.
#include "bench/Bench.h"
#include "common/com/bstr.h"
#include "common/services/platformservices.h"
#include "common/sparse/SparseXml.h"
#include "common/xml/msxml.h"
#include "support/Support.h"

#include <windows.h>

#include <stdexcept>
#include <string>

using namespace vorna;

namespace {

constexpr double GOAL = 1.5;

// About 65 characters; with namespaces, the leaf has a prefix.
std::wstring Item(int i, bool namespaces) {
    const std::wstring number = std::to_wstring(i);
    const wchar_t* leaf = namespaces ? L"a:v>" : L"v>";
    return L"\n <item n=\"" + number + L"\" g=\"" + std::to_wstring(i % 7) + L"\"><name>thing " + number + L"</name><" +
           leaf + std::to_wstring(i * 37 % 1000) + L"</" + leaf + L"</item>";
}

std::wstring Document(int items, bool namespaces) {
    std::wstring xml = namespaces ? L"<r xmlns:a=\"urn:a\"><list kind=\"x\">" : L"<r><list kind=\"x\">";
    for (int i = 0; i < items; ++i)
        xml += Item(i, namespaces);
    return xml + L"\n</list></r>";
}

std::wstring Deep(int branches, int levels) {
    std::wstring xml = L"<r>";
    for (int branch = 0; branch < branches; ++branch) {
        for (int level = 0; level < levels; ++level)
            xml += L"<d level=\"" + std::to_wstring(level) + L"\">";
        xml += L"<leaf>x</leaf>";
        for (int level = 0; level < levels; ++level)
            xml += L"</d>";
    }
    return xml + L"</r>";
}

long ByHand(const std::wstring& xml, const std::wstring& xpath) {
    com_ptr<IXMLDOMDocument2> document;
    if (FAILED(PlatformServices::CreateInstance(L"MSXML2.DOMDocument.4.0", nullptr, document)))
        throw std::runtime_error("no MSXML 4.0");
    document->put_async(VARIANT_FALSE);
    document->put_validateOnParse(VARIANT_FALSE);
    document->put_resolveExternals(VARIANT_FALSE);
    document->put_preserveWhiteSpace(VARIANT_TRUE);
    bstr declarations(L"xmlns:a='urn:a'");
    VARIANT value;
    value.vt = VT_BSTR;
    value.bstrVal = declarations.get();
    document->setProperty(bstr(L"SelectionNamespaces").get(), value);
    VARIANT_BOOL loaded = VARIANT_FALSE;
    document->loadXML(bstr(xml).get(), &loaded);
    com_ptr<IXMLDOMNodeList> nodes;
    document->selectNodes(bstr(xpath).get(), nodes.put());
    long count = 0;
    if (nodes)
        nodes->get_length(&count);
    for (long i = 0; i < count; ++i) {
        com_ptr<IXMLDOMNode> node;
        com_ptr<IXMLDOMNode> copy;
        nodes->get_item(i, node.put());
        node->cloneNode(VARIANT_TRUE, copy.put());
        bench::Keep(copy);
    }
    return count;
}

void Compare(const bench::Report& report, const std::string& what, const std::wstring& xml, const std::wstring& xpath,
             long nodes, const bench::Rounds& rounds) {
    std::wstring result;
    VORNAUTILITY::GetSparseXMLFromXPath(xml, xpath, result);
    if (ByHand(xml, xpath) != nodes || result.empty())
        throw std::runtime_error("selected something else: " + what);
    const auto times = bench::Measure({{"hand", [&] { ByHand(xml, xpath); }},
                                       {"sparse",
                                        [&] {
                                            VORNAUTILITY::GetSparseXMLFromXPath(xml, xpath, result);
                                            bench::Keep(result);
                                        }}},
                                      rounds);
    report.AtMost(what, times[1] / times[0], GOAL, "times load, selectNodes, cloneNode");
    report.Figure(what, times[1] / 1e6, "ms");
}

std::wstring First(int count, const wchar_t* below) {
    return L"/r/list/item[position()<=" + std::to_wstring(count) + L"]" + below;
}

constexpr bench::Rounds LARGE{1, 9};
constexpr bench::Rounds SMALL{20, 15};

} // namespace

VORNA_BENCH(SparseLarge) {
    const std::wstring xml = Document(15'000, false);
    report.Figure("document", static_cast<double>(xml.size()) / 1024, "K characters");
    for (int nodes : {1, 10, 100, 1'000, 10'000}) {
        Compare(report, std::to_string(nodes) + " of one parent", xml, First(nodes, L""), nodes, LARGE);
        Compare(report, std::to_string(nodes) + " of parents of their own", xml, First(nodes, L"/v"), nodes, LARGE);
    }
    Compare(report, "10000 texts", xml, First(10'000, L"/v/text()"), 10'000, LARGE);
    Compare(report, "10000 attributes", xml, First(10'000, L"/@n"), 10'000, LARGE);
    Compare(report, "the root", xml, L"/r", 1, LARGE);
}

VORNA_BENCH(SparseDeep) {
    const std::wstring xml = Deep(250, 200);
    report.Figure("document", static_cast<double>(xml.size()) / 1024, "K characters");
    Compare(report, "250 leaves, 50000 ancestors", xml, L"//leaf", 250, LARGE);
    Compare(report, "50000 attributes", xml, L"//@level", 50'000, LARGE);
}

VORNA_BENCH(SparseSmall) {
    const std::wstring xml = Document(140, false);
    report.Figure("document", static_cast<double>(xml.size()) / 1024, "K characters");
    for (int nodes : {1, 10, 100})
        Compare(report, std::to_string(nodes) + " of parents of their own", xml, First(nodes, L"/v"), nodes, SMALL);
}

VORNA_BENCH(SparseNamespaces) {
    // Prefixes need the platform's XML accessor.
    support::RegisterPlatform();
    const std::wstring small = Document(130, true);
    const std::wstring large = Document(14'000, true);
    for (int nodes : {1, 100})
        Compare(report, std::to_string(nodes) + " prefixed, small", small, First(nodes, L"/a:v"), nodes, SMALL);
    for (int nodes : {1, 100, 10'000})
        Compare(report, std::to_string(nodes) + " prefixed, large", large, First(nodes, L"/a:v"), nodes, LARGE);
}
