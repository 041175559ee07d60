// Where a subscription's data lies: two archives in the service's folder, both named after the subscription's ID.
#pragma once

#include "common/services/Directories.h"

#include <string>
#include <string_view>

namespace vorna {

// The name of the lock that guards both archives of a subscription.
inline std::wstring ArchiveLockName(std::wstring_view subscriptionId) {
    return L"\\config_" + std::wstring(subscriptionId);
}

// The configuration archive: the snapshot index and the subscription document.
inline std::wstring ConfigArchivePath(std::wstring_view directory, std::wstring_view subscriptionId) {
    return std::wstring(directory) + L"\\config_" + std::wstring(subscriptionId);
}

// The snapshot archive: one stream a snapshot.
inline std::wstring SnapshotArchivePath(std::wstring_view directory, std::wstring_view subscriptionId) {
    return std::wstring(directory) + L"\\snapshot_" + std::wstring(subscriptionId);
}

inline std::wstring SnapShotInfoStream(std::wstring_view subscriptionId) {
    return std::wstring(subscriptionId) + L"_SnapShotInfo";
}

inline std::wstring SubscriptionStream(std::wstring_view subscriptionId) {
    return std::wstring(subscriptionId) + L"_Subscription";
}

// The folder of a service's archives, without a backslash at its end. servicePath: serviceId\serviceURI\portID.
inline std::wstring ArchiveDirectory(std::wstring_view servicePath) {
    return VORNAUTILITY::GetComponentDirectory() + L"Archives\\" + std::wstring(servicePath);
}

} // namespace vorna
