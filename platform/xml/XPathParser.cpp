#include "platform/xml/XPathParser.h"

#include "platform/xml/Failure.h"
#include "platform/xml/XmlCharacters.h"

#include <cstdlib>
#include <utility>

namespace keldan {

namespace {

struct function_entry {
    std::wstring_view name;
    XPathFunction function;
    size_t minimum;
    size_t maximum;
};

constexpr size_t ANY_NUMBER = 1000;

constexpr function_entry functions[] = {
    {L"last", XPathFunction::Last, 0, 0},
    {L"position", XPathFunction::Position, 0, 0},
    {L"count", XPathFunction::Count, 1, 1},
    {L"id", XPathFunction::Id, 1, 1},
    {L"local-name", XPathFunction::LocalName, 0, 1},
    {L"namespace-uri", XPathFunction::NamespaceUri, 0, 1},
    {L"name", XPathFunction::Name, 0, 1},
    {L"string", XPathFunction::String, 0, 1},
    {L"concat", XPathFunction::Concat, 2, ANY_NUMBER},
    {L"starts-with", XPathFunction::StartsWith, 2, 2},
    {L"contains", XPathFunction::Contains, 2, 2},
    {L"substring-before", XPathFunction::SubstringBefore, 2, 2},
    {L"substring-after", XPathFunction::SubstringAfter, 2, 2},
    {L"substring", XPathFunction::Substring, 2, 3},
    {L"string-length", XPathFunction::StringLength, 0, 1},
    {L"normalize-space", XPathFunction::NormalizeSpace, 0, 1},
    {L"translate", XPathFunction::Translate, 3, 3},
    {L"boolean", XPathFunction::Boolean, 1, 1},
    {L"not", XPathFunction::Not, 1, 1},
    {L"true", XPathFunction::True, 0, 0},
    {L"false", XPathFunction::False, 0, 0},
    {L"lang", XPathFunction::Lang, 1, 1},
    {L"number", XPathFunction::Number, 0, 1},
    {L"sum", XPathFunction::Sum, 1, 1},
    {L"floor", XPathFunction::Floor, 1, 1},
    {L"ceiling", XPathFunction::Ceiling, 1, 1},
    {L"round", XPathFunction::Round, 1, 1},
};

struct axis_entry {
    std::wstring_view name;
    Axis axis;
};

constexpr axis_entry axes[] = {
    {L"ancestor", Axis::Ancestor},
    {L"ancestor-or-self", Axis::AncestorOrSelf},
    {L"attribute", Axis::Attribute},
    {L"child", Axis::Child},
    {L"descendant", Axis::Descendant},
    {L"descendant-or-self", Axis::DescendantOrSelf},
    {L"following", Axis::Following},
    {L"following-sibling", Axis::FollowingSibling},
    {L"namespace", Axis::Namespace},
    {L"parent", Axis::Parent},
    {L"preceding", Axis::Preceding},
    {L"preceding-sibling", Axis::PrecedingSibling},
    {L"self", Axis::Self},
};

struct operator_entry {
    std::wstring_view text;
    XPathOperator meaning;
    int level;
};

constexpr int TIGHTEST_LEVEL = 5;
constexpr operator_entry operators[] = {
    {L"or", XPathOperator::Or, 0},       {L"and", XPathOperator::And, 1},         {L"=", XPathOperator::Equal, 2},
    {L"!=", XPathOperator::NotEqual, 2}, {L"<", XPathOperator::Less, 3},          {L"<=", XPathOperator::LessEqual, 3},
    {L">", XPathOperator::Greater, 3},   {L">=", XPathOperator::GreaterEqual, 3}, {L"+", XPathOperator::Add, 4},
    {L"-", XPathOperator::Subtract, 4},  {L"*", XPathOperator::Multiply, 5},      {L"div", XPathOperator::Divide, 5},
    {L"mod", XPathOperator::Modulo, 5},
};

bool IsDigit(wchar_t c) {
    return c >= L'0' && c <= L'9';
}

bool IsNodeType(std::wstring_view name) {
    return name == L"node" || name == L"text" || name == L"comment" || name == L"processing-instruction";
}

bool LooksAtPosition(const xpath_expression& expression) {
    if (expression.kind == ExpressionKind::Call &&
        (expression.function == XPathFunction::Position || expression.function == XPathFunction::Last))
        return true;
    for (const auto& operand : expression.operands)
        if (LooksAtPosition(*operand))
            return true;
    return false;
}

} // namespace

bool xpath_expression::givesNumber() const {
    switch (kind) {
    case ExpressionKind::Number:
    case ExpressionKind::Negate:
        return true;
    case ExpressionKind::Chain:
        return operators[0] >= XPathOperator::Add;
    case ExpressionKind::Call:
        return function == XPathFunction::Last || function == XPathFunction::Position ||
               function == XPathFunction::Count || function == XPathFunction::StringLength ||
               function >= XPathFunction::Number;
    default:
        return false;
    }
}

expression_ptr XPathParser::Compile(std::wstring_view xpath, const XmlDocument& document) {
    static const prefix_map none;
    return Compile(xpath, document, none);
}

expression_ptr XPathParser::Compile(std::wstring_view xpath, const XmlDocument& document, const prefix_map& prefixes) {
    XPathParser parser(xpath, document, prefixes);
    expression_ptr expression = parser.parseExpression();
    if (parser.peek().kind != TokenKind::End)
        Invalid();
    return expression;
}

XPathParser::XPathParser(std::wstring_view xpath, const XmlDocument& document, const prefix_map& prefixes)
    : document_(document), prefixes_(prefixes) {
    tokenize(xpath);
}

bool XPathParser::findSpace(std::wstring_view prefix, std::uint32_t& space) const {
    const auto given = prefixes_.find(prefix);
    if (given == prefixes_.end())
        return document_.findPrefix(prefix, space);
    space = document_.findNamespace(given->second);
    return true;
}

void XPathParser::Invalid() {
    throw failure{E_INVALIDARG};
}

bool XPathParser::endsOperand() const {
    if (tokens_.empty())
        return false;
    const token& last = tokens_.back();
    if (last.kind == TokenKind::Symbol)
        return last.text == L")" || last.text == L"]" || last.text == L"." || last.text == L".." ||
               (last.text == L"*" && !last.operatorName);
    return !last.operatorName;
}

void XPathParser::tokenize(std::wstring_view xpath) {
    size_t i = 0;
    while (i < xpath.size()) {
        const wchar_t c = xpath[i];
        if (IsXmlSpace(c)) {
            ++i;
            continue;
        }
        token made;
        size_t end = i + 1;
        if (c == L'"' || c == L'\'') {
            end = xpath.find(c, i + 1);
            if (end == xpath.npos)
                Invalid();
            made = {TokenKind::Literal, xpath.substr(i + 1, end - i - 1), false};
            ++end;
        } else if (IsDigit(c) || (c == L'.' && end < xpath.size() && IsDigit(xpath[end]))) {
            bool point = c == L'.';
            for (; end < xpath.size() && (IsDigit(xpath[end]) || (xpath[end] == L'.' && !point)); ++end)
                point = point || xpath[end] == L'.';
            made = {TokenKind::Number, xpath.substr(i, end - i), false};
        } else if (c != L':' && IsNameStart(c)) {
            while (end < xpath.size() && xpath[end] != L':' && IsNameCharacter(xpath[end]))
                ++end;
            made = {TokenKind::Name, xpath.substr(i, end - i), false};
            made.operatorName = endsOperand();
        } else {
            static constexpr std::wstring_view pairs[] = {L"//", L"..", L"::", L"!=", L"<=", L">="};
            for (auto pair : pairs)
                if (xpath.substr(i, 2) == pair)
                    end = i + 2;
            made = {TokenKind::Symbol, xpath.substr(i, end - i), false};
            if (end == i + 1 && std::wstring_view(L"()[].@,/|+-=<>*:").find(c) == std::wstring_view::npos)
                Invalid();
            made.operatorName = c == L'*' && endsOperand();
        }
        tokens_.push_back(made);
        i = end;
    }
    tokens_.emplace_back();
}

const XPathParser::token& XPathParser::peek(size_t ahead) const {
    return tokens_[std::min(next_ + ahead, tokens_.size() - 1)];
}

bool XPathParser::is(std::wstring_view symbol, size_t ahead) const {
    return peek(ahead).kind == TokenKind::Symbol && peek(ahead).text == symbol;
}

bool XPathParser::accept(std::wstring_view symbol) {
    if (!is(symbol))
        return false;
    ++next_;
    return true;
}

void XPathParser::expect(std::wstring_view symbol) {
    if (!accept(symbol))
        Invalid();
}

expression_ptr XPathParser::parseExpression() {
    if (++nesting_ > MaximumNesting)
        Invalid();
    expression_ptr expression = parseBinary(0);
    --nesting_;
    return expression;
}

expression_ptr XPathParser::parseBinary(int level) {
    if (level > TIGHTEST_LEVEL)
        return parseUnary();
    expression_ptr first = parseBinary(level + 1);
    expression_ptr chain;
    for (;;) {
        const token& next = peek();
        const operator_entry* found = nullptr;
        for (const auto& entry : operators)
            if (entry.level == level && next.text == entry.text &&
                (next.kind == TokenKind::Symbol ? next.text != L"*" || next.operatorName
                                                : next.kind == TokenKind::Name && next.operatorName))
                found = &entry;
        if (!found)
            return chain ? std::move(chain) : std::move(first);
        ++next_;
        if (!chain) {
            chain = std::make_unique<xpath_expression>();
            chain->kind = ExpressionKind::Chain;
            chain->operands.push_back(std::move(first));
        }
        chain->operators.push_back(found->meaning);
        chain->operands.push_back(parseBinary(level + 1));
    }
}

expression_ptr XPathParser::parseUnary() {
    size_t signs = 0;
    while (accept(L"-"))
        ++signs;
    expression_ptr value = parseUnion();
    // Two signs are not none: the value becomes a number.
    for (size_t i = signs > 2 ? (signs % 2 ? 1 : 2) : signs; i > 0; --i) {
        auto negation = std::make_unique<xpath_expression>();
        negation->kind = ExpressionKind::Negate;
        negation->operands.push_back(std::move(value));
        value = std::move(negation);
    }
    return value;
}

expression_ptr XPathParser::parseUnion() {
    expression_ptr first = parsePath();
    if (!is(L"|"))
        return first;
    auto joined = std::make_unique<xpath_expression>();
    joined->kind = ExpressionKind::Union;
    joined->operands.push_back(std::move(first));
    while (accept(L"|"))
        joined->operands.push_back(parsePath());
    for (const auto& operand : joined->operands)
        if (!operand->givesNodes())
            Invalid();
    return joined;
}

bool XPathParser::beginsPrimary() const {
    const token& next = peek();
    return next.kind == TokenKind::Literal || next.kind == TokenKind::Number || is(L"(") ||
           (next.kind == TokenKind::Name && is(L"(", 1) && !IsNodeType(next.text));
}

bool XPathParser::beginsStep() const {
    return peek().kind == TokenKind::Name || is(L"*") || is(L"@") || is(L".") || is(L"..");
}

void XPathParser::addDescendants(std::vector<xpath_step>& steps) {
    xpath_step step;
    step.axis = Axis::DescendantOrSelf;
    steps.push_back(std::move(step));
}

// "//name" as one walk over the descendants, where no predicate asks for a position among siblings.
void XPathParser::joinDescendants(std::vector<xpath_step>& steps) {
    for (size_t i = 0; i + 1 < steps.size(); ++i) {
        const xpath_step& all = steps[i];
        if (all.axis != Axis::DescendantOrSelf || all.test != NodeTest::Any || !all.predicates.empty() ||
            steps[i + 1].axis != Axis::Child || steps[i + 1].positional)
            continue;
        steps[i + 1].axis = Axis::Descendant;
        steps.erase(steps.begin() + static_cast<std::ptrdiff_t>(i));
    }
}

expression_ptr XPathParser::parsePath() {
    auto path = std::make_unique<xpath_expression>();
    path->kind = ExpressionKind::Path;
    if (beginsPrimary()) {
        expression_ptr primary = parsePrimary();
        if (is(L"[")) {
            auto filter = std::make_unique<xpath_expression>();
            filter->kind = ExpressionKind::Filter;
            filter->steps.emplace_back();
            parsePredicates(filter->steps[0]);
            if (!primary->givesNodes())
                Invalid();
            filter->operands.push_back(std::move(primary));
            primary = std::move(filter);
        }
        if (!is(L"/") && !is(L"//"))
            return primary;
        if (!primary->givesNodes())
            Invalid();
        path->operands.push_back(std::move(primary));
        if (accept(L"//"))
            addDescendants(path->steps);
        else
            expect(L"/");
        parseRelative(path->steps);
    } else if (accept(L"//")) {
        path->absolute = true;
        addDescendants(path->steps);
        parseRelative(path->steps);
    } else if (accept(L"/")) {
        path->absolute = true;
        if (beginsStep())
            parseRelative(path->steps);
    } else {
        parseRelative(path->steps);
    }
    joinDescendants(path->steps);
    return path;
}

void XPathParser::parseRelative(std::vector<xpath_step>& steps) {
    for (;;) {
        parseStep(steps);
        if (accept(L"//"))
            addDescendants(steps);
        else if (!accept(L"/"))
            return;
    }
}

void XPathParser::parseStep(std::vector<xpath_step>& steps) {
    xpath_step step;
    if (accept(L".")) {
        step.axis = Axis::Self;
    } else if (accept(L"..")) {
        step.axis = Axis::Parent;
    } else {
        if (accept(L"@")) {
            step.axis = Axis::Attribute;
        } else if (peek().kind == TokenKind::Name && is(L"::", 1)) {
            bool known = false;
            for (const auto& entry : axes)
                if (entry.name == peek().text) {
                    step.axis = entry.axis;
                    known = true;
                }
            if (!known)
                Invalid();
            next_ += 2;
        }
        parseNodeTest(step);
        parsePredicates(step);
    }
    steps.push_back(std::move(step));
}

void XPathParser::parseNodeTest(xpath_step& step) {
    if (accept(L"*")) {
        step.test = NodeTest::AnyName;
        return;
    }
    if (peek().kind != TokenKind::Name)
        Invalid();
    const std::wstring_view first = tokens_[next_++].text;
    if (is(L"(") && IsNodeType(first)) {
        ++next_;
        step.test = first == L"node"      ? NodeTest::Any
                    : first == L"text"    ? NodeTest::Text
                    : first == L"comment" ? NodeTest::Comment
                                          : NodeTest::Instruction;
        if (step.test == NodeTest::Instruction && peek().kind == TokenKind::Literal)
            step.name = tokens_[next_++].text;
        expect(L")");
        return;
    }
    // A prefix and its name stand without blanks: the texts touch.
    const bool prefixed = is(L":") && peek().text.data() == first.data() + first.size();
    if (!prefixed) {
        step.test = NodeTest::Name;
        step.name = first;
        return;
    }
    ++next_;
    if (!findSpace(first, step.space))
        Invalid();
    const token& local = peek();
    if (local.text.data() != first.data() + first.size() + 1)
        Invalid();
    if (accept(L"*")) {
        step.test = NodeTest::AnyNameInSpace;
        return;
    }
    if (local.kind != TokenKind::Name)
        Invalid();
    step.test = NodeTest::Name;
    step.name = local.text;
    ++next_;
}

void XPathParser::parsePredicates(xpath_step& step) {
    while (accept(L"[")) {
        step.predicates.push_back(parseExpression());
        expect(L"]");
        step.positional =
            step.positional || step.predicates.back()->givesNumber() || LooksAtPosition(*step.predicates.back());
    }
}

expression_ptr XPathParser::parsePrimary() {
    if (accept(L"(")) {
        expression_ptr inner = parseExpression();
        expect(L")");
        return inner;
    }
    const token& next = peek();
    if (next.kind == TokenKind::Name)
        return parseCall();
    auto constant = std::make_unique<xpath_expression>();
    if (next.kind == TokenKind::Literal) {
        constant->kind = ExpressionKind::Literal;
        constant->text = next.text;
    } else {
        constant->kind = ExpressionKind::Number;
        constant->number = std::wcstod(std::wstring(next.text).c_str(), nullptr);
    }
    ++next_;
    return constant;
}

expression_ptr XPathParser::parseCall() {
    const std::wstring_view name = tokens_[next_++].text;
    const function_entry* found = nullptr;
    for (const auto& entry : functions)
        if (entry.name == name)
            found = &entry;
    if (!found)
        Invalid();
    auto call = std::make_unique<xpath_expression>();
    call->kind = ExpressionKind::Call;
    call->function = found->function;
    expect(L"(");
    if (!is(L")")) {
        do
            call->operands.push_back(parseExpression());
        while (accept(L","));
    }
    expect(L")");
    if (call->operands.size() < found->minimum || call->operands.size() > found->maximum)
        Invalid();
    const bool takesNodes = found->function == XPathFunction::Count || found->function == XPathFunction::Sum ||
                            found->function == XPathFunction::LocalName ||
                            found->function == XPathFunction::NamespaceUri || found->function == XPathFunction::Name;
    if (takesNodes && !call->operands.empty() && !call->operands[0]->givesNodes())
        Invalid();
    return call;
}

} // namespace keldan
