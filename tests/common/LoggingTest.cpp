#include "common/log/Logging.h"

#include "common/log/LogFile.h"
#include "support/ChildProcess.h"
#include "support/LogLines.h"

#include <gmock/gmock.h>

#include <memory>
#include <regex>
#include <thread>

using namespace vorna;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

constexpr char PROGRAM[] = "VORNATEST.Logging";
constexpr wchar_t KEY[] = L"SOFTWARE\\Ostrevane\\QXKeldan\\Logging";

// Collects what this process sends to a debugger, while it lives; one at a time. The system raises an exception with
// each text, which a debugger would see first.
class DebuggerOutput {
  public:
    DebuggerOutput() : handler_(AddVectoredExceptionHandler(1, Take)) { texts_.clear(); }
    ~DebuggerOutput() { RemoveVectoredExceptionHandler(handler_); }
    DebuggerOutput(const DebuggerOutput&) = delete;
    DebuggerOutput& operator=(const DebuggerOutput&) = delete;
    const std::vector<std::string>& Texts() const { return texts_; }

  private:
    static LONG WINAPI Take(EXCEPTION_POINTERS* raised) {
        if (raised->ExceptionRecord->ExceptionCode != DBG_PRINTEXCEPTION_C)
            return EXCEPTION_CONTINUE_SEARCH;
        texts_.emplace_back(reinterpret_cast<const char*>(raised->ExceptionRecord->ExceptionInformation[1]));
        return EXCEPTION_CONTINUE_EXECUTION;
    }
    static inline std::vector<std::string> texts_;
    void* handler_;
};

class LoggingTest : public testing::Test {
  protected:
    void TearDown() override {
        for (int user = 0; user < 100; ++user)
            StopLogging();
    }

    std::filesystem::path Log() const { return folder_.Path() / "a.log"; }
    void Configure(const std::string& value) {
        // First the old value goes, or its end would undo the new one.
        value_.reset();
        value_ = std::make_unique<support::RegistryValue>(KEY, support::Wide(PROGRAM), support::Wide(value));
    }
    unsigned Start(const std::string& value) {
        Configure(value);
        return StartLogging(PROGRAM);
    }
    unsigned StartFile(const std::string& rest) { return Start("file," + Log().string() + "," + rest); }
    std::vector<std::string> Lines() const { return support::LogMessages(Log(), PROGRAM); }

    support::TestFolder folder_;
    std::unique_ptr<support::RegistryValue> value_;
};

} // namespace

TEST_F(LoggingTest, FileLinesCarryTheirOrigin) {
    ASSERT_EQ(5u, StartFile("5"));
    SetLastError(4711);
    LogMessage(3, "number %d and %S", 7, L"wide");
    EXPECT_EQ(4711u, GetLastError());
    LogMessage(6, "above the level");
    LogMessage(5, "ends its line\n");
    std::string origin = "[0-9]{1,2}/[0-9]{1,2}/[0-9]{2}-[0-9]{2}:[0-9]{2}:[0-9]{2},\\[" +
                         std::to_string(GetCurrentProcessId()) + ":" + std::to_string(GetCurrentThreadId()) + "/";
    std::regex expected(origin + "4\\] VORNATEST\\.Logging:: ---Start Logging---\r\n" + origin +
                        "3\\] VORNATEST\\.Logging::number 7 and wide\r\n" + origin +
                        "5\\] VORNATEST\\.Logging::ends its line\n");
    std::string text = support::ReadFileBytes(Log());
    EXPECT_TRUE(std::regex_match(text, expected)) << text;
}

TEST_F(LoggingTest, EachLevelShowsItselfAndWhatIsBelow) {
    for (unsigned configured : {0u, 1u, 4u, 8u}) {
        SCOPED_TRACE(configured);
        std::filesystem::remove(Log());
        EXPECT_EQ(configured, StartFile(std::to_string(configured)));
        for (unsigned level = 0; level <= 9; ++level)
            LogMessage(level, "%u", level);
        StopLogging();
        std::vector<std::string> expected;
        if (configured >= 4)
            expected.push_back(" ---Start Logging---");
        for (unsigned level = 0; level <= configured; ++level)
            expected.push_back(std::to_string(level));
        EXPECT_EQ(expected, Lines());
    }
}

