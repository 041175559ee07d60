// The folder of the platform's files on this machine.
#pragma once

#include <windows.h>

#include <string>

namespace keldan {

class DataFolder {
  public:
    // The folder in the string value "DataFolder" of HKEY_LOCAL_MACHINE\SOFTWARE\Ostrevane\QXKeldan (environment
    // variables are expanded), which is read at every call; %ProgramData%\Ostrevane\QXKeldan if there is none.
    static DataFolder Configured();

    explicit DataFolder(const std::wstring& path);

    // A full path in the long form, without a trailing backslash. The folder may not exist yet.
    const std::wstring& Path() const { return path_; }
    // The folder of the stored data models.
    std::wstring Models() const { return path_ + L"\\models"; }

  private:
    std::wstring path_;
};

// Creates a folder and its parents; S_OK also if it exists.
[[nodiscard]] HRESULT CreateFolder(const std::wstring& path);

} // namespace keldan
