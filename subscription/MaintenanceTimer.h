// The component's own ten-minute timer: registered with a new subscription if none is recorded, ended with the last
// subscription. The persist document has its ID.
//
// Stateless. Operations throw std::bad_alloc only.
#pragma once

#include "persist/SubscriptionPersistance.h"

#include <string>
#include <string_view>

namespace vorna {

class MaintenanceTimer {
  public:
    // The client cookie of its callbacks; unlike this one, the cookie of a subscription is never empty.
    static constexpr std::wstring_view COOKIE{};

    // Its schedule document. 0 on success.
    [[nodiscard]] static HRESULT Schedule(std::wstring& schedule);
    // Registers it if none is recorded, or if the timer does not know the recorded one any more. id: what to record;
    // empty if the record stays as it is, and if the timer could not be registered. Called under the folder lock.
    static void Ensure(SubscriptionPersistance& persistance, std::wstring& id);
    // Registers it with the timer. id: the timer's ID for it, empty on failure.
    [[nodiscard]] static HRESULT Register(std::wstring& id);
    // Ends a registration. clientId: the component's ticket from the timer.
    [[nodiscard]] static HRESULT End(std::wstring_view clientId, std::wstring_view id);
    // Ends a registration that called back but is not the recorded one; a crash can leave such a registration.
    static void EndUnrecorded(SubscriptionPersistance& persistance, std::wstring_view id);
    // Ends it and deletes its record if no subscription is left. Acquires the folder lock; failures are only logged.
    static void Drop(SubscriptionPersistance& persistance);

  private:
    static HRESULT Schedule(const SYSTEMTIME& start, std::wstring& schedule);
    static bool IsLost(std::wstring_view id);
};

} // namespace vorna
