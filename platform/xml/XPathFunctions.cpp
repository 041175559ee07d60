// The core function library of XPath 1.0.
#include "platform/xml/XPathEvaluator.h"

#include "platform/xml/XmlCharacters.h"

#include <algorithm>
#include <cmath>

namespace keldan {

namespace {

// Characters are counted as in the text's encoding: one outside the basic plane is two.
std::wstring Substring(const std::wstring& text, double from, double length) {
    const double first = std::floor(from + 0.5);
    const double end = first + std::floor(length + 0.5);
    std::wstring part;
    for (size_t i = 0; i < text.size(); ++i) {
        const double position = static_cast<double>(i + 1);
        // Written so that a bound that is not a number keeps nothing.
        if (position >= first && position < end)
            part.push_back(text[i]);
    }
    return part;
}

std::wstring NormalizeSpace(const std::wstring& text) {
    std::wstring normal;
    for (wchar_t c : text) {
        if (!IsXmlSpace(c))
            normal.push_back(c);
        else if (!normal.empty() && normal.back() != L' ')
            normal.push_back(L' ');
    }
    if (!normal.empty() && normal.back() == L' ')
        normal.pop_back();
    return normal;
}

std::wstring Translate(const std::wstring& text, const std::wstring& from, const std::wstring& to) {
    std::wstring result;
    for (wchar_t c : text) {
        const size_t found = from.find(c);
        if (found == from.npos)
            result.push_back(c);
        else if (found < to.size())
            result.push_back(to[found]);
    }
    return result;
}

bool IsLanguage(const std::wstring& declared, const std::wstring& asked) {
    const auto lower = [](wchar_t c) { return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c + 32) : c; };
    if (declared.size() < asked.size() || (declared.size() > asked.size() && declared[asked.size()] != L'-'))
        return false;
    return std::equal(asked.begin(), asked.end(), declared.begin(),
                      [&](wchar_t a, wchar_t b) { return lower(a) == lower(b); });
}

} // namespace

node_index XPathEvaluator::named(const xpath_expression& expression, const context& here) {
    if (expression.operands.empty())
        return here.node;
    const node_set nodes = evaluate(*expression.operands[0], here).nodes;
    return nodes.empty() ? NO_NODE : nodes[0];
}

xpath_value XPathEvaluator::call(const xpath_expression& expression, const context& here) {
    const auto value = [&](size_t i) { return evaluate(*expression.operands[i], here); };
    const auto text = [&](size_t i) { return asText(value(i)); };
    const auto number = [&](size_t i) { return asNumber(value(i)); };
    const auto textOrOwn = [&] { return expression.operands.empty() ? textOf(here.node) : text(0); };
    const auto ofText = [](std::wstring_view result) { return xpath_value::OfText(std::wstring(result)); };

    switch (expression.function) {
    case XPathFunction::Last:
        return xpath_value::OfNumber(static_cast<double>(here.size));
    case XPathFunction::Position:
        return xpath_value::OfNumber(static_cast<double>(here.position));
    case XPathFunction::Count:
        return xpath_value::OfNumber(static_cast<double>(value(0).nodes.size()));
    case XPathFunction::Id:
        // Without document type definitions no attribute is an ID.
        return xpath_value::OfNodes({});
    case XPathFunction::LocalName: {
        const node_index node = named(expression, here);
        return ofText(node == NO_NODE ? std::wstring_view() : document_.localName(node));
    }
    case XPathFunction::NamespaceUri: {
        const node_index node = named(expression, here);
        const bool has = node != NO_NODE && document_[node].kind != NodeKind::Namespace;
        return ofText(has ? std::wstring_view(document_.namespaceUri(node)) : std::wstring_view());
    }
    case XPathFunction::Name: {
        const node_index node = named(expression, here);
        return ofText(node == NO_NODE ? std::wstring_view() : document_.qualifiedName(node));
    }
    case XPathFunction::String:
        return xpath_value::OfText(textOrOwn());
    case XPathFunction::Concat: {
        std::wstring joined;
        for (size_t i = 0; i < expression.operands.size(); ++i)
            joined += text(i);
        spend(joined.size() / 8);
        return xpath_value::OfText(std::move(joined));
    }
    case XPathFunction::StartsWith:
        return xpath_value::OfFlag(text(0).starts_with(text(1)));
    case XPathFunction::Contains:
        return xpath_value::OfFlag(text(0).find(text(1)) != std::wstring::npos);
    case XPathFunction::SubstringBefore: {
        const std::wstring whole = text(0);
        const size_t found = whole.find(text(1));
        return ofText(found == whole.npos ? std::wstring_view() : std::wstring_view(whole).substr(0, found));
    }
    case XPathFunction::SubstringAfter: {
        const std::wstring whole = text(0);
        const std::wstring mark = text(1);
        const size_t found = whole.find(mark);
        return ofText(found == whole.npos ? std::wstring_view() : std::wstring_view(whole).substr(found + mark.size()));
    }
    case XPathFunction::Substring:
        return xpath_value::OfText(
            Substring(text(0), number(1), expression.operands.size() == 3 ? number(2) : INFINITY));
    case XPathFunction::StringLength:
        return xpath_value::OfNumber(static_cast<double>(textOrOwn().size()));
    case XPathFunction::NormalizeSpace:
        return xpath_value::OfText(NormalizeSpace(textOrOwn()));
    case XPathFunction::Translate:
        return xpath_value::OfText(Translate(text(0), text(1), text(2)));
    case XPathFunction::Boolean:
        return xpath_value::OfFlag(asFlag(value(0)));
    case XPathFunction::Not:
        return xpath_value::OfFlag(!asFlag(value(0)));
    case XPathFunction::True:
        return xpath_value::OfFlag(true);
    case XPathFunction::False:
        return xpath_value::OfFlag(false);
    case XPathFunction::Lang: {
        const std::wstring asked = text(0);
        for (node_index node = here.node; node != NO_NODE; node = document_[node].parent)
            for (node_index i = node + 1; i < document_[node].after && document_[i].parent == node; ++i) {
                if (document_[i].kind != NodeKind::Attribute && document_[i].kind != NodeKind::Namespace)
                    break;
                if (document_.qualifiedName(i) == L"xml:lang")
                    return xpath_value::OfFlag(IsLanguage(textOf(i), asked));
            }
        return xpath_value::OfFlag(false);
    }
    case XPathFunction::Number:
        return xpath_value::OfNumber(expression.operands.empty() ? NumberOfText(textOf(here.node)) : number(0));
    case XPathFunction::Sum: {
        double sum = 0;
        for (node_index node : value(0).nodes)
            sum += NumberOfText(textOf(node));
        return xpath_value::OfNumber(sum);
    }
    case XPathFunction::Floor:
        return xpath_value::OfNumber(std::floor(number(0)));
    case XPathFunction::Ceiling:
        return xpath_value::OfNumber(std::ceil(number(0)));
    case XPathFunction::Round:
        return xpath_value::OfNumber(std::floor(number(0) + 0.5));
    }
    return xpath_value::OfFlag(false);
}

} // namespace keldan
