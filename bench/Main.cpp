// vorna_bench [NAME]: runs one comparison or all of them. Prints one line a figure, its fields separated by tabs:
// "bench", comparison, what, measured value, unit, and if there is a goal "<=" or ">=", the goal, "met" or "missed".
// The exit code is 0 even if goals are missed; 1: a comparison failed, 2: there is none with that name.
#include "bench/Bench.h"

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
        // The order changes, because the first one may find cold caches.
        for (size_t turn = 0; turn < candidates.size(); ++turn) {
            const size_t which = (turn + static_cast<size_t>(round)) % candidates.size();
            const double begin = Now();
            for (int operation = 0; operation < rounds.operations; ++operation)
                candidates[which].run();
            times[which].push_back((Now() - begin) / rounds.operations);
        }
    }
    std::vector<double> medians(times.size());
    std::transform(times.begin(), times.end(), medians.begin(), Median);
    return medians;
}

double Milliseconds(const std::function<void()>& work) {
    const double begin = Now();
    work();
    return (Now() - begin) / 1e6;
}

double Median(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
    return values[values.size() / 2];
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
