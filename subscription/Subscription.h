// One archive of one service: its registration with the platform, its captures, its limits, its retrieval.
//
// Create a new object for each request or callback; it has no state that is not also on disk. One thread. Several
// objects, also in other processes, may work on the same subscription: the locks of persist/ serialise them.
// No operation throws, except that HandleSetData and the two operations on service objects throw processor_fault after
// a processor fault in a service object.
#pragma once

#include "QXKeldan.h"
#include "common/com/com_ptr.h"
#include "common/text/CPWStringBuffer.h"
#include "persist/SubscriptionPersistance.h"
#include "src/SubscriptionInfo.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vorna {

// The operations of HandleSetData.
enum class SetDataOperation : unsigned { Register = 0, Modify = 1, Unregister = 2 };

// The identity of a service and its normalised document.
struct ServiceAttributes {
    std::wstring serviceId;
    std::wstring serviceURI;
    std::wstring portID;
    std::wstring serviceXml;
};

class SamAccessor;
class Sender;

class Subscription {
  public:
    // A new subscription. clientCookie: service path, backslash, archive ID.
    Subscription(SubscriptionInfo info, std::wstring clientCookie);
    // A recorded subscription.
    explicit Subscription(SubscriptionRecord record);

    // Not S_OK if the subscription document is not valid.
    HRESULT Status() const { return info_.Status(); }
    const SubscriptionInfo& Info() const { return info_; }
    // Replaces the settings before a modification.
    void SetSubscriptionInfo(SubscriptionInfo info);

    // Registers, modifies or ends the subscription with the platform and in the persist document. On failure errorText
    // says what failed. 0x800700B7 (ERROR_ALREADY_EXISTS): another client has registered the archive meanwhile.
    [[nodiscard]] HRESULT HandleSetData(IUnknown* service, SetDataOperation operation, CPWStringBuffer& errorText);

    // Whether this result of GetSubscription means that the archive of the record is damaged or missing.
    [[nodiscard]] static bool IsBeyondReading(HRESULT result, const SubscriptionRecord& record);
    // Ends such a subscription. Its sender is unknown, so the registration remains until its next callback ends it.
    [[nodiscard]] HRESULT EndUnread(CPWStringBuffer& errorText);

    // Captures a snapshot for a callback.
    [[nodiscard]] HRESULT HandleCallBack(std::wstring_view callbackXml);

    // Whether the end date has been reached; false if the text is not a date.
    [[nodiscard]] static bool HasReachedEnd(std::wstring_view endDate);
    // Unregisters an event-manager subscription that has reached this end date and marks it as aged. S_FALSE: its end
    // date has changed meanwhile, and it is registered. A failure to unregister is only logged.
    [[nodiscard]] HRESULT UnregisterAged(std::wstring_view endDate);
    // Registers an event-manager subscription again if the event manager no longer knows it. Its end date and its
    // snapshots are kept. S_FALSE: it is still registered.
    [[nodiscard]] HRESULT RestoreRegistration();

    // Returns all snapshots in one document, each reduced to the nodes that xpath selects, and marks the returned ones
    // as read. Prefixes in xpath are those that the archived documents declare; prefixes is ignored. result is set on
    // success only.
    [[nodiscard]] HRESULT HandleGetData(std::wstring_view xpath, std::wstring_view prefixes, BSTR* result,
                                        CPWStringBuffer& errorText);

    // Reads the seven attributes. The three identity attributes must exist and be usable as folder names and, without
    // escaping, in the persist document.
    [[nodiscard]] static HRESULT GetServiceObjectAttributes(IUnknown* service, ServiceAttributes& attributes,
                                                            CPWStringBuffer& errorText);
    // serviceId\serviceURI\portID. 0x80000142 if the service object is not valid.
    [[nodiscard]] static HRESULT GetPathFromServiceObjectAttributes(IUnknown* service, std::wstring& path);

    // Records one capture, stores it and applies the limits. data: the complete XML text. placement: the Id if its
    // second has a snapshot already.
    [[nodiscard]] HRESULT
    AddSnapShotToArchive(std::wstring_view data,
                         SnapShotIndex::Placement placement = SnapShotIndex::Placement::SameSecond);
    void AddToSnapShotList(const SnapShot& snapShot) { record_.snapShots.push_back(snapShot); }

