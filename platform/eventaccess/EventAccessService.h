// The event access of the platform: one thread watches the data models that somebody has registrations for.
//
// Guarantee. An operation that returned S_OK is on disk. What fires at a reading is in the outbox before the new state
// is written down: the end of the process at any moment loses no event, and repeats one only where it fell between the
// two. Where the outbox has no room or the disk fails, the state stays as it was and the model is read again later.
//
// Thread-safe. Models are read and asked without holding up other operations.
#pragma once

#include "platform/delivery/Outbox.h"
#include "platform/eventaccess/EventAccessStore.h"
#include "platform/eventaccess/ModelFolder.h"
#include "platform/hosting/Worker.h"

#include <mutex>
#include <set>

namespace keldan {

class EventAccessService {
  public:
    // deliver: DeliverToClient, or what a test puts in its place. models: where stored data models lie.
    EventAccessService(Outbox::Deliver deliver, const DataFolder& models, OutboxPolicy policy = {});
    ~EventAccessService() { Stop(); }
    EventAccessService(const EventAccessService&) = delete;
    EventAccessService& operator=(const EventAccessService&) = delete;

    // Loads the registrations of the folder, begins to watch, first for what changed meanwhile, and to deliver.
    [[nodiscard]] HRESULT Start(const std::filesystem::path& folder);
    // Nothing is read and no callback begins after this; operations go on working.
    void Stop();

    // The operations of the interface; failures are its result codes, that of an XPath which takes too long on the
    // model of this moment (0x80070718), or that of a disk that cannot be written.
    [[nodiscard]] HRESULT Subscribe(const ServiceIdentity& service, std::wstring_view document, std::wstring& id);
    // service: null, or the one that the caller takes it for.
    [[nodiscard]] HRESULT Modify(const ServiceIdentity* service, const std::wstring& id, std::wstring_view document);
    [[nodiscard]] HRESULT Unsubscribe(const std::wstring& id);

    // Whether there are registrations, or callbacks that wait or are being delivered.
    bool InUse() const;

  private:
    using Steady = Worker::Clock::time_point;

    struct Watched {
        ModelRegistration registration;
        // Another one after each change of the registration: a reading for the one before is not applied.
        std::uint64_t revision = 0;
        // What the states were last read from.
        std::optional<ModelStamp> seen;
        // After a post that failed.
        Steady notBefore{};
    };
    // How the readings of one model went.
    struct Model {
        std::optional<ModelStamp> failed;
        int failures = 0;
        bool reported = false;
    };
    // One registration on its way through a reading.
    struct Due {
        std::wstring id;
        std::uint64_t revision = 0;
        std::vector<WatchedEvent> events;
        std::vector<EventState> states;
        bool changed = false;
        // The XPaths of the events that fired.
        std::vector<std::wstring> fired;
    };
    // The bodies of callbacks, by the XPaths of the events in them.
    using Bodies = std::map<std::vector<std::wstring>, std::wstring>;

    HRESULT CheckId(const std::wstring& id) const;
    HRESULT ReadFirstStates(const ServiceIdentity& service, const std::vector<WatchedEvent>& events,
                            std::vector<EventState>& states, std::optional<ModelStamp>& seen) const;
    void Put(const std::wstring& id, Watched watched);
    void Remove(const std::wstring& id);

    Worker::Next Work();
    void Tidy(Instant now);
    bool Look(const ServiceIdentity& service, Steady now);
    std::vector<Due> WhoIsDue(const ServiceIdentity& service, const ModelStamp& stamp, Steady now) const;
    std::optional<ModelReading> Read(const ServiceIdentity& service, const ModelStamp& stamp);
    static Bodies Evaluate(ModelReading& reading, std::vector<Due>& due);
    bool Apply(const std::vector<Due>& due, const ModelStamp& stamp, const Bodies& bodies, Steady now);
    std::set<std::wstring> Post(const std::vector<Due>& due, const Bodies& bodies);
    void WriteStates();

    ModelFolder models_;
    mutable std::mutex mutex_;
    EventAccessStore store_;
    std::map<std::wstring, Watched> registrations_;
    std::map<ServiceIdentity, std::set<std::wstring>> byService_;
    std::map<std::wstring, Instant> expired_;
    std::uint64_t lastRevision_ = 0;
    // States that could not be written yet.
    std::set<std::wstring> unwritten_;
    Steady nextForgetting_{};
    Outbox outbox_;
    // Of the watching thread alone.
    std::map<ServiceIdentity, Model> readings_;
    Steady nextLive_{};
    Steady nextPoll_{};
    Worker worker_;
};

} // namespace keldan
