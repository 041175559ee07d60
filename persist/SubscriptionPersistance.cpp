#include "persist/SubscriptionPersistance.h"

#include "common/com/results.h"
#include "common/log/CatchAll.h"
#include "common/services/Directories.h"

#include <algorithm>

namespace vorna {

namespace {

constexpr std::wstring_view PERSIST_STREAM = L"VornaPersist";
constexpr wchar_t EMPTY_DOCUMENT[] = L"<Subscriptions></Subscriptions>";

// Logs a composed message at level 4.
void LogText(const std::wstring& message) {
    VORNA_LOG(LOG_TRACE, "%S", message.c_str());
}

std::wstring ActiveByCookie(std::wstring_view cookie) {
    return L"/Subscriptions/Subscription [@PATH=\"" + std::wstring(cookie) + L"\"] [@VALID=\"TRUE\"]";
}

std::wstring ById(std::wstring_view id) {
    return L"/Subscriptions/Subscription [@ID=\"" + std::wstring(id) + L"\"]";
}

std::wstring ActiveById(std::wstring_view id) {
    return ById(id) + L" [@VALID=\"TRUE\"]";
}

std::wstring ByVornaId(std::wstring_view vornaId) {
    return L"/Subscriptions/Subscription [@VORNAID=\"" + std::wstring(vornaId) + L"\"]";
}

// One node of the document. state: the attributes after ID, with a blank before each.
std::wstring MakeNode(std::wstring_view cookie, std::wstring_view vornaId, std::wstring_view id,
                      const std::wstring& state, const std::wstring& serviceXml) {
    std::wstring node = L"<Subscription PATH=\"";
    node.append(cookie).append(L"\" VORNAID=\"").append(vornaId).append(L"\" ID=\"").append(id);
    return node.append(L"\"").append(state).append(L">").append(serviceXml).append(L"</Subscription>");
}

// Reads the values of one node. The first one that is missing is logged with its failure text; later values are then
// not read.
class NodeReader {
  public:
    NodeReader(XmlAccessor& accessor, std::wstring node) : accessor_(accessor), node_(std::move(node)) {}

    NodeReader& Text(const wchar_t* path, std::wstring& value, const char* failure) {
        return Check([&] { return accessor_.QueryText(node_ + path, value); }, failure);
    }
    NodeReader& Markup(const wchar_t* path, std::wstring& value, const char* failure) {
        return Check([&] { return accessor_.QueryMarkup(node_ + path, value); }, failure);
    }
    // E_FAIL if a value was missing.
    HRESULT Result() const { return result_; }

  private:
    template <typename Query>
    NodeReader& Check(Query query, const char* failure) {
        if (result_ == S_OK && query() != S_OK) {
            VORNA_LOG(LOG_TRACE, "%s", failure);
            result_ = E_FAIL;
        }
        return *this;
    }