TEST_F(LoggingTest, ARunningTargetStays) {
    DebuggerOutput debugger;
    EXPECT_EQ(4u, StartFile("4"));
    EXPECT_EQ(4u, Start("debug,8")) << "the running level is reported";
    LogMessage(4, "first");
    StopLogging();
    EXPECT_EQ(0u, loggingLevel) << "the start with another mode counted a user";
    EXPECT_THAT(Lines(), ElementsAre(" ---Start Logging---", "first"));
    EXPECT_THAT(debugger.Texts(), ElementsAre());
}

TEST_F(LoggingTest, AppendsUntilTheLastUserStops) {
    support::WriteFileBytes(Log(), "VORNATEST.Logging::old\n");
    StartFile("1");
    StartFile("1");
    StopLogging();
    LogMessage(1, "one user left");
    StopLogging();
    LogMessage(1, "no user left");
    StopLogging();
    EXPECT_THAT(Lines(), ElementsAre("old", "one user left"));
    EXPECT_TRUE(std::filesystem::remove(Log())) << "the file is still open";
}

TEST_F(LoggingTest, DebuggerLinesHaveNoDate) {
    DebuggerOutput debugger;
    EXPECT_EQ(0u, Start("DEBUG,0"));
    SetLastError(4711);
    LogMessage(0, "text %s", "x");
    EXPECT_EQ(4711u, GetLastError());
    LogMessage(1, "above the level");
    EXPECT_THAT(debugger.Texts(), ElementsAre("VORNATEST.Logging::text x\r\n"));
}

TEST_F(LoggingTest, ConsoleLinesGoToTheStandardOutput) {
    HANDLE before = GetStdHandle(STD_OUTPUT_HANDLE);
    unique_file file(
        CreateFileW((folder_.Path() / "out").c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_NEW, 0, nullptr));
    SetStdHandle(STD_OUTPUT_HANDLE, file.get());
    Start("console,4");
    LogMessage(2, "text");
    SetStdHandle(STD_OUTPUT_HANDLE, before);
    EXPECT_EQ("VORNATEST.Logging:: ---Start Logging---\r\nVORNATEST.Logging::text\r\n",
              support::ReadFileBytes(folder_.Path() / "out"));
}

TEST_F(LoggingTest, AFileThatCannotBeOpenedLeavesLoggingOff) {
    EXPECT_EQ(0u, Start("file," + folder_.Path().string() + "\\none\\a.log,8"));
    EXPECT_EQ(8u, StartFile("8")) << "a later start finds a usable file";
}

TEST_F(LoggingTest, WithoutATargetOnlyLevelZeroIsKept) {
    // The file lies in the root of the current drive.
    const auto directory = std::filesystem::current_path();
    std::filesystem::current_path(folder_.Path());
    const std::filesystem::path fallback = "\\qxv-event.log";
    const std::string before = support::ReadFileBytes(fallback);
    LogMessage(1, "dropped");
    LogMessage(0, "kept %d", 1);
    LogMessage(0, "kept %d", 2);
    std::string text = support::ReadFileBytes(fallback).substr(before.size());
    if (before.empty()) {
        EXPECT_TRUE(std::filesystem::remove(fallback)) << "the file is still open";
    }
    std::filesystem::current_path(directory);
    EXPECT_TRUE(std::regex_match(text, std::regex("[^\n]*/0\\] [^\n]*::kept 1\r\n[^\n]*/0\\] [^\n]*::kept 2\r\n")))
        << text;
    EXPECT_EQ(0u, loggingLevel);
}

