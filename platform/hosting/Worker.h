// The thread of a service: it does the service's work whenever that is due.
#pragma once

#include "common/com/unique_any.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>

namespace keldan {

// Wake may be called on any thread, Start and Stop on one.
class Worker {
  public:
    using Clock = std::chrono::steady_clock;
    // When the work is called again.
    struct Next {
        // At the latest.
        Clock::time_point when;
        // As soon as this handle is signalled; null: there is none.
        HANDLE signal = nullptr;
    };

    Worker() = default;
    ~Worker() { Stop(); }
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    // Starts the thread, in the multithreaded apartment, and calls the work at once. If the work throws, failure is
    // written to the debugger output and the work is called again after a second.
    [[nodiscard]] HRESULT Start(std::function<Next()> work, const std::wstring& failure);
    // Causes the work to be called as soon as possible; if it is running at the moment, once more after that.
    void Wake() const { SetEvent(wake_.get()); }
    // Waits until the work is not running. It is not called after that.
    void Stop();

  private:
    void Run(const std::function<Next()>& work, const std::wstring& failure);

    const vorna::unique_handle wake_{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
    std::atomic<bool> stopping_{false};
    std::thread thread_;
};

} // namespace keldan
