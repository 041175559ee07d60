#include "platform/host/HostSignals.h"

#include "common/com/hash_text.h"
#include "common/com/result_error.h"

#include <algorithm>
#include <cwctype>
#include <string>

namespace keldan {

namespace {

// An ending host may still wait for callbacks.
constexpr DWORD LONGEST_WAIT = 30000;

// The same name for spellings of a folder that differ in case or in a trailing backslash.
std::wstring Name(const std::filesystem::path& folder, const wchar_t* what) {
    std::wstring path = folder.lexically_normal().wstring();
    while (!path.empty() && path.back() == L'\\')
        path.pop_back();
    std::transform(path.begin(), path.end(), path.begin(), std::towlower);
    const std::uint64_t hash = vorna::hash_text(path);
    wchar_t text[80];
    swprintf(text, std::size(text), L"Global\\QXKeldanHost-%08lx%08lx-", static_cast<unsigned long>(hash >> 32),
             static_cast<unsigned long>(hash));
    return std::wstring(text) + what;
}

vorna::unique_handle Checked(HANDLE handle) {
    if (!handle)
        throw vorna::result_error(vorna::result_from_last_error());
    return vorna::unique_handle(handle);
}

bool Owned(DWORD wait) {
    return wait == WAIT_OBJECT_0 || wait == WAIT_ABANDONED;
}

} // namespace

HostSignals::HostSignals(const std::filesystem::path& folder)
    : place_(Checked(CreateMutexW(nullptr, FALSE, Name(folder, L"place").c_str()))),
      serving_(Checked(CreateEventW(nullptr, TRUE, FALSE, Name(folder, L"serving").c_str()))),
      stop_(Checked(CreateEventW(nullptr, TRUE, FALSE, Name(folder, L"stop").c_str()))),
      renew_(Checked(CreateEventW(nullptr, FALSE, FALSE, Name(folder, L"renew").c_str()))) {}

HostSignals::~HostSignals() {
    if (taken_)
        ReleaseMutex(place_.get());
}

bool HostSignals::TakePlace() {
    // The place is the first handle: if it is free, a "serving" event that is set was left by a killed host.
    const HANDLE handles[] = {place_.get(), serving_.get()};
    taken_ = Owned(WaitForMultipleObjects(2, handles, FALSE, LONGEST_WAIT));
    if (taken_) {
        ResetEvent(serving_.get());
        ResetEvent(stop_.get());
    } else {
        SetEvent(renew_.get());
    }
    return taken_;
}

void HostSignals::SetServing(bool serving) {
    serving ? SetEvent(serving_.get()) : ResetEvent(serving_.get());
}

HostSignals::Request HostSignals::WaitForRequest(DWORD milliseconds) const {
    const HANDLE handles[] = {stop_.get(), renew_.get()};
    switch (WaitForMultipleObjects(2, handles, FALSE, milliseconds)) {
    case WAIT_OBJECT_0:
        return Request::Stop;
    case WAIT_OBJECT_0 + 1:
        return Request::Renew;
    default:
        return Request::None;
    }
}

bool HostSignals::StopHost(const std::filesystem::path& folder) {
    const vorna::unique_handle place(
        OpenMutexW(SYNCHRONIZE | MUTEX_MODIFY_STATE, FALSE, Name(folder, L"place").c_str()));
    const vorna::unique_handle stop(OpenEventW(EVENT_MODIFY_STATE, FALSE, Name(folder, L"stop").c_str()));
    if (!place || !stop)
        return true;
    SetEvent(stop.get());
    if (!Owned(WaitForSingleObject(place.get(), LONGEST_WAIT)))
        return false;
    ReleaseMutex(place.get());
    return true;
}

} // namespace keldan