TEST_F(LoggingTest, AfterAFailedWriteLinesGoToTheDebugger) {
    DebuggerOutput debugger;
    // A pipe whose reader goes away acts as a file that cannot be written any more.
    std::string name = "\\\\.\\pipe\\vorna-logging-" + std::to_string(GetCurrentProcessId());
    unique_file reader(CreateNamedPipeA(name.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE, 1, 65536, 65536, 0, nullptr));
    ASSERT_TRUE(reader);
    ASSERT_EQ(3u, Start("file," + name + ",3"));
    LogMessage(1, "read");
    char line[256] = {};
    DWORD size = 0;
    ReadFile(reader.get(), line, sizeof line - 1, &size, nullptr);
    EXPECT_THAT(line, HasSubstr("::read\r\n"));
    reader.reset();
    SetLastError(4711);
    LogMessage(1, "lost");
    EXPECT_EQ(4711u, GetLastError());
    LogMessage(1, "shown");
    EXPECT_EQ(3u, Start("file," + name + ",3")) << "a later start of the first mode changes nothing";
    LogMessage(1, "shown too");
    EXPECT_THAT(debugger.Texts(), ElementsAre("VORNATEST.Logging::shown\r\n", "VORNATEST.Logging::shown too\r\n"));
}

TEST_F(LoggingTest, LinesAreDroppedWhileTheMutexIsHeldAndNotWhenItIsAbandoned) {
    StartFile("1");
    LogMutexName name;
    MakeLogMutexName(name, Log().string().c_str());
    unique_handle held(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    unique_handle end(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    unique_handle mutex(CreateMutexA(nullptr, FALSE, name));
    std::thread holder([&] {
        WaitForSingleObject(mutex.get(), INFINITE);
        SetEvent(held.get());
        WaitForSingleObject(end.get(), INFINITE);
    });
    WaitForSingleObject(held.get(), INFINITE);
    ULONGLONG before = GetTickCount64();
    LogMessage(1, "dropped");
    EXPECT_GE(GetTickCount64() - before, 450u);
    SetEvent(end.get());
    holder.join();
    LogMessage(1, "kept");
    LogMessage(1, "kept too");
    EXPECT_THAT(Lines(), ElementsAre("kept", "kept too"));
}

TEST_F(LoggingTest, TrimKeepsTheLastWholeLines) {
    std::string lines;
    for (int line = 0; lines.size() < 5000; ++line)
        lines += "VORNATEST.Logging::line " + std::to_string(line) + "\n";
    const struct {
        const char* kilobytes;
        std::string before;
        std::string after;
    } cases[] = {
        {"0", lines, lines},
        {"-1", lines, lines},
        {"5", lines, lines},
        {"4", lines, lines.substr(lines.find('\n', lines.size() - 4096) + 1)},
        {"1", lines, lines.substr(lines.find('\n', lines.size() - 1024) + 1)},
        {"1", std::string(1024, 'x'), std::string(1024, 'x')},
        {"1", std::string(3000, 'x'), ""},
        {"1", std::string(2000, 'x') + "\nrest", "rest"},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(testing::Message() << expected.kilobytes << " of " << expected.before.size());
        support::WriteFileBytes(Log(), expected.before);
        StartFile(std::string(expected.kilobytes) + ",1");
        StopLogging();
        EXPECT_EQ(expected.after, support::ReadFileBytes(Log()));
        EXPECT_EQ(0u, loggingLevel);
    }
}

TEST_F(LoggingTest, EntryAndExitOfAScopeCarryOneGuid) {
    StartFile("5");
    {
        const ScopeTrace trace("Test::Outer");
        ScopeTrace inner({"Test::Inner", 12, "inner.cpp"});
    }
    std::string text;
    for (const std::string& line : Lines())
        text += line + "\n";
    std::regex expected(" ---Start Logging---\n"
                        "ENTER Test::Outer on line [0-9]+ in file LoggingTest\\.cpp @(\\{[0-9A-F-]{36}\\})@\n"
                        "ENTER Test::Inner on line 12 in file inner\\.cpp @(\\{[0-9A-F-]{36}\\})@\n"
                        "EXIT: Test::Inner @(\\{[0-9A-F-]{36}\\})@\n"
                        "EXIT: Test::Outer @(\\{[0-9A-F-]{36}\\})@\n");
    std::smatch match;
    ASSERT_TRUE(std::regex_match(text, match, expected)) << text;
    EXPECT_EQ(match[1], match[4]);
    EXPECT_EQ(match[2], match[3]);
    EXPECT_NE(match[1], match[2]);
}

TEST_F(LoggingTest, ConcurrentFirstStartsShareOneTarget) {
    Configure("file," + Log().string() + ",4");
    for (int round = 0; round < 20 && !HasFailure(); ++round) {
        std::filesystem::remove(Log());
        DWORD handles = 0, left = 0;
        GetProcessHandleCount(GetCurrentProcess(), &handles);
        unique_handle go(CreateEventW(nullptr, TRUE, FALSE, nullptr));
        {
            std::vector<std::jthread> threads(6);
            for (std::jthread& thread : threads)
                thread = std::jthread([&] {
                    WaitForSingleObject(go.get(), INFINITE);
                    EXPECT_EQ(4u, StartLogging(PROGRAM));
                    LogMessage(1, "started");
                });
            SetEvent(go.get());
        }
        EXPECT_THAT(Lines(), testing::UnorderedElementsAre(" ---Start Logging---", "started", "started", "started",
                                                           "started", "started", "started"));
        for (int user = 0; user < 5; ++user)
            StopLogging();
        EXPECT_EQ(4u, loggingLevel);
        StopLogging();
        EXPECT_EQ(0u, loggingLevel);
        GetProcessHandleCount(GetCurrentProcess(), &left);
        EXPECT_LE(left, handles + 1) << "handles of the starts that came second";
    }
}

TEST_F(LoggingTest, LinesOfOneThreadSurviveStartsAndStopsOfAnother) {
    Configure("file," + Log().string() + ",1,3");
    std::atomic<bool> end{false};
    std::thread writer([&] {
        while (!end)
            LogMessage(1, "a line that is written whole or not at all");
    });
    for (int round = 0; round < 200; ++round) {
        StartLogging(PROGRAM);
        LogMessage(1, "a line that is written whole or not at all");
        StopLogging();
    }
    end = true;
    writer.join();
    EXPECT_EQ(0u, loggingLevel);
    for (const std::string& line : Lines())
        ASSERT_EQ("a line that is written whole or not at all", line);
}

// The second process of the test below.
TEST(LoggingChild, DISABLED_Writer) {
    ASSERT_EQ(1u, StartLogging("VORNATEST.Logging2"));
    for (int line = 0; line < 2000; ++line)
        LogMessage(1, "%d", line);
}

TEST_F(LoggingTest, TwoProcessesLoseNoLine) {
    std::wstring lower = Log().wstring();
    CharLowerW(lower.data());
    const support::RegistryValue second(KEY, L"VORNATEST.Logging2", L"file," + lower + L",1");
    StartFile("1");
    const auto child = support::ChildProcess::OfTest(L"LoggingChild.DISABLED_Writer", {});
    int written = 0;
    while (child.Running())
        LogMessage(1, "%d", written++);
    EXPECT_EQ(0u, child.Wait());
    int own = 0, others = 0;
    for (const std::string& line : Lines())
        if (line == std::to_string(own))
            ++own;
        else
            ASSERT_TRUE(line.ends_with(" VORNATEST.Logging2::" + std::to_string(others++))) << line;
    EXPECT_EQ(written, own);
    EXPECT_EQ(2000, others);
}

TEST(LogFileTest, MutexNamesAreTheSameInAllLetterCases) {
    LogMutexName name;
    MakeLogMutexName(name, "C:\\Logs\\A b-#.~()[]{}+\xC4.log");
    EXPECT_STREQ("qx_tbr_logging_mutex-c__logs_a_b-#.~()[]{}__.log", name);
    MakeLogMutexName(name, std::string(300, 'A').c_str());
    EXPECT_EQ(size_t{MAX_PATH - 1}, strlen(name));
}
