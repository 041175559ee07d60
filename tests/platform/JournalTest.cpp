// The journal: complete commits are kept, interrupted ones are not, damaged files are not used.
#include "platform/journal/Journal.h"

#include "support/Support.h"

namespace {

using keldan::Journal;
using support::ReadFileBytes;
using support::WriteFileBytes;

// A file with three commits, and the tables before and after each of them.
struct Sample {
    explicit Sample(const std::filesystem::path& path) {
        Journal journal;
        EXPECT_HR(S_OK, journal.Open(path));
        const std::vector<std::vector<Journal::Change>> commits = {
            {{"a", "one"}, {"b", std::string("t\0o", 3)}},
            {{"a", std::nullopt}, {"c", ""}},
            {{"b", "three"}},
        };
        tables.push_back(journal.Values());
        sizes.push_back(ReadFileBytes(path).size());
        for (const auto& commit : commits) {
            EXPECT_HR(S_OK, journal.Commit(commit));
            tables.push_back(journal.Values());
            sizes.push_back(ReadFileBytes(path).size());
        }
    }
    std::vector<Journal::Table> tables;
    std::vector<std::size_t> sizes;
};

TEST(Journal, TruncatedFileHoldsItsCompleteCommits) {
    support::TestFolder folder;
    const auto path = folder.Path() / "j";
    const Sample sample(path);
    const std::string bytes = ReadFileBytes(path);
    ASSERT_EQ(sample.sizes.back(), bytes.size());
    for (std::size_t length = 0; length <= bytes.size(); ++length) {
        WriteFileBytes(path, bytes.substr(0, length));
        std::size_t whole = 0;
        while (whole + 1 < sample.sizes.size() && sample.sizes[whole + 1] <= length)
            ++whole;
        Journal journal;
        ASSERT_HR(S_OK, journal.Open(path)) << length;
        EXPECT_EQ(Journal::State::Good, journal.Condition()) << length;
        EXPECT_EQ(sample.tables[whole], journal.Values()) << length;
        // New commits are possible.
        ASSERT_HR(S_OK, journal.Commit({{"next", "value"}}));
        Journal::Table expected = journal.Values();
        journal = Journal();
        ASSERT_HR(S_OK, journal.Open(path));
        EXPECT_EQ(expected, journal.Values()) << length;
    }
}

TEST(Journal, FileWithAnyByteChangedIsMovedAsideAndNotUsed) {
    const support::TestFolder sampleFolder;
    const Sample sample(sampleFolder.Path() / "j");
    const std::string bytes = ReadFileBytes(sampleFolder.Path() / "j");
    for (std::size_t place = 0; place < bytes.size(); ++place) {
        const support::TestFolder folder;
        const auto path = folder.Path() / "j";
        std::string damaged = bytes;
        damaged[place] = static_cast<char>(damaged[place] ^ 0x10);
        WriteFileBytes(path, damaged);
        Journal journal;
        ASSERT_HR(S_OK, journal.Open(path)) << place;
        EXPECT_EQ(Journal::State::Damaged, journal.Condition()) << place;
        EXPECT_TRUE(journal.Values().empty()) << place;
        journal = Journal();
        std::filesystem::remove(path);
        const auto aside = support::FilesIn(folder.Path());
        ASSERT_EQ(1u, aside.size()) << place;
        EXPECT_EQ(damaged, ReadFileBytes(folder.Path() / aside[0])) << place;
    }
}

TEST(Journal, FileStaysSmallHoweverOftenAValueIsWritten) {
    support::TestFolder folder;
    const auto path = folder.Path() / "j";
    Journal journal;
    ASSERT_HR(S_OK, journal.Open(path));
    ASSERT_HR(S_OK, journal.Commit({{"kept", "value"}}));
    std::string large(5000, 'x');
    for (int i = 0; i < 100; ++i) {
        large[0] = static_cast<char>('a' + i % 26);
        ASSERT_HR(S_OK, journal.Commit({{"often", large}}));
        ASSERT_LT(ReadFileBytes(path).size(), 80'000u);
    }
    const Journal::Table expected = journal.Values();
    journal = Journal();
    ASSERT_HR(S_OK, journal.Open(path));
    EXPECT_EQ(expected, journal.Values());
    EXPECT_EQ("value", journal.Values().at("kept"));
}

} // namespace
