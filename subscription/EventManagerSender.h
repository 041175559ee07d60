// The event manager as the sender of a subscription's callbacks.
#pragma once

#include "QXKeldan.h"
#include "common/com/com_ptr.h"
#include "src/KROEventInfo.h"
#include "subscription/Sender.h"

namespace vorna {

class EventManagerSender : public Sender {
  public:
    // event: the event to register, which must outlive this object; null for an object that only ends registrations.
    explicit EventManagerSender(const KROEventInfo* event, std::wstring clientId = {})
        : Sender(std::move(clientId)), info_(event) {}

    const Wording& Texts() const override;
    [[nodiscard]] HRESULT Modify(std::wstring_view id) override;
    [[nodiscard]] HRESULT Unsubscribe(std::wstring_view id) override;

  private:
    HRESULT CreateComponent() override;
    HRESULT SubscribeWithComponent(std::wstring& id) override;

    const KROEventInfo* const info_;
    com_ptr<IZEBEventManager> eventManager_;
};

} // namespace vorna
