// The component's only door to the platform's secure archive manager: one archive, one stream, one step.
//
// Takes no lock: whoever adds or removes streams holds the subscription's archive lock. One thread at a time. No
// operation throws; each returns the manager's own HRESULT, 0x80000152 where the manager could not be created, or
// 0x80004005 where nothing ran.
#pragma once

#include "QXKeldan.h"
#include "common/com/bstr.h"
#include "common/com/com_ptr.h"

#include <initializer_list>
#include <string>
#include <string_view>

namespace vorna {

class SamAccessor {
  public:
    // archivePath: the full path of the archive; fileName: the stream.
    SamAccessor(std::wstring_view archivePath, std::wstring_view fileName);
    // For counting: no stream.
    explicit SamAccessor(std::wstring_view archivePath) : SamAccessor(archivePath, {}) {}

    // Another stream of the same archive.
    void SetFileName(std::wstring_view fileName) { fileName_.assign(fileName); }

    [[nodiscard]] HRESULT getStreamFromArchive(bstr& data);
    [[nodiscard]] HRESULT addStreamToArchive(std::wstring_view data);
    [[nodiscard]] HRESULT getNumberOfFilesInArchive(long& count);
    [[nodiscard]] HRESULT removeFile();

  private:
    void CreateManager();
    template <typename Work>
    HRESULT WithArchive(Work work);
    // Writes one line at level 4, put together in the scratch buffer.
    void Log(std::initializer_list<std::wstring_view> parts);

    com_ptr<ISecureArchiveManager> manager_;
    std::wstring archivePath_;
    std::wstring fileName_;
    // Scratch for the log lines, kept so that a reused accessor does not allocate again.
    std::wstring message_;
    HRESULT result_ = E_FAIL;
};

} // namespace vorna
