// When an event fires. It knows no files and no clients.
#pragma once

#include "platform/eventaccess/ModelReading.h"
#include "platform/eventaccess/ModelSubscription.h"

namespace keldan {

// What has been seen of one event.
struct EventState {
    // With a trigger: whether the event fires when the trigger is true.
    bool armed = true;
    // Without one: what the selected nodes were, as a digest; empty where nothing has been seen.
    std::string digest;

    bool operator==(const EventState&) const = default;
};

// Both throw result_error as ModelReading does.
//
// The state of an event whose registration is made at this reading: what is true already does not fire.
[[nodiscard]] EventState FirstState(const WatchedEvent& event, ModelReading& reading);
// Moves the state on by a later reading; whether the event fires at it. On failure the state is as before.
[[nodiscard]] bool Advance(const WatchedEvent& event, ModelReading& reading, EventState& state);

} // namespace keldan
