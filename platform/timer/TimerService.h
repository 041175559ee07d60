// The timer of the platform: registrations on disk, one thread that knows what is due, a few that deliver.
//
// Guarantee. An operation that returned S_OK is on disk. A tick is written down as delivered right after the client has
// taken it, entry by entry; so after the end of the process at any moment no tick is lost, and one is delivered a
// second time only where the process ended while the client was at it, or in the milliseconds before the note was on
// disk. Ticks that became due while nothing ran are delivered once, together.
//
// Thread-safe.
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
    // How a client is reached: DeliverToClient, or what a test puts in its place.
    using Deliver = std::function<HRESULT(const std::wstring& client, const std::wstring& document)>;

    explicit TimerService(Deliver deliver) : deliver_(std::move(deliver)) {}
    // Stops. Where a client hangs for good, its thread comes back to an object that is gone: who cannot rule that out
    // stops, and lets the process end before the object does.
    ~TimerService() { Stop(); }
    TimerService(const TimerService&) = delete;
    TimerService& operator=(const TimerService&) = delete;

    // Loads the registrations of the folder and begins to deliver, first of all what was missed.
    [[nodiscard]] HRESULT Start(const std::filesystem::path& folder);

    // No callback begins after this; those that run are waited for, for a few seconds at most. Operations go on
    // working.
    void Stop();

    // The operations of the interface; failures are its result codes, or that of a disk that cannot be written.
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
    void HandOut(std::vector<Call> calls);
    void CarryOut(const Call& call);
    void Tidy(const Now& now);

    const Deliver deliver_;
    mutable std::mutex mutex_;
    bool stopping_ = false;
    TimerStore store_;
    Scheduler scheduler_;
    std::map<std::wstring, Instant> tickets_;
    std::map<std::wstring, Instant> expired_;
    // Progress that could not be written yet.
    std::vector<std::wstring> unwritten_;
    TIME_ZONE_INFORMATION zone_{};
    Milliseconds nextTidying_{};
    bool deliveredSinceTidying_ = false;
    std::unique_ptr<DeliveryPool> pool_;
    Worker worker_;
};

} // namespace keldan
