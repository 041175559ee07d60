// The stored data models: one XML file for each service, written by programs that communicate with the devices.
//
// A file is UTF-8 or UTF-16, with or without a byte order mark. Writers replace it by renaming a finished file, as
// Write does; if a reader has the old file open, renaming fails with ERROR_ACCESS_DENIED and must be repeated.
// Free-threaded: the store holds only its location.
#pragma once

#include "platform/data/DataFolder.h"
#include "platform/data/ServiceIdentity.h"

#include <windows.h>

#include <string>
#include <string_view>

namespace keldan {

class ModelStore {
  public:
    // The largest file that is read, in bytes.
    static constexpr DWORD MAX_BYTES = 64 * 1024 * 1024;

    explicit ModelStore(const DataFolder& folder) : folder_(folder.Models()) {}

    // serviceId+serviceURI+portID.xml. Small letters, digits, "-" and "_" are used as they are, every other character
    // as its UTF-8 bytes in the form %41: services never share a file, even if the file system ignores case, and no
    // name leads out of the folder or to a device. Empty if the identity is too long for a file name, or is not text.
    static std::wstring FileName(const ServiceIdentity& service);

    const std::wstring& Folder() const { return folder_; }
    // The full path of a service's model; empty if FileName is.
    std::wstring PathOf(const ServiceIdentity& service) const;

    // The model's text without its XML declaration. 0x80070490: the service has none. 0x8000012D: the file is not text
    // in a known encoding. message describes the failure, with the file's path.
    [[nodiscard]] HRESULT Read(const ServiceIdentity& service, std::wstring& document, std::wstring& message) const;

    // Creates or replaces the model atomically; a failure leaves the previous one. The text is not checked.
    [[nodiscard]] HRESULT Write(const ServiceIdentity& service, std::wstring_view document,
                                std::wstring& message) const;

    // Deletes the model. 0x80070490: there is none.
    [[nodiscard]] HRESULT Remove(const ServiceIdentity& service) const;

  private:
    std::wstring folder_;
};

} // namespace keldan
