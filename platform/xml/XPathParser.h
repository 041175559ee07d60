// Compiles XPath 1.0 for one document, whose namespace declarations give the prefixes their meaning.
#pragma once

#include "platform/xml/XPathExpression.h"

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace keldan {

// From a prefix to the URI of its namespace.
using prefix_map = std::map<std::wstring, std::wstring, std::less<>>;

class XPathParser {
  public:
    // Throws failure with E_INVALIDARG where the text is not an XPath, names a prefix that the document does not
    // declare, uses a variable or an unknown function, or nests too deep.
    static expression_ptr Compile(std::wstring_view xpath, const XmlDocument& document);
    // The same with prefixes of the caller's, which count before those of the document.
    static expression_ptr Compile(std::wstring_view xpath, const XmlDocument& document, const prefix_map& prefixes);

  private:
    // Parentheses and predicates within each other; bounds the recursion here and in the evaluation.
    static constexpr int MaximumNesting = 40;
    enum class TokenKind { Name, Literal, Number, Symbol, End };
    struct token {
        TokenKind kind = TokenKind::End;
        std::wstring_view text;
        bool operatorName = false;
    };

    XPathParser(std::wstring_view xpath, const XmlDocument& document, const prefix_map& prefixes);

    [[noreturn]] static void Invalid();
    // After something that can end an operand, "*" and names are operators.
    bool endsOperand() const;
    void tokenize(std::wstring_view xpath);
    const token& peek(size_t ahead = 0) const;
    bool is(std::wstring_view symbol, size_t ahead = 0) const;
    bool accept(std::wstring_view symbol);
    void expect(std::wstring_view symbol);

    expression_ptr parseExpression();
    expression_ptr parseBinary(int level);
    expression_ptr parseUnary();
    expression_ptr parseUnion();
    expression_ptr parsePath();
    expression_ptr parsePrimary();
    expression_ptr parseCall();
    void parseRelative(std::vector<xpath_step>& steps);
    void parseStep(std::vector<xpath_step>& steps);
    void parseNodeTest(xpath_step& step);
    void parsePredicates(xpath_step& step);
    bool beginsPrimary() const;
    bool beginsStep() const;
    static void addDescendants(std::vector<xpath_step>& steps);
    static void joinDescendants(std::vector<xpath_step>& steps);

    bool findSpace(std::wstring_view prefix, std::uint32_t& space) const;

    const XmlDocument& document_;
    const prefix_map& prefixes_;
    std::vector<token> tokens_;
    size_t next_ = 0;
    int nesting_ = 0;
};

} // namespace keldan
