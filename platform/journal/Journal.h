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

#include "common/unique_any.h"

#include <cstdint>
#include <filesystem>
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

    const Table& table() const { return table_; }
    State state() const { return state_; }
    const std::filesystem::path& setAside() const { return setAside_; }

    // On failure the table and the file are as before.
    [[nodiscard]] HRESULT Commit(const std::vector<Change>& changes);

    // The caller found that the values make no sense: the file is moved aside as if it were damaged.
    [[nodiscard]] HRESULT Discard();

    std::uint64_t fileSize() const { return size_; }

  private:
    HRESULT OpenFile();
    HRESULT ReadWhole(std::string& bytes);
    bool Parse(const std::string& bytes);
    void Apply(const std::vector<Change>& changes);
    HRESULT Append(const std::string& bytes);
    HRESULT Compact();

    std::filesystem::path path_;
    vorna::unique_file file_;
    std::uint64_t size_ = 0;
    Table table_;
    State state_ = State::Good;
    std::filesystem::path setAside_;
};

} // namespace keldan
