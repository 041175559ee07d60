// The stored data models: one XML file a service, written by whoever speaks with the device.
//
// A file is UTF-8 or UTF-16, with or without a byte order mark. Writers replace it by renaming a finished one over it,
// as Write does; where a reader has the file open at that moment, renaming fails with ERROR_ACCESS_DENIED and is to be
// tried again. Free-threaded: the store holds nothing but its location.
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

    // serviceId+serviceURI+portID.xml. Small letters, digits, "-" and "_" stand for themselves, every other character
    // for its UTF-8 bytes as %41: no two services share a file, whether or not the file system tells cases apart, and
    // no name leaves the folder or is a device. Empty for an identity that is too long for a file name, or no text.
    static std::wstring FileName(const ServiceIdentity& service);

    const std::wstring& Folder() const { return folder_; }
    // The full path of a service's model; empty where FileName is.
    std::wstring PathOf(const ServiceIdentity& service) const;

    // The model's text without its XML declaration. 0x80070490: the service has none. 0x8000012D: the file's bytes are
    // no text in a known encoding. message says what was wrong, with the file's path.
    [[nodiscard]] HRESULT Read(const ServiceIdentity& service, std::wstring& document, std::wstring& message) const;

    // Replaces the model, or makes it, at one stroke; a failure leaves the one before. The text is not looked at.
    [[nodiscard]] HRESULT Write(const ServiceIdentity& service, std::wstring_view document,
                                std::wstring& message) const;

    // Removes the model. 0x80070490: there is none.
    [[nodiscard]] HRESULT Remove(const ServiceIdentity& service) const;

  private:
    std::wstring folder_;
};

} // namespace keldan
