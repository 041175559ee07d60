#include "common/services/XmlAccessor.h"

#include "common/com/bstr.h"
#include "common/com/results.h"
#include "common/log/Logging.h"
#include "common/services/platformservices.h"

#include <algorithm>

namespace vorna {

namespace {

// Treats success codes other than S_OK as failures.
HRESULT StrictResult(HRESULT result) {
    return result == S_OK || FAILED(result) ? result : E_FAIL;
}

// The pieces of a result with several nodes, in order, without empty ones.
std::vector<std::wstring> SplitAtDelimiter(std::wstring_view text, std::wstring_view delimiter) {
    std::vector<std::wstring> pieces;
    for (size_t begin = 0; begin < text.size();) {
        const size_t end = std::min(text.find_first_of(delimiter, begin), text.size());
        if (end > begin)
            pieces.emplace_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return pieces;
}

constexpr long KIND_TEXT = 4;
constexpr long KIND_MARKUP = 8;

} // namespace

HRESULT XmlAccessor::Create() {
    const HRESULT result = PlatformServices::CreateInstance(PROGID_XML_ACCESSOR, nullptr, accessor_);
    if (result == S_OK && accessor_)
        return S_OK;
    VORNA_LOG(LOG_TRACE, "Create Instance of XMLSIMPLEACCESSOR failed");
    accessor_.reset();
    return RESULT_XML_ACCESSOR;
}

HRESULT XmlAccessor::Load(std::wstring_view document) {
    if (!accessor_)
        return E_UNEXPECTED;
    return StrictResult(accessor_->Load(bstr(document).get()));
}

HRESULT XmlAccessor::QueryText(std::wstring_view xpath, std::wstring& result) {
    return Query(xpath, KIND_TEXT, result);
}

HRESULT XmlAccessor::QueryMarkup(std::wstring_view xpath, std::wstring& result) {
    return Query(xpath, KIND_MARKUP, result);
}

HRESULT XmlAccessor::Query(std::wstring_view xpath, long kind, std::wstring& result) {
    result.clear();
    if (!accessor_)
        return E_UNEXPECTED;
    bstr text;
    const HRESULT answer = StrictResult(accessor_->Query(bstr(xpath).get(), kind, text.put()));
    if (answer != S_OK)
        return answer;
    result = text.view();
    return result.empty() ? S_FALSE : S_OK;
}

HRESULT XmlAccessor::QueryTexts(std::wstring_view xpath, std::vector<std::wstring>& results) {
    return QueryAll(xpath, KIND_TEXT, results);
}

HRESULT XmlAccessor::QueryMarkups(std::wstring_view xpath, std::vector<std::wstring>& results) {
    return QueryAll(xpath, KIND_MARKUP, results);
}

HRESULT XmlAccessor::QueryAll(std::wstring_view xpath, long kind, std::vector<std::wstring>& results) {
    results.clear();
    std::wstring joined, delimiter;
    HRESULT result = Query(xpath, kind, joined);
    if (result != S_OK)
        return result == S_FALSE ? S_OK : result;
    result = GetDelimiter(delimiter);
    if (result == S_OK)
        results = SplitAtDelimiter(joined, delimiter);
    return result;
}

HRESULT XmlAccessor::Set(std::wstring_view xpath, std::wstring_view markup, XmlChange mode) {
    if (!accessor_)
        return E_UNEXPECTED;
    return StrictResult(accessor_->Set(bstr(xpath).get(), bstr(markup).get(), static_cast<long>(mode)));
}

template <typename Function>
HRESULT XmlAccessor::Read(Function get, std::wstring& result) {
    result.clear();
    if (!accessor_)
        return E_UNEXPECTED;
    bstr text;
    const HRESULT answer = StrictResult(get(text.put()));
    if (answer == S_OK)
        result = text.view();
    return answer;
}

HRESULT XmlAccessor::GetDelimiter(std::wstring& delimiter) {
    const HRESULT result = Read([&](BSTR* text) { return accessor_->get_delimiter(text); }, delimiter);
    if (result != S_OK)
        VORNA_LOG(LOG_TRACE, "get_delimiter() failed");
    return result;
}

HRESULT XmlAccessor::GetRootName(std::wstring& name) {
    return Read([&](BSTR* text) { return accessor_->get_RootName(text); }, name);
}

HRESULT XmlAccessor::GetNamespaceList(std::wstring& declarations) {
    return Read([&](BSTR* text) { return accessor_->get_NamespaceList(text); }, declarations);
}

HRESULT XmlAccessor::TransformByFile(std::wstring_view stylesheetFile, std::wstring& result) {
    const bstr file(stylesheetFile);
    return Read([&](BSTR* text) { return accessor_->TransformByFile(file.get(), text); }, result);
}

} // namespace vorna
