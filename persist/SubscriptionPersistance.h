// The persist document of all subscriptions and the snapshot index of each.
//
// Every operation is self-contained: it acquires the lock that it needs, reads, changes, writes, and releases the lock
// on every path. Several processes may work on the same archives. One object belongs to one thread.
//
// Results: S_OK; 0x8000012D a document is not well-formed; 0x80000150 the subscription is not in the persist document
// (also if there is no document yet); 0x80000151 no XML accessor; 0x8000015E an unexpected exception; the archive
// manager's result if an archive is damaged or not accessible; E_FAIL otherwise.
#pragma once

#include "common/log/CatchAll.h"
#include "common/services/XmlAccessor.h"
#include "persist/GlobalLocks.h"
#include "persist/SubscriptionRecord.h"

#include <span>
#include <string>
#include <string_view>

namespace vorna {

class SubscriptionPersistance {
  public:
    SubscriptionPersistance();

    // Records of subscriptions.

    // Writes the record according to its kind, the client ID and, if it is not empty, the maintenance ID. The end date
    // is now plus the lifetime; New and Restoration keep one that is already recorded for the VornaId, and a lifetime
    // of zero has none. If the subscription's archive cannot be written, a New record is marked as ended.
    [[nodiscard]] HRESULT AddSubscription(const SubscriptionRecord& record, std::wstring_view clientId,
                                          std::wstring_view maintenanceId);
    // Whether there is a persist document. Without one, nothing is known about any subscription.
    [[nodiscard]] bool HasDocument();
    // All nodes, including ended ones, in document order. 0x80000150 if none is active; the list is filled
    // nevertheless.
    [[nodiscard]] HRESULT GetSubscriptionsList(SubscriptionList& list);
    // key: the subscription ID or the client cookie of an active subscription. The record includes the list of
    // snapshots. If the archive cannot be read, the record has the values of the persist document.
    [[nodiscard]] HRESULT GetSubscription(std::wstring_view key, SubscriptionRecord& record);
    // The ID of the active record with this cookie, without a look at its archive.
    [[nodiscard]] HRESULT GetSubscriptionID(std::wstring_view clientCookie, std::wstring& subscriptionId);
    // Marks the node as ended; the node remains.
    [[nodiscard]] HRESULT DeleteSubscription(std::wstring_view subscriptionId);
    // Marks the node as aged if it still has the expected end date; S_FALSE if the end date has changed.
    [[nodiscard]] HRESULT SetAgingForSubscription(std::wstring_view subscriptionId, std::wstring_view expectedEndDate);

    // Single values.
    [[nodiscard]] HRESULT GetServiceXML(std::wstring_view subscriptionId, std::wstring& serviceXml);
    [[nodiscard]] HRESULT GetEndDateForSubscription(std::wstring_view vornaId, std::wstring& endDate);
    // The document of a subscription, without the rest of its record.
    [[nodiscard]] HRESULT GetSubscriptionText(const SubscriptionArchive& archive, std::wstring& text);
    [[nodiscard]] bool IsSubscriptionAged(std::wstring_view vornaId);
    [[nodiscard]] HRESULT GetClientID(std::wstring& clientId);
    [[nodiscard]] HRESULT GetMaintainanceID(std::wstring& maintenanceId);
    // The same; S_FALSE if it is certain that none is recorded.
    [[nodiscard]] HRESULT FindMaintainanceID(std::wstring& maintenanceId);
    [[nodiscard]] HRESULT DeleteMaintainanceID();

    // The snapshot index.

    // Adds an entry, or updates the one of the same Id, as SnapShotIndex::Add does. 0x80000150: the subscription has
    // ended.
    [[nodiscard]] HRESULT AddSnapShot(const SubscriptionArchive& archive, SnapShot& snapShot,
                                      SnapShotIndex::Placement placement = SnapShotIndex::Placement::SameSecond,
                                      bool* added = nullptr);
    // Updates the entries of several snapshots in one write. Snapshots without an entry are ignored.
    [[nodiscard]] HRESULT RefreshSnapShots(const SubscriptionArchive& archive, std::span<const SnapShot> snapShots);
    // 1 on success, 0 on failure.
    [[nodiscard]] int DeleteSnapShot(const SubscriptionArchive& archive, std::wstring_view snapShotId);
    // The same for many, in one write.
    [[nodiscard]] int DeleteSnapShots(const SubscriptionArchive& archive, std::span<const std::wstring> snapShotIds);

    // True if the text needs no escaping in attributes of the persist document and in XPaths.
    static bool IsPlainValue(std::wstring_view text);

  private:
    enum class Access { Read, Change };

    // The texts that differ between the operations.
    struct Texts {
        const char* operation;
        const char* loadFailed;
        const char* rootFailed;
        // Replaces a document that does not exist; null: the operation fails without one.
        const wchar_t* newDocument = nullptr;
        const char* exception = UNKNOWN_EXCEPTION;
    };

    template <typename Work>
    HRESULT Traced(const Texts& texts, Work work);
    template <typename Work>
    HRESULT WithPersistDocument(const Texts& texts, Access access, Work work);
    template <typename Work>
    HRESULT WithIndex(const char* operation, const SubscriptionArchive& archive, Work work);
    HRESULT LoadPersistDocument(const Texts& texts, XmlAccessor& accessor);
    std::wstring PersistArchive() const { return componentDirectory_ + L"Vorna"; }
    HRESULT ReadValue(const Texts& texts, std::wstring_view xpath, const char* failure, std::wstring& value);
    static HRESULT UpdateRecord(XmlAccessor& accessor, const SubscriptionRecord& record, std::wstring_view clientId,
                                std::wstring_view maintenanceId);
    HRESULT FindSubscription(XmlAccessor& accessor, std::wstring_view key, SubscriptionRecord& record);
    HRESULT ReadSubscription(SubscriptionRecord& record);

    unique_handle persistMutex_;
    std::wstring componentDirectory_;
};

} // namespace vorna
