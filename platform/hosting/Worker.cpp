#include "platform/hosting/Worker.h"

#include "common/com/result_error.h"
#include "common/com/scope_exit.h"
#include "platform/hosting/Report.h"

#include <objbase.h>

#include <algorithm>

namespace keldan {

HRESULT Worker::Start(std::function<Next()> work, const std::wstring& failure) {
    if (!wake_)
        return E_OUTOFMEMORY;
    return vorna::closed_door([&] {
        thread_ = std::thread([this, work = std::move(work), failure] { Run(work, failure); });
        return S_OK;
    });
}

void Worker::Stop() {
    stopping_ = true;
    Wake();
    if (thread_.joinable())
        thread_.join();
}

void Worker::Run(const std::function<Next()>& work, const std::wstring& failure) {
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    const vorna::scope_exit leave([] { CoUninitialize(); });
    while (!stopping_) {
        Next next{Clock::now() + std::chrono::seconds(1)};
        try {
            next = work();
        } catch (const std::exception&) {
            Report(failure);
        }
        const auto wait = std::chrono::ceil<std::chrono::milliseconds>(next.when - Clock::now());
        const HANDLE signals[] = {wake_.get(), next.signal};
        WaitForMultipleObjects(next.signal ? 2 : 1, signals, FALSE,
                               static_cast<DWORD>(std::max<std::int64_t>(wait.count(), 0)));
    }
}

} // namespace keldan
