#include "tools/SubscriptionFile.h"

#include "common/com/results.h"
#include "common/services/XmlAccessor.h"
#include "common/xml/XmlCharacters.h"
#include "common/xml/XmlEscape.h"
#include "src/SubscriptionInfo.h"
#include "tools/Failure.h"
#include "tools/TextFile.h"

#include <filesystem>

namespace vornactl {

namespace {

constexpr const wchar_t* STYLESHEETS[] = {L"/Archive/KROEvent/EventPayload/TransformFile",
                                          L"/Archive/XDMEvent/EventPayload/TransformFile"};

std::filesystem::path FullPath(const std::wstring& name, const std::wstring& file) {
    std::error_code failed;
    const auto document = std::filesystem::absolute(file, failed);
    auto path = (document.parent_path() / name).lexically_normal().make_preferred();
    if (failed || !std::filesystem::is_regular_file(path, failed))
        throw Failure(HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), L"subscribing " + file,
                      L"The TransformFile \"" + name + L"\" is not there: " + path.wstring());
    return path;
}

// Documents that are not valid are left to the component, which refuses them or needs no more of them than Collect.
void CheckStorageSize(std::wstring_view document, const std::wstring& file) {
    const vorna::SubscriptionInfo info(document);
    if (info.Status() != S_OK || !info.Collect())
        return;
    const std::wstring limit = std::to_wstring(info.MaxStorageSize());
    if (info.SizeInKilobytes() && info.MaxStorageSize() < SMALLEST_KILOBYTES)
        throw Failure(
            E_INVALIDARG, L"subscribing " + file,
            L"MaxStorageSize is " + limit +
                L" KB, which no snapshot fits into: the archive file is not smaller than 20 KB with one, and has to stay below the limit. The smallest useful limit is " +
                std::to_wstring(SMALLEST_KILOBYTES) + L" KB.");
    if (!info.SizeInKilobytes() && info.MaxStorageSize() == 0)
        throw Failure(E_INVALIDARG, L"subscribing " + file,
                      L"MaxStorageSize is 0 files, which no snapshot fits into. The smallest useful limit is 1 file.");
}

} // namespace

std::wstring ReadSubscription(const std::wstring& file) {
    std::wstring document = ReadDocument(file);
    vorna::XmlAccessor accessor;
    // If it cannot be loaded, the component refuses it with its own text.
    if (accessor.Create() != S_OK || accessor.Load(document) != S_OK)
        return document;
    CheckStorageSize(document, file);
    for (const std::wstring element : STYLESHEETS) {
        std::wstring value;
        if (accessor.QueryText(element, value) != S_OK)
            continue;
        const std::wstring name(vorna::Trimmed(value));
        if (name.empty() || std::filesystem::path(name).is_absolute())
            continue;
        const std::wstring path = vorna::EscapeXml(FullPath(name, file).wstring());
        HRESULT result =
            accessor.Set(element, L"<TransformFile>" + path + L"</TransformFile>", vorna::XmlChange::Replace);
        if (result == S_OK)
            result = accessor.QueryMarkup(L"/", document);
        if (result != S_OK)
            throw Failure(FAILED(result) ? result : E_FAIL, L"subscribing " + file,
                          L"The TransformFile \"" + name + L"\" cannot be written as a full path.");
    }
    return document;
}

SubscriptionSummary Summarise(std::wstring_view document) {
    SubscriptionSummary summary;
    vorna::XmlAccessor accessor;
    std::wstring collect;
    if (accessor.Create() == S_OK && accessor.Load(document) == S_OK &&
        accessor.QueryText(L"/Archive/@ID", summary.archiveId) == S_OK &&
        accessor.QueryText(L"/Archive/Collect", collect) == S_OK)
        summary.collect = collect == L"ON";
    return summary;
}

std::wstring EndingDocument(std::wstring_view archiveId) {
    return L"<Archive ID=\"" + vorna::EscapeXml(archiveId, vorna::XmlContext::Attribute) +
           L"\"><Collect>OFF</Collect></Archive>";
}

} // namespace vornactl
