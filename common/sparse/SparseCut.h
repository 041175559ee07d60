// Cuts a sparse document out of its source's text.
//
// The selected nodes are marked where they are in the source, MSXML writes the source as text, and one pass over that
// text keeps the marked nodes and the tags around them. The time is linear in the source, for any selection. Marks are
// random, so that no document can contain text that looks like one. One thread at a time.
#pragma once

#include "common/com/bstr.h"
#include "common/com/com_ptr.h"
#include "common/xml/msxml.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace vorna {

class SparseCut {
  public:
    // xml: the text that source was loaded from. Throws result_error if there can be no marks.
    SparseCut(IXMLDOMDocument* source, std::wstring_view xml);

    // Marks a node of the source, which keeps the mark. Call it for the nodes in document order. Null and nodes that
    // cannot be part of the result are ignored; a node that has siblings directly below the document is logged.
    void Mark(IXMLDOMNode* selected);

    // The sparse document. markup: the source's root element with its marks, as MSXML writes it. Call it once.
    std::wstring Write(std::wstring_view markup);

  private:
    struct Marks {
        // The element is selected, with all its content.
        bool element = false;
        // One of its attributes is selected.
        bool attribute = false;
    };

    // What comes of a piece of markup or text, because of the one before it.
    enum class Next {
        AsUsual,
        // It is the node that was marked.
        Selected,
        // MSXML writes a CDATA section as several if its text has the end of one.
        SelectedIfData
    };

    void MarkElement(IXMLDOMElement* element);
    void MarkAttribute(IXMLDOMNode* attribute);
    void MarkPlace(IXMLDOMNode* node);

    Marks ReadMarks(std::wstring_view tag) const;
    void WriteStart(std::wstring_view tag, bool hasEndTag);
    void WriteEnd(std::wstring_view tag);
    // Comments, processing instructions and CDATA sections.
    void WriteOther(std::wstring_view markup, bool isData);
    void WriteText(std::wstring_view text);
    // Writes the tags of the ancestors that are not written yet; the last one without its end.
    void WriteAncestors();
    // Writes a tag without its marks.
    void WriteTag(std::wstring_view tag);
    void WriteMarkedValue(std::wstring_view value);
    void CloseTag();
    void Append(std::wstring_view piece);

    // A selected element has an attribute of this name. The value of a selected attribute begins with it, and has it
    // for each carriage return.
    bstr mark_;
    bstr noData_;
    // A processing instruction of that name; before any other selected node is a copy of it.
    com_ptr<IXMLDOMNode> placeMark_;
    Next next_ = Next::AsUsual;
    // MSXML writes two characters for each line end; the result has one unless the source has carriage returns.
    bool keepReturns_;
    // True after the first selected element: those that follow cannot be the root element.
    bool belowRoot_ = false;

    std::wstring result_;
    // The start tags of the open elements that are not part of a selected one, and how many of them are written.
    std::vector<std::wstring_view> ancestors_;
    std::size_t ancestorsWritten_ = 0;
    // The number of open elements from the selected one inwards, including it.
    std::size_t depthInSelected_ = 0;
    // The last tag is written without its end, which will be ">" or, if no content follows, "/>".
    bool tagOpen_ = false;
};

} // namespace vorna
