#include "platform/eventaccess/ModelReading.h"

#include "platform/aggregator/NodeMarkup.h"
#include "platform/aggregator/Prefixes.h"
#include "platform/eventaccess/Expression.h"

namespace keldan {

ModelReading::ModelReading(std::wstring_view model) : document_(model) {
    std::wstring message;
    // A list that cannot be read back leaves its prefixes unknown.
    if (!ReadPrefixes(document_.namespaceList(), prefixes_, message))
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

} // namespace keldan
