// The outbox with scripted clients: who gets which callbacks, in which order and how often, also after a restart.
#include "platform/delivery/Outbox.h"

#include "platform/journal/Journal.h"
#include "support/Support.h"

#include <map>

namespace {

using keldan::Outbox;
using keldan::OutboxPolicy;
using namespace std::chrono_literals;

constexpr HRESULT QUOTA = HRESULT_FROM_WIN32(ERROR_NOT_ENOUGH_QUOTA);
constexpr auto PATIENCE = 20s;

// The behaviour of the clients, and what they received.
class Script {
  public:
    struct Client {
        bool hangs = false;
        int failures = 0;
        int inside = 0;
        std::vector<std::wstring> calls;
    };

    HRESULT Deliver(const std::wstring& name, const std::wstring& document) {
        std::unique_lock lock(mutex_);
        Client& client = clients_[name];
        client.calls.push_back(document);
        EXPECT_EQ(1, ++client.inside) << "two callbacks at the same time";
        changed_.notify_all();
        changed_.wait(lock, [&] { return !client.hangs; });
        --client.inside;
        return client.failures > 0 && client.failures-- > 0 ? E_FAIL : S_OK;
    }
    void Change(const std::wstring& name, const std::function<void(Client&)>& change) {
        std::lock_guard lock(mutex_);
        change(clients_[name]);
        changed_.notify_all();
    }
    void Release(const std::wstring& name) {
        Change(name, [](Client& client) { client.hangs = false; });
    }
    bool WaitFor(const std::wstring& name, std::size_t count) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, PATIENCE, [&] { return clients_[name].calls.size() >= count; });
    }
    // The bodies in the order of the calls.
    std::wstring Bodies(const std::wstring& name) {
        std::lock_guard lock(mutex_);
        std::wstring bodies;
        for (const std::wstring& call : clients_[name].calls) {
            const auto begin = call.find(L"<b>") + 3;
            bodies += call.substr(begin, call.find(L"</b>") - begin) + L" ";
        }
        return bodies;
    }
    std::wstring First(const std::wstring& name) {
        std::lock_guard lock(mutex_);
        return clients_[name].calls.at(0);
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::map<std::wstring, Client> clients_;
};

class OutboxTest : public testing::Test {
  protected:
    // An outbox with the test's file; subscriptions are named after their clients.
    std::unique_ptr<Outbox> Open(OutboxPolicy policy = {}, const Outbox::Known& known = {}) {
        return Started([this](const auto& client, const auto& document) { return script_.Deliver(client, document); },
                       std::move(policy), known);
    }
    // No client can be reached, so everything waits.
    std::unique_ptr<Outbox> OpenAlone() {
        return Started([](const auto&, const auto&) { return E_FAIL; }, {}, {});
    }
    std::unique_ptr<Outbox> Started(Outbox::Deliver deliver, OutboxPolicy policy, const Outbox::Known& known) {
        auto outbox = std::make_unique<Outbox>(L"Root", std::move(deliver), std::move(policy));
        EXPECT_HR(S_OK, outbox->Start(file_, known));
        return outbox;
    }
    HRESULT Post(Outbox& outbox, const std::wstring& body, std::initializer_list<const wchar_t*> names) {
        std::vector<keldan::Recipient> recipients;
        for (const wchar_t* name : names)
            recipients.push_back({name, name, L"c"});
        return outbox.Post(L"<b>" + body + L"</b>", recipients, refused_);
    }
    // The number of callbacks that a new process would find.
    std::size_t LeftOnDisk() {
        const auto copy = folder_.Path() / "copy";
        std::filesystem::remove(copy);
        std::filesystem::copy_file(file_, copy);
        Outbox outbox(L"Root", [](const auto&, const auto&) { return E_FAIL; });
        EXPECT_HR(S_OK, outbox.Start(copy));
        return outbox.Pending();
    }

    support::TestFolder folder_;
    const std::filesystem::path file_ = folder_.Path() / "outbox";
    Script script_;
    std::vector<std::wstring> refused_;
};

