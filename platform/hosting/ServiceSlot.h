// Connects the objects that clients create to the only service of the process.
#pragma once

#include "common/com/bstr.h"
#include "common/com/com_server.h"

#include <atomic>
#include <string>

namespace keldan {

// An argument of an operation; null is empty.
inline std::wstring ToText(BSTR argument) {
    return std::wstring(vorna::view_of(argument));
}

// Thread-safe. The service is set before its class is registered, and outlives all objects of the class.
template <typename Service>
class ServiceSlot {
  public:
    void Set(Service* service) { service_ = service; }

    // Runs an operation, work(service), and converts exceptions into results.
    template <typename Work>
    HRESULT With(Work work) const {
        Service* service = service_;
        if (!service)
            return CO_E_SERVER_STOPPING;
        return vorna::closed_door([&] { return work(*service); });
    }
    // The same for an operation that returns a text: work(service, text).
    template <typename Work>
    HRESULT Answer(BSTR* answer, Work work) const {
        if (!answer)
            return E_POINTER;
        *answer = nullptr;
        return With([&](Service& service) {
            std::wstring text;
            const HRESULT result = work(service, text);
            if (SUCCEEDED(result))
                *answer = vorna::bstr(text).release();
            return result;
        });
    }

  private:
    std::atomic<Service*> service_{nullptr};
};

} // namespace keldan
