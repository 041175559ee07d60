// The event access of the platform: one thread watches the data models that have registrations.
//
// Guarantee. An operation that returned S_OK is on disk. When events fire, their callbacks are stored in the outbox
// before the new state is: the end of the process at any moment loses no event, and repeats one only if the process
// ends between the two. If the outbox has no room or the disk fails, the state is not changed and the model is read
// again later.
//
// Thread-safe, but Start and Stop are called by one thread. Models are read and evaluated without blocking other
// operations.
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
    // deliver: DeliverToClient, or a replacement in tests. models: the folder of the stored data models.
    EventAccessService(Outbox::Deliver deliver, const DataFolder& models, OutboxPolicy policy = {});
    ~EventAccessService() { Stop(); }
    EventAccessService(const EventAccessService&) = delete;
    EventAccessService& operator=(const EventAccessService&) = delete;

    // Loads the registrations in the folder and begins to watch and to deliver. What changed while no process ran is
    // noticed.
    [[nodiscard]] HRESULT Start(const std::filesystem::path& folder);
    // No model is read and no callback begins after this; the other operations keep working.
    void Stop();

    // The operations of the interface. Failures are its result codes, 0x80070718 for an XPath that takes too long on
    // the current model, or the error of a disk that cannot be written.
    [[nodiscard]] HRESULT Subscribe(const ServiceIdentity& service, std::wstring_view document, std::wstring& id);
    // service: null, or the service that the caller expects.
    [[nodiscard]] HRESULT Modify(const ServiceIdentity* service, const std::wstring& id, std::wstring_view document);
    [[nodiscard]] HRESULT Unsubscribe(const std::wstring& id);

    // Whether there are registrations, or callbacks that wait or are being delivered.
    bool InUse() const;

  private:
    using Steady = Worker::Clock::time_point;

    struct Watched {
        ModelRegistration registration;
        // Changes with the registration, so that a reading of an earlier version is not applied.
        std::uint64_t revision = 0;
        // The content of the model at the last reading.
        std::optional<ModelStamp> seen;
        // Set after a post that failed.
        Steady notBefore{};
    };
    // Failures to read one model.
    struct Model {
        std::optional<ModelStamp> failed;
        int failures = 0;
        bool reported = false;
    };
    // A registration during a reading.
    struct Due {
        std::wstring id;
        std::uint64_t revision = 0;
        std::vector<WatchedEvent> events;
        std::vector<EventState> states;
        bool changed = false;
        // The XPaths of the events that fired.
        std::vector<std::wstring> fired = {};
    };
    // The bodies of callbacks, by the XPaths of their events.
    using Bodies = std::map<std::vector<std::wstring>, std::wstring>;

    HRESULT CheckId(const std::wstring& id) const;
    HRESULT Make(const ServiceIdentity& service, std::wstring_view document, Watched& watched) const;
    void Put(const std::wstring& id, Watched watched);
    void Remove(const std::wstring& id);

    Worker::Next Work();
    void Tidy(Instant now);
    bool CheckModel(const ServiceIdentity& service, Steady now);
    std::vector<Due> DueRegistrations(const ServiceIdentity& service, const ModelStamp& stamp, Steady now) const;
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
    // Registrations whose states could not be written yet.
    std::set<std::wstring> unwritten_;
    Steady nextForgetting_{};
    Outbox outbox_;
    // Used by the watching thread only.
    std::map<ServiceIdentity, Model> readings_;
    Steady nextLive_{};
    Steady nextPoll_{};
    Worker worker_;
};

} // namespace keldan
