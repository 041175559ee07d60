// Log lines that a test reads back.
#pragma once

#include "support/Support.h"

#include <string>
#include <vector>

namespace support {

// The messages of a log file of the program, without their heads; a line of another form is returned whole.
std::vector<std::string> LogMessages(const std::filesystem::path& file, const std::string& program);

// Logs what this process does to a file of its own, for the life of the object.
class LogLines {
  public:
    explicit LogLines(int level);
    ~LogLines();
    LogLines(const LogLines&) = delete;
    LogLines& operator=(const LogLines&) = delete;
    // The messages so far, without the first one, which says that logging has begun.
    std::vector<std::string> Read() const;

  private:
    TestFolder folder_;
    std::filesystem::path file_ = folder_.Path() / "a.log";
    RegistryValue value_;
};

} // namespace support
