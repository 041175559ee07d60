// Cuts a sparse document out of the source's text: the way for selections so large that building a second document
// would cost more than writing the first one out.
//
// The selected nodes are marked where they stand, MSXML writes the source, and one pass over the text keeps what is
// marked and the tags around it. The outcome is that of SparseBuilder. One thread at a time.
#pragma once

#include "common/com/bstr.h"
#include "common/xml/msxml.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace vorna {

class SparseCut {
  public:
    // mark must stand nowhere in the source's text. The source keeps the marks.
    explicit SparseCut(std::wstring_view mark)
        : name_(mark), token_(std::wstring(mark) + L":"), attribute_(mark), whole_(L"whole") {}

    // Nodes come in document order. S_FALSE: the node cannot be given (logged as SparseBuilder does).
    HRESULT Mark(IXMLDOMNode* selected);

    // text: the root element with its marks, as MSXML writes it.
    std::wstring Write(std::wstring_view text, bool keepReturns);

  private:
    HRESULT MarkElement(IXMLDOMNode* node);
    HRESULT MarkAttribute(IXMLDOMNode* node);
    HRESULT MarkCharacters(IXMLDOMNode* node);
    HRESULT MarkInstruction(IXMLDOMNode* node);

    struct Marks {
        bool whole = false;
        bool attribute = false;
    };
    Marks ReadMarks(std::wstring_view tag) const;
    void WriteElement(std::wstring_view tag, bool opens);
    void WriteEnd(std::wstring_view tag);
    void WriteOther(std::wstring_view markup);
    void WriteRun(std::wstring_view run);
    void WriteTag(std::wstring_view tag);
    // Writes the start tags around the place that are not written yet, and closes the last one.
    void WriteAncestors();
    void CloseTag();
    void Append(std::wstring_view piece);

    std::wstring name_;
    std::wstring token_;
    bstr attribute_;
    bstr whole_;
    // Whether the root element, if it was selected, has been passed.
    bool belowRoot_ = false;

    bool keepReturns_ = true;
    std::wstring text_;
    // The start tags around the place, and how many of them are written.
    std::vector<std::wstring_view> open_;
    std::size_t written_ = 0;
    // Elements open inside a marked one, itself included.
    std::size_t inside_ = 0;
    // The tag written last lacks its end: ">" or "/>", as there will be content or none.
    bool tagOpen_ = false;
};

} // namespace vorna
