#include "persist/SubscriptionPersistance.h"

#include "common/com/results.h"
#include "common/log/Logging.h"
#include "common/services/Directories.h"
#include "persist/PersistFrame.h"
#include "subscription/archive/ArchiveNames.h"
#include "subscription/archive/SamAccessor.h"

#include <algorithm>

namespace vorna {

namespace {

constexpr wchar_t EMPTY_DOCUMENT[] = L"<Subscriptions></Subscriptions>";

std::wstring ActiveByCookie(std::wstring_view cookie) {
    return L"/Subscriptions/Subscription [@PATH=\"" + std::wstring(cookie) + L"\"] [@VALID=\"TRUE\"]";
}

std::wstring ById(std::wstring_view id) {
    return L"/Subscriptions/Subscription [@ID=\"" + std::wstring(id) + L"\"]";
}

std::wstring ByVornaId(std::wstring_view vornaId) {
    return L"/Subscriptions/Subscription [@VORNAID=\"" + std::wstring(vornaId) + L"\"]";
}

// Replaces the single element of the path, or inserts it where there is none.
HRESULT PutRootElement(XmlAccessor& accessor, const std::wstring& element, const std::wstring& markup) {
    const std::wstring path = L"/Subscriptions/" + element;
    std::wstring before;
    HRESULT result;
    if (accessor.QueryText(path + L"/@ID", before) != S_OK && accessor.QueryMarkup(path, before) != S_OK) {
        result = accessor.Set(L"/Subscriptions", markup, XmlChange::Insert);
        if (result != S_OK)
            LogTraceText(L"XMLSet failed!! Inserting : " + markup + L" at /SubscriptionsFailed");
    } else {
        result = accessor.Set(path, markup, XmlChange::Replace);
        if (result != S_OK)
            LogTraceText(L"Replacing : " + path + L" with " + markup + L"Failed");
    }
    return result == S_OK ? S_OK : E_FAIL;
}

} // namespace

SubscriptionPersistance::SubscriptionPersistance() : componentDirectory_(VORNAUTILITY::GetComponentDirectory()) {}

bool SubscriptionPersistance::IsPlainValue(std::wstring_view text) {
    return text.find_first_of(L"\"<>&") == text.npos &&
           std::none_of(text.begin(), text.end(), [](wchar_t letter) { return letter < L' '; });
}

HRESULT ReadStream(std::wstring_view archive, std::wstring_view name, std::wstring& text) {
    text.clear();
    SamAccessor accessor(archive, name);
    bstr data;
    HRESULT result = accessor.getStreamFromArchive(data);
    if (result != S_OK)
        return FAILED(result) ? result : E_FAIL;
    text = data.str();
    return text.empty() ? HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND) : S_OK;
}

HRESULT WriteStream(std::wstring_view archive, std::wstring_view name, std::wstring_view text) {
    SamAccessor accessor(archive, name);
    return accessor.addStreamToArchive(text);
}

HRESULT SubscriptionPersistance::LoadPersistDocument(const Texts& texts, XmlAccessor& accessor) {
    std::wstring text;
    HRESULT read = ReadStream(PersistArchive(), PERSIST_STREAM, text);
    if (HRESULT result = accessor.Create(); result != S_OK)
        return result;
    if (read == S_OK && accessor.Load(text) == S_OK)
        return S_OK;
    // Only a document that is not there is begun anew: one that cannot be read must not be written over.
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
            LogTraceText(L"A value cannot stand in the persist document : " + std::wstring(value));
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

    // The persist lock is given back by now; the two kinds of lock are never held together.
    result = TracedOperation("SubscriptionPersistance::AddSubscription", TEXTS.exception, [&]() -> HRESULT {
        ScopedLock lock(locks_, ArchiveLockName(record.subscriptionId));
        if (!lock.Held())
            return lock.Result();
        return WriteStream(ConfigArchivePath(record.archiveDirectory, record.subscriptionId),
                           SubscriptionStream(record.subscriptionId), record.subscriptionText);
    });
    if (result != S_OK && record.kind == RegistrationKind::New)
        (void)DeleteSubscription(record.subscriptionId);
    return result;
}

