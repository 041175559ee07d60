#include "support/LogLines.h"

#include "common/log/Logging.h"

#include <sstream>

namespace support {

namespace {

constexpr char PROGRAM[] = "VORNATEST.LogLines";

} // namespace

std::vector<std::string> LogMessages(const std::filesystem::path& file, const std::string& program) {
    std::vector<std::string> messages;
    std::istringstream text(ReadFileBytes(file));
    const std::string end = program + "::";
    for (std::string line; std::getline(text, line);) {
        if (line.ends_with('\r'))
            line.pop_back();
        const std::size_t head = line.find(end);
        messages.push_back(head == line.npos ? line : line.substr(head + end.size()));
    }
    return messages;
}

LogLines::LogLines(int level)
    : value_(L"SOFTWARE\\Ostrevane\\QXKeldan\\Logging", Wide(PROGRAM),
             L"file," + file_.wstring() + L"," + std::to_wstring(level)) {
    vorna::StartLogging(PROGRAM);
}

LogLines::~LogLines() {
    vorna::StopLogging();
}

std::vector<std::string> LogLines::Read() const {
    std::vector<std::string> messages = LogMessages(file_, PROGRAM);
    std::erase(messages, " ---Start Logging---");
    return messages;
}

} // namespace support
