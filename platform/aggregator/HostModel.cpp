#include "platform/aggregator/HostModel.h"

#include "common/com/unique_any.h"
#include "common/xml/XmlEscape.h"

#include <psapi.h>
#include <tlhelp32.h>

#include <algorithm>
#include <cwchar>
#include <iterator>

namespace keldan {

namespace {

std::uint64_t Ticks(const FILETIME& time) {
    return static_cast<std::uint64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
}

void AppendElement(std::wstring& markup, std::wstring_view name, std::wstring_view text, std::wstring_view unit = {}) {
    markup.append(L"<").append(name);
    if (!unit.empty())
        markup.append(L" Unit=\"").append(unit).append(L"\"");
    markup.append(L">");
    vorna::AppendEscaped(markup, vorna::DropForbidden(text));
    markup.append(L"</").append(name).append(L">");
}

void AppendBytes(std::wstring& markup, std::wstring_view name, std::uint64_t bytes) {
    AppendElement(markup, name, std::to_wstring(bytes), L"bytes");
}

std::wstring IsoTime(const SYSTEMTIME& time) {
    wchar_t text[64];
    swprintf(text, std::size(text), L"%04u-%02u-%02uT%02u:%02u:%02u", time.wYear, time.wMonth, time.wDay, time.wHour,
             time.wMinute, time.wSecond);
    return text;
}

void AppendName(std::wstring& markup) {
    wchar_t name[256];
    DWORD length = static_cast<DWORD>(std::size(name));
    AppendElement(markup, L"Name", GetComputerNameExW(ComputerNameDnsHostname, name, &length) ? name : L"");
}

void AppendTime(std::wstring& markup) {
    SYSTEMTIME utc{};
    SYSTEMTIME local{};
    GetSystemTime(&utc);
    if (!SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local))
        GetLocalTime(&local);
    markup.append(L"<Time Utc=\"").append(IsoTime(utc)).append(L"Z\">").append(IsoTime(local)).append(L"</Time>");
}

void AppendMemory(std::wstring& markup) {
    MEMORYSTATUSEX memory{};
    memory.dwLength = sizeof memory;
    if (!GlobalMemoryStatusEx(&memory))
        return;
    markup.append(L"<Memory>");
    AppendBytes(markup, L"Total", memory.ullTotalPhys);
    AppendBytes(markup, L"Available", memory.ullAvailPhys);
    AppendElement(markup, L"Load", std::to_wstring(memory.dwMemoryLoad), L"percent");
    markup.append(L"</Memory>");
}

void AppendDisks(std::wstring& markup) {
    // Reports a drive without a medium as missing instead of showing a dialog.
    DWORD modeBefore = 0;
    SetThreadErrorMode(SEM_FAILCRITICALERRORS, &modeBefore);
    markup.append(L"<Disks>");
    const DWORD drives = GetLogicalDrives();
    for (int i = 0; i < 26; ++i) {
        if (!(drives >> i & 1))
            continue;
        const std::wstring drive = {static_cast<wchar_t>(L'A' + i), L':'};
        const std::wstring root = drive + L"\\";
        // Network drives are omitted: a server that does not answer would delay the whole model.
        const UINT type = GetDriveTypeW(root.c_str());
        if (type != DRIVE_FIXED && type != DRIVE_RAMDISK && type != DRIVE_REMOVABLE)
            continue;
        ULARGE_INTEGER total{};
        ULARGE_INTEGER available{};
        if (!GetDiskFreeSpaceExW(root.c_str(), nullptr, &total, &available))
            continue;
        markup.append(L"<Disk Drive=\"").append(drive).append(L"\">");
        AppendBytes(markup, L"Total", total.QuadPart);
        AppendBytes(markup, L"Free", available.QuadPart);
        markup.append(L"</Disk>");
    }
    markup.append(L"</Disks>");
    SetThreadErrorMode(modeBefore, nullptr);
}

void AppendProcessMemory(std::wstring& markup, DWORD id) {
    const vorna::unique_handle process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, id));
    PROCESS_MEMORY_COUNTERS counters{};
    if (process && GetProcessMemoryInfo(process.get(), &counters, sizeof counters))
        AppendBytes(markup, L"Memory", counters.WorkingSetSize);
}

void AppendProcesses(std::wstring& markup) {
    const vorna::unique_file snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    std::wstring processes;
    unsigned count = 0;
    for (bool more = snapshot && Process32FirstW(snapshot.get(), &entry); more;
         more = Process32NextW(snapshot.get(), &entry)) {
        ++count;
        processes.append(L"<Process Id=\"").append(std::to_wstring(entry.th32ProcessID)).append(L"\">");
        AppendElement(processes, L"Name", entry.szExeFile);
        AppendElement(processes, L"Threads", std::to_wstring(entry.cntThreads));
        AppendProcessMemory(processes, entry.th32ProcessID);
        processes.append(L"</Process>");
    }
    markup.append(L"<Processes Count=\"").append(std::to_wstring(count)).append(L"\">");
    markup.append(processes).append(L"</Processes>");
}

DWORD ProcessorCount() {
    SYSTEM_INFO system{};
    GetNativeSystemInfo(&system);
    return system.dwNumberOfProcessors;
}

} // namespace

HostModel::HostModel() {
    BusyPercent();
}

unsigned HostModel::BusyPercent() {
    FILETIME idle{};
    FILETIME kernel{};
    FILETIME user{};
    const std::lock_guard lock(mutex_);
    if (!GetSystemTimes(&idle, &kernel, &user))
        return busy_;
    // The kernel time includes the idle time.
    const std::uint64_t total = Ticks(kernel) + Ticks(user);
    const std::uint64_t idleNow = Ticks(idle);
    // Within one tick of the clock the previous figure is still valid.
    if (total > totalBefore_ && idleNow >= idleBefore_) {
        const std::uint64_t elapsed = total - totalBefore_;
        const std::uint64_t idled = std::min(idleNow - idleBefore_, elapsed);
        busy_ = static_cast<unsigned>((elapsed - idled) * 100 / elapsed);
    }
    idleBefore_ = idleNow;
    totalBefore_ = total;
    return busy_;
}

std::wstring HostModel::Compute() {
    std::wstring markup = L"<Host>";
    AppendName(markup);
    AppendTime(markup);
    AppendMemory(markup);
    AppendDisks(markup);
    markup.append(L"<Processors Count=\"").append(std::to_wstring(ProcessorCount())).append(L"\">");
    AppendElement(markup, L"Busy", std::to_wstring(BusyPercent()), L"percent");
    markup.append(L"</Processors>");
    AppendProcesses(markup);
    markup.append(L"</Host>");
    return markup;
}

} // namespace keldan
