// Reads documents that clients send; unexpected content is E_INVALIDARG.
#pragma once

#include "common/com/result_error.h"
#include "platform/xml/XmlDocument.h"

#include <optional>
#include <string>
#include <string_view>

namespace keldan {

// Throws result_error with E_INVALIDARG if the condition is false.
inline void Require(bool condition) {
    if (!condition)
        throw vorna::result_error(E_INVALIDARG);
}

// The value; throws like Require if there is none.
template <typename Value>
Value Required(std::optional<Value> value) {
    Require(value.has_value());
    return std::move(*value);
}

// The text of the element or attribute that the path selects, empty if there is none. Throws like Require if there are
// several, since they contradict each other.
inline std::wstring TextOf(XmlDocument& document, std::wstring_view path) {
    const auto nodes = document.Select(path);
    Require(nodes.size() <= 1);
    return nodes.empty() ? std::wstring() : nodes[0].Text();
}

// Parses the document and passes it to read. E_INVALIDARG: another root element. Other failures are those of
// XmlDocument and of read.
template <typename Read>
[[nodiscard]] HRESULT ReadClientDocument(std::wstring_view text, std::wstring_view root, Read read) {
    return vorna::closed_door([&] {
        XmlDocument document(text);
        Require(document.RootName() == root);
        read(document);
        return S_OK;
    });
}

} // namespace keldan