    XmlAccessor& accessor_;
    const std::wstring node_;
    HRESULT result_ = S_OK;
};

// Replaces the single element of the path, or inserts it if there is none.
HRESULT PutRootElement(XmlAccessor& accessor, const std::wstring& element, const std::wstring& markup) {
    const std::wstring path = L"/Subscriptions/" + element;
    std::wstring before;
    HRESULT result = accessor.QueryMarkup(path, before);
    if (FAILED(result))
        return E_FAIL;
    if (result == S_FALSE) {
        result = accessor.Set(L"/Subscriptions", markup, XmlChange::Insert);
        if (result != S_OK)
            LogText(L"XMLSet failed!! Inserting : " + markup + L" at /SubscriptionsFailed");
    } else {
        result = accessor.Set(path, markup, XmlChange::Replace);
        if (result != S_OK)
            LogText(L"Replacing : " + path + L" with " + markup + L"Failed");
    }
    return result == S_OK ? S_OK : E_FAIL;
}

} // namespace

SubscriptionPersistance::SubscriptionPersistance() : componentDirectory_(VORNAUTILITY::GetComponentDirectory()) {}

bool SubscriptionPersistance::IsPlainValue(std::wstring_view text) {
    return text.find_first_of(L"\"<>&") == text.npos &&
           std::none_of(text.begin(), text.end(), [](wchar_t letter) { return letter < L' '; });
}

// Runs work between an entry line and an exit line in the log. An exception becomes 0x8000015E; processor faults are
// rethrown.
template <typename Work>
HRESULT SubscriptionPersistance::Traced(const Texts& texts, Work work) {
    VORNA_LOG(LOG_TRACE, "%s - Entering", texts.operation);
    const HRESULT result = CatchAll(RESULT_EXCEPTION, work, texts.exception);
    VORNA_LOG(LOG_TRACE, "%s - Exiting (hr: %#x)", texts.operation, static_cast<unsigned>(result));
    return result;
}

// Runs one operation on the persist document: acquires the lock, loads the document, calls work with the accessor, and
// writes the document back if it was changed.
template <typename Work>
HRESULT SubscriptionPersistance::WithPersistDocument(const Texts& texts, Access access, Work work) {
    return Traced(texts, [&]() -> HRESULT {
        const NamedLock lock = PersistLock(persistMutex_);
        if (!lock.Held())
            return lock.Result();
        XmlAccessor accessor;
        if (HRESULT result = LoadPersistDocument(texts, accessor); result != S_OK)
            return result;
        if (HRESULT result = work(accessor); result != S_OK || access == Access::Read)
            return result;
        std::wstring document;
        if (accessor.QueryMarkup(L"/*", document) != S_OK) {
            VORNA_LOG(LOG_TRACE, "%s", texts.rootFailed);
            return E_FAIL;
        }
        return WriteStream(PersistArchive(), PERSIST_STREAM, document);
    });
}

// The same for a subscription's snapshot index, under its archive lock. work changes the index; if it returns S_FALSE,
// the index is not written, which counts as success.
template <typename Work>
HRESULT SubscriptionPersistance::WithIndex(const char* operation, const SubscriptionArchive& archive, Work work) {
    return Traced({operation, "", ""}, [&]() -> HRESULT {
        const NamedLock lock = archive.Lock();
        if (!lock.Held())
            return lock.Result();
        SnapShotIndex index;
        HRESULT result = archive.ReadIndex(index);
        if (result == S_OK)
            result = work(index);
        if (result != S_OK)
            return result == S_FALSE ? S_OK : result;
        return archive.WriteIndex(index);
    });
}

HRESULT SubscriptionPersistance::LoadPersistDocument(const Texts& texts, XmlAccessor& accessor) {
    std::wstring text;
    HRESULT read = ReadStream(PersistArchive(), PERSIST_STREAM, text);
    if (HRESULT result = accessor.Create(); result != S_OK)
        return result;
    if (read == S_OK && accessor.Load(text) == S_OK)
        return S_OK;
    // Only a missing document is replaced: one that cannot be read must not be overwritten.
    if (IsMissing(read) && texts.newDocument) {
        if (accessor.Load(texts.newDocument) == S_OK)
            return S_OK;
        VORNA_LOG(LOG_TRACE, "Error Loading XML String : <Subscriptions></Subscriptions>");
        return RESULT_XML_MALFORMED;
    }
    VORNA_LOG(LOG_TRACE, "%s%S", texts.loadFailed, text.c_str());
    if (IsMissing(read))
        return RESULT_NO_SUBSCRIPTION;
    return read == S_OK ? RESULT_XML_MALFORMED : read;
}

HRESULT SubscriptionPersistance::AddSubscription(const SubscriptionRecord& record, std::wstring_view clientId,
                                                 std::wstring_view maintenanceId) {
    for (std::wstring_view value : {std::wstring_view(record.clientCookie), std::wstring_view(record.vornaId),
                                    std::wstring_view(record.subscriptionId), clientId, maintenanceId}) {
        if (!IsPlainValue(value)) {
            LogText(L"A value cannot stand in the persist document : " + std::wstring(value));
            return E_INVALIDARG;
        }
    }
    static constexpr Texts TEXTS{"SubscriptionPersistance::AddSubscription",
                                 "Failed to Load: ", "Getting the data from Vorna Persist file failed", EMPTY_DOCUMENT};
    HRESULT result = WithPersistDocument(TEXTS, Access::Change, [&](XmlAccessor& accessor) {
        return UpdateRecord(accessor, record, clientId, maintenanceId);
    });
    if (result != S_OK)
        return result;

    // The persist lock is released by now; it is never held together with an archive lock.
    result = Traced(TEXTS, [&]() -> HRESULT {
        const NamedLock lock = record.Archive().Lock();
        return lock.Held() ? record.Archive().WriteDocument(record.subscriptionText) : lock.Result();
    });
    if (result != S_OK && record.kind == RegistrationKind::New)
        (void)DeleteSubscription(record.subscriptionId);
    return result;
}

HRESULT SubscriptionPersistance::UpdateRecord(XmlAccessor& accessor, const SubscriptionRecord& record,
                                              std::wstring_view clientId, std::wstring_view maintenanceId) {
    HRESULT result = PutRootElement(accessor, L"ClientID", L"<ClientID ID=\"" + std::wstring(clientId) + L"\" />");
    // An empty maintenance ID leaves the recorded one unchanged.
    if (result == S_OK && !maintenanceId.empty())
        result = PutRootElement(accessor, L"MaintainanceID",
                                L"<MaintainanceID ID=\"" + std::wstring(maintenanceId) + L"\" />");
    if (result != S_OK)
        return result;

    const SYSTEMTIME now = LocalNow();
    std::wstring lastSubscriptionTime = FormatDateTime(now);
    if (record.kind == RegistrationKind::Modification &&
        accessor.QueryText(ByVornaId(record.vornaId) + L" [@VALID=\"TRUE\"]/@LASTSUBSCRIPTIONTIME",
                           lastSubscriptionTime) != S_OK) {
        VORNA_LOG(LOG_TRACE, "Failed to get the LastSubscriptionTime for the Subscription.");
        return E_FAIL;
    }
    std::wstring endDate;
    const bool keepsEndDate = record.kind == RegistrationKind::New || record.kind == RegistrationKind::Restoration;
    if (keepsEndDate && FAILED(accessor.QueryText(ByVornaId(record.vornaId) + L"/@ENDDATE", endDate)))
        return E_FAIL;
    if (record.lifetime.IsZero())
        endDate.clear();
    else if (endDate.empty())
        endDate = FormatDateTime(AddDuration(now, record.lifetime));

    const std::wstring node =
        MakeNode(record.clientCookie, record.vornaId, record.subscriptionId,
                 L" ENDDATE=\"" + endDate + L"\" LASTSUBSCRIPTIONTIME=\"" + lastSubscriptionTime + L"\" VALID=\"TRUE\"",
                 record.serviceXml);
    const std::wstring active = ActiveByCookie(record.clientCookie);
    std::wstring id;
    const HRESULT found = accessor.QueryText(active + L"/@ID", id);
    if (FAILED(found))
        return E_FAIL;
    if (found == S_FALSE) {
        if (accessor.Set(L"/Subscriptions", node, XmlChange::Append) == S_OK)
            return S_OK;
        LogText(L"XMLSet failed!! Appending : " + node + L" at /SubscriptionsFailed");
        return E_FAIL;
    }
    if (accessor.Set(active, node, XmlChange::Replace) == S_OK)
        return S_OK;
    LogText(L"Replacing : " + active + L" node with " + node + L"Failed");
    return E_FAIL;
}

bool SubscriptionPersistance::HasDocument() {
    static constexpr Texts TEXTS{"SubscriptionPersistance::HasDocument", "Failed to Load: ", ""};
    return WithPersistDocument(TEXTS, Access::Read, [](XmlAccessor&) { return S_OK; }) == S_OK;
}

HRESULT SubscriptionPersistance::GetSubscriptionsList(SubscriptionList& list) {
    list.clear();
    static constexpr Texts TEXTS{"SubscriptionPersistance::GetSubscriptionsList", "Failed to Load: ", ""};
    return WithPersistDocument(TEXTS, Access::Read, [&](XmlAccessor& accessor) -> HRESULT {
        std::vector<std::wstring> nodes;
        if (accessor.QueryMarkups(L"//Subscriptions/Subscription", nodes) != S_OK)
            return E_FAIL;
        bool anyValid = false;
        for (const std::wstring& node : nodes) {
            if (accessor.Load(node) != S_OK)
                return RESULT_XML_MALFORMED;
            SubscriptionListEntry entry;
            std::wstring flag;
            NodeReader reader(accessor, L"/Subscription");
            reader.Text(L"/@ID", entry.subscriptionId, "Failed to get Subscription id from the Subscription Node")
                .Text(L"/@VORNAID", entry.vornaId, "Failed to get vorna id from the Subscription Node")
                .Text(L"/@PATH", entry.clientCookie, "Failed to get Client cookie from the Subscription Node")
                .Markup(L"/service", entry.serviceXml, "Failed to get ServiceXML from the Subscription Node")
                .Text(L"/@VALID", flag, "Failed to get Valid from the Subscription Node");
            if (reader.Result() != S_OK)
                return reader.Result();
            entry.valid = flag == L"TRUE";
            (void)accessor.QueryText(L"/Subscription/@ENDDATE", entry.endDate);
            entry.aged = accessor.QueryText(L"/Subscription/@AGED", flag) == S_OK && flag == L"TRUE";
            (void)accessor.QueryText(L"/Subscription/@LASTSUBSCRIPTIONTIME", entry.lastSubscriptionTime);
            anyValid = anyValid || entry.valid;
            list.push_back(std::move(entry));
        }
        return anyValid ? S_OK : RESULT_NO_SUBSCRIPTION;
    });
}

HRESULT SubscriptionPersistance::GetSubscription(std::wstring_view key, SubscriptionRecord& record) {
    VORNA_LOG(LOG_TRACE, "Searching for the node whose PATH or ID matches : %S", std::wstring(key).c_str());
    static constexpr Texts TEXTS{"SubscriptionPersistance::GetSubscription", "Failed to load : ", ""};
    std::wstring lastId;
    for (;;) {
        record = SubscriptionRecord();
        HRESULT result = WithPersistDocument(
            TEXTS, Access::Read, [&](XmlAccessor& accessor) { return FindSubscription(accessor, key, record); });
        if (result != S_OK)
            return result;
        result = Traced(TEXTS, [&] { return ReadSubscription(record); });
        // A renewal between the two reads gives the archive another name.
        if (result == S_OK || record.subscriptionId == lastId)
            return result;
        lastId = record.subscriptionId;
    }
}

HRESULT SubscriptionPersistance::GetSubscriptionID(std::wstring_view clientCookie, std::wstring& subscriptionId) {
    static constexpr Texts TEXTS{"SubscriptionPersistance::GetSubscriptionID", "Failed to load : ", ""};
    SubscriptionRecord record;
    const HRESULT result = WithPersistDocument(
        TEXTS, Access::Read, [&](XmlAccessor& accessor) { return FindSubscription(accessor, clientCookie, record); });
    subscriptionId = record.subscriptionId;
    return result;
}

HRESULT SubscriptionPersistance::FindSubscription(XmlAccessor& accessor, std::wstring_view key,
                                                  SubscriptionRecord& record) {
    const std::wstring byId = L"/Subscriptions/Subscription[@ID=\"" + std::wstring(key) + L"\"][@VALID=\"TRUE\"]";
    const std::wstring byPath = L"/Subscriptions/Subscription[@PATH=\"" + std::wstring(key) + L"\"][@VALID=\"TRUE\"]";
    std::wstring node = byId;
    // A key with a quote cannot be in the document, and would change the XPath.
    HRESULT found = IsPlainValue(key) ? accessor.QueryText(node + L"/@PATH", record.clientCookie) : S_FALSE;
    record.subscriptionId = key;
    if (found == S_FALSE && IsPlainValue(key)) {
        node = byPath;
        found = accessor.QueryText(node + L"/@ID", record.subscriptionId);
        record.clientCookie = key;
    }
    if (found != S_OK) {
        record = SubscriptionRecord();
        VORNA_LOG(LOG_TRACE, "Failed to get Subscription ID in the Vorna Persist file");
        // A failed query does not mean that there is no such subscription.
        return found == S_FALSE ? RESULT_NO_SUBSCRIPTION : E_FAIL;
    }
    std::wstring serviceId, serviceUri, portId;
    NodeReader reader(accessor, node);
    reader.Text(L"/@VORNAID", record.vornaId, "Failed to get vorna id from the Vorna Persist file")
        .Markup(L"/service", record.serviceXml, "Failed to get Service XML from the Vorna Persist file")
        .Text(L"/service/serviceId", serviceId, "Failed to get Service ID from the Vorna Persist file")
        .Text(L"/service/serviceURI", serviceUri, "Failed to get ServiceURI from the Vorna Persist file")
        .Text(L"/service/portID", portId, "Failed to get PortID from the Vorna Persist file");
    if (reader.Result() != S_OK)
        return reader.Result();
    record.archiveDirectory = componentDirectory_ + L"Archives\\" + serviceId + L"\\" + serviceUri + L"\\" + portId;
    return S_OK;
}

HRESULT SubscriptionPersistance::ReadSubscription(SubscriptionRecord& record) {
    const SubscriptionArchive archive = record.Archive();
    const NamedLock lock = archive.Lock();
    if (!lock.Held())
        return lock.Result();
    const HRESULT result = archive.ReadDocument(record.subscriptionText);
    if (result != S_OK) {
        VORNA_LOG(LOG_TRACE, "Failed to create Subscription Object");
        // The persist document has the record, so this is never "no such subscription".
        return IsMissing(result) ? E_FAIL : result;
    }
    return archive.ReadSnapShots(record.snapShots);
}

HRESULT SubscriptionPersistance::DeleteSubscription(std::wstring_view subscriptionId) {
    const std::wstring id(subscriptionId);
    VORNA_LOG(LOG_TRACE, "Going to delete the node with ID = \"%S\" from Vorna Persist file", id.c_str());
    static constexpr Texts TEXTS{"SubscriptionPersistance::DeleteSubscription",
                                 "Failed to Load : ", "Failed to get updated vorna persist data"};
    return WithPersistDocument(TEXTS, Access::Change, [&](XmlAccessor& accessor) -> HRESULT {
        if (!IsPlainValue(id))
            return RESULT_NO_SUBSCRIPTION;
        // An ended subscription may have had the same ID.
        std::wstring path = ActiveById(id), service, cookie, vornaId;
        HRESULT found = accessor.QueryText(path + L"/@PATH", cookie);
        if (found == S_FALSE) {
            path = ById(id);
            found = accessor.QueryText(path + L"/@PATH", cookie);
        }
        if (found != S_OK)
            return found == S_FALSE ? RESULT_NO_SUBSCRIPTION : E_FAIL;
        if (FAILED(accessor.QueryMarkup(path + L"/service", service)) ||
            FAILED(accessor.QueryText(path + L"/@VORNAID", vornaId)))
            return E_FAIL;
        const std::wstring node = MakeNode(cookie, vornaId, id, L" VALID=\"FALSE\"", service);
        if (accessor.Set(path, node, XmlChange::Replace) == S_OK)
            return S_OK;
        LogText(L"Replacing : " + path + L" with " + node + L"Failed");
        VORNA_LOG(LOG_TRACE, "Unable to delete the Subscription");
        return E_FAIL;
    });
}

HRESULT SubscriptionPersistance::SetAgingForSubscription(std::wstring_view subscriptionId,
                                                         std::wstring_view expectedEndDate) {
    const std::wstring id(subscriptionId);
    VORNA_LOG(LOG_TRACE, "Setting Aging flag for the Subscription with ID = %S", id.c_str());
    static constexpr Texts TEXTS{"SubscriptionPersistance::SetAgingForSubscription",
                                 "Failed to Load: ", "Getting the data from Vorna Persist file failed"};
    return WithPersistDocument(TEXTS, Access::Change, [&](XmlAccessor& accessor) -> HRESULT {
        if (!IsPlainValue(id))
            return RESULT_NO_SUBSCRIPTION;
        const std::wstring path = L"//Subscriptions/Subscription [@ID=\"" + id + L"\"][@VALID=\"TRUE\"]";
        std::wstring vornaId, cookie, endDate, service;
        NodeReader reader(accessor, path);
        reader.Text(L"/@VORNAID", vornaId, "Failed to get vorna id from the Vorna Persist file")
            .Text(L"/@PATH", cookie, "Failed to get PATH from the Vorna Persist file");
        // A renewal without an end leaves an empty end date.
        if (reader.Result() == S_OK && accessor.QueryText(path + L"/@ENDDATE", endDate) == S_FALSE &&
            !expectedEndDate.empty())
            return S_FALSE;
        reader.Text(L"/@ENDDATE", endDate, "Failed to get EndDate from the Vorna Persist file")
            .Markup(L"/service", service, "Failed to get service xml from the Vorna Persist file");
        if (reader.Result() != S_OK)
            return reader.Result();
        if (endDate != expectedEndDate)
            return S_FALSE;
        const std::wstring node =
            MakeNode(cookie, vornaId, id, L" ENDDATE=\"" + endDate + L"\" AGED=\"TRUE\" VALID=\"TRUE\"", service);
        if (accessor.Set(path, node, XmlChange::Replace) == S_OK)
            return S_OK;
        LogText(L"Replacing : " + path + L" node with " + node + L"Failed");
        return E_FAIL;
    });
}

// Reads one value of the persist document; an empty one counts as missing.
HRESULT SubscriptionPersistance::ReadValue(const Texts& texts, std::wstring_view xpath, const char* failure,
                                           std::wstring& value) {
    value.clear();
    return WithPersistDocument(texts, Access::Read, [&](XmlAccessor& accessor) -> HRESULT {
        if (accessor.QueryText(xpath, value) == S_OK)
            return S_OK;
        if (failure)
            VORNA_LOG(LOG_TRACE, "%s", failure);
        return E_FAIL;
    });
}

HRESULT SubscriptionPersistance::GetServiceXML(std::wstring_view subscriptionId, std::wstring& serviceXml) {
    serviceXml.clear();
    const std::wstring id(subscriptionId);
    VORNA_LOG(LOG_TRACE, "Getting Service XML for the Subscription with ID = %S", id.c_str());
    if (!IsPlainValue(id))
        return E_FAIL;
    static constexpr Texts TEXTS{"SubscriptionPersistance::GetServiceXML", "Failed to Load: ", ""};
    return WithPersistDocument(TEXTS, Access::Read, [&](XmlAccessor& accessor) -> HRESULT {
        // The path has a capital S, but the nodes contain "service": the records that AddSubscription writes do not
        // match. Unsubscribing from event access then works without a service object.
        if (accessor.QueryMarkup(L"/Subscriptions/Subscription[@ID=\"" + id + L"\"]/Service", serviceXml) == S_OK)
            return S_OK;
        VORNA_LOG(LOG_TRACE, "Failed to get Service XML from the persist file");
        return E_FAIL;
    });
}

HRESULT SubscriptionPersistance::GetEndDateForSubscription(std::wstring_view vornaId, std::wstring& endDate) {
    VORNA_LOG(LOG_TRACE, "Getting EndDateTime/Aging date for the Subscription with ID = %S",
              std::wstring(vornaId).c_str());
    static constexpr Texts TEXTS{"SubscriptionPersistance::GetEndDateForSubscription", "Failed to Load: ", ""};
    return ReadValue(TEXTS, ByVornaId(vornaId) + L"/@ENDDATE", "Failed to get the end date", endDate);
}

HRESULT SubscriptionPersistance::GetSubscriptionText(const SubscriptionArchive& archive, std::wstring& text) {
    text.clear();
    return Traced({"SubscriptionPersistance::GetSubscriptionText", "", ""}, [&]() -> HRESULT {
        const NamedLock lock = archive.Lock();
        return lock.Held() ? archive.ReadDocument(text) : lock.Result();
    });
}

bool SubscriptionPersistance::IsSubscriptionAged(std::wstring_view vornaId) {
    VORNA_LOG(LOG_TRACE, "Getting Aged flag for the Subscription with ID = %S", std::wstring(vornaId).c_str());
    static constexpr Texts TEXTS{"SubscriptionPersistance::IsSubscriptionAged", "Failed to Load: ", ""};
    std::wstring flag;
    return ReadValue(TEXTS, ByVornaId(vornaId) + L"/@AGED", nullptr, flag) == S_OK && flag == L"TRUE";
}

HRESULT SubscriptionPersistance::GetClientID(std::wstring& clientId) {
    static constexpr Texts TEXTS{"SubscriptionPersistance::GetClientID", "Failed to Load: ", ""};
    return ReadValue(TEXTS, L"/Subscriptions/ClientID/@ID", "Failed to get client id from Vorna persist file",
                     clientId);
}

HRESULT SubscriptionPersistance::GetMaintainanceID(std::wstring& maintenanceId) {
    const HRESULT found = FindMaintainanceID(maintenanceId);
    return found == S_FALSE ? E_FAIL : found;
}

HRESULT SubscriptionPersistance::FindMaintainanceID(std::wstring& maintenanceId) {
    maintenanceId.clear();
    static constexpr Texts TEXTS{"SubscriptionPersistance::GetMaintainanceID", "Failed to Load: ", ""};
    const HRESULT found = WithPersistDocument(TEXTS, Access::Read, [&](XmlAccessor& accessor) {
        const HRESULT result = accessor.QueryText(L"/Subscriptions/MaintainanceID/@ID", maintenanceId);
        if (result != S_OK)
            VORNA_LOG(LOG_TRACE, "Failed to get Maintainance id from Vorna persist file");
        return FAILED(result) ? E_FAIL : result;
    });
    return found == RESULT_NO_SUBSCRIPTION ? S_FALSE : found;
}

HRESULT SubscriptionPersistance::DeleteMaintainanceID() {
    static constexpr Texts TEXTS{"SubscriptionPersistance::DeleteMaintainanceID",
                                 "Failed to Load : ", "Failed to get entire data from the root", nullptr,
                                 "Unknown Exception Occurred"};
    return WithPersistDocument(TEXTS, Access::Change, [](XmlAccessor& accessor) -> HRESULT {
        if (accessor.Set(L"/Subscriptions/MaintainanceID", L"", XmlChange::Replace) == S_OK)
            return S_OK;
        VORNA_LOG(LOG_TRACE, "Failed to delete the Maintainance id from vorna persist file");
        return E_FAIL;
    });
}

HRESULT SubscriptionPersistance::AddSnapShot(const SubscriptionArchive& archive, SnapShot& snapShot,
                                             SnapShotIndex::Placement placement, bool* added) {
    bool isNew = false;
    const HRESULT result =
        WithIndex("SubscriptionPersistance::AddSnapShot", archive, [&](SnapShotIndex& index) -> HRESULT {
            // A callback may arrive just after its subscription was ended; it must not create the archives again.
            std::wstring document;
            if (index.empty() && IsMissing(archive.ReadDocument(document)))
                return RESULT_NO_SUBSCRIPTION;
            return index.Add(snapShot, placement, isNew);
        });
    if (added)
        *added = isNew;
    return result;
}

HRESULT SubscriptionPersistance::RefreshSnapShots(const SubscriptionArchive& archive,
                                                  std::span<const SnapShot> snapShots) {
    return WithIndex("SubscriptionPersistance::RefreshSnapShots", archive, [&](SnapShotIndex& index) -> HRESULT {
        return index.empty() ? S_FALSE : index.Refresh(snapShots);
    });
}

int SubscriptionPersistance::DeleteSnapShot(const SubscriptionArchive& archive, std::wstring_view snapShotId) {
    const HRESULT result = WithIndex("SubscriptionPersistance::DeleteSnapShot", archive,
                                     [&](SnapShotIndex& index) { return index.Remove(snapShotId); });
    return result == S_OK ? 1 : 0;
}

int SubscriptionPersistance::DeleteSnapShots(const SubscriptionArchive& archive,
                                             std::span<const std::wstring> snapShotIds) {
    const HRESULT result = WithIndex("SubscriptionPersistance::DeleteSnapShot", archive,
                                     [&](SnapShotIndex& index) { return index.Remove(snapShotIds); });
    return result == S_OK ? 1 : 0;
}

} // namespace vorna
