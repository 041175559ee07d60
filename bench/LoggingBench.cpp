// What logging costs: a message that is dropped against a bare compare, a line in the file against the least that a
// line shared by several processes needs.
#include "Bench.h"
#include "common/com/unique_any.h"
#include "common/log/Logging.h"

#include <windows.h>

#include <filesystem>
#include <stdexcept>

namespace {

constexpr wchar_t KEY[] = L"SOFTWARE\\Ostrevane\\QXKeldan\\Logging";
constexpr char PROGRAM[] = "VORNABENCH.Logging";

// Logging into a file, for as long as it lives.
class RunningLog {
  public:
    RunningLog(const std::filesystem::path& file, const wchar_t* level) {
        const std::wstring value = L"file," + file.wstring() + L"," + level;
        RegSetKeyValueW(HKEY_LOCAL_MACHINE, KEY, L"VORNABENCH.Logging", REG_SZ, value.c_str(),
                        static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
        if (vorna::StartLogging(PROGRAM) == 0)
            throw std::runtime_error("logging did not start");
    }
    ~RunningLog() {
        vorna::StopLogging();
        RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, KEY, L"VORNABENCH.Logging");
    }
    RunningLog(const RunningLog&) = delete;
    RunningLog& operator=(const RunningLog&) = delete;
};

class Folder {
  public:
    Folder() : path(std::filesystem::temp_directory_path() / ("vorna-bench-" + std::to_string(GetCurrentProcessId()))) {
        std::filesystem::create_directories(path);
    }
    ~Folder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    const std::filesystem::path path;
};

volatile unsigned char bareLevel = 1;
volatile int taken = 0;

} // namespace

VORNA_BENCH(DroppedMessage) {
    Folder folder;
    RunningLog log(folder.path / "a.log", L"1");
    constexpr int INNER = 1000;
    const auto times = bench::Measure({{"compare",
                                        [] {
                                            for (int i = 0; i < INNER; ++i)
                                                if (vorna::LOG_TRACE <= bareLevel)
                                                    taken = i;
                                        }},
                                       {"macro",
                                        [] {
                                            for (int i = 0; i < INNER; ++i)
                                                VORNA_LOG(vorna::LOG_TRACE, "%s - Entering", "Vorna::GetData");
                                        }},
                                       {"call",
                                        [] {
                                            for (int i = 0; i < INNER; ++i)
                                                vorna::LogMessage(vorna::LOG_TRACE, "%s - Entering", "Vorna::GetData");
                                        }},
                                       {"scope",
                                        [] {
                                            for (int i = 0; i < INNER; ++i)
                                                const vorna::ScopeTrace trace("Vorna::GetData");
                                        }}},
                                      {.operations = 500, .rounds = 15});
    report.Figure("bare compare", times[0] / INNER, "ns");
    report.AtMost("VORNA_LOG above a compare", (times[1] - times[0]) / INNER, 2, "ns");
    report.AtMost("LogMessage above a compare", (times[2] - times[0]) / INNER, 2, "ns");
    report.Figure("ScopeTrace above a compare", (times[3] - times[0]) / INNER, "ns");
}

VORNA_BENCH(FileLine) {
    Folder folder;
    RunningLog log(folder.path / "a.log", L"4");
    vorna::unique_file file(CreateFileW((folder.path / "bare.log").c_str(), GENERIC_READ | GENERIC_WRITE,
                                        FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS, 0, nullptr));
    vorna::unique_handle mutex(CreateMutexW(nullptr, FALSE, L"vorna-bench-bare-log"));
    // As long as the line that the log writes.
    const std::string line = "11/22/26-14:02:09,[1412:2208/4] VORNABENCH.Logging::Vorna::GetData - Entering\r\n";
    auto bare = [&] {
        WaitForSingleObject(mutex.get(), 500);
        DWORD written = 0;
        WriteFile(file.get(), line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
        ReleaseMutex(mutex.get());
    };
    auto logged = [] { VORNA_LOG(vorna::LOG_TRACE, "%s - Entering", "Vorna::GetData"); };
    const auto times = bench::Measure({{"bare", bare}, {"logged", logged}}, {.operations = 1000, .rounds = 15});
    report.Figure("bare line", times[0] / 1000, "us");
    report.Figure("logged line", times[1] / 1000, "us");
    report.AtMost("logged line to bare line", times[1] / times[0], 1.2, "times");
}
