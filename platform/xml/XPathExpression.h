// A compiled XPath 1.0 expression.
#pragma once

#include "platform/xml/XmlDocument.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace keldan {

enum class Axis {
    Ancestor,
    AncestorOrSelf,
    Attribute,
    Child,
    Descendant,
    DescendantOrSelf,
    Following,
    FollowingSibling,
    Namespace,
    Parent,
    Preceding,
    PrecedingSibling,
    Self
};

enum class NodeTest { Any, Text, Comment, Instruction, Name, AnyName, AnyNameInSpace };

enum class XPathOperator {
    Or,
    And,
    Equal,
    NotEqual,
    Less,
    LessEqual,
    Greater,
    GreaterEqual,
    Add,
    Subtract,
    Multiply,
    Divide,
    Modulo
};

enum class XPathFunction {
    Last,
    Position,
    Count,
    Id,
    LocalName,
    NamespaceUri,
    Name,
    String,
    Concat,
    StartsWith,
    Contains,
    SubstringBefore,
    SubstringAfter,
    Substring,
    StringLength,
    NormalizeSpace,
    Translate,
    Boolean,
    Not,
    True,
    False,
    Lang,
    Number,
    Sum,
    Floor,
    Ceiling,
    Round
};

struct xpath_expression;
using expression_ptr = std::unique_ptr<xpath_expression>;

struct xpath_step {
    Axis axis = Axis::Child;
    NodeTest test = NodeTest::Any;
    // Of Name and AnyNameInSpace: an index of the document's namespaces.
    std::uint32_t space = 0;
    // Of Name, and of Instruction where it names a target.
    std::wstring name;
    std::vector<expression_ptr> predicates;
    // True where a predicate may look at the position, so that each context node is filtered on its own.
    bool positional = false;
};

enum class ExpressionKind {
    Number,
    Literal,
    // operands[0] operators[0] operands[1] operators[1] ..., from the left.
    Chain,
    Negate,
    Union,
    // steps from the root (absolute), from operands[0] where there is one, or from the context node.
    Path,
    // operands[0] filtered by the predicates of steps[0].
    Filter,
    Call
};

struct xpath_expression {
    ExpressionKind kind = ExpressionKind::Number;
    double number = 0;
    std::wstring text;
    std::vector<expression_ptr> operands;
    std::vector<XPathOperator> operators;
    bool absolute = false;
    std::vector<xpath_step> steps;
    XPathFunction function = XPathFunction::True;

    // What the value is, known before it is evaluated.
    bool givesNodes() const {
        return kind == ExpressionKind::Union || kind == ExpressionKind::Path || kind == ExpressionKind::Filter ||
               (kind == ExpressionKind::Call && function == XPathFunction::Id);
    }
    bool givesNumber() const;
};

} // namespace keldan
