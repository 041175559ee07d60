#include "platform/delivery/Outbox.h"

#include "common/com/result_error.h"
#include "common/com/scope_exit.h"
#include "common/com/text_forms.h"
#include "platform/delivery/CallbackDocument.h"
#include "platform/hosting/Report.h"
#include "platform/hosting/Worker.h"
#include "platform/journal/Record.h"

#include <objbase.h>

#include <algorithm>
#include <cstdlib>
#include <list>
#include <map>
#include <optional>
#include <set>
#include <unordered_map>

namespace keldan {

namespace {

using Clock = Worker::Clock;

constexpr std::int64_t LAYOUT = 1;
// The kinds of records, as prefixes of their names; a number follows, so that the names of a kind sort in the order of
// the posts.
constexpr std::string_view BODY = "B/";
constexpr std::string_view WAITING = "W/";

// The pause after a thread could not be started or the disk could not be written.
constexpr std::chrono::seconds PAUSE_AFTER_OWN_FAILURE(1);
// How often libraries of clients that are not in use are unloaded.
constexpr std::chrono::minutes TIDYING_INTERVAL(5);

std::string Name(std::string_view kind, std::uint64_t number) {
    char digits[17];
    snprintf(digits, sizeof digits, "%08lx%08lx", static_cast<unsigned long>(number >> 32),
             static_cast<unsigned long>(number));
    return std::string(kind) + digits;
}

// Nothing if Name does not produce this name.
std::optional<std::uint64_t> NumberOf(std::string_view kind, const std::string& name) {
    if (!name.starts_with(kind))
        return std::nullopt;
    const std::uint64_t number = std::strtoull(name.c_str() + kind.size(), nullptr, 16);
    return Name(kind, number) == name ? std::optional(number) : std::nullopt;
}

struct Callback {
    std::uint64_t number = 0;
    std::uint64_t body = 0;
    std::wstring client;
    std::wstring cookie;
};

std::string WriteCallback(const Callback& callback, const std::wstring& subscriptionId) {
    RecordWriter writer;
    writer.Number(LAYOUT);
    writer.Number(static_cast<std::int64_t>(callback.body));
    writer.Text(subscriptionId);
    writer.Text(callback.client);
    writer.Text(callback.cookie);
    return writer.Take();
}

std::string WriteBody(std::wstring_view body) {
    RecordWriter writer;
    writer.Number(LAYOUT);
    writer.Text(body);
    return writer.Take();
}

// Appends the body in a record to a document; false if the record is not valid.
bool AppendBody(std::string_view record, std::wstring& document) {
    RecordReader reader(record);
    if (reader.Number() != LAYOUT)
        return false;
    reader.AppendText(document);
    return reader.Complete();
}

} // namespace

struct Outbox::State : std::enable_shared_from_this<State> {
    // The callbacks of one subscription.
    struct Line {
        std::list<Callback> queue;
        // The first callback of the queue, or one that was dropped since, is in the pool.
        bool busy = false;
        std::size_t failures = 0;
        // The first callback of the queue is not tried before this time.
        Clock::time_point notBefore{};
    };
    using Lines = std::map<std::wstring, Line>;

    // The body of one or more callbacks.
    struct Body {
        std::size_t bytes = 0;
        std::size_t uses = 0;
    };

    State(std::wstring rootName, Deliver deliverTo, OutboxPolicy given)
        : root(std::move(rootName)), deliver(std::move(deliverTo)), policy(std::move(given)) {}

    bool Load(const Journal::Table& table);
    HRESULT Write(std::vector<Journal::Change> changes);
    void Gone(const Callback& callback, std::vector<Journal::Change>& changes);
    void Note(std::vector<Journal::Change> changes);
    void Pump(const std::wstring& id, Line& line);
    void TryLater(const std::wstring& id, Line& line, Clock::duration pause);
    void CarryOut(const std::wstring& id, std::uint64_t number);
    std::wstring Compose(const std::wstring& id, const Callback& callback) const;
    void Finish(const std::wstring& id, std::uint64_t number, HRESULT result);
    void Forget(const std::wstring& id);
    Worker::Next DoWhatIsDue();

    const std::wstring root;
    const Deliver deliver;
    const OutboxPolicy policy;

