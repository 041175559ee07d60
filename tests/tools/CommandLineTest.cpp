// The arguments of a command line: what is accepted, and that a refusal names the wrong one.

#include "tools/CommandLine.h"
#include "support/Support.h"
#include "tools/Commands.h"
#include "tools/Failure.h"

using namespace vornactl;

namespace {

const Syntax GET{{L"XPATH"}, 1, {{L"--service", L"FILE", true}, {L"--output", L"FILE"}, {L"--all"}}};

using Words = std::vector<std::wstring>;

std::wstring Refusal(const Words& arguments) {
    try {
        const CommandLine line(arguments, GET);
        return L"accepted";
    } catch (const UsageError& error) {
        return error.message;
    }
}

TEST(CommandLine, TakesOptionsAnywhereAndInBothForms) {
    for (const Words& arguments :
         {Words{L"/A", L"--service", L"s.xml", L"--output", L"-o"}, Words{L"--service=s.xml", L"--output=-o", L"/A"},
          Words{L"--service=s.xml", L"--output=-o", L"--", L"/A"}}) {
        const CommandLine line(arguments, GET);
        EXPECT_EQ(line.Word(0), L"/A");
        EXPECT_EQ(line.Value(L"--service"), L"s.xml");
        EXPECT_EQ(line.Value(L"--output"), L"-o");
        EXPECT_FALSE(line.Has(L"--all"));
    }
    // A value may contain the character that separates it from the name.
    EXPECT_EQ(CommandLine(Words{L"/A", L"--service=a=b"}, GET).Value(L"--service"), L"a=b");
}

TEST(CommandLine, KeepsTheValuesOfARepeatedOptionInOrder) {
    const Syntax raise{{L"NAME"}, 1, {{.name = L"--property", .value = L"NAME=VALUE", .repeated = true}}};
    EXPECT_EQ(CommandLine(Words{L"--property", L"b=1", L"N", L"--property=a=2"}, raise).Values(L"--property"),
              (Words{L"b=1", L"a=2"}));
}

TEST(CommandLine, NamesTheWrongWord) {
    const struct {
        Words arguments;
        std::wstring refusal;
    } cases[] = {
        {{L"--service", L"s.xml"}, L"XPATH is missing"},
        {{L"/A"}, L"\"--service FILE\" is missing"},
        {{L"/A", L"--service"}, L"\"--service\" must be followed by FILE"},
        {{L"/A", L"--service="}, L"\"--service\" is followed by an empty FILE"},
        {{L"/A", L"--servise", L"s.xml"}, L"unknown option: \"--servise\""},
        {{L"/A", L"--service", L"s.xml", L"more"}, L"one word too many: \"more\""},
        {{L"/A", L"--service", L"s.xml", L"--service=t.xml"}, L"given twice: \"--service\""},
        {{L"/A", L"--service", L"s.xml", L"--all=3"}, L"takes no value: \"--all=3\""},
        {{L"", L"--service", L"s.xml"}, L"XPATH is an empty word"},
    };
    for (const auto& each : cases)
        EXPECT_EQ(Refusal(each.arguments), each.refusal);
}

TEST(CommandLine, NamesAnUnknownCommand) {
    const struct {
        Words arguments;
        std::wstring refusal;
    } cases[] = {
        {{L"subscibe", L"a.xml"}, L"unknown command: \"subscibe\""},
        {{L"model"}, L"unknown command: \"model\"; there is \"model put\", \"model show\""},
        {{L"model", L"get"}, L"unknown command: \"model get\"; there is \"model put\", \"model show\""},
        {{L"model", L"put", L"s.xml"}, L"FILE is missing\n  usage: vornactl model put SERVICE FILE"},
        {{L"orphans", L"--remove=all"}, L"takes no value: \"--remove=all\"\n  usage: vornactl orphans [--remove]"},
        {{L"raise", L"N", L"--property", L"Door"},
         L"the property \"Door\" is not of the form NAME=VALUE\n"
         L"  usage: vornactl raise NAME [--property NAME=VALUE]... [--payload FILE]"},
    };
    for (const auto& each : cases) {
        try {
            vornactl::Run(each.arguments);
            ADD_FAILURE() << "accepted";
        } catch (const UsageError& error) {
            EXPECT_EQ(error.message, each.refusal);
        }
    }
}

} // namespace
