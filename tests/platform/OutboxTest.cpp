// The outbox with scripted clients: who gets which callbacks, in which order and how often, also after a restart.
#include "platform/delivery/Outbox.h"

#include "platform/Inbox.h"
#include "platform/journal/Journal.h"

namespace {

using keldan::Outbox;
using keldan::OutboxPolicy;
using namespace std::chrono_literals;

constexpr HRESULT QUOTA = HRESULT_FROM_WIN32(ERROR_NOT_ENOUGH_QUOTA);

class OutboxTest : public testing::Test {
  protected:
    // An outbox with the test's file; subscriptions are named after their clients.
    std::unique_ptr<Outbox> Open(OutboxPolicy policy = {}, const Outbox::Known& known = {}) {
        const auto deliver = [this](const std::wstring& client, const std::wstring& document) {
            EXPECT_NE(std::wstring::npos, document.find(L"<SubscriptionID>" + client)) << "the call of another client";
            return inbox_.Take(document);
        };
        return Started(deliver, std::move(policy), known);
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
    // The bodies of a client's callbacks in the order of the calls.
    std::wstring Bodies(const std::wstring& name) {
        std::wstring bodies;
        for (const std::wstring& document : inbox_.Of(name))
            bodies += Inbox::Between(document, L"<b>", L"</b>") + L" ";
        return bodies;
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
    Inbox inbox_;
    std::vector<std::wstring> refused_;
};

TEST_F(OutboxTest, HangingAndFailingClientsDoNotDelayOthers) {
    inbox_.Hold(L"hangs");
    inbox_.FailNext(1000, L"fails");
    OutboxPolicy policy;
    policy.width = 1;
    policy.slow = 20ms;
    policy.pauses = {1h};
    auto outbox = Open(policy);
    for (const wchar_t* body : {L"1", L"2", L"3"})
        EXPECT_HR(S_OK, Post(*outbox, body, {L"hangs", L"fails", L"takes", L"takes too"}));
    EXPECT_TRUE(inbox_.WaitFor(L"takes", 3));
    EXPECT_TRUE(inbox_.WaitFor(L"takes too", 3));
    EXPECT_EQ(L"1 2 3 ", Bodies(L"takes"));
    EXPECT_EQ(L"1 ", Bodies(L"hangs"));
    EXPECT_EQ(L"1 ", Bodies(L"fails"));
    inbox_.Release(L"hangs");
    EXPECT_TRUE(inbox_.WaitFor(L"hangs", 3));
    EXPECT_EQ(L"1 2 3 ", Bodies(L"hangs"));
    outbox->Stop();
    EXPECT_EQ(3u, outbox->Pending());
    outbox.reset();
    EXPECT_EQ(3u, LeftOnDisk());
}

TEST_F(OutboxTest, FailedCallbackIsRetriedAndGivenUpAfterTheLastPause) {
    inbox_.FailNext(2, L"recovers");
    inbox_.FailNext(3, L"never");
    OutboxPolicy policy;
    policy.pauses = {5ms, 10ms};
    auto outbox = Open(policy);
    EXPECT_HR(S_OK, Post(*outbox, L"1", {L"recovers", L"never"}));
    EXPECT_HR(S_OK, Post(*outbox, L"2", {L"recovers", L"never"}));
    EXPECT_TRUE(inbox_.WaitFor(L"recovers", 4));
    EXPECT_TRUE(inbox_.WaitFor(L"never", 4));
    EXPECT_EQ(L"1 1 1 2 ", Bodies(L"recovers"));
    EXPECT_EQ(L"1 1 1 2 ", Bodies(L"never"));
    outbox.reset();
    EXPECT_EQ(0u, LeftOnDisk());
}

TEST_F(OutboxTest, FullQueueNamesTheRefusedSubscriptions) {
    OutboxPolicy policy;
    policy.perSubscription = 2;
    policy.bytes = 200;
    inbox_.Hold(L"full");
    auto outbox = Open(policy);
    EXPECT_HR(S_OK, Post(*outbox, L"1", {L"full"}));
    EXPECT_HR(S_OK, Post(*outbox, L"2", {L"full"}));
    EXPECT_HR(QUOTA, Post(*outbox, L"3", {L"empty", L"full"}));
    EXPECT_EQ(std::vector<std::wstring>{L"full"}, refused_);
    EXPECT_TRUE(inbox_.WaitFor(L"empty", 1));
    EXPECT_HR(QUOTA, Post(*outbox, std::wstring(100, L'x'), {L"empty", L"other"}));
    EXPECT_EQ((std::vector<std::wstring>{L"empty", L"other"}), refused_);
    inbox_.Release(L"full");
    EXPECT_TRUE(inbox_.WaitFor(L"full", 2));
    outbox->Stop();
    EXPECT_EQ(0u, outbox->Pending());
    EXPECT_EQ(L"1 2 ", Bodies(L"full"));
}

TEST_F(OutboxTest, RestartDeliversTheRestExactlyOnce) {
    inbox_.Hold(L"hangs");
    OutboxPolicy policy;
    auto outbox = Open(policy);
    EXPECT_HR(S_OK, Post(*outbox, L"1", {L"hangs", L"a"}));
    EXPECT_TRUE(inbox_.WaitFor(L"a", 1));
    EXPECT_TRUE(inbox_.WaitFor(L"hangs", 1));
    // The outbox is destroyed during a call, which then counts as interrupted.
    outbox.reset();
    outbox = OpenAlone();
    const std::wstring escaped = L"odd&amp;&lt;d&gt;";
    std::vector<keldan::Recipient> odd = {{L"odd&<d>", L"odd", L"5 < 6 & \"7\""}};
    EXPECT_HR(S_OK, outbox->Post(std::wstring(3'000'000, L'x') + L"\x4E2D", odd, refused_));
    EXPECT_HR(S_OK, Post(*outbox, L"2", {L"a", L"hangs"}));
    EXPECT_HR(S_OK, Post(*outbox, L"3", {L"a"}));
    outbox.reset();
    inbox_.Release(L"hangs");
    outbox = Open();
    EXPECT_TRUE(inbox_.WaitFor(L"a", 3));
    EXPECT_TRUE(inbox_.WaitFor(L"hangs", 3));
    EXPECT_TRUE(inbox_.WaitFor(escaped, 1));
    outbox.reset();
    EXPECT_EQ(0u, LeftOnDisk());
    EXPECT_EQ(L"1 2 3 ", Bodies(L"a"));
    EXPECT_EQ(L"1 1 2 ", Bodies(L"hangs"));
    EXPECT_EQ(L"<Root><SubscriptionID>" + escaped +
                  L"</SubscriptionID><ClientCookie>5 &lt; 6 &amp; \"7\""
                  L"</ClientCookie>" +
                  std::wstring(3'000'000, L'x') + L"\x4E2D</Root>",
              inbox_.Of(escaped).at(0));
    EXPECT_LT(std::filesystem::file_size(file_), 1'000'000u) << "what was delivered still fills the file";
}

TEST_F(OutboxTest, ForgottenCallbacksAreNotMade) {
    inbox_.Hold(L"a");
    auto outbox = Open();
    EXPECT_HR(S_OK, Post(*outbox, L"1", {L"a"}));
    EXPECT_HR(S_OK, Post(*outbox, L"2", {L"a"}));
    EXPECT_TRUE(inbox_.WaitFor(L"a", 1));
    outbox->Forget(L"a");
    outbox->Forget(L"nobody");
    EXPECT_EQ(0u, outbox->Pending());
    EXPECT_EQ(0u, LeftOnDisk());
    EXPECT_HR(S_OK, Post(*outbox, L"3", {L"a"}));
    inbox_.Release(L"a");
    EXPECT_TRUE(inbox_.WaitFor(L"a", 2));
    EXPECT_EQ(L"1 3 ", Bodies(L"a"));
    outbox.reset();
    outbox = OpenAlone();
    EXPECT_HR(S_OK, Post(*outbox, L"4", {L"a", L"ended"}));
    outbox.reset();
    outbox = Open({}, [](const std::wstring& id) { return id != L"ended"; });
    EXPECT_TRUE(inbox_.WaitFor(L"a", 3));
    outbox.reset();
    EXPECT_EQ(L"", Bodies(L"ended"));
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
