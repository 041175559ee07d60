// The advice for result codes, and the list of archives.

#include "tools/Advice.h"
#include "common/com/results.h"
#include "support/Support.h"
#include "tools/ArchiveList.h"

using namespace vornactl;

namespace {

TEST(Advice, DistinguishesTheFailuresOfTheGeneralCode) {
    const auto empty = AdviceFor(E_FAIL, L"No Data Present in the Archive");
    const auto path = AdviceFor(E_FAIL, L"Could not find the required data in the archive");
    const auto other = AdviceFor(E_FAIL, L"something else");
    EXPECT_NE(empty, path);
    EXPECT_NE(empty, other);
    EXPECT_NE(path, other);
}

TEST(Advice, EveryCodeOfTheComponentHasItsOwnAdvice) {
    const auto unknown = AdviceFor(vorna::result_code(0x80000FFF), L"");
    EXPECT_FALSE(unknown.empty());
    for (unsigned long code = 0x8000012D; code <= 0x80000144; ++code) {
        const bool inUse = code != 0x80000137 && code != 0x8000013D;
        EXPECT_EQ(AdviceFor(vorna::result_code(code), L"") != unknown, inUse) << std::hex << code;
    }
    for (unsigned long code : {0x800001A5ul, 0x80000147ul, 0x80000150ul, 0x80000151ul, 0x80000152ul, 0x8000015Eul,
                               0x800700AAul, 0x800700B7ul})
        EXPECT_NE(AdviceFor(vorna::result_code(code), L""), unknown) << std::hex << code;
}

TEST(Advice, AMissingClassLeadsToRegister) {
    for (HRESULT code : {REGDB_E_CLASSNOTREG, CO_E_CLASSSTRING, vorna::RESULT_XML_ACCESSOR})
        EXPECT_NE(AdviceFor(code, L"").find(L"vornactl register"), std::wstring_view::npos);
}

TEST(Advice, TheSystemDoesNotNameTheComponentsCodes) {
    EXPECT_TRUE(SystemText(vorna::RESULT_NO_SUBSCRIPTION).empty());
    EXPECT_FALSE(SystemText(HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED)).empty());
}

TEST(ArchiveList, ColumnsAlign) {
    ArchiveEntry active;
    active.archiveId = L"a";
    active.service = L"s\\u\\p";
    active.endDate = L"2027-01-02 03:04:05";
    active.snapshots = 5;
    active.bytes = 1025;
    active.awaited = L"event Door";
    ArchiveEntry damaged;
    damaged.archiveId = L"longer";
    damaged.service = L"s";
    damaged.state = ArchiveState::Aged;
    damaged.problem = Failure(E_FAIL, L"");
    const auto lines = FormatArchives({active, damaged});
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0], L"ARCHIVE  SERVICE  STATE   ENDS                 SNAPSHOTS  KB  WAITS FOR");
    EXPECT_EQ(lines[1], L"a        s\\u\\p    active  2027-01-02 03:04:05          5   2  event Door");
    EXPECT_EQ(lines[2], L"longer   s        aged    -                            ?   0  -");
}

} // namespace
