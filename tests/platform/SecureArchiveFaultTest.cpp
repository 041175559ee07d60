// Archives when processes are ended, when several processes work on them, and when the disk is full.
#include "platform/ArchiveSupport.h"

#include "support/ChildProcess.h"

#include <map>
#include <optional>

namespace {

namespace fs = std::filesystem;
using platform_test::Archive;
using platform_test::FailingWrites;
using Failure = FailingWrites::Kind;

constexpr HRESULT NOT_FOUND = HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
constexpr HRESULT DISK_FULL = HRESULT_FROM_WIN32(ERROR_DISK_FULL);

std::wstring Setting(const wchar_t* name) {
    wchar_t text[MAX_PATH] = L"";
    GetEnvironmentVariableW(name, text, MAX_PATH);
    return text;
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

// Waits for a time that ends anywhere within a step.
void Spin(int microseconds) {
    LARGE_INTEGER frequency, start, now;
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&start);
    do {
        QueryPerformanceCounter(&now);
    } while ((now.QuadPart - start.QuadPart) * 1000000 < frequency.QuadPart * microseconds);
}

// This program once more, with one task and a pipe on which it acknowledges each completed step.
class Child {
  public:
    Child(const wchar_t* task, const fs::path& path, int first) : process_(Start(task, path, first)) {}
    ~Child() { process_.Kill(); }

    // The next completed step; nothing when the child has ended.
    std::optional<int> Next() {
        int step = 0;
        DWORD done = 0;
        if (!ReadFile(read_.get(), &step, sizeof step, &done, nullptr) || done != sizeof step)
            return std::nullopt;
        return step;
    }
    // Waits for that many steps, kills the child within a later one, and returns the number of completed steps.
    int KillAfter(int steps, int microseconds) {
        int last = -1;
        for (int acknowledged = 0; acknowledged < steps; ++acknowledged) {
            const auto step = Next();
            EXPECT_TRUE(step);
            last = step.value_or(last);
        }
        Spin(microseconds);
        process_.Kill();
        while (const auto step = Next())
            last = *step;
        return last + 1;
    }
    DWORD Exit() { return process_.Wait(); }

  private:
    support::ChildProcess Start(const wchar_t* task, const fs::path& path, int first) {
        SECURITY_ATTRIBUTES inherited{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
        vorna::unique_handle write;
        EXPECT_TRUE(CreatePipe(read_.put(), write.put(), &inherited, 0));
        SetHandleInformation(read_.get(), HANDLE_FLAG_INHERIT, 0);
        return support::ChildProcess::OfTest(
            L"SecureArchiveChild.DISABLED_Work",
            {{L"ARCHIVE_TASK", task},
             {L"ARCHIVE_PATH", path.wstring()},
             {L"ARCHIVE_FIRST", std::to_wstring(first)},
             {L"ARCHIVE_PIPE", std::to_wstring(reinterpret_cast<uintptr_t>(write.get()))}});
    }

    vorna::unique_handle read_;
    support::ChildProcess process_;
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
    } else if (task == L"add") {
        Archive archive(path);
        acknowledge(-1);
        for (int step = first; step < first + 40; ++step)
            ASSERT_HR(S_OK, archive.Add(std::to_wstring(step), DataOf(step)));
    }
}

TEST(SecureArchiveFaults, KilledProcessLosesNothingAndLeavesNoPartialChange) {
    support::TestFolder folder;
    fs::path path = folder.Path() / "A.sam";
    int steps = 0;
    for (int round = 0; round < 24; ++round) {
        Child child(L"change", path, steps);
        steps = child.KillAfter(3 + round % 5, round * 397 % 3500);
        // The step at the moment of the kill is either complete or not begun.
        if (!Holds(path, StateAfter(steps))) {
            ++steps;
            ASSERT_TRUE(Holds(path, StateAfter(steps))) << "round " << round << ", step " << steps;
        }
        EXPECT_EQ(platform_test::Names{L"A.sam"}, support::FilesIn(folder.Path()));
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
        EXPECT_EQ(platform_test::Names{L"A.sam"}, support::FilesIn(folder.Path()));
    }
}

TEST(SecureArchiveFaults, FullDiskIsReportedAndChangesNothing) {
    const struct {
        const char* name;
        bool exists;
        HRESULT (*work)(Archive&);
    } works[] = {
        {"create", false, [](Archive& archive) { return archive.Add(L"new", std::wstring(9000, L'n')); }},
        {"add", true, [](Archive& archive) { return archive.Add(L"new", std::wstring(20000, L'n')); }},
        {"replace", true, [](Archive& archive) { return archive.Add(L"b", std::wstring(9000, L'r')); }},
        {"remove", true, [](Archive& archive) { return archive.Remove(L"a"); }},
    };
    for (const auto& [name, exists, work] : works) {
        for (auto [kind, lasting] : {std::pair{Failure::Refused, false}, {Failure::Short, true}}) {
            support::TestFolder folder;
            const fs::path path = folder.Path() / "A.sam";
            Archive archive(path);
            const auto state = [&] {
                std::pair<std::wstring, std::wstring> data;
                archive.Get(L"a", data.first);
                archive.Get(L"b", data.second);
                return std::tuple(data, archive.MustCount(), support::FilesIn(folder.Path()),
                                  fs::exists(path) ? fs::file_size(path) : 0);
            };
            if (exists) {
                ASSERT_HR(S_OK, archive.Add(L"a", std::wstring(15000, L'a')));
                ASSERT_HR(S_OK, archive.Add(L"b", std::wstring(7000, L'b')));
            }
            const auto before = state();
            for (int allowed = 0;; ++allowed) {
                SCOPED_TRACE(testing::Message() << name << " after " << allowed);
                ASSERT_LT(allowed, 200);
                std::optional<FailingWrites> disk(std::in_place, allowed, kind, lasting);
                const HRESULT result = work(archive);
                const bool failed = disk->Failed();
                disk.reset();
                if (!failed) {
                    EXPECT_HR(S_OK, result);
                    EXPECT_GT(allowed, 3);
                    break;
                }
                ASSERT_HR(DISK_FULL, result);
                ASSERT_TRUE(before == state());
            }
        }
    }
}

} // namespace
