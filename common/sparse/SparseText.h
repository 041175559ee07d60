// Writes the text of a document that was built node by node as it stood in the source: without namespace declarations
// that a clone repeats from its new ancestors (native MSXML leaves them out, other implementations do not).
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace vorna {

class SparseText {
  public:
    // built: the root element's text. elements: the elements made, in the order of their start tags, and whether each
    // was copied whole; what lies in such a one is not looked at. Both must outlive the object.
    SparseText(std::wstring_view built, const std::vector<bool>& elements, bool keepReturns)
        : built_(built), elements_(elements), keepReturns_(keepReturns) {}

    std::wstring Write();

  private:
    struct Binding {
        std::wstring_view name;
        std::wstring_view value;
        std::size_t depth;
    };

    void WriteStartTag(std::wstring_view markup, std::size_t depth, bool opensScope);
    bool IsInScope(std::wstring_view name, std::wstring_view value) const;
    void Append(std::wstring_view piece);

    std::wstring_view built_;
    const std::vector<bool>& elements_;
    bool keepReturns_;
    std::wstring text_;
    std::vector<Binding> scope_;
};

} // namespace vorna
