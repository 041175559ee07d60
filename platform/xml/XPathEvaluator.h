// Evaluates compiled XPaths on one document.
#pragma once

#include "platform/xml/XPathExpression.h"
#include "platform/xml/XPathValue.h"

#include <cstdint>
#include <string>
#include <vector>

namespace keldan {

class XPathEvaluator {
  public:
    explicit XPathEvaluator(const XmlDocument& document) : document_(document) {}

    // The nodes that the expression selects from the document. Throws failure: E_INVALIDARG where it does not select
    // nodes, 0x80070718 (ERROR_NOT_ENOUGH_QUOTA) where it would visit more nodes than MaximumWork.
    node_set Select(const xpath_expression& expression);

  private:
    // Nodes and units of text looked at in one evaluation: a second or two, where a nested "//" has no end in sight.
    static constexpr std::uint64_t MaximumWork = 100'000'000;

    struct context {
        node_index node;
        size_t position;
        size_t size;
    };

    void spend(std::uint64_t work);
    xpath_value evaluate(const xpath_expression& expression, const context& here);
    xpath_value chain(const xpath_expression& expression, const context& here);
    xpath_value call(const xpath_expression& expression, const context& here);
    node_set unite(const xpath_expression& expression, const context& here);
    node_set walk(const xpath_expression& expression, const context& here);
    node_set step(const xpath_step& step, const node_set& from);
    void gather(const xpath_step& step, node_index from, node_set& found);
    void gatherSiblings(const xpath_step& step, node_index from, bool following, node_set& found);
    bool matches(const xpath_step& step, node_index node) const;
    // Keeps what the predicate holds for; nodes are in the order of their positions.
    void filter(const xpath_expression& predicate, node_set& nodes);
    bool compare(XPathOperator meaning, const xpath_value& left, const xpath_value& right);
    bool compareAtoms(XPathOperator meaning, const xpath_value& left, const xpath_value& right);
    node_index firstChild(node_index node) const;
    node_index named(const xpath_expression& expression, const context& here);

    std::wstring textOf(node_index node);
    std::wstring asText(const xpath_value& value);
    double asNumber(const xpath_value& value);
    bool asFlag(const xpath_value& value);

    const XmlDocument& document_;
    std::uint64_t work_ = 0;
};

} // namespace keldan
