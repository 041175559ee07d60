#include "tools/ArchiveList.h"

#include "common/com/results.h"
#include "common/com/unique_any.h"
#include "persist/SubscriptionPersistance.h"
#include "src/SubscriptionInfo.h"
#include "subscription/archive/SubscriptionArchive.h"
#include "tools/Columns.h"
#include "tools/Components.h"

#include <algorithm>
#include <cwctype>

namespace vornactl {

namespace {

using namespace vorna;

constexpr wchar_t READING[] = L"reading the list of archives";

// The files of both archives, journals included.
std::uint64_t BytesOnDisk(const SubscriptionArchive& archive) {
    std::uint64_t bytes = 0;
    for (const std::wstring& path : {archive.ConfigPath(), archive.SnapShotsPath()}) {
        WIN32_FIND_DATAW entry;
        unique_find search(FindFirstFileW((path + L"*").c_str(), &entry));
        if (!search)
            continue;
        do
            bytes += std::uint64_t{entry.nFileSizeHigh} << 32 | entry.nFileSizeLow;
        while (FindNextFileW(search.get(), &entry));
    }
    return bytes;
}

std::wstring PaddedDate(const std::wstring& text) {
    unsigned year, month, day, hour, minute, second;
    if (swscanf(text.c_str(), L"%u-%u-%uT%u:%u:%u", &year, &month, &day, &hour, &minute, &second) != 6)
        return text;
    wchar_t padded[80];
    swprintf(padded, std::size(padded), L"%04u-%02u-%02u %02u:%02u:%02u", year, month, day, hour, minute, second);
    return padded;
}

const wchar_t* StateText(ArchiveState state) {
    return state == ArchiveState::Active ? L"active" : state == ArchiveState::Aged ? L"aged" : L"ended";
}

std::wstring Awaited(const std::wstring& subscriptionDocument) {
    const SubscriptionInfo info(subscriptionDocument);
    std::wstring text;
    if (const TimerInfo* timer = info.TimerEvent()) {
        text = L"every " + FormatDuration(timer->frequency);
    } else if (const KROEventInfo* event = info.KROEvent()) {
        text = L"event " + event->name;
        for (const EventFilter& filter : event->filters)
            if (!filter.name.empty())
                text += L", " + filter.name + L"=" + filter.value;
    } else if (const XDMEventInfo* changes = info.XDMEvent()) {
        for (const DataModelEvent& change : changes->events) {
            text += text.empty() ? L"" : L"; ";
            text += change.trigger.empty() ? L"change of " + change.xpath : change.xpath + L" when " + change.trigger;
        }
    }
    // Without line breaks: an archive is one line of the list.
    std::replace_if(
        text.begin(), text.end(), [](wchar_t letter) { return std::iswcntrl(letter) != 0; }, L' ');
    return text;
}

ArchiveEntry ReadArchive(SubscriptionPersistance& persistance, const SubscriptionListEntry& record) {
    ArchiveEntry archive;
    archive.archiveId = record.clientCookie.substr(record.clientCookie.find_last_of(L'\\') + 1);
    archive.service = ServiceOf(record.clientCookie);
    archive.endDate = PaddedDate(record.endDate);
    archive.state = !record.valid ? ArchiveState::Ended : record.aged ? ArchiveState::Aged : ArchiveState::Active;
    const SubscriptionArchive files(ArchiveDirectory(archive.service), record.subscriptionId);
    archive.bytes = BytesOnDisk(files);
    if (!record.valid)
        return archive;
    SubscriptionRecord whole;
    const HRESULT result = persistance.GetSubscription(record.subscriptionId, whole);
    if (result == S_OK) {
        archive.snapshots = whole.snapShots.size();
        archive.awaited = Awaited(whole.subscriptionText);
    } else {
        archive.problem = Failure(result, L"reading the archive " + archive.archiveId + L" of " + archive.service,
                                  L"Its configuration cannot be read: " + files.ConfigPath());
    }
    return archive;
}

} // namespace

std::wstring ServiceOf(std::wstring_view clientCookie) {
    const size_t split = clientCookie.find_last_of(L'\\');
    return std::wstring(clientCookie.substr(0, split == clientCookie.npos ? 0 : split));
}

SubscriptionList ReadRecords(SubscriptionPersistance& persistance) {
    SubscriptionList list;
    const HRESULT result = persistance.GetSubscriptionsList(list);
    // Without valid subscriptions the list is still complete.
    if (result != S_OK && result != RESULT_NO_SUBSCRIPTION)
        throw Failure(result, READING, L"The record of all archives cannot be read: " + RecordFile());
    return list;
}

std::vector<ArchiveEntry> ReadArchives(bool withEnded) {
    RequireComponent(READING);
    SubscriptionPersistance persistance;
    std::vector<ArchiveEntry> archives;
    for (const SubscriptionListEntry& record : ReadRecords(persistance))
        if (record.valid || withEnded)
            archives.push_back(ReadArchive(persistance, record));
    return archives;
}

std::vector<std::wstring> FormatArchives(const std::vector<ArchiveEntry>& archives) {
    std::vector<std::vector<std::wstring>> rows{
        {L"ARCHIVE", L"SERVICE", L"STATE", L"ENDS", L"SNAPSHOTS", L"KB", L"WAITS FOR"}};
    for (const ArchiveEntry& archive : archives)
        rows.push_back({archive.archiveId, archive.service, StateText(archive.state),
                        archive.endDate.empty() ? L"-" : archive.endDate,
                        archive.snapshots ? std::to_wstring(*archive.snapshots)
                        : archive.problem ? L"?"
                                          : L"-",
                        std::to_wstring((archive.bytes + 1023) / 1024),
                        archive.awaited.empty() ? L"-" : archive.awaited});
    return AlignColumns(rows, {4, 5});
}

} // namespace vornactl
