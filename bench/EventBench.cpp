// Delivery of events: the overhead of the outbox over durable writing, and the cost of a client that hangs for the
// others.
#include "QXKeldan.h"
#include "VornaLib.h"
#include "bench/Bench.h"
#include "bench/InstalledPlatform.h"
#include "common/com/bstr.h"
#include "common/services/platformservices.h"
#include "persist/SubscriptionPersistance.h"
#include "platform/delivery/Outbox.h"

#include <atomic>
#include <condition_variable>
#include <stdexcept>
#include <thread>

using namespace vorna;

namespace {

constexpr int CALLBACKS = 200;
// About the size of an event of a device.
const std::wstring BODY = L"<Payload>" + std::wstring(1000, L'x') + L"</Payload>";

// Clients that return immediately, except for one that may hang.
class Clients {
  public:
    HRESULT Take(const std::wstring& client) {
        std::unique_lock lock(mutex_);
        if (client == L"hangs") {
            released_.wait(lock, [&] { return open_; });
            return S_OK;
        }
        if (++taken_ == awaited_)
            released_.notify_all();
        return S_OK;
    }
    void Await(int count) {
        std::unique_lock lock(mutex_);
        awaited_ = taken_ + count;
    }
    void Wait() {
        std::unique_lock lock(mutex_);
        if (!released_.wait_for(lock, std::chrono::seconds(60), [&] { return taken_ >= awaited_; }))
            throw std::runtime_error("a callback was not delivered");
    }
    void Release() {
        std::lock_guard lock(mutex_);
        open_ = true;
        released_.notify_all();
    }

  private:
    std::mutex mutex_;
    std::condition_variable released_;
    bool open_ = false;
    int taken_ = 0;
    int awaited_ = 0;
};

keldan::Recipient To(int number, const wchar_t* client = L"prompt") {
    return {L"subscription-" + std::to_wstring(number), client, L"cookie"};
}

class Post {
  public:
    explicit Post(const std::filesystem::path& file)
        : outbox_(L"Event", [this](const std::wstring& client, const std::wstring&) { return clients.Take(client); },
                  {.slow = std::chrono::milliseconds(100)}) {
        bench::Require(outbox_.Start(file), "the outbox");
    }
    ~Post() { clients.Release(); }

    // Posts events to all recipients and waits until each of the prompt ones has all of them. prompt: their number.
    void Deliver(int events, const std::vector<keldan::Recipient>& recipients, int prompt) {
        clients.Await(events * prompt);
        std::vector<std::wstring> refused;
        for (int event = 0; event < events; ++event)
            bench::Require(outbox_.Post(BODY, recipients, refused), "a post");
        clients.Wait();
    }
    Clients clients;

  private:
    keldan::Outbox outbox_;
};

} // namespace

VORNA_BENCH(Outbox) {
    support::TestFolder folder;
    Post one(folder.Path() / "one.journal");
    Post many(folder.Path() / "many.journal");
    Post hanging(folder.Path() / "hanging.journal");
    keldan::Journal journal;
    bench::Require(journal.Open(folder.Path() / "bare.journal"), "the journal");
    const std::string bytes(reinterpret_cast<const char*>(BODY.data()), BODY.size() * sizeof(wchar_t));
    int name = 0;

    std::vector<keldan::Recipient> all, withHanging{To(0, L"hangs")};
    for (int number = 1; number <= CALLBACKS; ++number) {
        all.push_back(To(number));
        withHanging.push_back(all.back());
    }
    const std::vector<keldan::Recipient> single{To(1)};
    // The minimum for a durable event: a commit before delivery and one after.
    const auto commitTwice = [&] {
        for (int event = 0; event < CALLBACKS; ++event) {
            const std::string key = std::to_string(++name);
            bench::Require(journal.Commit({{key, bytes}}), "a commit");
            bench::Require(journal.Commit({{key, std::nullopt}}), "a commit");
        }
    };
    const auto oneByOne = [&] {
        for (int event = 0; event < CALLBACKS; ++event)
            one.Deliver(1, single, 1);
    };
    const auto times = bench::Measure({{"bare", commitTwice},
                                       {"one by one", oneByOne},
                                       {"many", [&] { many.Deliver(1, all, CALLBACKS); }},
                                       {"many, one hangs", [&] { hanging.Deliver(1, withHanging, CALLBACKS); }}},
                                      {.operations = 1, .rounds = 9});
    report.Figure("two bare commits of an event's bytes", times[0] / CALLBACKS / 1000, "us");
    report.Figure("an event posted, delivered and noted", times[1] / CALLBACKS / 1000, "us");
    report.AtMost("an event to two bare commits", times[1] / times[0], 1.5, "times");
    report.Figure("an event to 200 subscriptions, each", times[2] / CALLBACKS / 1000, "us");
    report.AtMost("the same while one more client hangs", times[3] / times[2], 1.2, "times");
}
