#include "platform/xml/Prefixes.h"

#include "common/xml/XmlCharacters.h"

#include <algorithm>

namespace keldan {

namespace {

constexpr std::wstring_view BLANKS = L" \t\r\n";

bool IsPrefix(std::wstring_view name) {
    return !name.empty() && vorna::IsNameStart(name.front()) &&
           std::all_of(name.begin(), name.end(), vorna::IsNameCharacter) &&
           name.find(L':') == std::wstring_view::npos && name != L"xml" && name != L"xmlns";
}

// Removes the next "name = value" from the text; false if it does not begin with one.
bool TakeDeclaration(std::wstring_view& text, std::wstring_view& name, std::wstring_view& value) {
    const size_t equals = text.find(L'=');
    if (equals == std::wstring_view::npos)
        return false;
    name = text.substr(0, equals);
    name = name.substr(0, name.find_last_not_of(BLANKS) + 1);
    text.remove_prefix(equals + 1);
    text.remove_prefix(std::min(text.find_first_not_of(BLANKS), text.size()));
    if (text.empty())
        return false;
    const wchar_t quote = text.front();
    if (quote != L'\'' && quote != L'"') {
        value = text.substr(0, text.find_first_of(BLANKS));
        text.remove_prefix(value.size());
        return value.find_first_of(L"'\"") == std::wstring_view::npos;
    }
    const size_t end = text.find(quote, 1);
    if (end == std::wstring_view::npos)
        return false;
    value = text.substr(1, end - 1);
    text.remove_prefix(end + 1);
    // A blank must separate declarations.
    return text.empty() || BLANKS.find(text.front()) != std::wstring_view::npos;
}

} // namespace

bool ReadPrefixes(std::wstring_view text, PrefixMap& prefixes, std::wstring& message) {
    prefixes.clear();
    for (;;) {
        const size_t start = text.find_first_not_of(BLANKS);
        if (start == std::wstring_view::npos)
            return true;
        text.remove_prefix(start);
        const std::wstring_view rest = text;
        std::wstring_view name;
        std::wstring_view uri;
        bool good = TakeDeclaration(text, name, uri) && !uri.empty() && uri.find(L'<') == std::wstring_view::npos;
        if (good && name == L"xmlns")
            continue;
        if (good && name.starts_with(L"xmlns:"))
            name.remove_prefix(6);
        good = good && IsPrefix(name) && prefixes.emplace(name, uri).first->second == uri;
        if (!good) {
            message = L"The prefixes are no namespace declarations at \"" + std::wstring(rest) + L"\".";
            return false;
        }
    }
}

} // namespace keldan
