// How the objects that clients create reach the one service of the process behind them.
#pragma once

#include "common/com/com_server.h"

#include <atomic>

namespace keldan {

// Thread-safe. The service is set before its class is registered and lives as long as there are objects.
template <typename Service>
class ServiceSlot {
  public:
    void Set(Service* service) { service_ = service; }

    // The closed door of every operation: work(service), with exceptions turned into results.
    template <typename Work>
    HRESULT With(Work work) const {
        Service* service = service_;
        if (!service)
            return CO_E_SERVER_STOPPING;
        return vorna::closed_door([&] { return work(*service); });
    }

  private:
    std::atomic<Service*> service_{nullptr};
};

} // namespace keldan
