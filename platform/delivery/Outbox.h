// Callbacks on their way to clients: on disk until the client has taken them.
//
// Guarantee. What Post returned S_OK for survives the end of the process at any moment and is delivered: to each
// subscription in the order of its posts, to different subscriptions at the same time, so that a slow or failing
// client delays nobody but itself. A callback is noted as delivered right after the client has taken it; a process that
// ends in between delivers it a second time. A client that fails is tried again after each of the pauses of the
// policy; when they are used up the callback is given up, and that is reported to the debugger output with the
// subscription and the client's last answer.
//
// The queue is bounded, and who posts is told: nothing is dropped to make room.
//
// Thread-safe. Operations do file work; no client is called inside them. How often a client has failed is not written
// down: a new process begins to count anew.
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

// Whom a callback goes to.
struct Recipient {
    std::wstring subscriptionId;
    // The ProgID of the class to call.
    std::wstring client;
    // The client's own mark of the subscription, plain text.
    std::wstring cookie;
};

struct OutboxPolicy {
    // Callbacks that wait for one subscription, at most, with the one that is being delivered.
    std::size_t perSubscription = 256;
    // Bytes of all bodies that wait, at most; a body that waits for many counts once.
    std::size_t bytes = 64 * 1024 * 1024;
    // Clients that are called at the same time.
    std::size_t width = 8;
    // A client that takes longer loses its place among those, and goes on on a thread of its own.
    std::chrono::milliseconds slow = std::chrono::seconds(10);
    // Between the attempts at one callback.
    std::vector<std::chrono::milliseconds> pauses = {std::chrono::seconds(1), std::chrono::seconds(5),
                                                     std::chrono::seconds(30), std::chrono::minutes(2)};
};

class Outbox {
  public:
    // How a client is reached: DeliverToClient, or what a test puts in its place.
    using Deliver = std::function<HRESULT(const std::wstring& client, const std::wstring& document)>;

    // root: the name of the callback documents' root element.
    Outbox(std::wstring root, Deliver deliver, OutboxPolicy policy = {});
    // Stops, and closes the file. What a client has that still hangs then counts as not delivered.
    ~Outbox();
    Outbox(const Outbox&) = delete;
    Outbox& operator=(const Outbox&) = delete;

    // Whether there is a subscription of this ID.
    using Known = std::function<bool(const std::wstring& subscriptionId)>;
    // Takes up what the file holds and begins to deliver. With known, what waits for subscriptions that are not is
    // forgotten: they were ended, and the process before Forget was done. A damaged file is moved aside, which is
    // reported to the debugger output. Once; before it, Post fails.
    [[nodiscard]] HRESULT Start(const std::filesystem::path& file, const Known& known = {});
    // No callback begins after this; those that run are waited for, for a few seconds at most. Posts are still written
    // down.
    void Stop();

    // Queues one callback for each recipient. Its document is
    //   <root><SubscriptionID>id</SubscriptionID><ClientCookie>cookie</ClientCookie>body</root>
    // with id and cookie escaped and body, which is markup, as it is.
    // S_OK: on disk for all. 0x80070718 (ERROR_NOT_ENOUGH_QUOTA): for those in refused (their IDs, in order) there was
    // no room; it is queued for the others. Any other failure, and std::bad_alloc: for nobody.
    [[nodiscard]] HRESULT Post(std::wstring_view body, const std::vector<Recipient>& recipients,
                               std::vector<std::wstring>& refused);

    // Nothing waits for this subscription any more; a callback that a client has at this moment runs on.
    void Forget(const std::wstring& subscriptionId);

    // Callbacks that wait or are being delivered.
    std::size_t Pending() const;

  private:
    struct State;
    // Shared with the threads that hang in clients.
    const std::shared_ptr<State> state_;
};

} // namespace keldan
