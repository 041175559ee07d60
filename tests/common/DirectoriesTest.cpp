#include "common/services/Directories.h"
#include "common/com/scope_exit.h"
#include "common/com/unique_any.h"
#include "support/ChildProcess.h"
#include "support/Support.h"

#include <windows.h>

#include <fstream>

namespace {

using namespace std::string_literals;
using std::filesystem::exists;
using std::filesystem::path;

std::string Ansi(const path& folder) {
    std::string text(1024, '\0');
    text.resize(WideCharToMultiByte(CP_ACP, 0, folder.c_str(), -1, text.data(), 1024, nullptr, nullptr) - 1);
    return text;
}

void WriteFileIn(const path& file, DWORD attributes = FILE_ATTRIBUTE_NORMAL) {
    std::ofstream(file) << "x";
    ASSERT_TRUE(SetFileAttributesW(file.c_str(), attributes));
}

TEST(CreateDirectories, TakesAndRefusesPathsByTheirPieces) {
    struct {
        std::string below;
        int result;
        const wchar_t* made; // null: nothing at all
    } const cases[] = {
        {"\\x\\y\\z", 1, L"x\\y\\z"},
        {"\\trailing\\", 1, L"trailing"},
        {"\\\\doubled\\\\inner\\\\", 1, L"doubled\\inner"},
        {"\\a.b", 1, L"a.b"},
        {"\\urn;schemas&x (1)", 1, L"urn;schemas&x (1)"},
        {"\\outer\\.hidden", 0, L"outer"},
        {"\\name.", 0, nullptr},
        {"\\..\\escaped", 0, nullptr},
        {"\\blank ", 0, nullptr},
        {"\\C:", 0, nullptr},
        {"\\"s + std::string(512, 'a'), 0, nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.below);
        support::TestFolder folder;
        EXPECT_EQ(c.result, VORNAUTILITY::CreateDirectories((Ansi(folder.Path()) + c.below).c_str()));
        if (c.made)
            EXPECT_TRUE(is_directory(folder.Path() / c.made));
        else
            EXPECT_TRUE(is_empty(folder.Path()));
    }
}

TEST(CreateDirectories, RefusesForbiddenCharactersAndPathsThatAreNotFull) {
    support::TestFolder folder;
    for (const char c : "/:*?\"<>|\t,"s)
        EXPECT_EQ(0, VORNAUTILITY::CreateDirectories((Ansi(folder.Path()) + "\\a" + c + "b").c_str())) << c;
    EXPECT_TRUE(is_empty(folder.Path()));
    for (const char* bad :
         {"", "\\", "\\\\\\", "relative\\x", "\\\\server\\share\\x", "\\\\?\\UNC\\server\\share", "1:\\x"})
        EXPECT_EQ(0, VORNAUTILITY::CreateDirectories(bad)) << bad;
    EXPECT_EQ(0, VORNAUTILITY::CreateDirectories(nullptr));
}

TEST(CreateDirectories, AcceptsWhatExistsAndTheLongForm) {
    support::TestFolder folder;
    const std::string inner = Ansi(folder.Path() / L"inner");
    EXPECT_EQ(1, VORNAUTILITY::CreateDirectories(inner.c_str()));
    EXPECT_EQ(1, VORNAUTILITY::CreateDirectories(inner.c_str()));
    EXPECT_EQ(1, VORNAUTILITY::CreateDirectories(("\\\\?\\" + inner + "\\more").c_str()));
    EXPECT_TRUE(exists(folder.Path() / L"inner\\more"));

    WriteFileIn(folder.Path() / L"file");
    EXPECT_EQ(0, VORNAUTILITY::CreateDirectories(Ansi(folder.Path() / L"file").c_str()));
}

TEST(DeleteDirectory, RemovesATreeWithReadOnlyFiles) {
    support::TestFolder folder;
    const path tree = folder.Path() / L"tree";
    create_directories(tree / L"one" / L"two");
    WriteFileIn(tree / L"top", FILE_ATTRIBUTE_READONLY);
    WriteFileIn(tree / L"one" / L"two" / L"deep", FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
    WriteFileIn(tree / L"one" / L".name with a dot");
    WriteFileIn(tree / L"one" / L"...name");
    EXPECT_TRUE(VORNAUTILITY::DeleteDirectory(Ansi(tree).c_str(), true));
    EXPECT_FALSE(exists(tree));
}

TEST(DeleteDirectory, RemovesWhatCreateDirectoriesMadeHoweverDeep) {
    support::TestFolder folder;
    std::string deep = Ansi(folder.Path() / L"tree");
    while (deep.size() < 480)
        deep += "\\piece-of-a-path";
    ASSERT_EQ(1, VORNAUTILITY::CreateDirectories(deep.c_str()));
    EXPECT_TRUE(VORNAUTILITY::DeleteDirectory(Ansi(folder.Path() / L"tree").c_str(), true));
    EXPECT_TRUE(is_empty(folder.Path()));
}

TEST(DeleteDirectory, StopsAtASubdirectoryWithoutRecurseAndAtAFileInUse) {
    support::TestFolder folder;
    const path flat = folder.Path() / L"flat";
    create_directories(flat / L"one");
    EXPECT_FALSE(VORNAUTILITY::DeleteDirectory(Ansi(flat).c_str(), false));
    EXPECT_TRUE(std::filesystem::remove(flat / L"one"));
    vorna::unique_file held(CreateFileW((flat / L"file").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr));
    ASSERT_TRUE(held);
    EXPECT_FALSE(VORNAUTILITY::DeleteDirectory(Ansi(flat).c_str(), true));
    EXPECT_TRUE(exists(flat / L"file"));
    held.reset();
    EXPECT_TRUE(VORNAUTILITY::DeleteDirectory(Ansi(flat).c_str(), false));
    EXPECT_FALSE(exists(flat));
}

TEST(DeleteDirectory, RefusesRootsDetoursAndWhatIsNotThere) {
    support::TestFolder folder;
    create_directories(folder.Path() / L"kept");
    create_directories(folder.Path() / L"other");
    const std::string base = Ansi(folder.Path());
    EXPECT_FALSE(VORNAUTILITY::DeleteDirectory((base + "\\missing").c_str(), true));
    EXPECT_FALSE(VORNAUTILITY::DeleteDirectory((base + "\\other\\..\\kept").c_str(), true));
    EXPECT_TRUE(exists(folder.Path() / L"kept"));
    for (const char* bad : {"", "C:", "C:\\", "\\\\?\\C:\\", "relative"})
        EXPECT_FALSE(VORNAUTILITY::DeleteDirectory(bad, true)) << bad;
    EXPECT_FALSE(VORNAUTILITY::DeleteDirectory(nullptr, true));
}

std::string UnixName(const path& name) {
    using Function = char*(CDECL*)(LPCWSTR);
    const auto function = reinterpret_cast<Function>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "wine_get_unix_file_name")));
    char* text = function ? function(name.c_str()) : nullptr;
    if (!text)
        return {};
    const vorna::scope_exit release([&] { HeapFree(GetProcessHeap(), 0, text); });
    return text;
}

