// The threads that call clients. They are started on demand and belong to the multithreaded apartment.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <set>

namespace keldan {

class DeliveryPool {
  public:
    using Work = std::function<void()>;

    // width: how many pieces of work run at the same time, without abandoned ones.
    explicit DeliveryPool(std::size_t width);
    // Waits for running work, for a few seconds at most. A thread that hangs in a client is left running.
    ~DeliveryPool();
    DeliveryPool(const DeliveryPool&) = delete;
    DeliveryPool& operator=(const DeliveryPool&) = delete;

    // number identifies the work; work must not throw. Throws std::system_error if not a single thread can be started.
    void Add(std::uint64_t number, Work work);
    // Stops counting this work against the pool's width, so that another thread may start. False if too many abandoned
    // threads exist already; the work then still counts.
    bool Abandon(std::uint64_t number);

  private:
    struct Item {
        std::uint64_t number;
        Work work;
    };
    // Shared with the threads, which may outlive the pool if a client hangs.
    struct Shared {
        std::mutex mutex;
        std::condition_variable wake;
        std::condition_variable ended;
        std::deque<Item> queue;
        std::set<std::uint64_t> running;
        std::set<std::uint64_t> abandoned;
        std::size_t width = 0;
        std::size_t threads = 0; // without abandoned ones
        std::size_t idle = 0;
        bool stopping = false;
    };

    static void Run(const std::shared_ptr<Shared>& shared);
    void StartThread();

    std::shared_ptr<Shared> shared_;
};

} // namespace keldan
