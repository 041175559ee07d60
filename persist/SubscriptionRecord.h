// The records of subscriptions that SubscriptionPersistance reads and writes.
#pragma once

#include "common/time/DateTime.h"
#include "subscription/archive/SubscriptionArchive.h"

#include <list>
#include <string>
#include <vector>

namespace vorna {

// Why a record is written.
enum class RegistrationKind {
    // A new subscription.
    New,
    // The same registration with new settings; the time of the last registration is kept.
    Modification,
    // A known subscription that was registered with the platform again: its lifetime begins again.
    Renewal,
    // Registered again because the platform had lost the registration: the recorded end date is kept.
    Restoration,
};

// One complete subscription. A value.
struct SubscriptionRecord {
    // Service path, backslash, archive ID; unique among the active subscriptions.
    std::wstring clientCookie;
    // The component's own identifier, unchanged by renewals.
    std::wstring vornaId;
    // The platform's identifier of the registration; names the archives.
    std::wstring subscriptionId;
    // The normalised service document.
    std::wstring serviceXml;
    // The folder of the archives, without a trailing backslash.
    std::wstring archiveDirectory;
    // The subscription document.
    std::wstring subscriptionText;
    // The lifetime of the subscription, from its registration; all zeros: unlimited.
    Duration lifetime;
    RegistrationKind kind = RegistrationKind::New;
    // In order of capture.
    std::vector<SnapShot> snapShots;

    SubscriptionArchive Archive() const { return {archiveDirectory, subscriptionId}; }
};

// One Subscription node of the persist document.
struct SubscriptionListEntry {
    std::wstring subscriptionId;
    std::wstring vornaId;
    std::wstring clientCookie;
    std::wstring serviceXml;
    // Date-times as texts; empty if the node has none.
    std::wstring endDate;
    std::wstring lastSubscriptionTime;
    bool valid = false;
    bool aged = false;
};

using SubscriptionList = std::list<SubscriptionListEntry>;

} // namespace vorna
