// Archive files that no subscription uses any more: a crash, or a sender that refused to end a registration, has left
// them. They are found by name: config_<ID> and snapshot_<ID> in a service's folder, if no valid record has this ID.
//
// Needs COM on the thread. If the records cannot be read, every operation throws Failure and nothing is removed.
#pragma once

#include "tools/Failure.h"

#include <cstdint>
#include <string>
#include <vector>

namespace vornactl {

struct OrphanedArchive {
    // serviceId\serviceURI\portID.
    std::wstring service;
    std::wstring subscriptionId;
    // Full paths; a journal comes after its archive.
    std::vector<std::wstring> files;
    std::uint64_t bytes = 0;
    // Of the file that changed last: 100 nanoseconds since 1601, UTC.
    std::uint64_t lastChange = 0;
};

struct OrphanSearch {
    // In order of service and ID.
    std::vector<OrphanedArchive> archives;
    // False if there is no record of any archive; then every archive on disk is in the list.
    bool recordExists = false;
};
OrphanSearch FindOrphans();

// The text of the failure of a removal without any record.
inline constexpr wchar_t NO_RECORD[] =
    L"There is no record of the archives, so any of them may be in use. Nothing was removed.";

struct OrphanRemoval {
    // Files and folders, in the order of their removal.
    std::vector<std::wstring> removed;
    // Changed within the last ten minutes, so that they may belong to a registration that has no record yet.
    std::vector<OrphanedArchive> recent;
    // For each archive, why a file of it and all later ones are still there.
    std::vector<Failure> problems;
};
// Removes the files of all orphaned archives that have not changed for ten minutes, and the folders that are empty
// then. Waits for registrations and renewals that are under way.
OrphanRemoval RemoveOrphans();

// One line for the heading and one for each archive, columns aligned.
std::vector<std::wstring> FormatOrphans(const std::vector<OrphanedArchive>& archives);

} // namespace vornactl
