// The data models to watch: whether they have changed, and their text. Stored ones are files in one folder, live ones
// are computed.
#pragma once

#include "common/com/unique_any.h"
#include "platform/data/ModelStore.h"

#include <cstdint>

namespace keldan {

// Identifies the content of a model's file.
struct ModelStamp {
    bool exists = false;
    std::uint64_t size = 0;
    std::uint64_t written = 0;
    std::uint64_t index = 0;

    bool operator==(const ModelStamp&) const = default;
};

// The watch belongs to one thread; StampOf and Read may be called on any thread.
class ModelFolder {
  public:
    explicit ModelFolder(const DataFolder& folder) : store_(folder) {}

    // Begins to watch the folder, which is created if it does not exist. Call it again to watch a new folder of the
    // same name. If the system cannot watch it, Changes stays null.
    void Watch();
    void EndWatch() { changes_.reset(); }
    // Set when a file has changed; null if the folder is not watched.
    HANDLE Changes() const { return changes_ ? changes_.get() : nullptr; }
    // Clears the signal. Call it before the stamps are read, so that a later change sets it again.
    void Continue();

    ModelStamp StampOf(const ServiceIdentity& service) const;

    // The model's text, stored or live. 0x80070490: there is none. message describes the failure.
    [[nodiscard]] HRESULT Read(const ServiceIdentity& service, std::wstring& document, std::wstring& message) const;

  private:
    ModelStore store_;
    vorna::unique_any<vorna::file_traits<FindCloseChangeNotification>> changes_;
};

} // namespace keldan
