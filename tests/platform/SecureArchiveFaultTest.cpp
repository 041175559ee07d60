// Archives when processes are ended, when several processes work on them, and when the disk is full.
#include "platform/ArchiveSupport.h"

#include "common/com/scope_exit.h"

#include <algorithm>
#include <map>
#include <optional>

namespace {

namespace fs = std::filesystem;
using platform_test::Archive;

constexpr HRESULT NOT_FOUND = HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
constexpr HRESULT DISK_FULL = HRESULT_FROM_WIN32(ERROR_DISK_FULL);

std::wstring Setting(const wchar_t* name) {
    wchar_t text[MAX_PATH] = L"";
    GetEnvironmentVariableW(name, text, MAX_PATH);
    return text;
}

std::vector<std::wstring> FilesIn(const fs::path& folder) {
    std::vector<std::wstring> names;
    for (const auto& entry : fs::directory_iterator(folder))
        names.push_back(entry.path().filename().wstring());
    std::sort(names.begin(), names.end());
    return names;
}

// A fixed sequence of changes to ten streams; some do not fit into the database's cache.
std::wstring SlotOf(int step) {
    return L"stream " + std::to_wstring(step * 7 % 10);
}
bool IsRemoval(int step) {
    return step % 3 == 2;
}
std::wstring DataOf(int step) {
    size_t length = step % 25 == 24 ? 1500000 : static_cast<size_t>(step) * 733 % 20000;
    return std::wstring(length, static_cast<wchar_t>(L'A' + step));
}
// The streams after that many steps: the step that each of them comes from.
std::map<std::wstring, int> StateAfter(int steps) {
    std::map<std::wstring, int> state;
    for (int step = 0; step < steps; ++step) {
        state.erase(SlotOf(step));
        if (!IsRemoval(step))
            state[SlotOf(step)] = step;
    }
    return state;
}
bool Holds(const fs::path& path, const std::map<std::wstring, int>& state) {
    Archive archive(path);
    if (archive.MustCount() != static_cast<long>(state.size()))
        return false;
    for (int slot = 0; slot < 10; ++slot) {
        std::wstring data;
        HRESULT result = archive.Get(SlotOf(slot), data);
        auto expected = state.find(SlotOf(slot));
        if (expected == state.end() ? result != NOT_FOUND : result != S_OK || data != DataOf(expected->second))
            return false;
    }
    return true;
}

// This program once more, with one task and a pipe on which it acknowledges each completed step.
class Child {
  public:
    Child(const wchar_t* task, const fs::path& path, int first) {
        SECURITY_ATTRIBUTES inherited{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
        vorna::unique_handle write;
        EXPECT_TRUE(CreatePipe(read_.put(), write.put(), &inherited, 0));
        SetHandleInformation(read_.get(), HANDLE_FLAG_INHERIT, 0);
        SetEnvironmentVariableW(L"ARCHIVE_TASK", task);
        SetEnvironmentVariableW(L"ARCHIVE_PATH", path.c_str());
        SetEnvironmentVariableW(L"ARCHIVE_FIRST", std::to_wstring(first).c_str());
        SetEnvironmentVariableW(L"ARCHIVE_PIPE", std::to_wstring(reinterpret_cast<uintptr_t>(write.get())).c_str());
        wchar_t self[MAX_PATH];
        GetModuleFileNameW(nullptr, self, MAX_PATH);
        std::wstring command = L"\"" + std::wstring(self) +
                               L"\" --gtest_brief=1 --gtest_also_run_disabled_tests "
                               L"--gtest_filter=SecureArchiveChild.DISABLED_Work";
        STARTUPINFOW startup{};
        startup.cb = sizeof startup;
        PROCESS_INFORMATION process{};
        EXPECT_TRUE(
            CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process));
        process_.reset(process.hProcess);
        vorna::unique_handle thread(process.hThread);
    }
    ~Child() { TerminateProcess(process_.get(), 1); }

    // The next completed step; nothing when the child has ended.
    std::optional<int> Next() {
        int step = 0;
        DWORD done = 0;
        if (!ReadFile(read_.get(), &step, sizeof step, &done, nullptr) || done != sizeof step)
            return std::nullopt;
        return step;
    }
    void Kill() {
        TerminateProcess(process_.get(), 1);
        WaitForSingleObject(process_.get(), INFINITE);
    }
    DWORD Exit() {
        DWORD code = 1;
        WaitForSingleObject(process_.get(), INFINITE);
        GetExitCodeProcess(process_.get(), &code);
        return code;
    }

