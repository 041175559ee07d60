#include "platform/eventaccess/EventAccessStore.h"

#include "platform/journal/InstantRecord.h"

namespace keldan {

namespace {

// The kinds of records, as prefixes of their names.
constexpr std::string_view REGISTRATION = "R/";
constexpr std::string_view STATES = "S/";
constexpr std::string_view EXPIRED = "E/";

bool Read(const Journal::Table& table, EventAccessStore::Content& content) {
    content = {};
    for (const auto& [name, value] : table) {
        const std::wstring id(name.begin() + std::min<std::size_t>(name.size(), 2), name.end());
        if (name.starts_with(REGISTRATION)) {
            const auto states = table.find(RecordName(STATES, id));
            auto registration = states == table.end() ? std::nullopt : ReadModelRegistration(value, states->second);
            if (!registration)
                return false;
            content.registrations.emplace(id, std::move(*registration));
        } else if (name.starts_with(EXPIRED)) {
            const auto instant = ReadInstant(value);
            if (!instant)
                return false;
            content.expired[id] = *instant;
        } else if (!name.starts_with(STATES)) {
            return false;
        }
    }
    return true;
}

} // namespace

EventAccessStore::Batch& EventAccessStore::Batch::Put(const std::wstring& id, const ModelRegistration& registration) {
    changes_.push_back({RecordName(REGISTRATION, id), WriteModelRegistration(registration)});
    return PutStates(id, registration.states);
}

EventAccessStore::Batch& EventAccessStore::Batch::PutStates(const std::wstring& id,
                                                            const std::vector<EventState>& states) {
    changes_.push_back({RecordName(STATES, id), WriteEventStates(states)});
    return *this;
}

EventAccessStore::Batch& EventAccessStore::Batch::Remove(const std::wstring& id) {
    changes_.push_back({RecordName(REGISTRATION, id), std::nullopt});
    changes_.push_back({RecordName(STATES, id), std::nullopt});
    return *this;
}

EventAccessStore::Batch& EventAccessStore::Batch::PutExpired(const std::wstring& id, Instant when) {
    changes_.push_back({RecordName(EXPIRED, id), WriteInstant(when)});
    return *this;
}

EventAccessStore::Batch& EventAccessStore::Batch::RemoveExpired(const std::wstring& id) {
    changes_.push_back({RecordName(EXPIRED, id), std::nullopt});
    return *this;
}

HRESULT EventAccessStore::Open(const std::filesystem::path& folder, Content& content) {
    return journal_.Open(folder / L"eventaccess.journal", L"the event access's registrations",
                         [&](const Journal::Table& table) { return Read(table, content); });
}

} // namespace keldan
