// All archives of this machine, read from the component's own records.
#pragma once

#include "persist/SubscriptionPersistance.h"
#include "tools/Failure.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vornactl {

enum class ArchiveState { Active, Aged, Ended };

struct ArchiveEntry {
    std::wstring archiveId;
    // serviceId\serviceURI\portID.
    std::wstring service;
    ArchiveState state = ArchiveState::Active;
    // Local date and time as YYYY-MM-DD hh:mm:ss; empty if it has none.
    std::wstring endDate;
    // Absent for an ended archive, and if the archive could not be read.
    std::optional<size_t> snapshots;
    std::uint64_t bytes = 0;
    // What makes it take a snapshot; empty if snapshots is absent.
    std::wstring awaited;
    // Why the archive could not be read.
    std::optional<Failure> problem;
};

// In the order of their registration. withEnded: also ended ones. Needs COM on the thread; throws Failure.
std::vector<ArchiveEntry> ReadArchives(bool withEnded);

// The records of all subscriptions, ended ones included. Throws Failure.
vorna::SubscriptionList ReadRecords(vorna::SubscriptionPersistance& persistance);
// The service in a client cookie, as in ArchiveEntry.
std::wstring ServiceOf(std::wstring_view clientCookie);

// One line for the heading and one for each archive, columns aligned.
std::vector<std::wstring> FormatArchives(const std::vector<ArchiveEntry>& archives);

} // namespace vornactl
