// One archive of one service: its registration with the platform, its captures, its limits, its retrieval.
//
// Made for one request or callback and dropped at its end; it holds nothing that is not on disk too. One thread.
// Several objects, also of other processes, may work on the same subscription: the locks of persist/ serialise them.
// No operation throws, except that a processor fault in a service object leaves HandleSetData and the two operations
// on service objects as processor_fault.
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

// What HandleSetData is asked to do.
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
    // A recorded one.
    explicit Subscription(SubscriptionRecord record);

    // Not S_OK where the subscription document cannot be used.
    HRESULT Status() const { return info_.Status(); }
    const SubscriptionInfo& Info() const { return info_; }
    // The settings that a modification is to bring.
    void SetSubscriptionInfo(SubscriptionInfo info);

    // Registers, modifies or ends the subscription with the platform and in the persist document. On failure errorText
    // says what failed.
    [[nodiscard]] HRESULT HandleSetData(IUnknown* service, SetDataOperation operation, CPWStringBuffer& errorText);

    // Whether GetSubscription failed like this because the archive of the record is damaged or gone.
    [[nodiscard]] static bool IsBeyondReading(HRESULT result, const SubscriptionRecord& record);
    // Ends such a subscription without its sender, which nobody knows any more; its next callback ends the
    // registration.
    [[nodiscard]] HRESULT EndUnread(CPWStringBuffer& errorText);

    // Captures what a callback is about.
    [[nodiscard]] HRESULT HandleCallBack(std::wstring_view callbackXml);

    // Whether the text of an end date has come; false for no date.
    [[nodiscard]] static bool HasReachedEnd(std::wstring_view endDate);
    // Unregisters an event-manager subscription that has reached this end date and marks it as aged. S_FALSE: it was
    // given another end date meanwhile, and is registered.
    [[nodiscard]] HRESULT UnregisterAged(std::wstring_view endDate);
    // Registers an event-manager subscription again where the event manager does not know it any more. Its end date
    // and its snapshots stay. S_FALSE: it was registered.
    [[nodiscard]] HRESULT RestoreRegistration();

    // Every snapshot, cut down to the nodes that xpath selects, in one document; prefixes of the xpath are those that
    // the archived documents declare. What is returned becomes read. result is set on success only.
    [[nodiscard]] HRESULT HandleGetData(std::wstring_view xpath, std::wstring_view prefixes, BSTR* result,
                                        CPWStringBuffer& errorText);

    // Reads the seven attributes. The three identity attributes must be there, and fit to name a folder and to stand
    // in the persist document.
    [[nodiscard]] static HRESULT GetServiceObjectAttributes(IUnknown* service, ServiceAttributes& attributes,
                                                            CPWStringBuffer& errorText);
    // serviceId\serviceURI\portID. 0x80000142 where the service object is not valid.
    [[nodiscard]] static HRESULT GetPathFromServiceObjectAttributes(IUnknown* service, std::wstring& path);

    // Stores one capture, records it and applies the limits. data: the complete XML text.
    [[nodiscard]] HRESULT AddSnapShotToArchive(std::wstring_view data);
    void AddToSnapShotList(const SnapShot& snapShot) { record_.snapShots.push_back(snapShot); }

    // Removes what has outlived its lifetime. 1 on success, 0 on failure.
    [[nodiscard]] int DeleteTheAgedFilesFromArchive();
    // Removes the oldest captures as far as the storage limit asks for it.
    [[nodiscard]] HRESULT CheckForArchiveOverflow();
    // 1 where a capture was removed, 0 otherwise.
    [[nodiscard]] int DeleteTheOldestFileFromArchive();

    // The schedule of the component's own ten-minute timer. 0 on success.
    [[nodiscard]] static HRESULT GetMaintainanceTimerInfo(std::wstring& schedule);
    // Registers it; maintenanceId is the timer's ID for it.
    [[nodiscard]] static HRESULT RegisterforMaintananceEvent(std::wstring& maintenanceId);

  private:
    HRESULT HandleSetDataforTimerEvent(SetDataOperation operation, CPWStringBuffer& errorText);
    HRESULT HandleSetDataforKROEvent(SetDataOperation operation, CPWStringBuffer& errorText);
    HRESULT HandleSetDataforXDMEvent(SetDataOperation operation, CPWStringBuffer& errorText);
    HRESULT HandleSetDataWith(Sender& sender, SetDataOperation operation, CPWStringBuffer& errorText);
    HRESULT Register(Sender& sender, CPWStringBuffer& errorText);
    HRESULT Modify(Sender& sender, CPWStringBuffer& errorText);
    HRESULT Renew(Sender& sender, RegistrationKind kind, CPWStringBuffer& errorText);
    HRESULT Unregister(Sender& sender, CPWStringBuffer& errorText);
    HRESULT DeleteRecordAndArchives(CPWStringBuffer& errorText);
    HRESULT GatherFirstData(std::wstring& data);
    std::wstring RecordedClientId();
    static HRESULT CopyArchive(const SubscriptionArchive& from, const SubscriptionArchive& to);

    // Removes this subscription's archives, and the service's folder where no other subscription has archives in it.
    void RemoveBaseDir();
    bool CreateBaseDir();

    HRESULT Capture(const DataSource& source, std::wstring_view callbackXml);
    HRESULT HandleCallbackforXDMData(std::wstring_view xpath, std::wstring_view argument);
    HRESULT HandleCallbackforEventPayloadData(std::wstring_view callbackXml, std::wstring_view xpath,
                                              std::wstring_view transformFile);
    HRESULT GetDataFromAggregator(IUnknown* service, std::wstring_view xpath, std::wstring_view argument,
                                  std::wstring& data);
    HRESULT RecordCapture(SnapShot& snapShot);
    HRESULT StoreSnapShot(const SnapShot& snapShot, std::wstring_view data);
    bool IsExpired(const SnapShot& snapShot) const;
    HRESULT RemoveStream(std::wstring_view snapShotId);
    HRESULT CountFiles(long& count);
    HRESULT RemoveUntilBelow(std::uint64_t limit);
    bool FindOldest(std::wstring& snapShotId);
    HRESULT CollectSnapShots(std::wstring_view xpath, CPWStringBuffer& document, CPWStringBuffer& errorText);
    HRESULT ReadSnapShot(SamAccessor& archive, std::wstring_view snapShotId, bstr& data);

    SubscriptionRecord record_;
    SubscriptionInfo info_;
    com_ptr<IUnknown> service_;
    SubscriptionPersistance persistance_;
};

} // namespace vorna
