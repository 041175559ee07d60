// A small table of named values in one file, for state that must outlive the process.
//
// Guarantee: a commit that returned S_OK is on disk and survives the end of every process; one that was interrupted has
// no effect at all. Commits are appended with their checksums; when the file has grown to several times its content, it
// is rewritten as a new file that replaces it.
//
// A damaged file is never used in part: it is moved aside under another name and the table starts empty.
//
// One process at a time (the file is kept open); not thread-safe.
#pragma once

#include "common/com/unique_any.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace keldan {

class Journal {
  public:
    using Table = std::map<std::string, std::string>;

    // One change of a commit, which takes effect as a whole: sets a value or, if there is none, removes the name.
    struct Change {
        std::string name;
        std::optional<std::string> value;
    };

    enum class State {
        Good,
        // The file was not as it had been written; it has been moved aside.
        Damaged,
    };

    // Reads the file, or creates it. On failure nothing has changed.
    [[nodiscard]] HRESULT Open(const std::filesystem::path& file);

    // Loads the table into the caller's own state, replacing it; false if the values are not valid.
    using Reader = std::function<bool(const Table&)>;
    // Opens the file and calls read with its table. A damaged file, or one whose values are not valid, is moved aside,
    // which is reported to the debugger output (what: the plural that names the records); read is then called once more
    // with an empty table.
    [[nodiscard]] HRESULT Open(const std::filesystem::path& file, const std::wstring& what, const Reader& read);

    const Table& Values() const { return table_; }
    State Condition() const { return state_; }

    // On failure the table and the file are unchanged.
    [[nodiscard]] HRESULT Commit(std::vector<Change> changes);

    // For values that are not valid: moves the file aside as if it were damaged.
    [[nodiscard]] HRESULT Discard();

  private:
    static constexpr std::uint64_t SMALLEST_TO_COMPACT = std::uint64_t{64} * 1024;

    HRESULT OpenFile();
    HRESULT ReadWhole(std::string& bytes);
    bool Parse(const std::string& bytes);
    void Apply(std::vector<Change> changes);
    void Clear();
    HRESULT Append(const std::string& bytes);
    HRESULT Compact();

    std::filesystem::path path_;
    vorna::unique_file file_;
    std::uint64_t size_ = 0;
    // A smaller file is not rewritten: there is little to gain, or rewriting has just failed.
    std::uint64_t compactFrom_ = SMALLEST_TO_COMPACT;
    Table table_;
    std::uint64_t content_ = 0; // bytes of all names and values
    State state_ = State::Good;
    std::filesystem::path setAside_;
};

} // namespace keldan
