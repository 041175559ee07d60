#include "common/sparse/SparseText.h"

#include "common/xml/XmlTags.h"

#include <utility>

namespace vorna {

std::wstring SparseText::Write() {
    text_.reserve(built_.size());
    std::size_t written = 0;
    // The depth of the element that the walk is in, and of the whole copy around it; 0 outside.
    std::size_t depth = 0;
    std::size_t whole = 0;
    std::size_t next = 0;
    XmlMarkupWalk walk(built_.find(L"xmlns") == std::wstring_view::npos ? std::wstring_view() : built_);
    while (walk.Next()) {
        if (walk.Kind() == XmlMarkup::EndTag) {
            if (depth == whole)
                whole = 0;
            while (!scope_.empty() && scope_.back().depth == depth)
                scope_.pop_back();
            --depth;
        } else if (walk.OpensElement()) {
            bool opens = walk.Kind() == XmlMarkup::StartTag;
            if (whole == 0 && next < elements_.size()) {
                bool copiedWhole = elements_[next++];
                Append(built_.substr(written, walk.begin() - written));
                WriteStartTag(walk.Markup(), depth + 1, opens && !copiedWhole);
                written = walk.end();
                if (copiedWhole && opens)
                    whole = depth + 1;
            }
            if (opens)
                ++depth;
        }
    }
    Append(built_.substr(written));
    return std::move(text_);
}

void SparseText::WriteStartTag(std::wstring_view markup, std::size_t depth, bool opensScope) {
    std::size_t written = 0;
    XmlAttributeWalk attributes(markup);
    while (attributes.Next()) {
        if (!attributes.IsNamespace())
            continue;
        if (IsInScope(attributes.Name(), attributes.Value())) {
            Append(markup.substr(written, attributes.begin() - written));
            written = attributes.end();
        } else if (opensScope) {
            scope_.push_back({attributes.Name(), attributes.Value(), depth});
        }
    }
    Append(markup.substr(written));
}

bool SparseText::IsInScope(std::wstring_view name, std::wstring_view value) const {
    for (auto binding = scope_.rbegin(); binding != scope_.rend(); ++binding)
        if (binding->name == name)
            return binding->value == value;
    return false;
}

void SparseText::Append(std::wstring_view piece) {
    AppendLines(text_, piece, keepReturns_);
}

} // namespace vorna
