// Comparisons of functions within one process: what is compared takes turns, so that both see the same machine.
//
// A file named *Bench.cpp registers its comparisons with VORNA_BENCH; the program vorna_bench runs them.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace bench {

struct Candidate {
    std::string name;
    // One operation; made once before the clock starts, so that what is lazy is there.
    std::function<void()> run;
};

// How many operations stand between two looks at the clock, and how many such rounds there are.
struct Rounds {
    int operations = 1000;
    int rounds = 15;
};

// Nanoseconds an operation of each candidate: medians of rounds that are interleaved.
std::vector<double> Measure(const std::vector<Candidate>& candidates, const Rounds& rounds = {});

// What a comparison is allowed to say.
class Report {
  public:
    explicit Report(std::string name) : name_(std::move(name)) {}

    // A figure without a goal, such as a time or a throughput.
    void Figure(const std::string& what, double value, const std::string& unit) const;
    // The figure should not be above the goal.
    void AtMost(const std::string& what, double value, double goal, const std::string& unit) const;
    // The figure should not be below the goal.
    void AtLeast(const std::string& what, double value, double goal, const std::string& unit) const;
    // The bench could not run; the reason is shown.
    void Skip(const std::string& reason) const;

  private:
    std::string name_;
};

struct Registration {
    Registration(const char* name, void (*run)(Report&));
};

// Keeps the optimiser from removing what computes the value.
template <typename Value>
void Keep(const Value& value) {
    asm volatile("" : : "g"(&value) : "memory");
}

} // namespace bench

#define VORNA_BENCH(name)                                                                                              \
    static void Bench##name(bench::Report& report);                                                                    \
    static const bench::Registration registration##name(#name, &Bench##name);                                          \
    static void Bench##name([[maybe_unused]] bench::Report& report)
