// Registrations of the event access on disk. What a commit returned S_OK for is there after any end of the process.
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
        // When a registration reached its end.
        std::map<std::wstring, Instant> expired;
    };

    // Collects what is written together, all of it or nothing.
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

    // Reads the store in the folder. A damaged one is put aside, reported to the debugger output, and content is empty.
    [[nodiscard]] HRESULT Open(const std::filesystem::path& folder, Content& content);
    // Whether nothing was lost when it was opened.
    bool Whole() const { return journal_.Condition() == Journal::State::Good; }
    [[nodiscard]] HRESULT Commit(Batch batch) { return journal_.Commit(std::move(batch.changes_)); }

  private:
    Journal journal_;
};

} // namespace keldan
