#include "platform/eventaccess/Expression.h"

#include "common/com/result_error.h"
#include "common/xml/XmlCharacters.h"

#include <algorithm>
#include <string>

namespace keldan {

namespace {

// What may precede an opening parenthesis: the functions, node tests and operators of XPath 1.0. MSXML detects an
// unknown function only if it is evaluated.
constexpr std::wstring_view CALLED =
    L" last position count id local-name namespace-uri name string concat starts-with contains substring-before substring-after substring string-length normalize-space translate boolean not true false lang number sum floor ceiling round node text comment processing-instruction and or div mod ";

bool IsNameUnit(wchar_t c) {
    return c != L':' && vorna::IsNameCharacter(c);
}

// Calls use(name, end) for each name in the expression outside of literals; end: the position after the name.
template <typename Use>
void ForEachName(std::wstring_view expression, Use use) {
    for (std::size_t i = 0; i < expression.size(); ++i) {
        const wchar_t c = expression[i];
        if (c == L'"' || c == L'\'') {
            i = std::min(expression.find(c, i + 1), expression.size());
        } else if (IsNameUnit(c)) {
            // Numbers are included; they do not matter here.
            const std::size_t begin = i;
            while (i < expression.size() && IsNameUnit(expression[i]))
                ++i;
            use(expression.substr(begin, i - begin), i);
            --i;
        }
    }
}

// Whether quotes, brackets and parentheses are closed in the right order.
bool IsClosed(std::wstring_view expression) {
    std::wstring open;
    for (std::size_t i = 0; i < expression.size(); ++i) {
        const wchar_t c = expression[i];
        if (c == L'\0')
            return false;
        if (c == L'"' || c == L'\'') {
            i = expression.find(c, i + 1);
            if (i == expression.npos)
                return false;
        } else if (c == L'(' || c == L'[') {
            open += c == L'(' ? L')' : L']';
        } else if (c == L')' || c == L']') {
            if (open.empty() || open.back() != c)
                return false;
            open.pop_back();
        }
    }
    return open.empty();
}

bool CallsOnlyKnownFunctions(std::wstring_view expression) {
    bool known = true;
    ForEachName(expression, [&](std::wstring_view name, std::size_t at) {
        while (at < expression.size() && vorna::IsXmlSpace(expression[at]))
            ++at;
        if (at < expression.size() && expression[at] == L'(')
            known = known && CALLED.find(L" " + std::wstring(name) + L" ") != CALLED.npos;
    });
    return known;
}

// Whether MSXML accepts the expression, evaluated on a nearly empty document.
bool IsAccepted(std::wstring_view expression, const std::wstring& question) {
    if (vorna::Trimmed(expression).empty() || expression.size() > LONGEST_EXPRESSION || !IsClosed(expression) ||
        !CallsOnlyKnownFunctions(expression))
        return false;
    try {
        PrefixMap prefixes;
        AddUnknownPrefixes(expression, prefixes);
        (void)XmlDocument(L"<r/>").Select(question, prefixes);
        return true;
    } catch (const vorna::result_error& error) {
        if (error.result() == E_OUTOFMEMORY)
            throw;
        return false;
    }
}

} // namespace

bool IsSelection(std::wstring_view expression) {
    return IsAccepted(expression, L"(" + std::wstring(expression) + L")");
}

bool IsCondition(std::wstring_view expression) {
    return IsAccepted(expression, L"(/)[boolean(" + std::wstring(expression) + L")]");
}

void AddUnknownPrefixes(std::wstring_view expression, PrefixMap& prefixes) {
    ForEachName(expression, [&](std::wstring_view name, std::size_t at) {
        const bool isPrefix = expression.substr(at).starts_with(L":") && !expression.substr(at).starts_with(L"::");
        if (isPrefix && name != L"xml" && vorna::IsNameStart(name.front()) && !prefixes.contains(name))
            prefixes.emplace(name, L"urn:undeclared:" + std::wstring(name));
    });
}

} // namespace keldan
