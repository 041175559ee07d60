#include "tools/Commands.h"

#include "tools/ArchiveClient.h"
#include "tools/ArchiveList.h"
#include "tools/Console.h"
#include "tools/DataModel.h"
#include "tools/EventClient.h"
#include "tools/ModuleRegistration.h"
#include "tools/OrphanedArchives.h"
#include "tools/SubscriptionFile.h"
#include "tools/TextFile.h"

namespace vornactl {

namespace {

const Option SERVICE{L"--service", L"FILE", true};
const Option OUTPUT{L"--output", L"FILE"};

std::filesystem::path ModuleFolder(const CommandLine& line) {
    if (line.Word(0).empty())
        return ProgramFolder();
    std::error_code failed;
    const auto folder = std::filesystem::absolute(line.Word(0), failed);
    return failed ? std::filesystem::path(line.Word(0)) : folder;
}

ExitCode Register(const CommandLine& line) {
    RegisterModules(ModuleFolder(line));
    return ExitCode::Done;
}

ExitCode Unregister(const CommandLine& line) {
    UnregisterModules(ModuleFolder(line));
    return ExitCode::Done;
}

ExitCode Subscribe(const CommandLine& line) {
    const std::wstring file = line.Word(0);
    const std::wstring document = ReadSubscription(file);
    ArchiveClient(line.Value(SERVICE.name)).SetData(document, L"subscribing " + file);
    const SubscriptionSummary summary = Summarise(document);
    Console::Line(L"archive " + summary.archiveId + (summary.collect ? L": collecting" : L": ended"));
    return ExitCode::Done;
}

ExitCode Unsubscribe(const CommandLine& line) {
    const std::wstring id = line.Word(0);
    ArchiveClient(line.Value(SERVICE.name)).SetData(EndingDocument(id), L"unsubscribing " + id);
    Console::Line(L"archive " + id + L": ended");
    return ExitCode::Done;
}

// Writes to the file that --output names, or to standard output.
ExitCode WriteOutput(const CommandLine& line, const std::wstring& document) {
    if (line.Has(OUTPUT.name))
        WriteDocument(line.Value(OUTPUT.name), document + L"\n");
    else
        Console::Line(document);
    return ExitCode::Done;
}

ExitCode Get(const CommandLine& line) {
    return WriteOutput(line, ArchiveClient(line.Value(SERVICE.name)).GetData(line.Word(0), line.Value(L"--prefixes")));
}

ExitCode List(const CommandLine& line) {
    const std::vector<ArchiveEntry> archives = ReadArchives(line.Has(L"--all"));
    if (archives.empty()) {
        Console::Line(L"no archives");
        return ExitCode::Done;
    }
    for (const std::wstring& row : FormatArchives(archives))
        Console::Line(row);
    ExitCode result = ExitCode::Done;
    for (const ArchiveEntry& archive : archives)
        if (archive.problem) {
            Console::Show(*archive.problem);
            result = ExitCode::Failed;
        }
    return result;
}

constexpr wchar_t NO_ORPHANS[] = L"no orphaned archives";

ExitCode RemoveAllOrphans() {
    const OrphanRemoval removal = RemoveOrphans();
    for (const std::wstring& path : removal.removed)
        Console::Line(L"removed: " + path);
    for (const OrphanedArchive& archive : removal.recent)
        Console::Line(L"not removed, because it changed less than ten minutes ago: " + archive.subscriptionId +
                      L" of " + archive.service);
    if (removal.removed.empty() && removal.recent.empty() && removal.problems.empty())
        Console::Line(NO_ORPHANS);
    for (const Failure& problem : removal.problems)
        Console::Show(problem);
    return removal.problems.empty() ? ExitCode::Done : ExitCode::Failed;
}

ExitCode Orphans(const CommandLine& line) {
    if (line.Has(L"--remove"))
        return RemoveAllOrphans();
    const OrphanSearch search = FindOrphans();
    if (search.archives.empty()) {
        Console::Line(NO_ORPHANS);
        return ExitCode::Done;
    }
    for (const std::wstring& row : FormatOrphans(search.archives))
        Console::Line(row);
    if (!search.recordExists)
        Console::Line(L"there is no record of the archives, so this list has all that are on disk");
    return ExitCode::Done;
}

ExitCode Raise(const CommandLine& line) {
    const std::wstring name = line.Word(0);
    const std::wstring properties = PropertiesDocument(line.Values(L"--property"));
    const long subscriptions = RaiseEvent(name, properties, line.Value(L"--payload"));
    Console::Line(L"event " + name +
                  (subscriptions == 0   ? L": no subscription waits for it"
                   : subscriptions == 1 ? L": queued for 1 subscription"
                                        : L": queued for " + std::to_wstring(subscriptions) + L" subscriptions"));
    return ExitCode::Done;
}

ExitCode ModelPut(const CommandLine& line) {
    Console::Line(L"data model written: " + PutModel(line.Word(0), line.Word(1)));
    return ExitCode::Done;
}

ExitCode ModelShow(const CommandLine& line) {
    return WriteOutput(line, GetModel(line.Word(0)));
}

ExitCode Help(const CommandLine&);

struct Command {
    // One word, or two with a space between them.
    const wchar_t* name;
    Syntax syntax;
    ExitCode (*run)(const CommandLine&);
    const wchar_t* summary;
};

const std::vector<Command>& AllCommands() {
    static const std::vector<Command> commands{
        {L"register",
         {{L"FOLDER"}, 0, {}},
         Register,
         L"register Vorna.dll, QXKeldan.dll and QXKeldanHost.exe of a folder (this program's if none is named)"},
        {L"unregister", {{L"FOLDER"}, 0, {}}, Unregister, L"the reverse; archives stay on disk"},
        {L"subscribe",
         {{L"FILE"}, 1, {SERVICE}},
         Subscribe,
         L"hand in the subscription document FILE for the service of the service document; a relative TransformFile in it is looked for in the folder of FILE"},
        {L"unsubscribe",
         {{L"ID"}, 1, {SERVICE}},
         Unsubscribe,
         L"end the archive ID of the service and delete its data"},
        {L"get",
         {{L"XPATH"}, 1, {SERVICE, OUTPUT, {L"--prefixes", L"TEXT"}}},
         Get,
         L"read an archive, as /Archive[@ID='...']/path; what is read begins its lifetime after read"},
        {L"list",
         {{}, 0, {{L"--all"}}},
         List,
         L"show all archives: state, end date, snapshots, kilobytes on disk, what they wait for; --all: also those that ended"},
        {L"orphans",
         {{}, 0, {{L"--remove"}}},
         Orphans,
         L"show archives on disk that no subscription uses any more; --remove: delete their files, except those that changed less than ten minutes ago"},
        {L"raise",
         {{L"NAME"}, 1, {{.name = L"--property", .value = L"NAME=VALUE", .repeated = true}, {L"--payload", L"FILE"}}},
         Raise,
         L"raise the event NAME at the event manager, with properties and with the XML document FILE as its payload"},
        {L"model put",
         {{L"SERVICE", L"FILE"}, 2, {}},
         ModelPut,
         L"store the XML document FILE as the data model of the service in the service document SERVICE"},
        {L"model show",
         {{L"SERVICE"}, 1, {OUTPUT}},
         ModelShow,
         L"show the data model, stored or live, of the service in the service document SERVICE"},
        {L"help", {}, Help, L"show this text"},
    };
    return commands;
}

std::wstring Usage(const Command& entry) {
    std::wstring usage = L"vornactl " + std::wstring(entry.name);
    for (size_t i = 0; i < entry.syntax.words.size(); ++i) {
        const std::wstring word = entry.syntax.words[i];
        usage += i < entry.syntax.mandatoryWords ? L" " + word : L" [" + word + L"]";
    }
    for (const Option& each : entry.syntax.options) {
        const std::wstring text = each.name + (each.value ? L" " + std::wstring(each.value) : std::wstring());
        usage += each.mandatory ? L" " + text : L" [" + text + L"]";
        if (each.repeated)
            usage += L"...";
    }
    return usage;
}

ExitCode Help(const CommandLine&) {
    Console::Line(L"vornactl: archives of device data, from the command line");
    for (const Command& entry : AllCommands()) {
        Console::Line(L"");
        Console::Line(L"  " + Usage(entry));
        Console::Line(L"      " + std::wstring(entry.summary));
    }
    Console::Line(L"");
    Console::Line(L"Documents are UTF-8 or UTF-16 files. Exit codes: 0 done, 1 refused or failed, 2 wrong usage.");
    return ExitCode::Done;
}

const Command& Choose(std::span<const std::wstring> arguments) {
    std::wstring name = arguments.front();
    if (name == L"--help" || name == L"-h" || name == L"/?")
        name = L"help";
    const std::wstring both = arguments.size() > 1 ? name + L" " + arguments[1] : name;
    std::wstring longer;
    for (const Command& entry : AllCommands()) {
        const std::wstring_view known = entry.name;
        if (known == name || known == both)
            return entry;
        if (known.starts_with(name + L" "))
            longer += (longer.empty() ? L"; there is \"" : L", \"") + std::wstring(known) + L"\"";
    }
    throw UsageError{L"unknown command: \"" + (longer.empty() ? name : both) + L"\"" + longer};
}

} // namespace

ExitCode Run(std::span<const std::wstring> arguments) {
    if (arguments.empty())
        throw UsageError{L"no command"};
    const Command& chosen = Choose(arguments);
    const size_t wordsInName = std::wstring_view(chosen.name).find(L' ') == std::wstring_view::npos ? 1 : 2;
    try {
        return chosen.run(CommandLine(arguments.subspan(wordsInName), chosen.syntax));
    } catch (const UsageError& error) {
        throw UsageError{error.message + L"\n  usage: " + Usage(chosen)};
    }
}

} // namespace vornactl