    std::mutex mutex;
    bool started = false;
    bool stopping = false;
    bool closed = false;
    // Also contains the bodies, which are not kept elsewhere in memory.
    Journal journal;
    // Changes that could not be written yet; they are part of the next commit.
    std::vector<Journal::Change> owed;
    std::uint64_t lastNumber = 0;
    Lines lines;
    std::unordered_map<std::uint64_t, Body> bodies;
    std::size_t bytes = 0;
    std::size_t callbacks = 0;
    std::multimap<Clock::time_point, std::wstring> retries;
    // The clients of the running calls, by the time at which the call counts as slow and its number.
    std::map<std::pair<Clock::time_point, std::uint64_t>, std::wstring> running;
    Clock::time_point nextTidying = Clock::now() + TIDYING_INTERVAL;
    bool called = false;
    std::unique_ptr<DeliveryPool> pool;
    Worker worker;
};

// Replaces the state in memory by the table; false if the table is not valid.
bool Outbox::State::Load(const Journal::Table& table) {
    lines.clear();
    bodies.clear();
    bytes = callbacks = 0;
    lastNumber = 0;
    for (const auto& [name, value] : table) {
        if (const auto number = NumberOf(BODY, name)) {
            std::wstring body;
            if (!AppendBody(value, body))
                return false;
            bodies[*number].bytes = body.size() * sizeof(wchar_t);
            bytes += body.size() * sizeof(wchar_t);
            lastNumber = std::max(lastNumber, *number);
        } else if (const auto callbackNumber = NumberOf(WAITING, name)) {
            // Bodies sort before callbacks, so they are known here.
            RecordReader reader(value);
            const bool known = reader.Number() == LAYOUT;
            Callback callback{*callbackNumber, static_cast<std::uint64_t>(reader.Number()), {}, {}};
            const std::wstring id = reader.Text();
            callback.client = reader.Text();
            callback.cookie = reader.Text();
            const auto body = bodies.find(callback.body);
            if (!known || !reader.Complete() || body == bodies.end())
                return false;
            ++body->second.uses;
            ++callbacks;
            lastNumber = std::max(lastNumber, callback.number);
            lines[id].queue.push_back(std::move(callback));
        } else {
            return false;
        }
    }
    // A body is deleted in one commit with its last callback, so each must have one.
    return std::all_of(bodies.begin(), bodies.end(), [](const auto& body) { return body.second.uses > 0; });
}

HRESULT Outbox::State::Write(std::vector<Journal::Change> changes) {
    if (closed)
        return E_ABORT;
    changes.insert(changes.begin(), owed.begin(), owed.end());
    const HRESULT result = journal.Commit(std::move(changes));
    if (SUCCEEDED(result))
        owed.clear();
    return result;
}

// A callback has left its queue: collects the changes to write.
void Outbox::State::Gone(const Callback& callback, std::vector<Journal::Change>& changes) {
    changes.push_back({Name(WAITING, callback.number), std::nullopt});
    --callbacks;
    const auto body = bodies.find(callback.body);
    if (--body->second.uses > 0)
        return;
    changes.push_back({Name(BODY, callback.body), std::nullopt});
    bytes -= body->second.bytes;
    bodies.erase(body);
}

// Writes changes that have already taken effect; tries again later if the disk cannot be written.
void Outbox::State::Note(std::vector<Journal::Change> changes) {
    if (const HRESULT result = Write(changes); FAILED(result) && !closed) {
        if (owed.empty())
            Report(L"the end of a callback cannot be written: " + vorna::hex_text(result));
        owed.insert(owed.end(), changes.begin(), changes.end());
        worker.Wake();
    }
}

// Passes the first callback of the line to the pool, unless it has to wait. Lines without work are erased by the
// callers.
void Outbox::State::Pump(const std::wstring& id, Line& line) {
    if (!pool || stopping || line.busy || line.queue.empty() || line.notBefore > Clock::now())
        return;
    const std::uint64_t number = line.queue.front().number;
    line.busy = true;
    try {
        pool->Add(number, [self = shared_from_this(), id, number] { self->CarryOut(id, number); });
    } catch (const std::exception&) {
        line.busy = false;
        TryLater(id, line, PAUSE_AFTER_OWN_FAILURE);
    }
}

void Outbox::State::TryLater(const std::wstring& id, Line& line, Clock::duration pause) {
    line.notBefore = Clock::now() + pause;
    retries.emplace(line.notBefore, id);
    worker.Wake();
}

std::wstring Outbox::State::Compose(const std::wstring& id, const Callback& callback) const {
    std::wstring body;
    AppendBody(journal.Values().at(Name(BODY, callback.body)), body);
    return CallbackDocument(root, id, callback.cookie, body);
}

// On a thread of the pool. The lock is not held during the call, in which the client may post or forget.
void Outbox::State::CarryOut(const std::wstring& id, std::uint64_t number) {
    const HRESULT result = vorna::closed_door([&]() -> HRESULT {
        std::wstring client;
        std::wstring document;
        Clock::time_point deadline{};
        {
            std::lock_guard lock(mutex);
            const auto& queue = lines.at(id).queue;
            if (!stopping && !queue.empty() && queue.front().number == number) {
                client = queue.front().client;
                document = Compose(id, queue.front());
                deadline = Clock::now() + policy.slow;
                running.emplace(std::pair(deadline, number), client);
                called = true;
            }
        }
        if (deadline == Clock::time_point{})
            return E_ABORT;
        vorna::scope_exit ended([&] {
            std::lock_guard lock(mutex);
            running.erase({deadline, number});
        });
        return deliver(client, document);
    });
    try {
        std::lock_guard lock(mutex);
        Finish(id, number, result);
    } catch (const std::exception&) {
        Report(L"out of memory; a callback may be delivered a second time");
    }
}

void Outbox::State::Finish(const std::wstring& id, std::uint64_t number, HRESULT result) {
    const auto place = lines.find(id);
    Line& line = place->second;
    line.busy = false;
    // If the callback was dropped during the call, there is nothing to do for it.
    if (!line.queue.empty() && line.queue.front().number == number && !closed && (result != E_ABORT || !stopping)) {
        const bool givenUp = FAILED(result) && line.failures >= policy.pauses.size();
        if (givenUp)
            Report(L"a callback is given up after its last attempt; subscription " + id + L", client " +
                   line.queue.front().client + L", result " + vorna::hex_text(result));
        if (SUCCEEDED(result) || givenUp) {
            std::vector<Journal::Change> changes;
            Gone(line.queue.front(), changes);
            line.queue.pop_front();
            line.failures = 0;
            line.notBefore = {};
            Note(std::move(changes));
        } else {
            TryLater(id, line, policy.pauses[line.failures++]);
        }
    }
    if (line.queue.empty())
        lines.erase(place);
    else
        Pump(id, line);
}

void Outbox::State::Forget(const std::wstring& id) {
    const auto place = lines.find(id);
    if (place == lines.end())
        return;
    Line& line = place->second;
    std::vector<Journal::Change> changes;
    for (const Callback& callback : line.queue)
        Gone(callback, changes);
    line.queue.clear();
    line.failures = 0;
    line.notBefore = {};
    // A callback in the pool still needs its line, which may be empty or have new callbacks.
    if (!line.busy)
        lines.erase(place);
    Note(std::move(changes));
}

// Does what is due, and returns when to be called again.
Worker::Next Outbox::State::DoWhatIsDue() {
    std::lock_guard lock(mutex);
    const Clock::time_point now = Clock::now();
    while (!retries.empty() && retries.begin()->first <= now) {
        const std::wstring id = std::move(retries.begin()->second);
        retries.erase(retries.begin());
        if (const auto line = lines.find(id); line != lines.end())
            Pump(id, line->second);
    }
    for (auto call = running.begin(); call != running.end() && call->first.first <= now;) {
        // If too many threads hang, it is tried again later.
        if (!pool->Abandon(call->first.second))
            break;
        Report(L"the client " + call->second + L" has had a callback for " + std::to_wstring(policy.slow.count()) +
               L" milliseconds; what else it is to get waits for it");
        call = running.erase(call);
    }
    if (now >= nextTidying) {
        nextTidying = now + TIDYING_INTERVAL;
        if (std::exchange(called, false))
            CoFreeUnusedLibraries();
        // Lines that could not be passed on because memory was exhausted.
        for (auto& [id, line] : lines)
            Pump(id, line);
    }
    // With this interval every call is seen before it counts as slow.
    Clock::time_point next = now + std::min<Clock::duration>(policy.slow, TIDYING_INTERVAL);
    if (!owed.empty() && FAILED(Write({})))
        next = std::min(next, now + PAUSE_AFTER_OWN_FAILURE);
    if (!retries.empty())
        next = std::min(next, retries.begin()->first);
    if (!running.empty() && running.begin()->first.first > now)
        next = std::min(next, running.begin()->first.first);
    return {next};
}

Outbox::Outbox(std::wstring root, Deliver deliver, OutboxPolicy policy)
    : state_(std::make_shared<State>(std::move(root), std::move(deliver), std::move(policy))) {}

Outbox::~Outbox() {
    Stop();
    std::lock_guard lock(state_->mutex);
    state_->closed = true;
    state_->journal = Journal();
}

HRESULT Outbox::Start(const std::filesystem::path& file, const Known& known) {
    State& state = *state_;
    std::lock_guard lock(state.mutex);
    if (state.started || state.stopping)
        return E_UNEXPECTED;
    if (HRESULT result = state.journal.Open(file, L"the callbacks that waited in " + file.filename().wstring(),
                                            [&](const Journal::Table& table) { return state.Load(table); });
        FAILED(result))
        return result;
    if (known) {
        std::vector<std::wstring> ended;
        for (const auto& [id, line] : state.lines)
            if (!known(id))
                ended.push_back(id);
        for (const std::wstring& id : ended)
            state.Forget(id);
    }
    state.pool = std::make_unique<DeliveryPool>(state.policy.width);
    if (HRESULT result = state.worker.Start([&state] { return state.DoWhatIsDue(); },
                                            L"memory or threads have run out; the outbox tries again");
        FAILED(result))
        return result;
    state.started = true;
    for (auto& [id, line] : state.lines)
        state.Pump(id, line);
    return S_OK;
}

void Outbox::Stop() {
    {
        std::lock_guard lock(state_->mutex);
        state_->stopping = true;
    }
    state_->worker.Stop();
    // The threads of the pool need the lock to end.
    std::unique_ptr<DeliveryPool> pool;
    std::lock_guard lock(state_->mutex);
    pool.swap(state_->pool);
}

HRESULT Outbox::Post(std::wstring_view body, const std::vector<Recipient>& recipients,
                     std::vector<std::wstring>& refused) {
    refused.clear();
    State& state = *state_;
    std::lock_guard lock(state.mutex);
    if (!state.started)
        return E_UNEXPECTED;
    const std::size_t size = body.size() * sizeof(wchar_t);
    const bool room = size <= state.policy.bytes && state.bytes <= state.policy.bytes - size;

    // All memory is allocated before the commit, and released if the commit is not reached.
    std::vector<std::pair<State::Lines::value_type*, std::list<Callback>>> accepted;
    std::vector<Journal::Change> changes;
    std::uint64_t number = state.lastNumber;
    const std::uint64_t bodyNumber = ++number;
    vorna::scope_exit takeBack([&] {
        state.bodies.erase(bodyNumber);
        for (const Recipient& recipient : recipients)
            if (const auto line = state.lines.find(recipient.subscriptionId);
                line != state.lines.end() && line->second.queue.empty() && !line->second.busy)
                state.lines.erase(line);
    });
    for (const Recipient& recipient : recipients) {
        const auto known = state.lines.find(recipient.subscriptionId);
        const std::size_t waiting = known == state.lines.end() ? 0 : known->second.queue.size();
        if (!room || waiting >= state.policy.perSubscription) {
            refused.push_back(recipient.subscriptionId);
            continue;
        }
        std::list<Callback> one{{++number, bodyNumber, recipient.client, recipient.cookie}};
        changes.push_back({Name(WAITING, number), WriteCallback(one.front(), recipient.subscriptionId)});
        accepted.emplace_back(&*state.lines.try_emplace(recipient.subscriptionId).first, std::move(one));
    }
    if (!accepted.empty()) {
        changes.push_back({Name(BODY, bodyNumber), WriteBody(body)});
        state.bodies[bodyNumber] = {size, accepted.size()};
        if (HRESULT result = state.Write(std::move(changes)); FAILED(result)) {
            refused.clear();
            return result;
        }
        takeBack.release();
        state.lastNumber = number;
        state.bytes += size;
        state.callbacks += accepted.size();
        for (auto& [line, callback] : accepted) {
            line->second.queue.splice(line->second.queue.end(), callback);
            state.Pump(line->first, line->second);
        }
    }
    return refused.empty() ? S_OK : HRESULT_FROM_WIN32(ERROR_NOT_ENOUGH_QUOTA);
}

void Outbox::Forget(const std::wstring& subscriptionId) {
    std::lock_guard lock(state_->mutex);
    state_->Forget(subscriptionId);
}

std::size_t Outbox::Pending() const {
    std::lock_guard lock(state_->mutex);
    return state_->callbacks;
}

} // namespace keldan
