#include "platform/eventaccess/Evaluation.h"

namespace keldan {

EventState FirstState(const WatchedEvent& event, ModelReading& reading) {
    if (event.trigger.empty())
        return {true, reading.Digest(event.xpath)};
    return {!reading.Holds(event.xpath, event.trigger), {}};
}

bool Advance(const WatchedEvent& event, ModelReading& reading, EventState& state) {
    if (event.trigger.empty()) {
        const std::string& digest = reading.Digest(event.xpath);
        const bool changed = !state.digest.empty() && state.digest != digest;
        state.digest = digest;
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
