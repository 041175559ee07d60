// The archive manager bound to a path, with texts in place of BSTRs.
#pragma once

#include "common/com/bstr.h"
#include "common/com/unique_any.h"
#include "platform/archive/SecureArchiveManager.h"
#include "support/Support.h"

#include <filesystem>
#include <string>
#include <vector>

namespace platform_test {

using Names = std::vector<std::wstring>;

class Archive {
  public:
    explicit Archive(const std::filesystem::path& path,
                     DWORD milliseconds = keldan::SecureArchiveManager::LONGEST_WAIT) {
        manager_.attach(new keldan::SecureArchiveManager(milliseconds));
        EXPECT_HR(S_OK, Bind(path));
    }

    ISecureArchiveManager& Manager() { return *manager_.get(); }
    HRESULT Bind(const std::filesystem::path& path) { return manager_->put_Archive(vorna::bstr(path.wstring()).get()); }
    HRESULT Add(const std::wstring& name, const std::wstring& data) {
        return manager_->AddStream(vorna::bstr(name).get(), vorna::bstr(data).get(), 0);
    }
    HRESULT Get(const std::wstring& name, std::wstring& data) {
        vorna::bstr found;
        HRESULT result = manager_->GetStream(vorna::bstr(name).get(), 0, found.put());
        data = found.str();
        return result;
    }
    HRESULT Remove(const std::wstring& name) { return manager_->RemoveFile(vorna::bstr(name).get()); }
    HRESULT Count(long& count) { return manager_->GetEntryCount(2, &count); }

    // The names, each of which ends with a delimiter in the list; a failure leaves no list.
    HRESULT List(Names& names) {
        vorna::bstr list;
        HRESULT result = manager_.try_as<IArchiveStreams>()->GetStreamNames(list.put());
        EXPECT_EQ(SUCCEEDED(result), list.get() != nullptr);
        std::wstring_view rest = list.view();
        names.clear();
        for (size_t end; (end = rest.find(L'\xFFFF')) != rest.npos; rest.remove_prefix(end + 1))
            names.emplace_back(rest.substr(0, end));
        EXPECT_TRUE(rest.empty()) << "no delimiter after the last name";
        return result;
    }

    std::wstring MustGet(const std::wstring& name) {
        std::wstring data;
        EXPECT_HR(S_OK, Get(name, data));
        return data;
    }
    Names MustList() {
        Names names;
        EXPECT_HR(S_OK, List(names));
        return names;
    }
    long MustCount() {
        long count = -1;
        EXPECT_HR(S_OK, Count(count));
        return count;
    }

  private:
    vorna::com_ptr<ISecureArchiveManager> manager_;
};

// A file for one test's archive, in a folder of its own.
class ArchiveTest : public testing::Test {
  protected:
    // The files beside it, which a test wants to be absent, are in the folder too.
    Names Files() const { return support::FilesIn(folder_.Path()); }

    support::TestFolder folder_;
    const std::filesystem::path path_ = folder_.Path() / "A.sam";
};

// Replaces an imported function of this program, which includes the code of archives, for the life of the object.
template <typename Function>
class Replaced {
  public:
    // slot: the program's import slot.
    Replaced(Function& slot, Function function) : slot_(slot), real_(slot) { Set(function); }
    ~Replaced() { Set(real_); }
    Replaced(const Replaced&) = delete;
    Replaced& operator=(const Replaced&) = delete;

  private:
    void Set(Function function) {
        DWORD before = 0;
        VirtualProtect(&slot_, sizeof slot_, PAGE_READWRITE, &before);
        slot_ = function;
        VirtualProtect(&slot_, sizeof slot_, before, &before);
    }
    Function& slot_;
    const Function real_;
};

// The import slot of WriteFile in this program.
extern "C" decltype(&WriteFile) importedWrite __asm__("__imp__WriteFile@20");

// While it exists, some calls of WriteFile report a full disk, or fault.
class FailingWrites {
  public:
    enum class Kind { Refused, Short, Fault };
    // allowed: the number of calls that still succeed. lasting: all later ones fail, not only the next.
    FailingWrites(int allowed, Kind kind, bool lasting) {
        allowed_ = allowed;
        kind_ = kind;
        lasting_ = lasting;
        failed_ = false;
    }
    bool Failed() const { return failed_; }

  private:
    static BOOL WINAPI Write(HANDLE file, LPCVOID data, DWORD size, LPDWORD done, LPOVERLAPPED place) {
        if (allowed_-- > 0 || (failed_ && !lasting_))
            return real_(file, data, size, done, place);
        failed_ = true;
        if (kind_ == Kind::Fault)
            RaiseException(static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION), EXCEPTION_NONCONTINUABLE, 0, nullptr);
        const BOOL result = real_(file, data, size / 2, done, place);
        if (kind_ == Kind::Short)
            return result;
        SetLastError(ERROR_DISK_FULL);
        return FALSE;
    }

    static inline const decltype(&WriteFile) real_ = importedWrite;
    static inline int allowed_;
    static inline Kind kind_;
    static inline bool lasting_;
    static inline bool failed_;
    Replaced<decltype(&WriteFile)> replaced_{importedWrite, Write};
};

} // namespace platform_test
