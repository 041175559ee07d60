// Event access as the sender of a subscription's callbacks.
#pragma once

#include "QXKeldan.h"
#include "common/com/com_ptr.h"
#include "src/XDMEventInfo.h"
#include "subscription/Sender.h"

namespace vorna {

class EventAccessSender : public Sender {
  public:
    // event: the event to register, which must outlive this object; null for an object that only ends registrations,
    // which needs no service either.
    EventAccessSender(const XDMEventInfo* event, com_ptr<IUnknown> service, std::wstring clientId = {})
        : Sender(std::move(clientId)), info_(event), service_(std::move(service)) {}

    const Wording& Texts() const override;
    [[nodiscard]] HRESULT Modify(std::wstring_view id) override;
    [[nodiscard]] HRESULT Unsubscribe(std::wstring_view id) override;

  private:
    HRESULT CreateComponent() override;
    HRESULT SubscribeWithComponent(std::wstring& id) override;

    const XDMEventInfo* const info_;
    const com_ptr<IUnknown> service_;
    com_ptr<IZEBEventAccess> eventAccess_;
};

} // namespace vorna
