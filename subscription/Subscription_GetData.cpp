// GetData: one document with all snapshots, each reduced to the selected nodes.

#include "common/com/bstr.h"
#include "common/log/CatchAll.h"
#include "common/sparse/SparseXml.h"
#include "common/text/ErrorText.h"
#include "subscription/Subscription.h"
#include "subscription/archive/SamAccessor.h"

namespace vorna {

namespace {

// Converts an Id to a time: 2005-3-7T14_5_9 becomes 2005-03-07T14:05:09.
std::wstring TimestampOf(std::wstring_view id) {
    std::wstring timestamp, field;
    const auto endField = [&] {
        if (field.size() == 1)
            timestamp += L'0';
        timestamp += field;
        field.clear();
    };
    for (wchar_t letter : id) {
        if (letter >= L'0' && letter <= L'9') {
            field += letter;
            continue;
        }
        endField();
        timestamp += letter == L'_' ? L':' : letter;
    }
    endField();
    return timestamp;
}

} // namespace

// Holds the archive lock for this read only, so that captures are not delayed. False: the lock could not be acquired.
bool Subscription::ReadSnapShot(SamAccessor& archive, std::wstring_view snapShotId, bstr& data, HRESULT& result) {
    const NamedLock lock = record_.Archive().Lock();
    if (!lock.Held())
        return false;
    archive.SetFileName(snapShotId);
    result = archive.getStreamFromArchive(data);
    return true;
}

HRESULT Subscription::CollectSnapShots(std::wstring_view xpath, CPWStringBuffer& document,
                                       std::vector<SnapShot>& contributed, CPWStringBuffer& errorText) {
    const std::wstring path = record_.Archive().SnapShotsPath();
    SamAccessor archive(path);
    VORNA_LOG(LOG_TRACE, "Getting data from SnapShots in \"%S\" Archive", path.c_str());
    document.Assign(L"<Archive><ArchiveData ID=\"");
    // The cookie ends with the archive's ID, which is thus known even if the subscription document cannot be parsed.
    document.Append(record_.clientCookie.substr(record_.clientCookie.find_last_of(L'\\') + 1));
    document.Append(L"\">");

    int number = 0;
    bool anyRead = false;
    std::wstring narrowed;
    for (SnapShot& snapShot : record_.snapShots) {
        bstr data;
        HRESULT read = E_FAIL;
        if (!ReadSnapShot(archive, snapShot.id, data, read)) {
            errorText = L"The archive is locked by another request";
            return E_FAIL;
        }
        VORNA_LOG(LOG_TRACE, "Get data from SnapShot: %S%s", snapShot.id.c_str(),
                  read == S_OK ? " Succeeded" : "Failed");
        if (read != S_OK) {
            VORNA_LOG(LOG_ERROR, "A snapshot cannot be read (hr: %#x) : %S", static_cast<unsigned>(read),
                      snapShot.id.c_str());
            continue;
        }
        anyRead = true;
        std::wstring_view content = data.view();
        if (!xpath.empty()) {
            VORNAUTILITY::GetSparseXMLFromXPath(content, xpath, narrowed);
            if (narrowed.empty()) {
                VORNA_LOG(LOG_TRACE, "Failed to apply xPath to Archive Data. Not Adding the data to result data");
                continue;
            }
            content = narrowed;
        }
        document.Append(L"<Snapshot id=\"" + std::to_wstring(++number) + L"\" timestamp=\"" + TimestampOf(snapShot.id) +
                        L"\">");
        document.Append(content);
        document.Append(L"</Snapshot>");
        snapShot.alreadyRead = 1;
        snapShot.accessTime = LocalNow();
        contributed.push_back(snapShot);
    }
    if (number == 0) {
        errorText = anyRead ? L"Could not find the required data in the archive" : L"No Data Present in the Archive";
        VORNA_LOG(LOG_TRACE, "%S", errorText.c_str());
        return E_FAIL;
    }
    document.Append(L"</ArchiveData></Archive>");
    return S_OK;
}

HRESULT Subscription::HandleGetData(std::wstring_view xpath, std::wstring_view, BSTR* result,
                                    CPWStringBuffer& errorText) {
    const auto otherwise = FailWith(errorText, E_FAIL, L"Unknown Exception. Failed to get the Data from the archive");
    const auto work = [&]() -> HRESULT {
        VORNA_LOG(
            LOG_TRACE,
            "In the GetData of subscription with subscription ID :\"%S\" and Vorna ID :\"%S\" and ServiceObject :\"%S\"",
            record_.subscriptionId.c_str(), record_.vornaId.c_str(), record_.serviceXml.c_str());
        // If the subscription document cannot be parsed, the lifetimes are unknown.
        if (info_.Status() == S_OK && DeleteTheAgedFilesFromArchive() == 0)
            VORNA_LOG(LOG_TRACE,
                      "Failed to delete the aged files from the archive. Proceeding to get the data from archive");
        CPWStringBuffer document;
        std::vector<SnapShot> contributed;
        if (HRESULT collected = CollectSnapShots(xpath, document, contributed, errorText); collected != S_OK)
            return collected;
        bstr answer(document.view());
        // Only what the caller gets is marked as read. One write for all: every write rewrites the whole index, so
        // separate writes would take quadratic time.
        if (HRESULT marked = persistance_.RefreshSnapShots(record_.Archive(), contributed); marked != S_OK)
            VORNA_LOG(LOG_WARNING, "The snapshots could not be marked as read (hr: %#x)",
                      static_cast<unsigned>(marked));
        *result = answer.release();
        return S_OK;
    };
    return CatchAll("Subscription::HandleGetData", otherwise, work,
                    "Unknown Exception. Failed to get the Data from the archive");
}

} // namespace vorna
