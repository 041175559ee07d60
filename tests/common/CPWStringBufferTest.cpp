#include "common/text/CPWStringBuffer.h"

#include "support/Support.h"

#include <memory>

using vorna::CPWStringBuffer;

TEST(CPWStringBuffer, AllocateSplitsTheSpareRoom) {
    const struct {
        std::uint32_t refsize;
        bool grow;
        std::uint32_t capacity;
        std::uint32_t offset;
    } cases[] = {
        {100, true, 200, 50},  {10, true, 32, 11},          {0, true, 32, 16},    {255, true, 510, 127},
        {256, true, 512, 128}, {768, true, 1152, 192},      {100, false, 100, 0}, {0, false, 0, 0},
        {1, false, 1, 0},      {15, true, 32, 8},           {16, true, 32, 8},    {17, true, 34, 8},
        {300, true, 576, 138}, {100000, true, 100510, 255},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.refsize);
        CPWStringBuffer buffer;
        buffer.Assign(L"what was there before");
        buffer.Allocate(expected.refsize, expected.grow);
        EXPECT_EQ(expected.capacity, buffer.Capacity());
        EXPECT_EQ(expected.offset, buffer.Offset());
        EXPECT_EQ(L"", buffer.view());
        // The header lies in the storage itself: a reader finds the text from its first two characters.
        if (expected.offset > 1) {
            EXPECT_EQ(0, buffer.c_str()[-static_cast<int>(expected.offset)]);
            EXPECT_EQ(expected.offset, buffer.c_str()[1 - static_cast<int>(expected.offset)]);
        }
    }
}

TEST(CPWStringBuffer, AllocateRefusesWhatCannotBeAddressed) {
    CPWStringBuffer buffer;
    EXPECT_THROW(buffer.Allocate(0xFFFFFFFF, true), std::bad_alloc);
    EXPECT_THROW(buffer.Allocate(0xFFFFFFFF, false), std::bad_alloc);
    EXPECT_EQ(L"", buffer.view());
    buffer.Append(L"usable");
    EXPECT_EQ(L"usable", buffer.view());
}

TEST(CPWStringBuffer, SetOffsetKeepsItsBounds) {
    CPWStringBuffer buffer;
    EXPECT_EQ(0, buffer.SetOffset(70000));
    EXPECT_EQ(0u, buffer.Offset()) << "without storage there is nothing to reserve";
    buffer.Allocate(100, true);
    for (std::uint32_t offset : {0u, 1u, 2u, 199u, 200u, 201u, 65535u, 70000u}) {
        SCOPED_TRACE(offset);
        EXPECT_EQ(0, buffer.SetOffset(offset));
        EXPECT_EQ(offset < 2 ? 0 : std::min(offset, 65535u), buffer.Offset());
        EXPECT_EQ(L"", buffer.view());
    }
    buffer.Append(L"after an offset beyond the storage");
    EXPECT_EQ(L"after an offset beyond the storage", buffer.view());
    buffer.SetOffset(65535);
    buffer.Prepend(L"x");
    EXPECT_EQ(L"x", buffer.view());
}

TEST(CPWStringBuffer, ShortPiecesBuildTheSameTextAsAString) {
    CPWStringBuffer buffer;
    std::wstring expected;
    int moves = 0;
    for (int round = 0; round < 3000; ++round) {
        std::wstring piece(static_cast<size_t>(round * 7 % 23), static_cast<wchar_t>(L'a' + round % 26));
        if (round % 3 == 0) {
            buffer.Prepend(piece);
            expected.insert(0, piece);
        } else {
            const wchar_t* before = buffer.c_str();
            buffer.Append(piece);
            expected += piece;
            moves += buffer.c_str() != before;
        }
        ASSERT_EQ(expected.size(), buffer.Length());
    }
    EXPECT_EQ(expected, buffer.view());
    EXPECT_LT(moves, 32) << "the buffer does not grow geometrically";
}

TEST(CPWStringBuffer, TakesPiecesOfItself) {
    CPWStringBuffer buffer(L"0123456789");
    for (int round = 0; round < 10; ++round) {
        std::wstring expected = std::wstring(buffer.view().substr(3)) + std::wstring(buffer.view());
        buffer.Prepend(buffer.view().substr(3));
        ASSERT_EQ(expected, buffer.view());
        expected += expected.substr(0, 5);
        buffer.Append(buffer.view().substr(0, 5));
        ASSERT_EQ(expected, buffer.view());
    }
    std::wstring expected(buffer.view().substr(7));
    buffer.Assign(buffer.view().substr(7));
    EXPECT_EQ(expected, buffer.view());
    buffer.Clear();
    EXPECT_TRUE(buffer.empty());
}

TEST(CPWStringBuffer, PrependUsesTheRoomInFront) {
    // A room of one character would not hold the header: the text moves.
    for (const std::uint32_t length : {48u, 49u, 50u}) {
        CPWStringBuffer buffer;
        buffer.Allocate(100, true);
        buffer.Append(L"tail");
        const wchar_t* tail = buffer.c_str();
        const std::wstring front(length, L'-');
        buffer.Prepend(front);
        EXPECT_EQ(front + L"tail", buffer.view());
        EXPECT_NE(1u, buffer.Offset());
        EXPECT_EQ(length != 49, buffer.c_str() + length == tail) << length;
    }
}

TEST(CPWStringBuffer, CopiesAreIndependentAndMovesLeaveAnEmptyText) {
    CPWStringBuffer first(L"first");
    CPWStringBuffer second(first);
    second.Append(L" and second");
    EXPECT_EQ(L"first", first.view());
    CPWStringBuffer third(std::move(second));
    EXPECT_EQ(L"first and second", third.view());
    // NOLINTNEXTLINE(bugprone-use-after-move,clang-analyzer-cplusplus.Move): what the class leaves behind is documented
    EXPECT_EQ(L"", second.view());
    third = std::move(first);
    EXPECT_EQ(L"first", third.view());
    third = L"literal";
    EXPECT_EQ(L"literal", third.view());
}

TEST(CPWStringBuffer, ATextEndsAtItsFirstZero) {
    CPWStringBuffer buffer(std::wstring_view(L"ab\0cd", 5));
    buffer.Append(std::wstring_view(L"\0x", 2));
    EXPECT_EQ(L"ab", buffer.view());
    EXPECT_EQ(2u, buffer.Length());
}
