#include "common/xml/XPathTokens.h"

#include "common/xml/XmlCharacters.h"

#include <algorithm>

namespace vorna {

namespace {

constexpr bool IsDigit(wchar_t c) {
    return c >= L'0' && c <= L'9';
}

// The number of characters of the name without prefix at the beginning of the text; 0 if it begins with none.
std::size_t NameLength(std::wstring_view text) {
    const auto inside = [](wchar_t c) { return c != L':' && IsNameCharacter(c); };
    if (text.empty() || text[0] == L':' || !IsNameStart(text[0]))
        return 0;
    return static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), inside) - text.begin());
}

std::size_t QualifiedNameLength(std::wstring_view text) {
    const std::size_t length = NameLength(text);
    const std::wstring_view rest = text.substr(length);
    if (length == 0 || !rest.starts_with(L":") || rest.starts_with(L"::"))
        return length;
    const std::size_t local = rest.substr(1).starts_with(L"*") ? 1 : NameLength(rest.substr(1));
    return local == 0 ? length : length + 1 + local;
}

std::size_t NumberLength(std::wstring_view text) {
    std::size_t length = 0;
    while (length < text.size() && IsDigit(text[length]))
        ++length;
    const std::size_t whole = length;
    if (length < text.size() && text[length] == L'.')
        ++length;
    while (length < text.size() && IsDigit(text[length]))
        ++length;
    // A dot alone is the context node.
    return whole == 0 && length == 1 ? 0 : length;
}

std::size_t SymbolLength(std::wstring_view text) {
    for (const wchar_t* two : {L"//", L"::", L"..", L"!=", L"<=", L">="})
        if (text.starts_with(two))
            return 2;
    return std::wstring_view(L"()[].@,/|+-=<>$").find(text[0]) == std::wstring_view::npos ? 0 : 1;
}

// Whether the next "*" or name is an operator, because an operand ends with this token.
bool EndsOperand(const XPathToken& token) {
    switch (token.kind) {
    case XPathTokenKind::Name:
    case XPathTokenKind::Number:
    case XPathTokenKind::Literal:
        return true;
    case XPathTokenKind::Symbol:
        return token.text == L")" || token.text == L"]" || token.text == L"." || token.text == L"..";
    default:
        return false;
    }
}

XPathToken NextToken(std::wstring_view rest, const XPathToken& last) {
    const wchar_t first = rest[0];
    if (first == L'"' || first == L'\'') {
        const std::size_t end = rest.find(first, 1);
        return end == rest.npos ? XPathToken() : XPathToken{XPathTokenKind::Literal, rest.substr(0, end + 1)};
    }
    if (const std::size_t length = NumberLength(rest))
        return {XPathTokenKind::Number, rest.substr(0, length)};
    const bool isOperator = EndsOperand(last);
    if (first == L'*')
        return {isOperator ? XPathTokenKind::Operator : XPathTokenKind::Name, rest.substr(0, 1)};
    if (const std::size_t length = isOperator ? NameLength(rest) : QualifiedNameLength(rest))
        return {isOperator ? XPathTokenKind::Operator : XPathTokenKind::Name, rest.substr(0, length)};
    const std::size_t length = SymbolLength(rest);
    if (length == 0)
        return {};
    const std::wstring_view text = rest.substr(0, length);
    const bool compares = text == L"!=" || text == L"<=" || text == L">=";
    return {compares || std::wstring_view(L"|+-=<>").find(first) != std::wstring_view::npos ? XPathTokenKind::Operator
                                                                                            : XPathTokenKind::Symbol,
            text};
}

} // namespace

std::vector<XPathToken> TokenizeXPath(std::wstring_view xpath) {
    std::vector<XPathToken> tokens;
    XPathToken last;
    for (std::wstring_view rest = Trimmed(xpath); !rest.empty(); rest = Trimmed(rest.substr(last.text.size()))) {
        last = NextToken(rest, last);
        if (last.kind == XPathTokenKind::End)
            break;
        tokens.push_back(last);
    }
    tokens.emplace_back();
    return tokens;
}

std::set<std::wstring_view> PrefixesOf(const std::vector<XPathToken>& tokens) {
    std::set<std::wstring_view> prefixes;
    for (const XPathToken& token : tokens) {
        const std::size_t colon = token.text.find(L':');
        if (token.kind == XPathTokenKind::Name && colon != token.text.npos)
            prefixes.insert(token.text.substr(0, colon));
    }
    return prefixes;
}

} // namespace vorna
