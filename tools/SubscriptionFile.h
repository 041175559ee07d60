// Subscription documents in files. Needs COM on the thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vornactl {

// The smallest limit in kilobytes with which an archive can hold a snapshot: the component removes snapshots until the
// file is below the limit, and with one short snapshot the file has 20,480 bytes.
inline constexpr std::uint32_t SMALLEST_KILOBYTES = 21;

// The subscription document in a file. A relative path of a stylesheet (TransformFile), which is relative to the folder
// of the file, becomes a full path, because another process with another working folder reads the stylesheet later.
// Everything else is kept letter for letter. Throws Failure with the file's name; also if such a stylesheet is missing,
// and E_INVALIDARG for the document of an archive whose MaxStorageSize is too small for any snapshot, which the
// component would take as it is.
std::wstring ReadSubscription(const std::wstring& file);

// What a subscription document requests, as far as it can be read.
struct SubscriptionSummary {
    std::wstring archiveId;
    bool collect = false;
};
SubscriptionSummary Summarise(std::wstring_view document);

// The document that ends an existing archive.
std::wstring EndingDocument(std::wstring_view archiveId);

} // namespace vornactl
