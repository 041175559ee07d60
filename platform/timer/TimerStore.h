// Tickets and registrations on disk. A commit that returned S_OK survives any end of the process.
//
// Not thread-safe; one process at a time.
#pragma once

#include "platform/journal/Journal.h"
#include "platform/timer/TimerRegistration.h"

#include <map>
#include <string>
#include <vector>

namespace keldan {

class TimerStore {
  public:
    struct Content {
        std::vector<TimerRegistration> registrations;
        // When each ticket was last used.
        std::map<std::wstring, Instant> tickets;
        // When each registration expired.
        std::map<std::wstring, Instant> expired;
    };

    // Collects changes that are written together, all of them or none.
    class Batch {
      public:
        Batch& Put(const TimerRegistration& registration);
        Batch& PutProgress(const TimerRegistration& registration);
        Batch& Remove(const std::wstring& id);
        Batch& PutTicket(const std::wstring& ticket, Instant used);
        Batch& RemoveTicket(const std::wstring& ticket);
        Batch& PutExpired(const std::wstring& id, Instant when);
        Batch& RemoveExpired(const std::wstring& id);

      private:
        friend class TimerStore;
        std::vector<Journal::Change> changes_;
    };

    // Reads the store in the folder. A damaged file is moved aside, which is reported to the debugger output; content
    // is then empty.
    [[nodiscard]] HRESULT Open(const std::filesystem::path& folder, Content& content);
    [[nodiscard]] HRESULT Commit(const Batch& batch) { return journal_.Commit(batch.changes_); }

  private:
    static bool Read(const Journal::Table& table, Content& content);

    Journal journal_;
};

} // namespace keldan
