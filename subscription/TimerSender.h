// The timer as the sender of a subscription's callbacks.
#pragma once

#include "QXKeldan.h"
#include "common/com/com_ptr.h"
#include "src/TimerInfo.h"
#include "subscription/Sender.h"

namespace vorna {

class TimerSender : public Sender {
  public:
    // timer: the schedule to register, which must outlive this object; null for an object that only ends registrations.
    TimerSender(const TimerInfo* timer, std::wstring clientId) : Sender(std::move(clientId)), info_(timer) {}

    const Wording& Texts() const override;
    [[nodiscard]] HRESULT Modify(std::wstring_view id) override;
    [[nodiscard]] HRESULT Unsubscribe(std::wstring_view id) override;
    // A schedule that the timer refuses for another reason is not registered again.
    bool SubscribesAgainAfter(HRESULT answer) const override { return IsGone(answer); }

  private:
    HRESULT CreateComponent() override;
    HRESULT SubscribeWithComponent(std::wstring& id) override;
    HRESULT ResultOfRefusal(HRESULT answer) const override;
    HRESULT GetTicket(std::wstring& ticket);

    const TimerInfo* const info_;
    com_ptr<IZEBTimer> timer_;
};

} // namespace vorna
