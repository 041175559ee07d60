// The ten-minute timer of the component's own: registered when a subscription is made and none is recorded, ended with
// the last subscription. Its ID stands in the persist document.
//
// Nothing is held; operations throw std::bad_alloc only.
#pragma once

#include "persist/SubscriptionPersistance.h"

#include <string>
#include <string_view>

namespace vorna {

class MaintenanceTimer {
  public:
    // The client cookie of its callbacks; that of a subscription is never empty.
    static constexpr std::wstring_view COOKIE{};

    // Its schedule document. 0 on success.
    [[nodiscard]] static HRESULT Schedule(std::wstring& schedule);
    // Registers it with the timer. id: the timer's ID for it, empty on failure.
    [[nodiscard]] static HRESULT Register(std::wstring& id);
    // Ends a registration. clientId: the ticket that the component has with the timer.
    [[nodiscard]] static HRESULT End(std::wstring_view clientId, std::wstring_view id);
    // Ends it and deletes its record if no subscription is left. Takes the registration lock; problems are only logged.
    static void Drop(SubscriptionPersistance& persistance);
};

} // namespace vorna