HRESULT SubscriptionPersistance::UpdateRecord(XmlAccessor& accessor, const SubscriptionRecord& record,
                                              std::wstring_view clientId, std::wstring_view maintenanceId) {
    HRESULT result = PutRootElement(accessor, L"ClientID", L"<ClientID ID=\"" + std::wstring(clientId) + L"\" />");
    // An empty maintenance ID means that this add brings none; the recorded one stays.
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
    if (!record.lifetime.IsZero() &&
        !(keepsEndDate && accessor.QueryText(ByVornaId(record.vornaId) + L"/@ENDDATE", endDate) == S_OK))
        endDate = FormatDateTime(AddDuration(now, record.lifetime));

    const std::wstring node = L"<Subscription PATH=\"" + record.clientCookie + L"\" VORNAID=\"" + record.vornaId +
                              L"\" ID=\"" + record.subscriptionId + L"\" ENDDATE=\"" + endDate +
                              L"\" LASTSUBSCRIPTIONTIME=\"" + lastSubscriptionTime + L"\" VALID=\"TRUE\">" +
                              record.serviceXml + L"</Subscription>";
    const std::wstring active = ActiveByCookie(record.clientCookie);
    std::wstring id;
    if (accessor.QueryText(active + L"/@ID", id) != S_OK) {
        if (accessor.Set(L"/Subscriptions", node, XmlChange::Append) == S_OK)
            return S_OK;
        LogTraceText(L"XMLSet failed!! Appending : " + node + L" at /SubscriptionsFailed");
        return E_FAIL;
    }
    if (accessor.Set(active, node, XmlChange::Replace) == S_OK)
        return S_OK;
    LogTraceText(L"Replacing : " + active + L" node with " + node + L"Failed");
    return E_FAIL;
}

