#include "common/sparse/XPathCost.h"

#include <algorithm>
#include <cstdlib>
#include <set>
#include <string>

namespace vorna {

namespace {

constexpr double MOST_VISITS = 1e9;

enum class Axis { Self, Parent, Child, Attribute, Namespace, Descendant, Ancestor, Sibling, Anywhere };

// An expression in a predicate is evaluated for many context nodes. These are all its evaluations together.
struct Evaluations {
    double count;
    // At most that many have the same context node.
    double ofOneNode;
};

// What all evaluations of an expression select.
struct Selection {
    double total = 0;
    // At most that many evaluations select the same node.
    double ofOneNode = 0;
    // At most by one evaluation.
    double atOnce = 0;
    // Attributes and nodes without children: their value is not put together from other nodes.
    bool leaves = false;
};

struct NodeTest {
    // The local name; empty if the test is not for a name.
    std::wstring_view name;
    bool leaves = false;
};

Axis AxisOf(std::wstring_view name) {
    if (name == L"self")
        return Axis::Self;
    if (name == L"parent")
        return Axis::Parent;
    if (name == L"attribute")
        return Axis::Attribute;
    if (name == L"namespace")
        return Axis::Namespace;
    if (name.starts_with(L"descendant"))
        return Axis::Descendant;
    if (name.starts_with(L"ancestor"))
        return Axis::Ancestor;
    if (name.ends_with(L"-sibling"))
        return Axis::Sibling;
    return name == L"child" ? Axis::Child : Axis::Anywhere;
}

bool IsNodeType(std::wstring_view name) {
    return name == L"node" || name == L"text" || name == L"comment" || name == L"processing-instruction";
}

std::wstring_view LocalName(std::wstring_view name) {
    return name.substr(name.find(L':') + 1);
}

// Reads the expression as its grammar says, and adds up what each step costs in all evaluations together: a step from
// different nodes to their children visits no node twice, however many nodes there are, while a step from the root
// costs the same in each evaluation.
class Estimate {
  public:
    Estimate(const std::vector<XPathToken>& xpath, const DocumentShape& shape) : tokens_(xpath), shape_(shape) {}

    double Cost() {
        Expression({1, 1});
        return cost_;
    }

  private:
    const XPathToken& Peek(std::size_t ahead = 0) const {
        return tokens_[std::min(position_ + ahead, tokens_.size() - 1)];
    }
    bool At(std::wstring_view symbol, std::size_t ahead = 0) const {
        const XPathToken& token = Peek(ahead);
        return token.kind == XPathTokenKind::Symbol && token.text == symbol;
    }
    bool Take(std::wstring_view symbol) {
        const bool found = At(symbol);
        position_ += found ? 1 : 0;
        return found;
    }
    // Syntax errors are MSXML's to report.
    void TakeOrEnd(std::wstring_view symbol) {
        if (!Take(symbol))
            position_ = tokens_.size();
    }

    Selection Expression(const Evaluations& evaluations);
    Selection Union(const Evaluations& evaluations);
    Selection Path(const Evaluations& evaluations);
    Selection Primary(const Evaluations& evaluations);
    Selection Function(const Evaluations& evaluations);
    Selection Step(const Selection& from, bool anyDepth, double evaluations);
    // Takes the node test of a step.
    NodeTest Test(Axis axis);
    Selection Walk(const Selection& from, Axis axis, const NodeTest& test, double evaluations, bool anyDepth);
    Selection Reach(const Selection& from, Axis axis, const NodeTest& test, double position);
    Selection ReachAttributes(const Selection& from, Axis axis, const NodeTest& test);
    // atMost: what a predicate that is a number leaves.
    void Predicates(Selection& candidates, const Selection& atMost);
    // The number that the next predicate consists of; 0 if it is not a number.
    double Position() const;
    void AddValues(const Selection& selection);

