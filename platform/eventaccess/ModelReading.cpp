#include "platform/eventaccess/ModelReading.h"

#include "common/com/result_error.h"
#include "common/com/unique_hash.h"
#include "platform/eventaccess/Expression.h"
#include "platform/xml/NodeMarkup.h"
#include "platform/xml/Prefixes.h"

namespace keldan {

namespace {

// A cryptographic hash, so that a writer of the model cannot hide a change.
std::string DigestOf(std::wstring_view text) {
    vorna::sha256_digest digest;
    vorna::throw_if_failed(vorna::sha256({std::as_bytes(std::span(text))}, {}, digest));
    return {digest.begin(), digest.end()};
}

} // namespace

ModelReading::ModelReading(std::wstring_view model) : document_(model) {
    std::wstring message;
    // If the list cannot be parsed, its prefixes stay unknown.
    if (!ReadPrefixes(document_.NamespaceList(), prefixes_, message))
        prefixes_.clear();
}

std::vector<XmlNode> ModelReading::Select(const std::wstring& question) {
    AddUnknownPrefixes(question, prefixes_);
    return document_.Select(question, prefixes_);
}

bool ModelReading::Holds(const std::wstring& xpath, const std::wstring& condition) {
    const std::wstring question = L"(" + xpath + L")[boolean(" + condition + L")]";
    if (const auto known = truths_.find(question); known != truths_.end())
        return known->second;
    return truths_[question] = !Select(question).empty();
}

const std::wstring& ModelReading::Data(const std::wstring& xpath) {
    if (const auto known = data_.find(xpath); known != data_.end())
        return known->second;
    std::wstring markup;
    for (const XmlNode& node : Select(xpath))
        AppendNode(document_, node, markup);
    return data_[xpath] = std::move(markup);
}

const std::string& ModelReading::Digest(const std::wstring& xpath) {
    const auto known = digests_.find(xpath);
    return known != digests_.end() ? known->second : digests_[xpath] = DigestOf(Data(xpath));
}

} // namespace keldan
