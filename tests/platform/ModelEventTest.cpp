// When events in data models fire, and which expressions are accepted.
#include "common/com/result_error.h"
#include "platform/eventaccess/Evaluation.h"
#include "platform/eventaccess/Expression.h"
#include "support/Support.h"

#include <sstream>

namespace {

using namespace keldan;

// Feeds models that are separated by spaces (inside a model, a tab is used instead) to the event; "!" before a model:
// the event must fire. A model that is not markup is the value of a single P. The first one is read at the time of the
// registration, "-" if there was none.
void ExpectFiring(const char* what, const WatchedEvent& event, const std::wstring& models) {
    SCOPED_TRACE(what);
    std::wistringstream words(models);
    std::wstring word;
    std::getline(words, word, L' ');
    const auto model = [](const std::wstring& text) {
        return text.starts_with(L'<') ? text : L"<G><P>" + text + L"</P></G>";
    };
    EventState state;
    if (word != L"-") {
        ModelReading reading(model(word));
        state = FirstState(event, reading);
    }
    while (std::getline(words, word, L' ')) {
        const bool fires = word.starts_with(L'!');
        ModelReading reading(model(word.substr(fires ? 1 : 0)));
        EXPECT_EQ(fires, Advance(event, reading, state)) << support::Narrow(word);
    }
}

TEST(ModelEvent, FiresWhenItShould) {
    const WatchedEvent over8{L"/G/P", L". > 8", L""};
    const WatchedEvent over8Until5{L"/G/P", L". > 8", L". < 5"};
    const WatchedEvent change{L"/G/P", L"", L""};
    const struct {
        const char* what;
        WatchedEvent event;
        const wchar_t* models;
    } cases[] = {
        {"each time it becomes true", over8, L"1 !9 10 8 !9"},
        {"not if it is true from the beginning", over8, L"9 9 1 !9"},
        {"if it is true at the very first reading", over8, L"- !9 9"},
        {"not again before the reset", over8Until5, L"1 !9 6 9 4 6 !9"},
        {"only after a reset if it was true from the beginning", over8Until5, L"9 6 9 4 !9"},
        {"at the next reading if reset and trigger come in one",
         {L"/G/P", L". > 8", L"@ack"},
         L"9 <G><P\tack='1'>9</P></G> !9"},
        {"if one of several nodes is enough", over8,
         L"<G><P>1</P><P>2</P></G> !<G><P>1</P><P>9</P></G> <G><P>9</P><P>1</P></G> <G/> !9"},
        {"on absolute paths and counts",
         {L"/", L"/G/A = 'on' and count(//P) = 2", L""},
         L"<G><A>on</A><P/></G> !<G><A>on</A><P/><P/></G>"},
        {"on a number that is not zero", {L"/G/P", L"number(.)", L""}, L"0 !3 0"},
        {"on a relative path, which begins at the document",
         {L"G/P", L"not(@off)", L""},
         L"<G><P\toff='1'/></G> !<G><P/></G>"},
        {"on a union, which is evaluated as a whole",
         {L"/G/P | /G/Q", L". > 8", L""},
         L"<G><P>1</P><Q>1</Q></G> !<G><P>9</P><Q>1</Q></G>"},
        {"on quotes and brackets in literals",
         {L"/G/P[.!=']']", L"contains(., \"')[\")", L""},
         L"<G><P/></G> !<G><P>')[</P></G>"},
        {"on a prefix that comes and goes",
         {L"//m:P", L"true()", L""},
         L"<G/> !<G\txmlns:m='u'><m:P/></G> <G/> !<G><m:P\txmlns:m='u'/></G>"},
        {"at a change", change, L"1 1 <G><Q/><P>1</P></G> !2 !<G><P\ta=''>2</P></G> !<G/> !2"},
        {"not at the very first reading without a trigger", change, L"- 1 !2"},
        {"at a change of attributes and texts",
         {L"/G/@a | /G/text()", L"", L""},
         L"<G\ta='1'>2</G> !<G\ta='2'>1</G> <G\ta='2'\tb=''>1</G>"},
    };
    for (const auto& one : cases)
        ExpectFiring(one.what, one.event, one.models);
}

TEST(ModelEvent, AcceptsOnlyExpressionsThatStayWithinTheirParentheses) {
    for (const wchar_t* condition :
         {L"",    L" ",         L"1] | //*[1",  L"1) or (1", L"1)] | //*[(1", L"'",   L"\"'",
          L"a[1", L"a]1[",      L"(1",          L"[1)]",     L"1, 2",         L"1 2", L"/..//",
          L". >", L"nosuch(.)", L"a[nosuch()]", L"$x",       L"count()",      L"!",   L"a::b"})
        EXPECT_FALSE(IsCondition(condition)) << support::Narrow(condition);
    for (const wchar_t* condition : {L". > 8", L"/Gauge/Alarm = 'on'", L"count(x) = 3", L"not(@off)", L"a", L"3",
                                     L"m:a[@n:b = ')'] div (2)", L"ancestor-or-self::node()", L"'a:b'"})
        EXPECT_TRUE(IsCondition(condition)) << support::Narrow(condition);
    EXPECT_TRUE(IsCondition(L"1" + std::wstring(LONGEST_EXPRESSION - 1, L' ')));
    EXPECT_FALSE(IsCondition(L"1" + std::wstring(LONGEST_EXPRESSION, L' ')));
    for (const wchar_t* selection : {L"", L"count(/a)", L"'a'", L"/a) | (/b", L"/a[", L"/a]", L"a, b", L"1", L"not(a)"})
        EXPECT_FALSE(IsSelection(selection)) << support::Narrow(selection);
    for (const wchar_t* selection : {L"/", L"a", L"//m:a | /b/@c", L"(//a)[2]", L"/a/text()"})
        EXPECT_TRUE(IsSelection(selection)) << support::Narrow(selection);
}

TEST(ModelEvent, ExpressionThatTakesTooLongDoesNotChangeTheState) {
    ModelReading reading(L"<G>" + support::Repeated(2000, L"<P/>") + L"</G>");
    EventState state;
    EXPECT_THROW((void)Advance({L"//P", L"//P[//P[//P]]", L""}, reading, state), vorna::result_error);
    EXPECT_EQ(EventState(), state);
}

} // namespace
