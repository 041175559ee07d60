// The persist document of all subscriptions and the snapshot index of each.
//
// Every operation stands alone: it takes the lock it needs, reads, changes, writes and gives the lock back on every
// path. Several processes may work on the same archives. One object belongs to one thread.
//
// Results: S_OK; 0x8000012D a document is not well-formed; 0x80000150 the subscription is not in the persist document
// (also where there is no document yet); 0x80000151 no XML accessor; 0x8000015E an unexpected exception; the archive
// manager's own code where an archive is damaged or cannot be reached; E_FAIL otherwise.
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

    // Writes the record as Kind says; the client ID always, the maintenance ID where it is not empty. The end date is
    // now plus the lifetime, except that a new registration keeps one that stands already for its VornaId. When the
    // subscription's own stream cannot be written, a new record is taken back.
    [[nodiscard]] HRESULT AddSubscription(const SubscriptionRecord& record, std::wstring_view clientId,
                                          std::wstring_view maintenanceId);
    // Every node, also the ended ones, in document order. 0x80000150 where none is valid; the list is filled all the
    // same.
    [[nodiscard]] HRESULT GetSubscriptionsList(SubscriptionList& list);
    // key: a subscription ID or a client cookie. The record comes with its snapshot list.
    [[nodiscard]] HRESULT GetSubscription(std::wstring_view key, SubscriptionRecord& record);
    // Marks the node as ended; it stays as a record of the past.
    [[nodiscard]] HRESULT DeleteSubscription(std::wstring_view subscriptionId);
    // Marks the node as aged, where its end date is still the expected one; S_FALSE where it was given another.
    [[nodiscard]] HRESULT SetAgingForSubscription(std::wstring_view subscriptionId, std::wstring_view expectedEndDate);

    // Single values.
    [[nodiscard]] HRESULT GetServiceXML(std::wstring_view subscriptionId, std::wstring& serviceXml);
    [[nodiscard]] HRESULT GetEndDateForSubscription(std::wstring_view vornaId, std::wstring& endDate);
    // The document of a subscription, without the rest of its record.
    [[nodiscard]] HRESULT GetSubscriptionText(const SubscriptionArchive& archive, std::wstring& text);
    [[nodiscard]] bool IsSubscriptionAged(std::wstring_view vornaId);
    [[nodiscard]] HRESULT GetClientID(std::wstring& clientId);
    [[nodiscard]] HRESULT GetMaintainanceID(std::wstring& maintenanceId);
    [[nodiscard]] HRESULT DeleteMaintainanceID();

    // The snapshot index.

    // Adds an entry, or brings the entry of the same Id up to date; 0x800700B7 (ERROR_ALREADY_EXISTS) instead of that
    // if a known Id is refused. 0x80000150: the subscription has ended.
    [[nodiscard]] HRESULT AddSnapShot(const SubscriptionArchive& archive, const SnapShot& snapShot,
                                      SnapShotIndex::Known known = SnapShotIndex::Known::Refresh);
    // Brings the entries of many snapshots up to date in one write; entries that are gone stay gone.
    [[nodiscard]] HRESULT RefreshSnapShots(const SubscriptionArchive& archive, std::span<const SnapShot> snapShots);
    // 1 on success, 0 on failure.
    [[nodiscard]] int DeleteSnapShot(const SubscriptionArchive& archive, std::wstring_view snapShotId);

    // True where a text can stand in the persist document's attributes and in a path to it.
    static bool IsPlainValue(std::wstring_view text);

  private:
    enum class Access { Read, Change };

    // The texts in which the operations differ.
    struct Texts {
        const char* operation;
        const char* loadFailed;
        const char* rootFailed;
        // What stands in for a document that is not there; null: there must be one.
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
