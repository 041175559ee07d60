// The timer of the platform: registrations on disk, one thread that schedules, and a few threads that call clients.
//
// Guarantee. An operation that returned S_OK is on disk. The delivery of a tick to an entry is stored right after the
// client has returned. The end of the process at any moment loses no tick, and repeats one only if the process ends
// during the call or in the milliseconds before the delivery is on disk. Ticks that become due while no process runs
// are delivered as one.
//
// Thread-safe, but Start and Stop are called by one thread.
#pragma once

#include "platform/delivery/DeliveryPool.h"
#include "platform/hosting/Worker.h"
#include "platform/timer/Scheduler.h"
#include "platform/timer/TimerStore.h"

#include <functional>
#include <memory>
#include <mutex>

namespace keldan {

class TimerService {
  public:
    // Calls a client: DeliverToClient, or a replacement in tests.
    using Deliver = std::function<HRESULT(const std::wstring& client, const std::wstring& document)>;

    explicit TimerService(Deliver deliver) : deliver_(std::move(deliver)) {}
    // Stops. A thread that hangs in a client would return to a destroyed object; a caller that cannot exclude this must
    // call Stop and keep the object until the process ends.
    ~TimerService() { Stop(); }
    TimerService(const TimerService&) = delete;
    TimerService& operator=(const TimerService&) = delete;

    // Loads the registrations in the folder and begins to deliver, missed ticks first.
    [[nodiscard]] HRESULT Start(const std::filesystem::path& folder);

    // No callback begins after this; running ones are waited for, for a few seconds at most. The other operations keep
    // working.
    void Stop();

    // The operations of the interface. Failures are its result codes, or the error of a disk that cannot be written.
    [[nodiscard]] HRESULT GetTicket(std::wstring& ticket);
    [[nodiscard]] HRESULT Subscribe(const std::wstring& ticket, std::wstring_view document, std::wstring& id);
    [[nodiscard]] HRESULT Unsubscribe(const std::wstring& ticket, const std::wstring& id);
    [[nodiscard]] HRESULT Modify(const std::wstring& id, std::wstring_view document);

    // Whether there are registrations.
    bool InUse() const;

  private:
    Now ReadClocks() const;
    HRESULT CheckTicket(const std::wstring& ticket, const Now& now) const;
    HRESULT CheckId(const std::wstring& id) const;
    Worker::Next Work();
    void NoticeZone();
    void WriteChanges(const Now& now);
    void Dispatch(std::vector<Call> calls);
    void CarryOut(const Call& call);
    void Tidy(const Now& now);

    const Deliver deliver_;
    mutable std::mutex mutex_;
    bool stopping_ = false;
    TimerStore store_;
    Scheduler scheduler_;
    std::map<std::wstring, Instant> tickets_;
    std::map<std::wstring, Instant> expired_;
    // Registrations whose progress could not be written yet.
    std::vector<std::wstring> unwritten_;
    TIME_ZONE_INFORMATION zone_{};
    Milliseconds nextTidying_{};
    bool deliveredSinceTidying_ = false;
    std::unique_ptr<DeliveryPool> pool_;
    Worker worker_;
};

} // namespace keldan
