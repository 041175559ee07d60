// Decides whether an event fires. It accesses no files and calls no clients.
#pragma once

#include "platform/eventaccess/ModelReading.h"
#include "platform/eventaccess/ModelSubscription.h"

namespace keldan {

// The state of one event after the readings so far.
struct EventState {
    // With a trigger: whether the event fires as soon as the trigger is true.
    bool armed = true;
    // Without a trigger: a digest of the selected nodes; empty before the first reading.
    std::string digest;

    bool operator==(const EventState&) const = default;
};

// Both functions throw result_error as ModelReading does.
//
// Returns the state of an event that is registered at this reading: a condition that is already true does not fire.
[[nodiscard]] EventState FirstState(const WatchedEvent& event, ModelReading& reading);
// Updates the state by a later reading and returns whether the event fires. On failure the state is unchanged.
[[nodiscard]] bool Advance(const WatchedEvent& event, ModelReading& reading, EventState& state);

} // namespace keldan
