#include "platform/delivery/DeliveryPool.h"

#include <objbase.h>

#include <chrono>
#include <thread>

namespace keldan {

namespace {

constexpr std::chrono::seconds LAST_WAIT(5);
// Threads that hang in clients cannot be ended; this many are replaced at most.
constexpr std::size_t MOST_ABANDONED = 32;

} // namespace

DeliveryPool::DeliveryPool(std::size_t width) : shared_(std::make_shared<Shared>()) {
    shared_->width = width;
}

DeliveryPool::~DeliveryPool() {
    std::unique_lock lock(shared_->mutex);
    shared_->stopping = true;
    shared_->queue.clear();
    shared_->wake.notify_all();
    shared_->ended.wait_for(lock, LAST_WAIT, [this] { return shared_->threads == 0; });
}

void DeliveryPool::StartThread() {
    std::thread([shared = shared_] { Run(shared); }).detach();
    ++shared_->threads;
}

void DeliveryPool::Add(std::uint64_t number, Work work) {
    std::lock_guard lock(shared_->mutex);
    if (shared_->idle <= shared_->queue.size() && shared_->threads < shared_->width) {
        try {
            StartThread();
        } catch (...) {
            if (shared_->threads == 0)
                throw;
        }
    }
    shared_->queue.push_back({number, std::move(work)});
    shared_->wake.notify_one();
}

bool DeliveryPool::Abandon(std::uint64_t number) {
    std::lock_guard lock(shared_->mutex);
    if (!shared_->running.contains(number) || shared_->abandoned.contains(number))
        return true;
    if (shared_->abandoned.size() >= MOST_ABANDONED)
        return false;
    shared_->abandoned.insert(number);
    --shared_->threads;
    if (!shared_->queue.empty() && shared_->idle == 0)
        StartThread();
    return true;
}

void DeliveryPool::Run(const std::shared_ptr<Shared>& shared) {
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    std::unique_lock lock(shared->mutex);
    bool counted = true;
    for (;;) {
        ++shared->idle;
        shared->wake.wait(lock, [&] { return shared->stopping || !shared->queue.empty(); });
        --shared->idle;
        if (shared->stopping)
            break;
        const Item item = std::move(shared->queue.front());
        shared->queue.pop_front();
        shared->running.insert(item.number);
        lock.unlock();
        item.work();
        lock.lock();
        shared->running.erase(item.number);
        if (shared->abandoned.erase(item.number) != 0) {
            // Another thread has replaced this one.
            counted = false;
            break;
        }
    }
    lock.unlock();
    CoUninitialize();
    lock.lock();
    if (counted)
        --shared->threads;
    shared->ended.notify_all();
}

} // namespace keldan
