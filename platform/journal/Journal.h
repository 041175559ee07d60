// A small table of named values in one file, for registrations that must outlive the process.
//
// Guarantee: a commit that returned S_OK is on the disk and survives the end of every process the next instant; one
// that was cut off in the middle has, as a whole, not happened. Commits are appended with their checksums; when the
// file has grown to several times its content it is written anew beside itself and renamed over.
//
// A file that is damaged is never half-used: it is moved aside under another name and the table starts empty.
//
// One process at a time (the file is held open); not thread-safe.
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

    // What one commit does, all of it or nothing: sets a value, or (no value) takes the name away.
    struct Change {
        std::string name;
        std::optional<std::string> value;
    };

    enum class State {
        Good,
        // The file did not read back as it was written; it lies under setAside.
        Damaged,
    };

    // Reads the file, or begins one where there is none. On failure nothing was changed.
    [[nodiscard]] HRESULT Open(const std::filesystem::path& file);

    // Takes the table over into what the caller makes of it, replacing what it held; false where the values make no
    // sense.
    using Reader = std::function<bool(const Table&)>;
    // The same, and has the table read. A file that is damaged or makes no sense is moved aside, which is reported to
    // the debugger output (what: the plural that names its records); the table that was read last is then empty.
    [[nodiscard]] HRESULT Open(const std::filesystem::path& file, const std::wstring& what, const Reader& read);

    const Table& Values() const { return table_; }
    State Condition() const { return state_; }
    const std::filesystem::path& SetAside() const { return setAside_; }

    // On failure the table and the file are as before.
    [[nodiscard]] HRESULT Commit(std::vector<Change> changes);

    // The caller found that the values make no sense: the file is moved aside as if it were damaged.
    [[nodiscard]] HRESULT Discard();

    std::uint64_t FileSize() const { return size_; }

  private:
    static constexpr std::uint64_t SMALLEST_TO_COMPACT = 64 * 1024;

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
    // Below this size the file is not written anew: it gains nothing, or has failed a moment ago.
    std::uint64_t compactFrom_ = SMALLEST_TO_COMPACT;
    Table table_;
    std::uint64_t content_ = 0; // bytes of all names and values
    State state_ = State::Good;
    std::filesystem::path setAside_;
};

} // namespace keldan
