// The data models that are watched: whether they have changed, and their text. Stored ones lie in one folder, live ones
// are computed.
#pragma once

#include "common/com/unique_any.h"
#include "platform/data/ModelStore.h"

#include <cstdint>

namespace keldan {

// Tells one content of a model's file from another.
struct ModelStamp {
    bool exists = false;
    std::uint64_t size = 0;
    std::uint64_t written = 0;
    std::uint64_t index = 0;

    bool operator==(const ModelStamp&) const = default;
};

// One thread for the watch; StampOf and Read on any thread.
class ModelFolder {
  public:
    explicit ModelFolder(const DataFolder& folder) : store_(folder) {}

    // Begins to notice changes in the folder, which is made where there is none. Doing so again follows a folder that
    // was put in the place of the old one. Where the system refuses, changes() stays null.
    void Watch();
    void EndWatch() { changes_.reset(); }
    // Signalled when a file has changed; null where nothing is noticed.
    HANDLE Changes() const { return changes_ ? changes_.get() : nullptr; }
    // After a signal and before the stamps are looked at, so that the next change is noticed.
    void Continue();

    ModelStamp StampOf(const ServiceIdentity& service) const;

    // The model's text, stored or live. 0x80070490: none. message says what was wrong.
    [[nodiscard]] HRESULT Read(const ServiceIdentity& service, std::wstring& document, std::wstring& message) const;

  private:
    struct ChangesTraits {
        using type = HANDLE;
        static type invalid() { return INVALID_HANDLE_VALUE; }
        static void close(type value) { FindCloseChangeNotification(value); }
    };

    ModelStore store_;
    vorna::unique_any<ChangesTraits> changes_{INVALID_HANDLE_VALUE};
};

} // namespace keldan