  private:
    vorna::unique_handle read_;
    vorna::unique_handle process_;
};

// The tasks of a child; runs only there.
TEST(SecureArchiveChild, DISABLED_Work) {
    std::wstring task = Setting(L"ARCHIVE_TASK");
    fs::path path = Setting(L"ARCHIVE_PATH");
    auto pipe = reinterpret_cast<HANDLE>(static_cast<uintptr_t>(_wtoi(Setting(L"ARCHIVE_PIPE").c_str())));
    int first = _wtoi(Setting(L"ARCHIVE_FIRST").c_str());
    auto acknowledge = [pipe](int step) {
        DWORD done = 0;
        ASSERT_TRUE(WriteFile(pipe, &step, sizeof step, &done, nullptr));
    };
    if (task == L"change") {
        Archive archive(path);
        for (int step = first;; ++step) {
            HRESULT result = IsRemoval(step) ? archive.Remove(SlotOf(step)) : archive.Add(SlotOf(step), DataOf(step));
            ASSERT_TRUE(result == S_OK || (IsRemoval(step) && result == NOT_FOUND));
            acknowledge(step);
        }
    } else if (task == L"create") {
        for (int step = first;; ++step) {
            Archive archive(path / (std::to_wstring(step) + L".sam"));
            ASSERT_HR(S_OK, archive.Add(L"first", DataOf(step)));
            acknowledge(step);
        }
    } else if (task == L"add") {
        Archive archive(path);
        acknowledge(-1);
        for (int step = first; step < first + 40; ++step)
            ASSERT_HR(S_OK, archive.Add(std::to_wstring(step), DataOf(step)));
    }
}

// Waits for a time that ends anywhere within a step.
void Spin(int microseconds) {
    LARGE_INTEGER frequency, start, now;
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&start);
    do {
        QueryPerformanceCounter(&now);
    } while ((now.QuadPart - start.QuadPart) * 1000000 < frequency.QuadPart * microseconds);
}

TEST(SecureArchiveFaults, KilledProcessLosesNothingAndLeavesNoPartialChange) {
    support::TestFolder folder;
    fs::path path = folder.Path() / "A.sam";
    int steps = 0;
    for (int round = 0; round < 24; ++round) {
        Child child(L"change", path, steps);
        for (int acknowledged = 0; acknowledged < 3 + round % 5; ++acknowledged) {
            auto step = child.Next();
            ASSERT_TRUE(step);
            steps = *step + 1;
        }
        Spin(round * 397 % 3500);
        child.Kill();
        while (auto step = child.Next())
            steps = *step + 1;
        // The step at the moment of the kill is either complete or not begun.
        if (!Holds(path, StateAfter(steps))) {
            ++steps;
            ASSERT_TRUE(Holds(path, StateAfter(steps))) << "round " << round << ", step " << steps;
        }
        EXPECT_EQ(std::vector<std::wstring>{L"A.sam"}, FilesIn(folder.Path()));
    }
}

TEST(SecureArchiveFaults, KilledProcessCreatesACompleteArchiveOrNone) {
    support::TestFolder folder;
    int next = 0;
    for (int round = 0; round < 12; ++round) {
        Child child(L"create", folder.Path(), next);
        for (int acknowledged = 0; acknowledged < 2; ++acknowledged) {
            auto step = child.Next();
            ASSERT_TRUE(step);
            next = *step + 1;
        }
        Spin(round * 571 % 6000);
        child.Kill();
        while (auto step = child.Next())
            next = *step + 1;
        for (int step = 0; step < next; ++step)
            ASSERT_EQ(DataOf(step), Archive(folder.Path() / (std::to_wstring(step) + L".sam")).MustGet(L"first"));
        // An unfinished archive does not hinder the next attempt, which removes it.
        Archive interrupted(folder.Path() / (std::to_wstring(next) + L".sam"));
        ASSERT_HR(S_OK, interrupted.Add(L"first", DataOf(next)));
        ASSERT_EQ(1, interrupted.MustCount());
        ++next;
        EXPECT_EQ(static_cast<size_t>(next), FilesIn(folder.Path()).size());
    }
}

TEST(SecureArchiveFaults, ProcessesThatCreateOneArchiveTogetherLoseNothing) {
    for (int round = 0; round < 3; ++round) {
        support::TestFolder folder;
        fs::path path = folder.Path() / "A.sam";
        Child one(L"add", path, 0);
        Child two(L"add", path, 1000);
        ASSERT_TRUE(one.Next());
        ASSERT_TRUE(two.Next());
        EXPECT_EQ(0u, one.Exit());
        EXPECT_EQ(0u, two.Exit());
        Archive archive(path);
        EXPECT_EQ(80, archive.MustCount());
        for (int step = 0; step < 40; ++step) {
            EXPECT_TRUE(DataOf(step) == archive.MustGet(std::to_wstring(step)));
            EXPECT_TRUE(DataOf(1000 + step) == archive.MustGet(std::to_wstring(1000 + step)));
        }
        EXPECT_EQ(std::vector<std::wstring>{L"A.sam"}, FilesIn(folder.Path()));
    }
}

