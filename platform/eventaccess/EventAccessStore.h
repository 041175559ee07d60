// The registrations of the event access on disk. A commit that returned S_OK survives any end of the process.
//
// Not thread-safe; one process at a time.
#pragma once

#include "platform/eventaccess/ModelRegistration.h"
#include "platform/journal/Journal.h"

#include <map>

namespace keldan {

class EventAccessStore {
  public:
    struct Content {
        std::map<std::wstring, ModelRegistration> registrations;
        // When each registration expired.
        std::map<std::wstring, Instant> expired;
    };

    // Collects changes that are written together, all of them or none.
    class Batch {
      public:
        Batch& Put(const std::wstring& id, const ModelRegistration& registration);
        Batch& PutStates(const std::wstring& id, const std::vector<EventState>& states);
        Batch& Remove(const std::wstring& id);
        Batch& PutExpired(const std::wstring& id, Instant when);
        Batch& RemoveExpired(const std::wstring& id);

      private:
        friend class EventAccessStore;
        std::vector<Journal::Change> changes_;
    };

    // Reads the store in the folder. A damaged file is moved aside, which is reported to the debugger output; content
    // is then empty.
    [[nodiscard]] HRESULT Open(const std::filesystem::path& folder, Content& content);
    // Whether the file was not damaged.
    bool Whole() const { return journal_.Condition() == Journal::State::Good; }
    [[nodiscard]] HRESULT Commit(Batch batch) { return journal_.Commit(std::move(batch.changes_)); }

  private:
    Journal journal_;
};

} // namespace keldan