TEST_F(OutboxTest, HangingAndFailingClientsDoNotDelayOthers) {
    script_.Change(L"hangs", [](auto& client) { client.hangs = true; });
    script_.Change(L"fails", [](auto& client) { client.failures = 1000; });
    OutboxPolicy policy;
    policy.width = 1;
    policy.slow = 20ms;
    policy.pauses = {1h};
    auto outbox = Open(policy);
    for (const wchar_t* body : {L"1", L"2", L"3"})
        EXPECT_HR(S_OK, Post(*outbox, body, {L"hangs", L"fails", L"takes", L"takes too"}));
    EXPECT_TRUE(script_.WaitFor(L"takes", 3));
    EXPECT_TRUE(script_.WaitFor(L"takes too", 3));
    EXPECT_EQ(L"1 2 3 ", script_.Bodies(L"takes"));
    EXPECT_EQ(L"1 ", script_.Bodies(L"hangs"));
    EXPECT_EQ(L"1 ", script_.Bodies(L"fails"));
    script_.Release(L"hangs");
    EXPECT_TRUE(script_.WaitFor(L"hangs", 3));
    EXPECT_EQ(L"1 2 3 ", script_.Bodies(L"hangs"));
    outbox->Stop();
    EXPECT_EQ(3u, outbox->Pending());
    outbox.reset();
    EXPECT_EQ(3u, LeftOnDisk());
}

TEST_F(OutboxTest, FailedCallbackIsRetriedAndGivenUpAfterTheLastPause) {
    script_.Change(L"recovers", [](auto& client) { client.failures = 2; });
    script_.Change(L"never", [](auto& client) { client.failures = 3; });
    OutboxPolicy policy;
    policy.pauses = {5ms, 10ms};
    auto outbox = Open(policy);
    EXPECT_HR(S_OK, Post(*outbox, L"1", {L"recovers", L"never"}));
    EXPECT_HR(S_OK, Post(*outbox, L"2", {L"recovers", L"never"}));
    EXPECT_TRUE(script_.WaitFor(L"recovers", 4));
    EXPECT_TRUE(script_.WaitFor(L"never", 4));
    EXPECT_EQ(L"1 1 1 2 ", script_.Bodies(L"recovers"));
    EXPECT_EQ(L"1 1 1 2 ", script_.Bodies(L"never"));
    outbox.reset();
    EXPECT_EQ(0u, LeftOnDisk());
}

TEST_F(OutboxTest, FullQueueNamesTheRefusedSubscriptions) {
    OutboxPolicy policy;
    policy.perSubscription = 2;
    policy.bytes = 200;
    script_.Change(L"full", [](auto& client) { client.hangs = true; });
    auto outbox = Open(policy);
    EXPECT_HR(S_OK, Post(*outbox, L"1", {L"full"}));
    EXPECT_HR(S_OK, Post(*outbox, L"2", {L"full"}));
    EXPECT_HR(QUOTA, Post(*outbox, L"3", {L"empty", L"full"}));
    EXPECT_EQ(std::vector<std::wstring>{L"full"}, refused_);
    EXPECT_TRUE(script_.WaitFor(L"empty", 1));
    EXPECT_HR(QUOTA, Post(*outbox, std::wstring(100, L'x'), {L"empty", L"other"}));
    EXPECT_EQ((std::vector<std::wstring>{L"empty", L"other"}), refused_);
    script_.Release(L"full");
    EXPECT_TRUE(script_.WaitFor(L"full", 2));
    outbox->Stop();
    EXPECT_EQ(0u, outbox->Pending());
    EXPECT_EQ(L"1 2 ", script_.Bodies(L"full"));
}

