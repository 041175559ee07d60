// Comparisons of functions within one process. Candidates take turns, so that all of them see the same machine.
//
// A file named *Bench.cpp registers its comparisons with VORNA_BENCH; the program vorna_bench runs them.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace bench {

struct Candidate {
    std::string name;
    // One operation. It is called once before the measurement, for lazy initialisation.
    std::function<void()> run;
};

// operations: between two readings of the clock.
struct Rounds {
    int operations = 1000;
    int rounds = 15;
};

// The nanoseconds for an operation of each candidate: medians of interleaved rounds.
std::vector<double> Measure(const std::vector<Candidate>& candidates, const Rounds& rounds = {});

// The milliseconds that the work takes once.
double Milliseconds(const std::function<void()>& work);

// values: not empty.
double Median(std::vector<double> values);

// Prints the results of a comparison.
class Report {
  public:
    explicit Report(std::string name) : name_(std::move(name)) {}

    // A figure without a goal, such as a time or a throughput.
    void Figure(const std::string& what, double value, const std::string& unit) const;
    // The figure should not be above the goal.
    void AtMost(const std::string& what, double value, double goal, const std::string& unit) const;
    // The figure should not be below the goal.
    void AtLeast(const std::string& what, double value, double goal, const std::string& unit) const;

  private:
    std::string name_;
};

struct Registration {
    Registration(const char* name, void (*run)(Report&));
};

// Prevents the optimiser from removing the computation of the value.
template <typename Value>
void Keep(const Value& value) {
    asm volatile("" : : "g"(&value) : "memory");
}

} // namespace bench

#define VORNA_BENCH(name)                                                                                              \
    static void Bench##name(bench::Report& report);                                                                    \
    static const bench::Registration registration##name(#name, &Bench##name);                                          \
    static void Bench##name([[maybe_unused]] bench::Report& report)
