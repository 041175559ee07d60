#include "platform/timer/TimerStore.h"

#include "platform/journal/InstantRecord.h"

namespace keldan {

namespace {

// The kinds of records, as prefixes of their names.
constexpr std::string_view REGISTRATION = "R/";
// Separate from the registration, so that a tick writes little. First written with the first tick.
constexpr std::string_view PROGRESS = "P/";
constexpr std::string_view TICKET = "T/";
constexpr std::string_view EXPIRED = "E/";

std::wstring IdOf(const std::string& name) {
    return std::wstring(name.begin() + 2, name.end());
}

} // namespace

TimerStore::Batch& TimerStore::Batch::Put(const TimerRegistration& registration) {
    changes_.push_back({RecordName(REGISTRATION, registration.id), WriteTimerRegistration(registration)});
    changes_.push_back({RecordName(PROGRESS, registration.id), std::nullopt});
    return *this;
}

TimerStore::Batch& TimerStore::Batch::PutProgress(const TimerRegistration& registration) {
    changes_.push_back({RecordName(PROGRESS, registration.id), WriteProgress(registration.progress)});
    return *this;
}

TimerStore::Batch& TimerStore::Batch::Remove(const std::wstring& id) {
    changes_.push_back({RecordName(REGISTRATION, id), std::nullopt});
    changes_.push_back({RecordName(PROGRESS, id), std::nullopt});
    return *this;
}

TimerStore::Batch& TimerStore::Batch::PutTicket(const std::wstring& ticket, Instant used) {
    changes_.push_back({RecordName(TICKET, ticket), WriteInstant(used)});
    return *this;
}

TimerStore::Batch& TimerStore::Batch::RemoveTicket(const std::wstring& ticket) {
    changes_.push_back({RecordName(TICKET, ticket), std::nullopt});
    return *this;
}

TimerStore::Batch& TimerStore::Batch::PutExpired(const std::wstring& id, Instant when) {
    changes_.push_back({RecordName(EXPIRED, id), WriteInstant(when)});
    return *this;
}

TimerStore::Batch& TimerStore::Batch::RemoveExpired(const std::wstring& id) {
    changes_.push_back({RecordName(EXPIRED, id), std::nullopt});
    return *this;
}

bool TimerStore::Read(const Journal::Table& table, Content& content) {
    for (const auto& [name, value] : table) {
        if (name.starts_with(REGISTRATION)) {
            auto registration = ReadTimerRegistration(value);
            if (!registration || registration->id != IdOf(name))
                return false;
            if (const auto progress = table.find(RecordName(PROGRESS, registration->id)); progress != table.end()) {
                const auto read = ReadProgress(progress->second);
                if (!read)
                    return false;
                registration->progress = *read;
            }
            content.registrations.push_back(std::move(*registration));
        } else if (name.starts_with(TICKET) || name.starts_with(EXPIRED)) {
            const auto instant = ReadInstant(value);
            if (!instant)
                return false;
            (name.starts_with(TICKET) ? content.tickets : content.expired)[IdOf(name)] = *instant;
        } else if (!name.starts_with(PROGRESS)) {
            return false;
        }
    }
    return true;
}

HRESULT TimerStore::Open(const std::filesystem::path& folder, Content& content) {
    return journal_.Open(folder / L"timer.journal", L"the timer's registrations", [&](const Journal::Table& table) {
        content = {};
        return Read(table, content);
    });
}

} // namespace keldan
