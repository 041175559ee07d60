// The component's only access to the platform's secure archive manager: one archive, one stream, one operation at a
// time.
//
// Acquires no lock: callers that add or remove streams must hold the subscription's archive lock. One thread at a time.
// No operation throws; each returns the manager's result, 0x80000152 if the manager could not be created, or 0x80004005
// if it was not called.
#pragma once

#include "QXKeldan.h"
#include "common/com/bstr.h"
#include "common/com/com_ptr.h"

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace vorna {

class SamAccessor {
  public:
    // archivePath: the full path of the archive; fileName: the stream.
    SamAccessor(std::wstring_view archivePath, std::wstring_view fileName);
    // For counting: no stream.
    explicit SamAccessor(std::wstring_view archivePath) : SamAccessor(archivePath, {}) {}

    // Selects another stream of the same archive.
    void SetFileName(std::wstring_view fileName) { fileName_.assign(fileName); }

    [[nodiscard]] HRESULT getStreamFromArchive(bstr& data);
    [[nodiscard]] HRESULT addStreamToArchive(std::wstring_view data);
    [[nodiscard]] HRESULT getNumberOfFilesInArchive(long& count);
    // The names of all streams. E_NOINTERFACE if the manager does not list them, which is optional.
    [[nodiscard]] HRESULT ListStreams(std::vector<std::wstring>& names);
    [[nodiscard]] HRESULT removeFile();

  private:
    void CreateManager();
    template <typename Work>
    HRESULT WithArchive(Work work);
    // Logs the joined parts at level 4.
    void Log(std::initializer_list<std::wstring_view> parts);

    com_ptr<ISecureArchiveManager> manager_;
    std::wstring archivePath_;
    std::wstring fileName_;
    // The buffer of Log, kept so that a reused accessor does not allocate again.
    std::wstring message_;
    HRESULT result_ = E_FAIL;
};

} // namespace vorna