    // Removes the snapshots whose lifetime has ended. 1 on success, 0 on failure.
    [[nodiscard]] int DeleteTheAgedFilesFromArchive();
    // Applies the storage limit: removes the oldest snapshots until the archive is below a limit in kilobytes, or one
    // snapshot if there are more files than allowed.
    [[nodiscard]] HRESULT CheckForArchiveOverflow();
    // 1 if a snapshot was removed, 0 otherwise.
    [[nodiscard]] int DeleteTheOldestFileFromArchive();

    // The schedule of the component's own ten-minute timer. 0 on success.
    [[nodiscard]] static HRESULT GetMaintainanceTimerInfo(std::wstring& schedule);
    // Registers this timer; maintenanceId is its ID.
    [[nodiscard]] static HRESULT RegisterforMaintananceEvent(std::wstring& maintenanceId);

  private:
    HRESULT HandleSetDataforTimerEvent(SetDataOperation operation, CPWStringBuffer& errorText);
    HRESULT HandleSetDataforKROEvent(SetDataOperation operation, CPWStringBuffer& errorText);
    HRESULT HandleSetDataforXDMEvent(SetDataOperation operation, CPWStringBuffer& errorText);
    HRESULT HandleSetDataWith(Sender& sender, SetDataOperation operation, CPWStringBuffer& errorText);
    HRESULT Register(Sender& sender, CPWStringBuffer& errorText);
    HRESULT Modify(Sender& sender, CPWStringBuffer& errorText);
    HRESULT SubscribeAnew(Sender& sender, std::wstring_view oldId, std::wstring& id, CPWStringBuffer& errorText);
    HRESULT MakeRecord(Sender& sender, std::wstring& maintenanceId, CPWStringBuffer& errorText);
    void UndoRegistration(Sender& sender, std::wstring_view maintenanceId);
    HRESULT RecordModification(Sender& sender, CPWStringBuffer& errorText);
    HRESULT Renew(Sender& sender, RegistrationKind kind, CPWStringBuffer& errorText);
    HRESULT Unregister(Sender& sender, CPWStringBuffer& errorText);
    HRESULT DeleteRecordAndArchives(CPWStringBuffer& errorText);
    HRESULT GatherFirstData(std::wstring& data);
    std::wstring RecordedClientId();

    // Removes this subscription's archives, and the service's folder if no other subscription has archives in it.
    void RemoveBaseDir();
    bool CreateBaseDir();

    HRESULT Capture(const DataSource& source, std::wstring_view callbackXml);
    HRESULT HandleCallbackforXDMData(std::wstring_view xpath, std::wstring_view argument);
    HRESULT HandleCallbackforEventPayloadData(std::wstring_view callbackXml, std::wstring_view xpath,
                                              std::wstring_view transformFile);
    static HRESULT CreateAggregator(com_ptr<IAggregator>& aggregator);
    static HRESULT GetDataFrom(IAggregator& aggregator, IUnknown* service, std::wstring_view xpath,
                               std::wstring_view argument, std::wstring& data);
    HRESULT StoreSnapShot(const SubscriptionArchive& archive, const SnapShot& snapShot, bool added,
                          std::wstring_view data);
    bool IsExpired(const SnapShot& snapShot) const;
    int RemoveAged(const SubscriptionArchive& archive, SnapShotIndex& index, const std::vector<std::wstring>& ids);
    HRESULT CheckForArchiveOverflow(bool& overflows);
    HRESULT RemoveUntilBelow(std::uint64_t limit);
    HRESULT CollectSnapShots(std::wstring_view xpath, CPWStringBuffer& document, std::vector<SnapShot>& contributed,
                             CPWStringBuffer& errorText);
    bool ReadSnapShot(SamAccessor& archive, std::wstring_view snapShotId, bstr& data, HRESULT& result);

    SubscriptionRecord record_;
    SubscriptionInfo info_;
    com_ptr<IUnknown> service_;
    SubscriptionPersistance persistance_;
};

} // namespace vorna
