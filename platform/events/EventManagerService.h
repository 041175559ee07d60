// The event manager of the platform. Registrations and undelivered callbacks are on disk.
//
// Guarantee. An operation that returned S_OK is on disk. Events that are raised one after the other reach each
// subscription in that order, and the end of the process loses none; see Outbox. After Unsubscribe has returned, no
// callback of the registration begins.
//
// Thread-safe, but Start and Stop are called by one thread. Documents are read and events are stored without blocking
// other operations; only Unsubscribe waits for running raises, and blocks later ones until it returns.
#pragma once

#include "platform/delivery/Outbox.h"
#include "platform/events/EventRegistration.h"
#include "platform/journal/Journal.h"

#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <string_view>

namespace keldan {

class EventManagerService {
  public:
    // deliver: DeliverToClient, or a replacement in tests.
    explicit EventManagerService(Outbox::Deliver deliver);
    EventManagerService(const EventManagerService&) = delete;
    EventManagerService& operator=(const EventManagerService&) = delete;

    // Loads the files in the folder and begins to deliver.
    [[nodiscard]] HRESULT Start(const std::filesystem::path& folder);
    // No callback begins after this; the other operations keep working.
    void Stop() { outbox_.Stop(); }

    // The operations of the interface. Failures are its result codes, or the error of a disk that cannot be written.
    [[nodiscard]] HRESULT Subscribe(std::wstring_view subscription, std::wstring_view filter,
                                    std::wstring_view receiver, std::wstring& id);
    [[nodiscard]] HRESULT Modify(const std::wstring& id, std::wstring_view subscription, std::wstring_view filter);
    [[nodiscard]] HRESULT Unsubscribe(const std::wstring& id);
    // subscriptions: the number of subscriptions that the event was queued for, also on failure.
    [[nodiscard]] HRESULT Raise(const std::wstring& name, std::wstring_view properties, std::wstring_view payload,
                                long& subscriptions);

    // Whether callbacks wait or are being delivered. Registrations alone do not need the process: raising an event
    // starts it.
    bool InUse() const { return outbox_.Pending() > 0; }

  private:
    using Registrations = std::map<std::wstring, EventRegistration>;

    bool Read(const Journal::Table& table);
    void Put(EventRegistration registration);
    void Remove(Registrations::iterator place);
    HRESULT Write(const EventRegistration& registration);
    std::vector<Recipient> Recipients(const std::wstring& name, const EventProperties& properties) const;

    // Held shared from the choice of the recipients to the post, so that nothing is posted after an Unsubscribe. Locked
    // before mutex_.
    std::shared_mutex gate_;
    mutable std::mutex mutex_;
    Journal journal_;
    Registrations registrations_;
    // The registrations of each event, by their IDs.
    std::map<std::wstring, std::map<std::wstring, const EventRegistration*>> byEvent_;
    Outbox outbox_;
};

} // namespace keldan
