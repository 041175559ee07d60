// The callbacks that a test receives, which it can let fail or hold.
//
// Threads: all methods may be called from any thread.
#pragma once

#include "common/com/bstr.h"
#include "support/Support.h"

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <set>

constexpr std::chrono::seconds PATIENCE(20);

class Inbox {
  public:
    // Stores the callback, waits while its registration is held, and returns what the client answers.
    HRESULT Take(std::wstring_view document) {
        std::unique_lock lock(mutex_);
        const std::wstring id = Between(document, L"<SubscriptionID>", L"</SubscriptionID>");
        documents_.emplace_back(id, document);
        EXPECT_TRUE(inside_.insert(id).second) << "two callbacks at the same time";
        changed_.notify_all();
        changed_.wait(lock, [&] { return !held_.contains(id); });
        inside_.erase(id);
        int& failures = failures_.contains(id) ? failures_[id] : failures_[L""];
        return failures > 0 && failures-- > 0 ? E_FAIL : S_OK;
    }
    // The next callbacks fail; of one registration, if it is given.
    void FailNext(int times, const std::wstring& id = L"") {
        std::lock_guard lock(mutex_);
        failures_[id] = times;
    }
    void Hold(const std::wstring& id) {
        std::lock_guard lock(mutex_);
        held_.insert(id);
    }
    void Release(const std::wstring& id) {
        std::lock_guard lock(mutex_);
        held_.erase(id);
        changed_.notify_all();
    }
    void Clear() {
        std::lock_guard lock(mutex_);
        documents_.clear();
        failures_.clear();
    }
    // The callbacks of a registration, in the order of their arrival.
    std::vector<std::wstring> Of(const std::wstring& id) {
        std::lock_guard lock(mutex_);
        return OfLocked(id);
    }
    std::size_t Count(const std::wstring& id) { return Of(id).size(); }
    // Waits for that many callbacks of the registration.
    bool WaitFor(const std::wstring& id, std::size_t count) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, PATIENCE, [&] { return OfLocked(id).size() >= count; });
    }
    std::wstring Last() {
        std::lock_guard lock(mutex_);
        return documents_.empty() ? L"" : documents_.back().second;
    }
    // The text between the first two marks.
    static std::wstring Between(std::wstring_view text, std::wstring_view begin, std::wstring_view end) {
        const auto first = text.find(begin) + begin.size();
        return std::wstring(text.substr(first, text.find(end) - first));
    }

  private:
    std::vector<std::wstring> OfLocked(const std::wstring& id) const {
        std::vector<std::wstring> found;
        for (const auto& [subscription, document] : documents_)
            if (subscription == id)
                found.push_back(document);
        return found;
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    // The registration and the document of each.
    std::vector<std::pair<std::wstring, std::wstring>> documents_;
    std::map<std::wstring, int> failures_;
    std::set<std::wstring> held_;
    std::set<std::wstring> inside_;
};
