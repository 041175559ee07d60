#include "platform/xml/XPathValue.h"

#include "platform/xml/XmlCharacters.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <utility>

namespace keldan {

xpath_value xpath_value::OfNodes(node_set nodes) {
    xpath_value value;
    value.kind = Kind::Nodes;
    value.nodes = std::move(nodes);
    return value;
}

xpath_value xpath_value::OfNumber(double number) {
    xpath_value value;
    value.kind = Kind::Number;
    value.number = number;
    return value;
}

xpath_value xpath_value::OfText(std::wstring text) {
    xpath_value value;
    value.kind = Kind::Text;
    value.text = std::move(text);
    return value;
}

xpath_value xpath_value::OfFlag(bool flag) {
    xpath_value value;
    value.flag = flag;
    return value;
}

double NumberOfText(std::wstring_view text) {
    while (!text.empty() && IsXmlSpace(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && IsXmlSpace(text.back()))
        text.remove_suffix(1);
    // The grammar is narrower than the library's: no plus, no exponent.
    std::string digits;
    bool any = false;
    bool point = false;
    for (size_t i = 0; i < text.size(); ++i) {
        const wchar_t c = text[i];
        if (c >= L'0' && c <= L'9')
            any = true;
        else if (c == L'.' && !point)
            point = true;
        else if (c != L'-' || i != 0)
            return std::numeric_limits<double>::quiet_NaN();
        digits.push_back(static_cast<char>(c));
    }
    if (!any)
        return std::numeric_limits<double>::quiet_NaN();
    double number = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), number, std::chars_format::fixed);
    return number;
}

std::wstring TextOfNumber(double number) {
    if (std::isnan(number))
        return L"NaN";
    if (std::isinf(number))
        return number < 0 ? L"-Infinity" : L"Infinity";
    if (number == 0)
        return L"0";
    char buffer[400];
    const auto end = std::to_chars(buffer, buffer + sizeof buffer, number, std::chars_format::fixed).ptr;
    return std::wstring(buffer, end);
}

} // namespace keldan
