// The base of COM classes whose objects pass every call to the one service of the process. Their objects hold no state.
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

// Free-threaded.
template <typename Derived, typename Interface, typename Service>
class ServedObject : public vorna::dispatch_object<Derived, Interface> {
  public:
    // The service behind all objects of this process. Set it before the class is registered; it must outlive all
    // objects.
    static void Serve(Service* service) { service_ = service; }

  protected:
    // Runs an operation, work(service), and converts exceptions into results.
    template <typename Work>
    static HRESULT With(Work work) {
        Service* service = service_;
        if (!service)
            return CO_E_SERVER_STOPPING;
        return vorna::closed_door([&] { return work(*service); });
    }
    // The same for an operation that returns a text: work(service, text).
    template <typename Work>
    static HRESULT Answer(BSTR* answer, Work work) {
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
    static inline std::atomic<Service*> service_{nullptr};
};

} // namespace keldan