// The import slot of WriteFile in this program, which includes the code of archives.
extern "C" decltype(&WriteFile) importedWrite __asm__("__imp__WriteFile@20");

// While it exists, some calls of WriteFile report a full disk.
class FullDisk {
  public:
    enum class Kind { Refused, Short };
    // allowed: the number of calls that still succeed. lasting: all later ones fail, not only the next.
    FullDisk(int allowed, Kind kind, bool lasting) {
        real_ = importedWrite;
        allowed_ = allowed;
        kind_ = kind;
        lasting_ = lasting;
        failed_ = false;
        Set(Write);
    }
    ~FullDisk() { Set(real_); }
    bool Failed() const { return failed_; }

  private:
    static void Set(decltype(&WriteFile) function) {
        DWORD before = 0;
        VirtualProtect(&importedWrite, sizeof importedWrite, PAGE_READWRITE, &before);
        importedWrite = function;
        VirtualProtect(&importedWrite, sizeof importedWrite, before, &before);
    }
    static BOOL WINAPI Write(HANDLE file, LPCVOID data, DWORD size, LPDWORD done, LPOVERLAPPED place) {
        if (allowed_-- > 0 || (failed_ && !lasting_))
            return real_(file, data, size, done, place);
        failed_ = true;
        BOOL result = real_(file, data, size / 2, done, place);
        if (kind_ == Kind::Short)
            return result;
        SetLastError(ERROR_DISK_FULL);
        return FALSE;
    }

    static inline decltype(&WriteFile) real_;
    static inline int allowed_;
    static inline Kind kind_;
    static inline bool lasting_;
    static inline bool failed_;
};

TEST(SecureArchiveFaults, FullDiskIsReportedAndChangesNothing) {
    using Work = HRESULT (*)(Archive&);
    const std::pair<const char*, Work> works[] = {
        {"add", [](Archive& archive) { return archive.Add(L"new", std::wstring(20000, L'n')); }},
        {"replace", [](Archive& archive) { return archive.Add(L"b", std::wstring(9000, L'r')); }},
        {"remove", [](Archive& archive) { return archive.Remove(L"a"); }},
    };
    const std::wstring a(15000, L'a');
    const std::wstring b(7000, L'b');
    for (const auto& [name, work] : works) {
        for (auto [kind, lasting] : {std::pair{FullDisk::Kind::Refused, false}, {FullDisk::Kind::Short, true}}) {
            support::TestFolder folder;
            fs::path path = folder.Path() / "A.sam";
            Archive archive(path);
            ASSERT_HR(S_OK, archive.Add(L"a", a));
            ASSERT_HR(S_OK, archive.Add(L"b", b));
            auto size = fs::file_size(path);
            for (int allowed = 0;; ++allowed) {
                ASSERT_LT(allowed, 200);
                bool failed;
                HRESULT result;
                {
                    FullDisk disk(allowed, kind, lasting);
                    result = work(archive);
                    failed = disk.Failed();
                }
                if (!failed) {
                    EXPECT_HR(S_OK, result) << name;
                    EXPECT_GT(allowed, 3) << name;
                    break;
                }
                ASSERT_HR(DISK_FULL, result) << name << " after " << allowed;
                ASSERT_EQ(2, archive.MustCount()) << name << " after " << allowed;
                ASSERT_TRUE(a == archive.MustGet(L"a")) << name << " after " << allowed;
                ASSERT_TRUE(b == archive.MustGet(L"b")) << name << " after " << allowed;
                ASSERT_EQ(size, fs::file_size(path)) << name << " after " << allowed;
                ASSERT_EQ(std::vector<std::wstring>{L"A.sam"}, FilesIn(folder.Path())) << name;
            }
        }
    }
}

TEST(SecureArchiveFaults, ArchiveWithoutRoomIsNotCreated) {
    support::TestFolder folder;
    Archive archive(folder.Path() / "A.sam");
    for (int allowed = 0;; ++allowed) {
        ASSERT_LT(allowed, 100);
        FullDisk disk(allowed, FullDisk::Kind::Refused, true);
        HRESULT result = archive.Add(L"a", std::wstring(9000, L'a'));
        if (!disk.Failed()) {
            EXPECT_HR(S_OK, result);
            EXPECT_GT(allowed, 3);
            break;
        }
        ASSERT_HR(DISK_FULL, result) << allowed;
        ASSERT_TRUE(FilesIn(folder.Path()).empty()) << allowed;
    }
    EXPECT_EQ(std::vector<std::wstring>{L"A.sam"}, FilesIn(folder.Path()));
}

} // namespace
