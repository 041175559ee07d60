// When events in data models fire, and which expressions are accepted.
#include "common/com/result_error.h"
#include "platform/eventaccess/Evaluation.h"
#include "platform/eventaccess/Expression.h"
#include "support/Support.h"

#include <optional>

namespace {

using namespace keldan;

TEST(ModelEvent, FiresWhenItShould) {
    const WatchedEvent over8{L"/G/P", L". > 8", L""};
    const WatchedEvent over8Until5{L"/G/P", L". > 8", L". < 5"};
    const WatchedEvent change{L"/G/P", L"", L""};
    struct Step {
        const wchar_t* model;
        bool fires;
    };
    struct {
        const char* what;
        WatchedEvent event;
        // Null: there was no model at the time of the registration.
        const wchar_t* first;
        std::vector<Step> later;
    } const cases[] = {
        {"each time it becomes true",
         over8,
         L"<G><P>1</P></G>",
         {{L"<G><P>9</P></G>", true},
          {L"<G><P>10</P></G>", false},
          {L"<G><P>8</P></G>", false},
          {L"<G><P>9</P></G>", true}}},
        {"true from the first",
         over8,
         L"<G><P>9</P></G>",
         {{L"<G><P>9</P></G>", false}, {L"<G><P>1</P></G>", false}, {L"<G><P>9</P></G>", true}}},
        {"true at the very first reading", over8, nullptr, {{L"<G><P>9</P></G>", true}, {L"<G><P>9</P></G>", false}}},
        {"not again without the reset",
         over8Until5,
         L"<G><P>1</P></G>",
         {{L"<G><P>9</P></G>", true},
          {L"<G><P>6</P></G>", false},
          {L"<G><P>9</P></G>", false},
          {L"<G><P>4</P></G>", false},
          {L"<G><P>6</P></G>", false},
          {L"<G><P>9</P></G>", true}}},
        {"a reset waits for one that was true from the first",
         over8Until5,
         L"<G><P>9</P></G>",
         {{L"<G><P>6</P></G>", false},
          {L"<G><P>9</P></G>", false},
          {L"<G><P>4</P></G>", false},
          {L"<G><P>9</P></G>", true}}},
        {"reset and trigger in one reading: the next one fires",
         {L"/G/P", L". > 8", L"@ack"},
         L"<G><P>9</P></G>",
         {{L"<G><P ack='1'>9</P></G>", false}, {L"<G><P>9</P></G>", true}}},
        {"one of several nodes is enough",
         over8,
         L"<G><P>1</P><P>2</P></G>",
         {{L"<G><P>1</P><P>9</P></G>", true},
          {L"<G><P>9</P><P>1</P></G>", false},
          {L"<G/>", false},
          {L"<G><P>9</P></G>", true}}},
        {"absolute paths and counts",
         {L"/", L"/G/A = 'on' and count(//P) = 2", L""},
         L"<G><A>on</A><P/></G>",
         {{L"<G><A>on</A><P/><P/></G>", true}}},
        {"a number is true unless it is zero",
         {L"/G/P", L"number(.)", L""},
         L"<G><P>0</P></G>",
         {{L"<G><P>3</P></G>", true}, {L"<G><P>0</P></G>", false}}},
        {"a relative path begins at the document",
         {L"G/P", L"not(@off)", L""},
         L"<G><P off='1'/></G>",
         {{L"<G><P/></G>", true}}},
        {"a union is evaluated as a whole",
         {L"/G/P | /G/Q", L". > 8", L""},
         L"<G><P>1</P><Q>1</Q></G>",
         {{L"<G><P>9</P><Q>1</Q></G>", true}}},
        {"quotes and brackets in literals",
         {L"/G/P[.!=']']", L"contains(., \"')[\")", L""},
         L"<G><P/></G>",
         {{L"<G><P>')[</P></G>", true}}},
        {"a prefix that comes and goes",
         {L"//m:P", L"true()", L""},
         L"<G/>",
         {{L"<G xmlns:m='u'><m:P/></G>", true}, {L"<G/>", false}, {L"<G><m:P xmlns:m='u'/></G>", true}}},
        {"a change",
         change,
         L"<G><P>1</P></G>",
         {{L"<G><P>1</P></G>", false},
          {L"<G><Q/><P>1</P></G>", false},
          {L"<G><P>2</P></G>", true},
          {L"<G><P a=''>2</P></G>", true},
          {L"<G/>", true},
          {L"<G><P>2</P></G>", true}}},
        {"the very first reading is not a change",
         change,
         nullptr,
         {{L"<G><P>1</P></G>", false}, {L"<G><P>2</P></G>", true}}},
        {"attributes and texts change too",
         {L"/G/@a | /G/text()", L"", L""},
         L"<G a='1'>2</G>",
         {{L"<G a='2'>1</G>", true}, {L"<G a='2' b=''>1</G>", false}}},
    };
    for (const auto& one : cases) {
        EventState state;
        if (one.first) {
            ModelReading reading(one.first);
            state = FirstState(one.event, reading);
        }
        for (const Step& next : one.later) {
            ModelReading reading(next.model);
            EXPECT_EQ(next.fires, Advance(one.event, reading, state))
                << one.what << ": " << support::Narrow(next.model);
        }
    }
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
    std::wstring model = L"<G>";
    for (int i = 0; i < 2000; ++i)
        model += L"<P/>";
    ModelReading reading(model + L"</G>");
    EventState state;
    EXPECT_THROW((void)Advance({L"//P", L"//P[//P[//P]]", L""}, reading, state), vorna::result_error);
    EXPECT_EQ(EventState(), state);
}

} // namespace
