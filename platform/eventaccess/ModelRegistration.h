// One registration and its records on disk.
#pragma once

#include "platform/calendar/Instants.h"
#include "platform/data/ServiceIdentity.h"
#include "platform/eventaccess/Evaluation.h"
#include "platform/eventaccess/ModelSubscription.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace keldan {

struct ModelRegistration {
    ServiceIdentity service;
    // Its duration is not stored; the end is.
    ModelSubscription subscription;
    Instant end = NEVER;
    // One for each event.
    std::vector<EventState> states;
};

// Reading returns nothing if the bytes are not a valid record. The states have a separate record, so that a reading
// writes little.
std::string WriteModelRegistration(const ModelRegistration& registration);
std::optional<ModelRegistration> ReadModelRegistration(std::string_view registration, std::string_view states);
std::string WriteEventStates(const std::vector<EventState>& states);

} // namespace keldan
