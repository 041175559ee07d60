// One reading of one data model, shared by its registrations: each expression is evaluated once. One thread at a time.
#pragma once

#include "platform/xml/XmlDocument.h"

#include <map>
#include <string>
#include <string_view>

namespace keldan {

class ModelReading {
  public:
    // Throws result_error with 0x8000012D if the model is not well-formed, nests too deep or has a document type
    // definition.
    explicit ModelReading(std::wstring_view model);

    // Expressions must be accepted by Expression.h. They use the prefixes that the model declares. All functions throw
    // result_error: 0x80070718 (ERROR_NOT_ENOUGH_QUOTA) if the evaluation would take too long on this model,
    // E_INVALIDARG if MSXML cannot evaluate the expression.
    //
    // Whether the condition is true for at least one of the nodes that xpath selects.
    bool Holds(const std::wstring& xpath, const std::wstring& condition);
    // The nodes that xpath selects, in the form of the aggregator's answers; valid as long as this object exists.
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
