// Subscription documents in files. Needs COM on the thread.
#pragma once

#include <string>
#include <string_view>

namespace vornactl {

// The subscription document in a file. A stylesheet (TransformFile) that it names by a relative path is named by its
// full path in the result: relative to the folder of the file, since what reads the stylesheet later is another process
// with another working folder. Everything else stays as it is written. Throws Failure with the file's name; also where
// such a stylesheet is not there.
std::wstring ReadSubscription(const std::wstring& file);

// What a subscription document asks for, as far as it can be read.
struct SubscriptionSummary {
    std::wstring archiveId;
    bool collect = false;
};
SubscriptionSummary Summarise(std::wstring_view document);

// The document that ends an archive which is there.
std::wstring EndingDocument(std::wstring_view archiveId);

} // namespace vornactl
