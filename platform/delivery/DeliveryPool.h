// The threads that carry callbacks to clients. They are started when they are needed and stay in the multithreaded
// apartment for their life.
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

    // Callbacks that run at the same time, not counting those that nobody waits for any longer.
    explicit DeliveryPool(std::size_t width);
    // Waits for callbacks that run, for a few seconds at most; what hangs in a client is left behind.
    ~DeliveryPool();
    DeliveryPool(const DeliveryPool&) = delete;
    DeliveryPool& operator=(const DeliveryPool&) = delete;

    // number names the piece of work; work must not throw. Throws std::system_error where not even one thread can be
    // started.
    void Add(std::uint64_t number, Work work);
    // The piece of work is waited for no longer: another thread may run in its place. False where too many hang already
    // for that; it keeps its place then.
    bool Abandon(std::uint64_t number);

  private:
    struct Item {
        std::uint64_t number;
        Work work;
    };
    // Shared with the threads, which may outlive the pool when a client hangs.
    struct Shared {
        std::mutex mutex;
        std::condition_variable wake;
        std::condition_variable ended;
        std::deque<Item> queue;
        std::set<std::uint64_t> running;
        std::set<std::uint64_t> abandoned;
        std::size_t width = 0;
        std::size_t threads = 0; // without those in abandoned work
        std::size_t idle = 0;
        bool stopping = false;
    };

    static void Run(const std::shared_ptr<Shared>& shared);
    void StartThread();

    std::shared_ptr<Shared> shared_;
};

} // namespace keldan