    const std::vector<XPathToken>& tokens_;
    const DocumentShape& shape_;
    std::size_t position_ = 0;
    double cost_ = 0;
};

Selection Estimate::Expression(const Evaluations& evaluations) {
    Selection left = Union(evaluations);
    bool single = true;
    while (Peek().kind == XPathTokenKind::Operator) {
        const std::wstring_view sign = Peek().text;
        ++position_;
        const Selection right = Union(evaluations);
        if (sign != L"and" && sign != L"or") {
            AddValues(left);
            AddValues(right);
            // Each node of one side is compared with each of the other.
            cost_ += std::min(left.total * right.atOnce, right.total * left.atOnce);
        }
        left = right;
        single = false;
    }
    return single ? left : Selection();
}

Selection Estimate::Union(const Evaluations& evaluations) {
    while (Peek().kind == XPathTokenKind::Operator && Peek().text == L"-")
        ++position_;
    Selection all = Path(evaluations);
    while (Peek().kind == XPathTokenKind::Operator && Peek().text == L"|") {
        ++position_;
        const Selection more = Path(evaluations);
        all.total += more.total;
        all.ofOneNode = std::min(all.ofOneNode + more.ofOneNode, evaluations.count);
        all.atOnce += more.atOnce;
        all.leaves = all.leaves && more.leaves;
    }
    return all;
}

Selection Estimate::Path(const Evaluations& evaluations) {
    cost_ += evaluations.count;
    const XPathToken& first = Peek();
    Selection nodes{evaluations.count, evaluations.ofOneNode, 1, false};
    bool anyDepth = false;
    if (At(L"/") || At(L"//")) {
        nodes.ofOneNode = evaluations.count;
        anyDepth = At(L"//");
        ++position_;
        const bool goesOn = Peek().kind == XPathTokenKind::Name || At(L".") || At(L"..") || At(L"@");
        if (!anyDepth && !goesOn)
            return nodes;
    } else if (first.kind == XPathTokenKind::Literal || first.kind == XPathTokenKind::Number || At(L"(") || At(L"$") ||
               (first.kind == XPathTokenKind::Name && At(L"(", 1) && !IsNodeType(first.text))) {
        const Selection context = nodes;
        nodes = Primary(evaluations);
        Predicates(nodes, context);
        if (!At(L"/") && !At(L"//"))
            return nodes;
        anyDepth = At(L"//");
        ++position_;
    }
    for (;;) {
        nodes = Step(nodes, anyDepth, evaluations.count);
        anyDepth = At(L"//");
        if (!At(L"/") && !anyDepth)
            return nodes;
        ++position_;
    }
}

Selection Estimate::Primary(const Evaluations& evaluations) {
    if (Take(L"(")) {
        const Selection inner = Expression(evaluations);
        TakeOrEnd(L")");
        return inner;
    }
    if (Peek().kind == XPathTokenKind::Name)
        return Function(evaluations);
    // A literal, a number or a variable, which has two tokens.
    position_ += At(L"$") ? 2 : 1;
    return {};
}

Selection Estimate::Function(const Evaluations& evaluations) {
    const std::wstring_view name = Peek().text;
    // These do not look at the value of a node; without argument neither does any other that reads none.
    const bool values = name != L"count" && name != L"not" && name != L"boolean" && name != L"name" &&
                        name != L"local-name" && name != L"namespace-uri";
    position_ += 2;
    if (At(L")") && (name == L"string" || name == L"string-length" || name == L"normalize-space" || name == L"number"))
        AddValues({evaluations.count, evaluations.ofOneNode, 1, false});
    while (Peek().kind != XPathTokenKind::End && !At(L")")) {
        const Selection argument = Expression(evaluations);
        if (values)
            AddValues(argument);
        if (!Take(L",") && !At(L")"))
            position_ = tokens_.size();
    }
    TakeOrEnd(L")");
    if (name != L"id")
        return {};
    return {evaluations.count * shape_.nodes, evaluations.count, shape_.nodes, false};
}

Selection Estimate::Step(const Selection& from, bool anyDepth, double evaluations) {
    const NodeTest anyNode;
    const bool self = At(L".");
    if (self || At(L"..")) {
        ++position_;
        const Selection start = anyDepth ? Walk(from, Axis::Descendant, anyNode, evaluations, true) : from;
        return self ? start : Walk(start, Axis::Parent, anyNode, evaluations, false);
    }
    Axis axis = Axis::Child;
    if (Take(L"@")) {
        axis = Axis::Attribute;
    } else if (At(L"::", 1)) {
        axis = AxisOf(Peek().text);
        position_ += 2;
    }
    const NodeTest test = Test(axis);
    if (anyDepth && axis != Axis::Child)
        return Walk(Walk(from, Axis::Descendant, anyNode, evaluations, true), axis, test, evaluations, false);
    return Walk(from, anyDepth ? Axis::Descendant : axis, test, evaluations, anyDepth);
}

NodeTest Estimate::Test(Axis axis) {
    NodeTest test;
    test.leaves = axis == Axis::Attribute || axis == Axis::Namespace;
    if (Peek().kind != XPathTokenKind::Name) {
        position_ = tokens_.size();
        return test;
    }
    const std::wstring_view name = Peek().text;
    ++position_;
    if (!At(L"(") || !IsNodeType(name)) {
        test.name = LocalName(name);
        return test;
    }
    test.leaves = test.leaves || name != L"node";
    ++position_;
    if (Peek().kind == XPathTokenKind::Literal)
        ++position_;
    TakeOrEnd(L")");
    return test;
}

// anyDepth: the step is part of "//", so positions count below each parent, and MSXML finds no node twice.
Selection Estimate::Walk(const Selection& from, Axis axis, const NodeTest& test, double evaluations, bool anyDepth) {
    Selection nodes = Reach(from, axis, test, anyDepth ? 0 : Position());
    const double reached = nodes.total;
    Predicates(nodes, anyDepth ? nodes : from);
    // From here on no node is in the selection of one evaluation twice.
    nodes.ofOneNode = std::min(nodes.ofOneNode, evaluations);
    nodes.total = std::min(nodes.total, evaluations * nodes.atOnce);
    const bool overlaps = axis != Axis::Self && axis != Axis::Child && axis != Axis::Attribute && !anyDepth;
    if (overlaps && from.atOnce > 1) {
        // MSXML compares each node with all those that it has. A comparison is cheaper than a visit. What a path
        // outside predicates costs once is not worth refusing ordinary expressions on large documents.
        const bool weighs = evaluations > 1 || axis == Axis::Sibling || axis == Axis::Anywhere;
        cost_ += reached * nodes.atOnce / (weighs ? 16 : 4096);
    }
    return nodes;
}

// What the step selects before its predicates, with the nodes that it reaches several times in one evaluation.
// position: if not 0, only this many nodes are taken from each node.
Selection Estimate::Reach(const Selection& from, Axis axis, const NodeTest& test, double position) {
    const DocumentShape::Elements fitting = shape_.Named(test.name);
    double visits = from.total;
    Selection to{from.total, from.ofOneNode, from.atOnce, test.leaves};
    switch (axis) {
    case Axis::Self:
        break;
    case Axis::Parent:
        to.ofOneNode = from.ofOneNode * (shape_.children + shape_.attributesOfOne);
        break;
    case Axis::Child:
        visits = std::min(from.total * shape_.children, from.ofOneNode * shape_.nodes);
        to.total = std::min(visits, from.total * fitting.ofOneParent);
        to.atOnce = from.atOnce * fitting.ofOneParent;
        break;
    case Axis::Attribute:
    case Axis::Namespace:
        return ReachAttributes(from, axis, test);
    case Axis::Descendant:
        to.total = visits = std::min(from.total * shape_.nodes, from.ofOneNode * shape_.depths);
        to.ofOneNode = std::min(from.ofOneNode * shape_.depth, from.total);
        to.atOnce = shape_.nodes;
        break;
    case Axis::Ancestor:
        to.total = visits = from.total * shape_.depth;
        to.ofOneNode = std::min(from.ofOneNode * shape_.nodes, from.total);
        to.atOnce = from.atOnce * shape_.depth;
        break;
    case Axis::Sibling:
    case Axis::Anywhere: {
        const bool sibling = axis == Axis::Sibling;
        const bool anyNode = test.name.empty() && !test.leaves;
        const double most = sibling ? shape_.children : shape_.nodes;
        const double gap = anyNode ? 1 : sibling ? fitting.siblingGap : fitting.documentGap;
        const double reach = position > 0 ? std::min(most, position * gap) : most;
        visits = from.total * reach;
        to.total = std::min(visits, from.total * (sibling ? fitting.ofOneParent : fitting.count));
        to.ofOneNode = std::min(from.ofOneNode * reach, from.total);
        to.atOnce = fitting.count;
        break;
    }
    }
    cost_ += visits + from.total;
    to.total = std::min(to.total, to.ofOneNode * fitting.count);
    to.atOnce = std::min(to.atOnce, fitting.count);
    if (position > 0) {
        to.total = std::min(to.total, from.total * position);
        to.ofOneNode = std::min(to.ofOneNode, to.total);
    }
    return to;
}

Selection Estimate::ReachAttributes(const Selection& from, Axis axis, const NodeTest& test) {
    const bool namespaces = axis == Axis::Namespace;
    // An element has the namespaces of those above it.
    const double visits = std::min(from.total * shape_.attributesOfOne * (namespaces ? shape_.depth : 1),
                                   from.ofOneNode * shape_.attributes * (namespaces ? shape_.nodes : 1));
    cost_ += visits + from.total;
    if (!namespaces && !test.name.empty() && test.name != L"*")
        return {from.total, from.ofOneNode, from.atOnce, true};
    return {visits, from.ofOneNode, std::min(visits, from.atOnce * shape_.attributesOfOne), true};
}

void Estimate::Predicates(Selection& candidates, const Selection& atMost) {
    while (At(L"[")) {
        const bool one = Position() > 0;
        ++position_;
        Expression({candidates.total, candidates.ofOneNode});
        TakeOrEnd(L"]");
        if (one) {
            candidates.total = std::min(candidates.total, atMost.total);
            candidates.atOnce = std::min(candidates.atOnce, atMost.atOnce);
        }
    }
}

double Estimate::Position() const {
    if (!At(L"[") || Peek(1).kind != XPathTokenKind::Number || !At(L"]", 2))
        return 0;
    return std::clamp(std::wcstod(std::wstring(Peek(1).text).c_str(), nullptr), 1.0, MOST_VISITS);
}

void Estimate::AddValues(const Selection& selection) {
    if (selection.leaves)
        cost_ += selection.total;
    else
        cost_ += std::min(selection.total * (shape_.nodes + shape_.text),
                          selection.ofOneNode * (shape_.depths + shape_.depth * shape_.text));
}

} // namespace

double XPathCost(const std::vector<XPathToken>& xpath, const DocumentShape& shape) {
    return Estimate(xpath, shape).Cost();
}

bool TakesTooLong(const std::vector<XPathToken>& xpath, std::wstring_view xml) {
    if (XPathCost(xpath, DocumentShape::Largest(xml.size())) <= MOST_VISITS)
        return false;
    std::set<std::wstring_view> names;
    for (std::size_t i = 0; i + 1 < xpath.size(); ++i) {
        const std::wstring_view next = xpath[i + 1].text;
        if (xpath[i].kind == XPathTokenKind::Name && next != L"(" && next != L"::")
            names.insert(LocalName(xpath[i].text));
    }
    return XPathCost(xpath, DocumentShape::Of(xml, names)) > MOST_VISITS;
}

} // namespace vorna