HRESULT SubscriptionPersistance::GetSubscriptionsList(SubscriptionList& list) {
    list.clear();
    static constexpr Texts TEXTS{"SubscriptionPersistance::GetSubscriptionsList", "Failed to Load: ", ""};
    return WithPersistDocument(TEXTS, Access::Read, [&](XmlAccessor& accessor) -> HRESULT {
        std::wstring delimiter;
        if (accessor.GetDelimiter(delimiter) != S_OK) {
            VORNA_LOG(LOG_TRACE, "get_delimiter() failed");
            return E_FAIL;
        }
        std::wstring nodes;
        if (FAILED(accessor.QueryMarkup(L"//Subscriptions/Subscription", nodes)))
            return E_FAIL;
        bool anyValid = false;
        for (const std::wstring& node : SplitAtDelimiter(nodes, delimiter)) {
            if (accessor.Load(node) != S_OK)
                return RESULT_XML_MALFORMED;
            SubscriptionListEntry entry;
            std::wstring flag;
            struct {
                HRESULT result;
                const char* failure;
            } const mandatory[] = {
                {accessor.QueryText(L"/Subscription/@ID", entry.subscriptionId),
                 "Failed to get Subscription id from the Subscription Node"},
                {accessor.QueryText(L"/Subscription/@VORNAID", entry.vornaId),
                 "Failed to get vorna id from the Subscription Node"},
                {accessor.QueryText(L"/Subscription/@PATH", entry.clientCookie),
                 "Failed to get Client cookie from the Subscription Node"},
                {accessor.QueryMarkup(L"/Subscription/service", entry.serviceXml),
                 "Failed to get ServiceXML from the Subscription Node"},
                {accessor.QueryText(L"/Subscription/@VALID", flag), "Failed to get Valid from the Subscription Node"},
            };
            for (const auto& value : mandatory) {
                if (value.result != S_OK) {
                    VORNA_LOG(LOG_TRACE, "%s", value.failure);
                    return E_FAIL;
                }
            }
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
    record = SubscriptionRecord();
    VORNA_LOG(LOG_TRACE, "Searching for the node whose PATH or ID matches : %S", std::wstring(key).c_str());
    static constexpr Texts TEXTS{"SubscriptionPersistance::GetSubscription", "Failed to load : ", ""};
    HRESULT result = WithPersistDocument(
        TEXTS, Access::Read, [&](XmlAccessor& accessor) { return FindSubscription(accessor, key, record); });
    if (result != S_OK)
        return result;
    return TracedOperation(TEXTS.operation, TEXTS.exception, [&] { return ReadSubscription(record); });
}

HRESULT SubscriptionPersistance::FindSubscription(XmlAccessor& accessor, std::wstring_view key,
                                                  SubscriptionRecord& record) {
    const std::wstring byId = L"/Subscriptions/Subscription[@ID=\"" + std::wstring(key) + L"\"][@VALID=\"TRUE\"]";
    const std::wstring byPath = L"/Subscriptions/Subscription[@PATH=\"" + std::wstring(key) + L"\"][@VALID=\"TRUE\"]";
    std::wstring node;
    // A key with a quote cannot be in the document, and must not change the question.
    if (!IsPlainValue(key)) {
    } else if (accessor.QueryText(byId + L"/@PATH", record.clientCookie) == S_OK) {
        record.subscriptionId = key;
        node = byId;
    } else if (accessor.QueryText(byPath + L"/@ID", record.subscriptionId) == S_OK) {
        record.clientCookie = key;
        node = byPath;
    }
    if (node.empty()) {
        VORNA_LOG(LOG_TRACE, "Failed to get Subscription ID in the Vorna Persist file");
        return RESULT_NO_SUBSCRIPTION;
    }
    std::wstring serviceId, serviceUri, portId;
    const struct {
        HRESULT result;
        const char* failure;
    } values[] = {
        {accessor.QueryText(node + L"/@VORNAID", record.vornaId), "Failed to get vorna id from the Vorna Persist file"},
        {accessor.QueryMarkup(node + L"/service", record.serviceXml),
         "Failed to get Service XML from the Vorna Persist file"},
        {accessor.QueryText(node + L"/service/serviceId", serviceId),
         "Failed to get Service ID from the Vorna Persist file"},
        {accessor.QueryText(node + L"/service/serviceURI", serviceUri),
         "Failed to get ServiceURI from the Vorna Persist file"},
        {accessor.QueryText(node + L"/service/portID", portId), "Failed to get PortID from the Vorna Persist file"},
    };
    for (const auto& value : values) {
        if (value.result != S_OK) {
            VORNA_LOG(LOG_TRACE, "%s", value.failure);
            return E_FAIL;
        }
    }
    record.archiveDirectory = componentDirectory_ + L"Archives\\" + serviceId + L"\\" + serviceUri + L"\\" + portId;
    return S_OK;
}

HRESULT SubscriptionPersistance::ReadSubscription(SubscriptionRecord& record) {
    ScopedLock lock(locks_, ArchiveLockName(record.subscriptionId));
    if (!lock.Held())
        return lock.Result();
    HRESULT result = ReadStream(ConfigArchivePath(record.archiveDirectory, record.subscriptionId),
                                SubscriptionStream(record.subscriptionId), record.subscriptionText);
    if (result != S_OK) {
        VORNA_LOG(LOG_TRACE, "Failed to create Subscription Object");
        // The record stands in the persist document, so this is never "no such subscription".
        return IsMissing(result) ? E_FAIL : result;
    }
    return ReadSnapShotList(record.archiveDirectory, record.subscriptionId, record.snapShots);
}

HRESULT SubscriptionPersistance::GetSnapShots(std::wstring_view directory, std::wstring_view subscriptionId,
                                              std::vector<SnapShot>& snapShots) {
    snapShots.clear();
    return TracedOperation("SubscriptionPersistance::GetSnapShots", "Unknown Exception Occured", [&]() -> HRESULT {
        ScopedLock lock(locks_, ArchiveLockName(subscriptionId));
        return lock.Held() ? ReadSnapShotList(directory, subscriptionId, snapShots) : lock.Result();
    });
}

HRESULT SubscriptionPersistance::ReadSnapShotList(std::wstring_view directory, std::wstring_view subscriptionId,
                                                  std::vector<SnapShot>& snapShots) {
    std::wstring text;
    HRESULT result = ReadStream(ConfigArchivePath(directory, subscriptionId), SnapShotInfoStream(subscriptionId), text);
    // No capture yet.
    if (IsMissing(result))
        return S_OK;
    if (result != S_OK)
        return result;
    XmlAccessor index;
    if (HRESULT created = index.Create(); created != S_OK)
        return created;
    if (index.Load(text) != S_OK) {
        VORNA_LOG(LOG_TRACE, "Load XML of \"%S failed", text.c_str());
        return RESULT_XML_MALFORMED;
    }
    std::wstring delimiter;
    if (index.GetDelimiter(delimiter) != S_OK) {
        VORNA_LOG(LOG_TRACE, "get_delimiter() failed");
        return E_FAIL;
    }
    std::wstring nodes;
    if (FAILED(index.QueryMarkup(L"/SnapShots/SnapShot", nodes))) {
        VORNA_LOG(LOG_TRACE, "Failed to get /SnapShots/SnapShot from the SnapShotInfo data");
        return E_FAIL;
    }
    const std::vector<std::wstring> pieces = SplitAtDelimiter(nodes, delimiter);
    // All values of a kind at once; where an entry lacks one, each entry is read by itself.
    const auto values = [&](std::wstring_view xpath) {
        std::wstring joined;
        (void)index.QueryText(xpath, joined);
        return SplitAtDelimiter(joined, delimiter);
    };
    const auto ids = values(L"/SnapShots/SnapShot/@Id");
    const auto times = values(L"/SnapShots/SnapShot/AccessTime");
    const auto flags = values(L"/SnapShots/SnapShot/AlreadyRead");
    const bool complete = ids.size() == pieces.size() && times.size() == pieces.size() && flags.size() == pieces.size();
    for (size_t i = 0; i < pieces.size(); ++i) {
        if (complete)
            snapShots.emplace_back(ids[i], times[i], flags[i]);
        else
            snapShots.emplace_back(pieces[i], index);
    }
    return S_OK;
}

HRESULT SubscriptionPersistance::DeleteSubscription(std::wstring_view subscriptionId) {
    const std::wstring id(subscriptionId);
    VORNA_LOG(LOG_TRACE, "Going to delete the node with ID = \"%S\" from Vorna Persist file", id.c_str());
    static constexpr Texts TEXTS{"SubscriptionPersistance::DeleteSubscription",
                                 "Failed to Load : ", "Failed to get updated vorna persist data"};
    return WithPersistDocument(TEXTS, Access::Change, [&](XmlAccessor& accessor) -> HRESULT {
        const std::wstring path = ById(id);
        std::wstring service, cookie, vornaId;
        if (!IsPlainValue(id) || accessor.QueryText(path + L"/@PATH", cookie) != S_OK)
            return RESULT_NO_SUBSCRIPTION;
        (void)accessor.QueryMarkup(path + L"/service", service);
        (void)accessor.QueryText(path + L"/@VORNAID", vornaId);
        const std::wstring node = L"<Subscription PATH=\"" + cookie + L"\" VORNAID=\"" + vornaId + L"\" ID=\"" + id +
                                  L"\" VALID=\"FALSE\">" + service + L"</Subscription>";
        if (accessor.Set(path, node, XmlChange::Replace) == S_OK)
            return S_OK;
        LogTraceText(L"Replacing : " + path + L" with " + node + L"Failed");
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
        const struct {
            HRESULT result;
            const char* failure;
        } values[] = {
            {accessor.QueryText(path + L"/@VORNAID", vornaId), "Failed to get vorna id from the Vorna Persist file"},
            {accessor.QueryText(path + L"/@PATH", cookie), "Failed to get PATH from the Vorna Persist file"},
            {accessor.QueryText(path + L"/@ENDDATE", endDate), "Failed to get EndDate from the Vorna Persist file"},
            {accessor.QueryMarkup(path + L"/service", service),
             "Failed to get service xml from the Vorna Persist file"},
        };
        for (const auto& value : values) {
            if (value.result != S_OK) {
                VORNA_LOG(LOG_TRACE, "%s", value.failure);
                return E_FAIL;
            }
        }
        if (endDate != expectedEndDate)
            return S_FALSE;
        const std::wstring node = L"<Subscription PATH=\"" + cookie + L"\" VORNAID=\"" + vornaId + L"\" ID=\"" + id +
                                  L"\" ENDDATE=\"" + endDate + L"\" AGED=\"TRUE\" VALID=\"TRUE\">" + service +
                                  L"</Subscription>";
        if (accessor.Set(path, node, XmlChange::Replace) == S_OK)
            return S_OK;
        LogTraceText(L"Replacing : " + path + L" node with " + node + L"Failed");
        return E_FAIL;
    });
}

// One value of the persist document; an empty one counts as missing.
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
    static constexpr Texts TEXTS{"SubscriptionPersistance::GetServiceXML", "Failed to Load: ", ""};
    return WithPersistDocument(TEXTS, Access::Read, [&](XmlAccessor& accessor) -> HRESULT {
        // The capital S is the documented path; the nodes hold "service".
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

HRESULT SubscriptionPersistance::GetSubscriptionText(std::wstring_view directory, std::wstring_view subscriptionId,
                                                     std::wstring& text) {
    text.clear();
    return TracedOperation(
        "SubscriptionPersistance::GetSubscriptionText", "Unknown Exception Occured", [&]() -> HRESULT {
            ScopedLock lock(locks_, ArchiveLockName(subscriptionId));
            if (!lock.Held())
                return lock.Result();
            return ReadStream(ConfigArchivePath(directory, subscriptionId), SubscriptionStream(subscriptionId), text);
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
    static constexpr Texts TEXTS{"SubscriptionPersistance::GetMaintainanceID", "Failed to Load: ", ""};
    return ReadValue(TEXTS, L"/Subscriptions/MaintainanceID/@ID",
                     "Failed to get Maintainance id from Vorna persist file", maintenanceId);
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

} // namespace vorna
