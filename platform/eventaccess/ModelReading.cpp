#include "platform/eventaccess/ModelReading.h"

#include "common/com/result_error.h"
#include "common/com/unique_hash.h"
#include "platform/eventaccess/Expression.h"
#include "platform/xml/NodeMarkup.h"
#include "platform/xml/Prefixes.h"

namespace keldan {

namespace {

// SHA-256: whoever writes the model must not be able to hide a change.
std::string DigestOf(const std::wstring& text) {
    vorna::unique_algorithm algorithm;
    vorna::unique_hash hash;
    std::string digest(32, '\0');
    NTSTATUS status = BCryptOpenAlgorithmProvider(algorithm.put(), BCRYPT_SHA256_ALGORITHM, nullptr, 0);
    if (status >= 0)
        status = BCryptCreateHash(algorithm.get(), hash.put(), nullptr, 0, nullptr, 0, 0);
    if (status >= 0)
        status = BCryptHashData(hash.get(), reinterpret_cast<PUCHAR>(const_cast<wchar_t*>(text.data())),
                                static_cast<ULONG>(text.size() * sizeof(wchar_t)), 0);
    if (status >= 0)
        status = BCryptFinishHash(hash.get(), reinterpret_cast<PUCHAR>(digest.data()), digest.size(), 0);
    // A hash of the system's own fails only if there is no memory for it.
    if (status < 0)
        throw vorna::result_error(E_OUTOFMEMORY);
    return digest;
}

} // namespace

ModelReading::ModelReading(std::wstring_view model) : document_(model) {
    std::wstring message;
    // A list that cannot be read back leaves its prefixes unknown.
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
