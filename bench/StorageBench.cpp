// A durable add and a read of a stream through the secure archive manager, compared with the same SQL on the same
// library: with the same cipher, the same pragmas, and the database opened for each operation, as archives are.
#include "QXKeldan.h"
#include "bench/Bench.h"
#include "bench/InstalledPlatform.h"
#include "common/com/bstr.h"
#include "common/com/com_ptr.h"
#include "common/com/unique_any.h"
#include "subscription/archive/SamAccessor.h"

#include <sqlite3.h>

#include <stdexcept>
#include <string>

using namespace vorna;

namespace {

constexpr double GOAL = 1.5;
// 10 KB: archives store texts with two bytes a character.
constexpr size_t STREAM_CHARACTERS = 5 * 1024;

using UniqueDatabase = unique_any<null_traits<sqlite3*, sqlite3_close>>;
using UniqueStatement = unique_any<null_traits<sqlite3_stmt*, sqlite3_finalize>>;

void Check(int code) {
    if (code != SQLITE_OK)
        throw std::runtime_error("SQLite answered " + std::to_string(code));
}

// The minimum for a durable encrypted stream.
class BareStore {
  public:
    explicit BareStore(const std::filesystem::path& file) : file_(file.string()) {
        UniqueDatabase database = Open(SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
        Check(
            sqlite3_exec(database.get(),
                         "PRAGMA page_size=4096; PRAGMA auto_vacuum=FULL; PRAGMA journal_mode=DELETE;"
                         "CREATE TABLE streams(id INTEGER PRIMARY KEY, name BLOB NOT NULL UNIQUE, data BLOB NOT NULL)",
                         nullptr, nullptr, nullptr));
    }

    void Add(const std::wstring& name, const std::wstring& data) {
        UniqueDatabase database = Open(SQLITE_OPEN_READWRITE);
        Check(sqlite3_exec(database.get(), "PRAGMA synchronous=FULL", nullptr, nullptr, nullptr));
        UniqueStatement statement;
        Check(sqlite3_prepare_v2(database.get(),
                                 "INSERT INTO streams(name, data) VALUES(?1, ?2) "
                                 "ON CONFLICT(name) DO UPDATE SET data=excluded.data",
                                 -1, statement.put(), nullptr));
        Bind(statement, 1, name);
        Bind(statement, 2, data);
        if (sqlite3_step(statement.get()) != SQLITE_DONE)
            throw std::runtime_error("SQLite did not add");
    }

    bstr Get(const std::wstring& name) {
        UniqueDatabase database = Open(SQLITE_OPEN_READONLY);
        UniqueStatement statement;
        Check(
            sqlite3_prepare_v2(database.get(), "SELECT data FROM streams WHERE name=?1", -1, statement.put(), nullptr));
        Bind(statement, 1, name);
        if (sqlite3_step(statement.get()) != SQLITE_ROW)
            throw std::runtime_error("SQLite found nothing");
        bstr data;
        *data.put() = SysAllocStringByteLen(static_cast<const char*>(sqlite3_column_blob(statement.get(), 0)),
                                            static_cast<UINT>(sqlite3_column_bytes(statement.get(), 0)));
        return data;
    }

  private:
    UniqueDatabase Open(int flags) {
        UniqueDatabase database;
        Check(sqlite3_open_v2(file_.c_str(), database.put(), flags | SQLITE_OPEN_NOMUTEX, nullptr));
        // A raw key of 32 bytes, as in archives: there is no key derivation.
        const std::string key = "raw:" + std::string(32, 'k');
        Check(sqlite3_key(database.get(), key.data(), static_cast<int>(key.size())));
        return database;
    }
    static void Bind(const UniqueStatement& statement, int position, const std::wstring& text) {
        const auto size = static_cast<int>(text.size() * sizeof(wchar_t));
        Check(sqlite3_bind_blob(statement.get(), position, text.data(), size, SQLITE_STATIC));
    }

    std::string file_;
};

std::wstring Content() {
    std::wstring content = L"<Data>";
    for (unsigned value = 1; content.size() < STREAM_CHARACTERS; value = value * 1103515245 + 12345)
        content += L"<V>" + std::to_wstring(value >> 8) + L"</V>";
    content.resize(STREAM_CHARACTERS);
    return content;
}

} // namespace

VORNA_BENCH(Storage) {
    support::RegisterPlatform();
    support::TestFolder folder;
    const std::wstring content = Content();
    BareStore bare(folder.Path() / "bare");
    const bstr managed((folder.Path() / "managed").wstring());
    const std::wstring accessed = (folder.Path() / "accessed").wstring();
    com_ptr<ISecureArchiveManager> manager;
    bench::Require(CoCreateInstance(__uuidof(ZEBSecureArchiveManager), nullptr, CLSCTX_INPROC_SERVER,
                                    __uuidof(ISecureArchiveManager), manager.put_void()),
                   "the archive manager");

    // Each store counts its own streams, so that all of them have the same size.
    int added[3] = {};
    const auto next = [&](int store) { return L"2026-11-22T14_5_" + std::to_wstring(++added[store]); };
    const auto adds = bench::Measure(
        {{"bare", [&] { bare.Add(next(0), content); }},
         {"manager",
          [&] {
              bench::Require(manager->put_Archive(managed.get()), "put_Archive");
              bench::Require(manager->AddStream(bstr(next(1)).get(), bstr(content).get(), 0), "AddStream");
          }},
         {"accessor",
          [&] {
              SamAccessor accessor(accessed, next(2));
              bench::Require(accessor.addStreamToArchive(content), "addStreamToArchive");
          }}},
        {.operations = 10, .rounds = 21});

    int read[3] = {};
    const auto some = [&](int store) {
        return L"2026-11-22T14_5_" + std::to_wstring(++read[store] * 7 % added[store] + 1);
    };
    const auto check = [&](const bstr& data) {
        if (data.view().size() != content.size())
            throw std::runtime_error("read something else");
    };
    const auto reads =
        bench::Measure({{"bare", [&] { check(bare.Get(some(0))); }},
                        {"manager",
                         [&] {
                             bstr data;
                             bench::Require(manager->put_Archive(managed.get()), "put_Archive");
                             bench::Require(manager->GetStream(bstr(some(1)).get(), 0, data.put()), "GetStream");
                             check(data);
                         }},
                        {"accessor",
                         [&] {
                             bstr data;
                             SamAccessor accessor(accessed, some(2));
                             bench::Require(accessor.getStreamFromArchive(data), "getStreamFromArchive");
                             check(data);
                         }}},
                       {.operations = 50, .rounds = 21});

    const struct {
        const char* what;
        const std::vector<double>& times;
    } operations[] = {{"durable add", adds}, {"read", reads}};
    for (const auto& [what, times] : operations) {
        const std::string operation = what;
        report.Figure(operation + ", bare SQL", times[0] / 1000, "us");
        report.Figure(operation + ", manager", times[1] / 1000, "us");
        report.Figure(operation + ", accessor made for it", times[2] / 1000, "us");
        report.AtMost(operation + ", manager to bare SQL", times[1] / times[0], GOAL, "times");
        report.AtMost(operation + ", accessor to bare SQL", times[2] / times[0], GOAL, "times");
    }
}
