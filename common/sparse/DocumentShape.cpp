#include "common/sparse/DocumentShape.h"

#include "common/xml/XmlTags.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace vorna {

namespace {

constexpr double CHARACTERS_OF_A_VISIT = 64;
constexpr std::size_t MOST_NAMES = 32;
// The shortest attribute, with the blank before it: a="".
constexpr std::size_t SHORTEST_ATTRIBUTE = 5;

std::wstring_view LocalName(std::wstring_view tag) {
    std::wstring_view name = tag.substr(1, tag.find_first_of(L" \t\r\n/>") - 1);
    name.remove_prefix(name.find(L':') + 1);
    return name;
}

class ShapeScan {
  public:
    explicit ShapeScan(const std::set<std::wstring_view>& names) {
        for (const std::wstring_view name : names)
            if (shape_.elements.size() < MOST_NAMES)
                counted_.push_back({&shape_.elements[name], name, 0});
        // The document node.
        Open();
    }

    DocumentShape Scan(std::wstring_view xml) {
        XmlMarkupWalk walk(xml);
        std::size_t read = 0;
        while (walk.Next()) {
            if (walk.begin() > read)
                AddNode();
            read = walk.end();
            if (walk.Kind() == XmlMarkup::EndTag)
                Close();
            else
                AddNode();
            if (walk.OpensElement())
                AddElement(walk.Markup(), walk.Kind() == XmlMarkup::StartTag);
        }
        while (!children_.empty())
            Close();
        for (const Counted& one : counted_)
            Raise(one.elements->documentGap, shape_.nodes - one.last);
        shape_.text = static_cast<double>(xml.size()) / CHARACTERS_OF_A_VISIT;
        return std::move(shape_);
    }

  private:
    struct Counted {
        DocumentShape::Elements* elements;
        std::wstring_view name;
        // The number of the last element of the name.
        double last;
    };
    // The elements of one name below one open element.
    struct Below {
        double count = 0;
        double last = 0;
    };

    static void Raise(double& most, double value) { most = std::max(most, value); }

    void AddNode() {
        ++shape_.nodes;
        if (!children_.empty())
            Raise(shape_.children, ++children_.back());
        shape_.depths += static_cast<double>(children_.size()) + 1;
        Raise(shape_.depth, static_cast<double>(children_.size()) + 1);
    }

    void AddElement(std::wstring_view tag, bool opens) {
        const std::size_t most = tag.size() / SHORTEST_ATTRIBUTE;
        const auto attributes = static_cast<double>(most);
        shape_.attributes += attributes;
        Raise(shape_.attributesOfOne, attributes);
        const std::wstring_view name = LocalName(tag);
        for (std::size_t i = 0; i < counted_.size() && !children_.empty(); ++i) {
            Counted& one = counted_[i];
            if (one.name != name && one.name != L"*")
                continue;
            Below& below = below_[below_.size() - counted_.size() + i];
            ++one.elements->count;
            Raise(one.elements->ofOneParent, ++below.count);
            Raise(one.elements->siblingGap, children_.back() - below.last);
            Raise(one.elements->documentGap, shape_.nodes - one.last);
            below.last = children_.back();
            one.last = shape_.nodes;
        }
        if (opens)
            Open();
    }

    void Open() {
        children_.push_back(0);
        below_.resize(below_.size() + counted_.size());
    }

    void Close() {
        if (children_.empty())
            return;
        for (std::size_t i = 0; i < counted_.size(); ++i) {
            const Below& below = below_[below_.size() - counted_.size() + i];
            Raise(counted_[i].elements->siblingGap, children_.back() - below.last);
        }
        children_.pop_back();
        below_.resize(below_.size() - counted_.size());
    }

    DocumentShape shape_;
    std::vector<Counted> counted_;
    // For each open element its children so far, and for each counted name those of them that have it.
    std::vector<double> children_;
    std::vector<Below> below_;
};

} // namespace

DocumentShape DocumentShape::Largest(std::size_t characters) {
    // An element takes at least four characters, the text between two elements one.
    const double nodes = static_cast<double>(characters) / 2 + 1;
    // Deeper documents are rare, and current versions of MSXML refuse them.
    constexpr double MOST_LEVELS = 256;
    DocumentShape shape;
    shape.nodes = shape.attributes = shape.children = shape.attributesOfOne = nodes;
    shape.depth = std::min(nodes, MOST_LEVELS);
    shape.depths = nodes * shape.depth;
    shape.text = static_cast<double>(characters) / CHARACTERS_OF_A_VISIT;
    return shape;
}

DocumentShape DocumentShape::Of(std::wstring_view xml, const std::set<std::wstring_view>& names) {
    return ShapeScan(names).Scan(xml);
}

DocumentShape::Elements DocumentShape::Named(std::wstring_view localName) const {
    const auto found = elements.find(localName);
    return found == elements.end() ? Elements{nodes, children, children, nodes} : found->second;
}

} // namespace vorna
