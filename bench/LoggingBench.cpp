// The cost of logging: a dropped message compared with a bare comparison, and a line in the file compared with the
// minimum for a file that several processes write.
#include "bench/Bench.h"
#include "common/com/unique_any.h"
#include "common/log/Logging.h"
#include "support/Support.h"

#include <windows.h>

#include <filesystem>
#include <stdexcept>

namespace {

// Logs into a file during its lifetime.
class RunningLog {
  public:
    RunningLog(const std::filesystem::path& file, const wchar_t* level)
        : setting_(L"SOFTWARE\\Ostrevane\\QXKeldan\\Logging", L"VORNABENCH.Logging",
                   L"file," + file.wstring() + L"," + level) {
        if (vorna::StartLogging("VORNABENCH.Logging") == 0)
            throw std::runtime_error("logging did not start");
    }
    ~RunningLog() { vorna::StopLogging(); }
    RunningLog(const RunningLog&) = delete;
    RunningLog& operator=(const RunningLog&) = delete;

  private:
    support::RegistryValue setting_;
};

volatile unsigned char bareLevel = 1;
volatile int taken = 0;

} // namespace

VORNA_BENCH(DroppedMessage) {
    const support::TestFolder folder;
    RunningLog log(folder.Path() / "a.log", L"1");
    constexpr int INNER = 1000;
    const auto repeat = [](auto work) {
        return [work] {
            for (int i = 0; i < INNER; ++i)
                work(i);
        };
    };
    const auto compare = [](int i) {
        if (vorna::LOG_TRACE <= bareLevel)
            taken = i;
    };
    const auto macro = [](int) { VORNA_LOG(vorna::LOG_TRACE, "%s - Entering", "Vorna::GetData"); };
    const auto call = [](int) { vorna::LogMessage(vorna::LOG_TRACE, "%s - Entering", "Vorna::GetData"); };
    const auto scope = [](int) { const vorna::ScopeTrace trace("Vorna::GetData"); };
    const auto times = bench::Measure(
        {{"compare", repeat(compare)}, {"macro", repeat(macro)}, {"call", repeat(call)}, {"scope", repeat(scope)}},
        {.operations = 500, .rounds = 15});
    report.Figure("bare compare", times[0] / INNER, "ns");
    report.AtMost("VORNA_LOG above a compare", (times[1] - times[0]) / INNER, 2, "ns");
    report.AtMost("LogMessage above a compare", (times[2] - times[0]) / INNER, 2, "ns");
    report.Figure("ScopeTrace above a compare", (times[3] - times[0]) / INNER, "ns");
}

VORNA_BENCH(FileLine) {
    const support::TestFolder folder;
    RunningLog log(folder.Path() / "a.log", L"4");
    vorna::unique_file file(CreateFileW((folder.Path() / "bare.log").c_str(), GENERIC_READ | GENERIC_WRITE,
                                        FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS, 0, nullptr));
    vorna::unique_handle mutex(CreateMutexW(nullptr, FALSE, L"vorna-bench-bare-log"));
    // As long as the line of the log.
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
