// vorna_bench [NAME]: runs one comparison or all of them. Prints one line a figure, its fields separated by tabs:
// "bench", comparison, what, measured value, unit, and where there is a goal "<=" or ">=", the goal, "met" or "missed".
// Ends with 0 whatever was measured: 1 means that a comparison failed, 2 that there is none of that name.
#include "Bench.h"

#include <objbase.h>
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <exception>

namespace bench {

namespace {

struct Entry {
    const char* name;
    void (*run)(Report&);
};

std::vector<Entry>& Entries() {
    static std::vector<Entry> entries;
    return entries;
}

double Now() {
    static const double nanoseconds = [] {
        LARGE_INTEGER frequency;
        QueryPerformanceFrequency(&frequency);
        return 1e9 / static_cast<double>(frequency.QuadPart);
    }();
    LARGE_INTEGER counter;
    QueryPerformanceCounter(&counter);
    return static_cast<double>(counter.QuadPart) * nanoseconds;
}

void Print(const std::string& name, const std::string& what, double value, const std::string& unit) {
    std::printf("bench\t%s\t%s\t%.4g\t%s", name.c_str(), what.c_str(), value, unit.c_str());
}

void PrintGoal(const char* relation, double goal, bool met) {
    std::printf("\t%s\t%.4g\t%s\n", relation, goal, met ? "met" : "missed");
    std::fflush(stdout);
}

} // namespace

Registration::Registration(const char* name, void (*run)(Report&)) {
    Entries().push_back({name, run});
}

std::vector<double> Measure(const std::vector<Candidate>& candidates, const Rounds& rounds) {
    std::vector<std::vector<double>> times(candidates.size());
    for (const Candidate& candidate : candidates)
        candidate.run();
    for (int round = 0; round < rounds.rounds; ++round) {
        // The order turns as well: who comes first may find a colder machine.
        for (size_t turn = 0; turn < candidates.size(); ++turn) {
            const size_t which = (turn + static_cast<size_t>(round)) % candidates.size();
            const double begin = Now();
            for (int operation = 0; operation < rounds.operations; ++operation)
                candidates[which].run();
            times[which].push_back((Now() - begin) / rounds.operations);
        }
    }
    std::vector<double> medians;
    for (auto& each : times) {
        std::nth_element(each.begin(), each.begin() + each.size() / 2, each.end());
        medians.push_back(each[each.size() / 2]);
    }
    return medians;
}

void Report::Figure(const std::string& what, double value, const std::string& unit) const {
    Print(name_, what, value, unit);
    std::puts("");
    std::fflush(stdout);
}

void Report::AtMost(const std::string& what, double value, double goal, const std::string& unit) const {
    Print(name_, what, value, unit);
    PrintGoal("<=", goal, value <= goal);
}

void Report::AtLeast(const std::string& what, double value, double goal, const std::string& unit) const {
    Print(name_, what, value, unit);
    PrintGoal(">=", goal, value >= goal);
}

void Report::Skip(const std::string& reason) const {
    std::printf("skipped\t%s\t%s\n", name_.c_str(), reason.c_str());
    std::fflush(stdout);
}

} // namespace bench

int main(int count, char** arguments) {
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    int result = count > 1 ? 2 : 0;
    for (const auto& entry : bench::Entries()) {
        if (count > 1 && _stricmp(arguments[1], entry.name) != 0)
            continue;
        if (result == 2)
            result = 0;
        bench::Report report(entry.name);
        try {
            entry.run(report);
        } catch (const std::exception& error) {
            std::fprintf(stderr, "%s failed: %s\n", entry.name, error.what());
            result = 1;
        }
    }
    if (result == 2)
        std::fprintf(stderr, "no bench named %s\n", arguments[1]);
    CoUninitialize();
    return result;
}