// A link to a directory, removed with the object. Wine neither makes nor removes one, so its host is asked.
class Link {
  public:
    Link(const path& link, const path& target)
        : link_(link), hostLink_(UnixName(link.parent_path()) + "/" + link.filename().string()) {
        RunOnHost("ln -s \"" + UnixName(target) + "\"", true);
    }
    ~Link() { RunOnHost("rm -f", false); }
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

    bool Exists() const { return GetFileAttributesW(link_.c_str()) != INVALID_FILE_ATTRIBUTES; }

  private:
    void RunOnHost(const std::string& what, bool there) {
        const support::ChildProcess program(support::Wide("Z:\\bin\\" + what + " \"" + hostLink_ + "\""));
        // A program of the host has no handle to wait for.
        for (int i = 0; i < 500 && Exists() != there; ++i)
            Sleep(10);
    }

    path link_;
    std::string hostLink_;
};

TEST(DeleteDirectory, RemovesLinksAndNotTheirTargets) {
    support::TestFolder folder;
    const path outside = folder.Path() / L"outside";
    const path tree = folder.Path() / L"tree";
    create_directories(outside / L"empty");
    create_directories(tree / L"inner");
    WriteFileIn(outside / L"kept");
    if (UnixName(outside).empty())
        GTEST_SKIP() << "only Wine's host makes links here";
    const Link full(tree / L"inner" / L"link", outside);
    const Link empty(tree / L"another", outside / L"empty");
    const Link given(folder.Path() / L"link", outside);
    ASSERT_TRUE(full.Exists() && empty.Exists() && given.Exists());
    // If Wine cannot open the link itself, the deletion fails instead of following it.
    for (const path& deletedPath : {tree, folder.Path() / L"link"}) {
        const bool deleted = VORNAUTILITY::DeleteDirectory(Ansi(deletedPath).c_str(), true);
        EXPECT_EQ(deleted, GetFileAttributesW(deletedPath.c_str()) == INVALID_FILE_ATTRIBUTES);
        EXPECT_TRUE(exists(outside / L"kept"));
        EXPECT_TRUE(exists(outside / L"empty"));
    }
}

TEST(IsDots, RecognisesTheTwoNamesOnly) {
    EXPECT_TRUE(VORNAUTILITY::IsDots(".") && VORNAUTILITY::IsDots(".."));
    for (const char* other : {"", "...", ".a", "a."})
        EXPECT_FALSE(VORNAUTILITY::IsDots(other)) << other;
    EXPECT_FALSE(VORNAUTILITY::IsDots(nullptr));
}

} // namespace
