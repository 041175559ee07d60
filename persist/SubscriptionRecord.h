// What a subscription is on disk: the records that SubscriptionPersistance reads and writes.
#pragma once

#include "common/time/DateTime.h"
#include "subscription/archive/SubscriptionArchive.h"

#include <list>
#include <string>
#include <vector>

namespace vorna {

// How a record comes to be written.
enum class RegistrationKind {
    // A subscription that was not there before.
    New,
    // The same registration with other settings; the time of the last registration is kept.
    Modification,
    // A subscription that is known, registered anew with the platform: its life begins again.
    Renewal,
    // Registered anew because the platform had lost the registration: its life goes on to the end date that stands.
    Restoration,
};

// One subscription, whole. A value.
struct SubscriptionRecord {
    // Service path, backslash, archive ID; unique among the active subscriptions.
    std::wstring clientCookie;
    // The component's own identifier, kept over renewals.
    std::wstring vornaId;
    // The platform's identifier of the registration; names the archives.
    std::wstring subscriptionId;
    // The normalised service document.
    std::wstring serviceXml;
    // The folder of the archives, without a backslash at its end.
    std::wstring archiveDirectory;
    // The subscription document.
    std::wstring subscriptionText;
    // How long the subscription lives from its registration; all zero: without end.
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
    // Texts of date-times; empty where the node has none.
    std::wstring endDate;
    std::wstring lastSubscriptionTime;
    bool valid = false;
    bool aged = false;
};

using SubscriptionList = std::list<SubscriptionListEntry>;

} // namespace vorna