TEST_F(OutboxTest, RestartDeliversTheRestExactlyOnce) {
    script_.Change(L"hangs", [](auto& client) { client.hangs = true; });
    OutboxPolicy policy;
    auto outbox = Open(policy);
    EXPECT_HR(S_OK, Post(*outbox, L"1", {L"hangs", L"a"}));
    EXPECT_TRUE(script_.WaitFor(L"a", 1));
    EXPECT_TRUE(script_.WaitFor(L"hangs", 1));
    // The outbox is destroyed during a call, which then counts as interrupted.
    outbox.reset();
    outbox = OpenAlone();
    std::vector<keldan::Recipient> odd = {{L"o&<d>", L"odd", L"5 < 6 & \"7\""}};
    EXPECT_HR(S_OK, outbox->Post(std::wstring(3'000'000, L'x') + L"\x4E2D", odd, refused_));
    EXPECT_HR(S_OK, Post(*outbox, L"2", {L"a", L"hangs"}));
    EXPECT_HR(S_OK, Post(*outbox, L"3", {L"a"}));
    outbox.reset();
    script_.Release(L"hangs");
    outbox = Open();
    EXPECT_TRUE(script_.WaitFor(L"a", 3));
    EXPECT_TRUE(script_.WaitFor(L"hangs", 3));
    EXPECT_TRUE(script_.WaitFor(L"odd", 1));
    outbox.reset();
    EXPECT_EQ(0u, LeftOnDisk());
    EXPECT_EQ(L"1 2 3 ", script_.Bodies(L"a"));
    EXPECT_EQ(L"1 1 2 ", script_.Bodies(L"hangs"));
    EXPECT_EQ(L"<Root><SubscriptionID>o&amp;&lt;d&gt;</SubscriptionID><ClientCookie>5 &lt; 6 &amp; \"7\""
              L"</ClientCookie>" +
                  std::wstring(3'000'000, L'x') + L"\x4E2D</Root>",
              script_.First(L"odd"));
    EXPECT_LT(std::filesystem::file_size(file_), 1'000'000u) << "what was delivered still fills the file";
}

TEST_F(OutboxTest, ForgottenCallbacksAreNotMade) {
    script_.Change(L"a", [](auto& client) { client.hangs = true; });
    auto outbox = Open();
    EXPECT_HR(S_OK, Post(*outbox, L"1", {L"a"}));
    EXPECT_HR(S_OK, Post(*outbox, L"2", {L"a"}));
    EXPECT_TRUE(script_.WaitFor(L"a", 1));
    outbox->Forget(L"a");
    outbox->Forget(L"nobody");
    EXPECT_EQ(0u, outbox->Pending());
    EXPECT_EQ(0u, LeftOnDisk());
    EXPECT_HR(S_OK, Post(*outbox, L"3", {L"a"}));
    script_.Release(L"a");
    EXPECT_TRUE(script_.WaitFor(L"a", 2));
    EXPECT_EQ(L"1 3 ", script_.Bodies(L"a"));
    outbox.reset();
    outbox = OpenAlone();
    EXPECT_HR(S_OK, Post(*outbox, L"4", {L"a", L"ended"}));
    outbox.reset();
    outbox = Open({}, [](const std::wstring& id) { return id != L"ended"; });
    EXPECT_TRUE(script_.WaitFor(L"a", 3));
    outbox.reset();
    EXPECT_EQ(L"", script_.Bodies(L"ended"));
    EXPECT_EQ(0u, LeftOnDisk());
}

TEST_F(OutboxTest, FileWhoseRecordsDoNotFitTogetherIsMovedAsideAndTheOutboxWorks) {
    const struct {
        const char* what;
        keldan::Journal::Change change;
    } damages[] = {
        {"a callback without its body", {"B/0000000000000001", std::nullopt}},
        {"a body without a callback", {"W/0000000000000002", std::nullopt}},
        {"a callback that cannot be read", {"W/0000000000000002", "?"}},
        {"a number of another form", {"W/2", "?"}},
        {"a record of another kind", {"Z", ""}},
    };
    for (const auto& damage : damages) {
        auto outbox = OpenAlone();
        EXPECT_HR(S_OK, Post(*outbox, L"1", {L"a"}));
        outbox.reset();
        keldan::Journal journal;
        EXPECT_HR(S_OK, journal.Open(file_));
        EXPECT_HR(S_OK, journal.Commit({damage.change}));
        journal = {};
        outbox = OpenAlone();
        EXPECT_EQ(0u, outbox->Pending()) << damage.what;
        EXPECT_HR(S_OK, Post(*outbox, L"2", {L"a"})) << damage.what;
        outbox.reset();
        std::filesystem::remove(file_);
    }
    EXPECT_EQ(std::size(damages), support::FilesIn(folder_.Path()).size()) << "one file was moved aside for each";
}

} // namespace
