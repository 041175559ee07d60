// A queue of callbacks, on disk until they are delivered.
//
// Guarantee. A callback for which Post returned S_OK survives the end of the process at any moment and is delivered:
// callbacks of one subscription in the order of the posts, those of different subscriptions in parallel, so that a slow
// or failing client does not delay the others. A delivery is recorded right after the client has returned; if the
// process ends before that, the callback is delivered again. After a failure it is retried, with the pauses of the
// policy; after the last of them it is dropped, which is reported to the debugger output with the subscription and the
// result of the client.
//
// The queue is bounded: Post reports what did not fit, and nothing is dropped to make room.
//
// Thread-safe, but Start and Stop are called by one thread. Operations access files but do not call clients. The number
// of failures is not stored: after a restart all attempts are available again.
#pragma once

#include "platform/delivery/DeliveryPool.h"
#include "platform/journal/Journal.h"

#include <windows.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace keldan {

// The destination of a callback.
struct Recipient {
    std::wstring subscriptionId;
    // The ProgID of the class to call.
    std::wstring client;
    // The client's own identification of the subscription, plain text.
    std::wstring cookie;
};

struct OutboxPolicy {
    // The largest number of callbacks of one subscription, including the one that is being delivered.
    std::size_t perSubscription = 256;
    // The largest size of all bodies, in bytes; a body of many callbacks counts once.
    std::size_t bytes = 64 * 1024 * 1024;
    // The number of clients that are called at the same time.
    std::size_t width = 8;
    // A call that takes longer no longer counts as one of those.
    std::chrono::milliseconds slow = std::chrono::seconds(10);
    // The pauses between the attempts to deliver one callback.
    std::vector<std::chrono::milliseconds> pauses = {std::chrono::seconds(1), std::chrono::seconds(5),
                                                     std::chrono::seconds(30), std::chrono::minutes(2)};
};

class Outbox {
  public:
    // Calls a client: DeliverToClient, or a replacement in tests.
    using Deliver = std::function<HRESULT(const std::wstring& client, const std::wstring& document)>;

    // root: the name of the callback documents' root element.
    Outbox(std::wstring root, Deliver deliver, OutboxPolicy policy = {});
    // Stops, and closes the file. A callback whose client still hangs counts as not delivered.
    ~Outbox();
    Outbox(const Outbox&) = delete;
    Outbox& operator=(const Outbox&) = delete;

    // Whether a subscription with this ID exists.
    using Known = std::function<bool(const std::wstring& subscriptionId)>;
    // Loads the file and begins to deliver. If known is given, callbacks of unknown subscriptions are dropped: these
    // were ended, and the process ended before Forget was complete. A damaged file is moved aside, which is reported to
    // the debugger output. Call it once; before it, Post fails.
    [[nodiscard]] HRESULT Start(const std::filesystem::path& file, const Known& known = {});
    // No callback begins after this; running ones are waited for, for a few seconds at most. Posts are still stored.
    void Stop();

    // Queues one callback for each recipient. Its document is
    //   <root><SubscriptionID>id</SubscriptionID><ClientCookie>cookie</ClientCookie>body</root>
    // with id and cookie escaped. body is markup and is not escaped.
    // S_OK: stored for all. 0x80070718 (ERROR_NOT_ENOUGH_QUOTA): there was no room for those in refused (their IDs, in
    // order); it is queued for the others. Any other failure, and std::bad_alloc: it is queued for none.
    [[nodiscard]] HRESULT Post(std::wstring_view body, const std::vector<Recipient>& recipients,
                               std::vector<std::wstring>& refused);

    // Drops the callbacks of this subscription. A call that is running continues.
    void Forget(const std::wstring& subscriptionId);

    // The number of callbacks that wait or are being delivered.
    std::size_t Pending() const;

  private:
    struct State;
    // Shared with threads that hang in clients.
    const std::shared_ptr<State> state_;
};

} // namespace keldan
