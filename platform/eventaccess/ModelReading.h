// One reading of one data model, asked by everybody who watches it. Each question is put to the document once, however
// many ask it. One thread at a time.
#pragma once

#include "platform/xml/XmlDocument.h"

#include <map>
#include <string>
#include <string_view>

namespace keldan {

class ModelReading {
  public:
    // Throws result_error with 0x8000012D where the model is not well-formed, nests too deep or has a document type
    // definition.
    explicit ModelReading(std::wstring_view model);

    // Expressions are such as Expression.h accepts. Prefixes are those that the model declares. All throw failure:
    // ERROR_NOT_ENOUGH_QUOTA's result where the question would take too long on this model, E_INVALIDARG where MSXML
    // cannot answer it.
    //
    // Whether the condition is true for at least one of the nodes that xpath selects.
    bool Holds(const std::wstring& xpath, const std::wstring& condition);
    // The nodes that xpath selects, as the aggregator gives them; valid as long as the reading.
    const std::wstring& Data(const std::wstring& xpath);
    // A digest of these data. Throws E_OUTOFMEMORY as well.
    const std::string& Digest(const std::wstring& xpath);

  private:
    std::vector<XmlNode> Select(const std::wstring& question);

    XmlDocument document_;
    PrefixMap prefixes_;
    std::map<std::wstring, bool> truths_;
    std::map<std::wstring, std::wstring> data_;
    std::map<std::wstring, std::string> digests_;
};

} // namespace keldan
