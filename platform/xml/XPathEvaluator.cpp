#include "platform/xml/XPathEvaluator.h"

#include "platform/xml/Failure.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>

namespace keldan {

namespace {

using Kind = xpath_value::Kind;

bool IsOutside(NodeKind kind) {
    return kind == NodeKind::Attribute || kind == NodeKind::Namespace;
}

bool Holds(XPathOperator meaning, double left, double right) {
    switch (meaning) {
    case XPathOperator::Equal:
        return left == right;
    case XPathOperator::NotEqual:
        return left != right;
    case XPathOperator::Less:
        return left < right;
    case XPathOperator::LessEqual:
        return left <= right;
    case XPathOperator::Greater:
        return left > right;
    default:
        return left >= right;
    }
}

} // namespace

node_set XPathEvaluator::Select(const xpath_expression& expression) {
    if (!expression.givesNodes())
        throw failure{E_INVALIDARG};
    return evaluate(expression, {0, 1, 1}).nodes;
}

void XPathEvaluator::spend(std::uint64_t work) {
    work_ += work;
    if (work_ > MaximumWork)
        throw failure{vorna::result_from_win32(ERROR_NOT_ENOUGH_QUOTA)};
}

xpath_value XPathEvaluator::evaluate(const xpath_expression& expression, const context& here) {
    spend(1);
    switch (expression.kind) {
    case ExpressionKind::Number:
        return xpath_value::OfNumber(expression.number);
    case ExpressionKind::Literal:
        return xpath_value::OfText(expression.text);
    case ExpressionKind::Chain:
        return chain(expression, here);
    case ExpressionKind::Negate:
        return xpath_value::OfNumber(-asNumber(evaluate(*expression.operands[0], here)));
    case ExpressionKind::Union:
        return xpath_value::OfNodes(unite(expression, here));
    case ExpressionKind::Path:
        return xpath_value::OfNodes(walk(expression, here));
    case ExpressionKind::Filter: {
        node_set nodes = evaluate(*expression.operands[0], here).nodes;
        for (const auto& predicate : expression.steps[0].predicates)
            filter(*predicate, nodes);
        return xpath_value::OfNodes(std::move(nodes));
    }
    default:
        return call(expression, here);
    }
}

xpath_value XPathEvaluator::chain(const xpath_expression& expression, const context& here) {
    xpath_value left = evaluate(*expression.operands[0], here);
    for (size_t i = 0; i < expression.operators.size(); ++i) {
        const XPathOperator meaning = expression.operators[i];
        if (meaning == XPathOperator::Or || meaning == XPathOperator::And) {
            const bool settled = meaning == XPathOperator::Or;
            if (asFlag(left) == settled)
                return xpath_value::OfFlag(settled);
            left = xpath_value::OfFlag(asFlag(evaluate(*expression.operands[i + 1], here)));
            continue;
        }
        const xpath_value right = evaluate(*expression.operands[i + 1], here);
        if (meaning < XPathOperator::Add) {
            left = xpath_value::OfFlag(compare(meaning, left, right));
            continue;
        }
        const double a = asNumber(left);
        const double b = asNumber(right);
        left = xpath_value::OfNumber(meaning == XPathOperator::Add        ? a + b
                                     : meaning == XPathOperator::Subtract ? a - b
                                     : meaning == XPathOperator::Multiply ? a * b
                                     : meaning == XPathOperator::Divide   ? a / b
                                                                          : std::fmod(a, b));
    }
    return left;
}

bool XPathEvaluator::compareAtoms(XPathOperator meaning, const xpath_value& left, const xpath_value& right) {
    if (meaning == XPathOperator::Equal || meaning == XPathOperator::NotEqual) {
        const bool wanted = meaning == XPathOperator::Equal;
        if (left.kind == Kind::Flag || right.kind == Kind::Flag)
            return (asFlag(left) == asFlag(right)) == wanted;
        if (left.kind == Kind::Text && right.kind == Kind::Text)
            return (left.text == right.text) == wanted;
    }
    return Holds(meaning, asNumber(left), asNumber(right));
}

bool XPathEvaluator::compare(XPathOperator meaning, const xpath_value& left, const xpath_value& right) {
    if (left.kind != Kind::Nodes && right.kind != Kind::Nodes)
        return compareAtoms(meaning, left, right);
    if (left.kind == Kind::Flag || right.kind == Kind::Flag)
        return compareAtoms(meaning, xpath_value::OfFlag(asFlag(left)), xpath_value::OfFlag(asFlag(right)));
    const bool both = left.kind == Kind::Nodes && right.kind == Kind::Nodes;
    const node_set& nodes = left.kind == Kind::Nodes ? left.nodes : right.nodes;
    for (node_index node : nodes) {
        const xpath_value text = xpath_value::OfText(textOf(node));
        if (!both) {
            if (left.kind == Kind::Nodes ? compareAtoms(meaning, text, right) : compareAtoms(meaning, left, text))
                return true;
            continue;
        }
        for (node_index other : right.nodes)
            if (compareAtoms(meaning, text, xpath_value::OfText(textOf(other))))
                return true;
    }
    return false;
}

node_set XPathEvaluator::unite(const xpath_expression& expression, const context& here) {
    node_set all;
    for (const auto& operand : expression.operands) {
        const node_set nodes = evaluate(*operand, here).nodes;
        all.insert(all.end(), nodes.begin(), nodes.end());
    }
    std::sort(all.begin(), all.end());
    all.erase(std::unique(all.begin(), all.end()), all.end());
    return all;
}

node_set XPathEvaluator::walk(const xpath_expression& expression, const context& here) {
    node_set nodes;
    if (!expression.operands.empty())
        nodes = evaluate(*expression.operands[0], here).nodes;
    else
        nodes.push_back(expression.absolute ? 0 : here.node);
    for (const auto& one : expression.steps)
        nodes = step(one, nodes);
    return nodes;
}

node_set XPathEvaluator::step(const xpath_step& step, const node_set& from) {
    node_set all;
    const bool down = step.axis == Axis::Descendant || step.axis == Axis::DescendantOrSelf;
    node_index covered = 0;
    for (node_index node : from) {
        // What an earlier node has covered need not be walked again.
        if (down && !step.positional && node < covered && !IsOutside(document_[node].kind))
            continue;
        covered = std::max(covered, document_[node].after);
        if (!step.positional) {
            gather(step, node, all);
            continue;
        }
        node_set found;
        gather(step, node, found);
        for (const auto& predicate : step.predicates)
            filter(*predicate, found);
        all.insert(all.end(), found.begin(), found.end());
    }
    if (!std::is_sorted(all.begin(), all.end()))
        std::sort(all.begin(), all.end());
    all.erase(std::unique(all.begin(), all.end()), all.end());
    if (!step.positional)
        for (const auto& predicate : step.predicates)
            filter(*predicate, all);
    return all;
}

bool XPathEvaluator::matches(const xpath_step& step, node_index index) const {
    const xml_node& node = document_[index];
    switch (step.test) {
    case NodeTest::Any:
        return true;
    case NodeTest::Text:
        return node.kind == NodeKind::Text;
    case NodeTest::Comment:
        return node.kind == NodeKind::Comment;
    case NodeTest::Instruction:
        return node.kind == NodeKind::Instruction && (step.name.empty() || document_.qualifiedName(index) == step.name);
    default:
        break;
    }
    const NodeKind principal = step.axis == Axis::Attribute   ? NodeKind::Attribute
                               : step.axis == Axis::Namespace ? NodeKind::Namespace
                                                              : NodeKind::Element;
    if (node.kind != principal)
        return false;
    if (step.test == NodeTest::AnyName)
        return true;
    return node.space == step.space &&
           (step.test == NodeTest::AnyNameInSpace || document_.localName(index) == step.name);
}

node_index XPathEvaluator::firstChild(node_index node) const {
    node_index child = node + 1;
    while (child < document_[node].after && IsOutside(document_[child].kind))
        ++child;
    return child;
}

void XPathEvaluator::gatherSiblings(const xpath_step& step, node_index from, bool following, node_set& found) {
    if (from == 0 || IsOutside(document_[from].kind))
        return;
    const node_index parent = document_[from].parent;
    const node_index end = following ? document_[parent].after : from;
    const size_t first = found.size();
    for (node_index i = following ? document_[from].after : firstChild(parent); i < end; i = document_[i].after) {
        spend(1);
        if (matches(step, i))
            found.push_back(i);
    }
    if (!following)
        std::reverse(found.begin() + static_cast<std::ptrdiff_t>(first), found.end());
}

void XPathEvaluator::gather(const xpath_step& step, node_index from, node_set& found) {
    const xml_node& origin = document_[from];
    const auto visit = [&](node_index node) {
        spend(1);
        if (matches(step, node))
            found.push_back(node);
    };
    const auto visitRange = [&](node_index begin, node_index end) {
        for (node_index i = begin; i < end; ++i)
            if (!IsOutside(document_[i].kind))
                visit(i);
    };
    switch (step.axis) {
    case Axis::Self:
        return visit(from);
    case Axis::Parent:
        if (origin.parent != NO_NODE)
            visit(origin.parent);
        return;
    case Axis::Ancestor:
    case Axis::AncestorOrSelf:
        for (node_index i = step.axis == Axis::Ancestor ? origin.parent : from; i != NO_NODE; i = document_[i].parent)
            visit(i);
        return;
    case Axis::Attribute:
    case Axis::Namespace:
        if (origin.kind == NodeKind::Element)
            for (node_index i = from + 1; i < origin.after && IsOutside(document_[i].kind); ++i)
                if ((document_[i].kind == NodeKind::Attribute) == (step.axis == Axis::Attribute))
                    visit(i);
        return;
    case Axis::Child:
        for (node_index i = firstChild(from); i < origin.after; i = document_[i].after)
            visit(i);
        return;
    case Axis::DescendantOrSelf:
        visit(from);
        return visitRange(from + 1, origin.after);
    case Axis::Descendant:
        return visitRange(from + 1, origin.after);
    case Axis::Following:
        return visitRange(origin.after, document_.size());
    case Axis::Preceding:
        for (node_index i = from; i-- > 1;)
            if (document_[i].after <= from && !IsOutside(document_[i].kind))
                visit(i);
        return;
    case Axis::FollowingSibling:
        return gatherSiblings(step, from, true, found);
    case Axis::PrecedingSibling:
        return gatherSiblings(step, from, false, found);
    }
}

void XPathEvaluator::filter(const xpath_expression& predicate, node_set& nodes) {
    size_t kept = 0;
    const size_t size = nodes.size();
    for (size_t i = 0; i < size; ++i) {
        const xpath_value value = evaluate(predicate, {nodes[i], i + 1, size});
        if (value.kind == Kind::Number ? value.number == static_cast<double>(i + 1) : asFlag(value))
            nodes[kept++] = nodes[i];
    }
    nodes.resize(kept);
}

std::wstring XPathEvaluator::textOf(node_index node) {
    std::wstring text;
    document_.appendText(node, text);
    spend(text.size() / 8 + (document_[node].after - node) / 4);
    return text;
}

std::wstring XPathEvaluator::asText(const xpath_value& value) {
    switch (value.kind) {
    case Kind::Nodes:
        return value.nodes.empty() ? std::wstring() : textOf(value.nodes[0]);
    case Kind::Number:
        return TextOfNumber(value.number);
    case Kind::Text:
        return value.text;
    default:
        return value.flag ? L"true" : L"false";
    }
}

double XPathEvaluator::asNumber(const xpath_value& value) {
    switch (value.kind) {
    case Kind::Number:
        return value.number;
    case Kind::Flag:
        return value.flag ? 1 : 0;
    default:
        return NumberOfText(asText(value));
    }
}

bool XPathEvaluator::asFlag(const xpath_value& value) {
    switch (value.kind) {
    case Kind::Nodes:
        return !value.nodes.empty();
    case Kind::Number:
        return value.number != 0 && !std::isnan(value.number);
    case Kind::Text:
        return !value.text.empty();
    default:
        return value.flag;
    }
}

} // namespace keldan
