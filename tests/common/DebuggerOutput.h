// Collects what this process sends to the debugger output.
#pragma once

#include "common/com/unique_any.h"

#include <mutex>
#include <string>
#include <thread>
#include <vector>

// Stands in for a debugger viewer while it lives; one at a time.
class DebuggerOutput {
  public:
    DebuggerOutput();
    ~DebuggerOutput();
    DebuggerOutput(const DebuggerOutput&) = delete;
    DebuggerOutput& operator=(const DebuggerOutput&) = delete;

    // What has come so far; a sender is held until its text is here.
    std::vector<std::string> Texts();

  private:
    void Listen();

    vorna::unique_handle mapping_;
    vorna::unique_handle ready_;
    vorna::unique_handle filled_;
    vorna::unique_handle end_;
    std::mutex lock_;
    std::vector<std::string> texts_;
    std::thread listener_;
};
