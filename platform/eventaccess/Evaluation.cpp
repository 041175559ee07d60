#include "platform/eventaccess/Evaluation.h"

#include "platform/data/HashHandles.h"

#include <stdexcept>

namespace keldan {

namespace {

// SHA-256: whoever writes the model must not be able to hide a change.
std::string DigestOf(const std::wstring& text) {
    unique_algorithm algorithm;
    unique_hash hash;
    std::string digest(32, '\0');
    NTSTATUS status = BCryptOpenAlgorithmProvider(algorithm.put(), BCRYPT_SHA256_ALGORITHM, nullptr, 0);
    if (status >= 0)
        status = BCryptCreateHash(algorithm.get(), hash.put(), nullptr, 0, nullptr, 0, 0);
    if (status >= 0)
        status = BCryptHashData(hash.get(), reinterpret_cast<PUCHAR>(const_cast<wchar_t*>(text.data())),
                                static_cast<ULONG>(text.size() * sizeof(wchar_t)), 0);
    if (status >= 0)
        status = BCryptFinishHash(hash.get(), reinterpret_cast<PUCHAR>(digest.data()), digest.size(), 0);
    if (status < 0)
        throw std::runtime_error("no digest");
    return digest;
}

} // namespace

EventState FirstState(const WatchedEvent& event, ModelReading& reading) {
    if (event.trigger.empty())
        return {true, DigestOf(reading.Data(event.xpath))};
    return {!reading.Holds(event.xpath, event.trigger), {}};
}

bool Advance(const WatchedEvent& event, ModelReading& reading, EventState& state) {
    if (event.trigger.empty()) {
        std::string digest = DigestOf(reading.Data(event.xpath));
        const bool changed = !state.digest.empty() && state.digest != digest;
        state.digest = std::move(digest);
        return changed;
    }
    if (state.armed) {
        state.armed = !reading.Holds(event.xpath, event.trigger);
        return !state.armed;
    }
    state.armed =
        event.reset.empty() ? !reading.Holds(event.xpath, event.trigger) : reading.Holds(event.xpath, event.reset);
    return false;
}

} // namespace keldan
