#include "platform/xml/XMLSimpleAccessor.h"

#include "common/com/bstr.h"
#include "platform/xml/Stylesheet.h"

#include <string>

namespace keldan {

namespace {

// A character that no XML document may contain in any form, so no part of an answer contains it.
constexpr wchar_t DELIMITER[] = L"\x01";

constexpr long KIND_TEXT = 4;
constexpr long KIND_MARKUP = 8;

// Runs a method that returns a text.
template <typename Function>
HRESULT Answer(BSTR* result, Function text) {
    if (!result)
        return E_POINTER;
    *result = nullptr;
    return vorna::closed_door([&] {
        *result = vorna::bstr(text()).release();
        return S_OK;
    });
}

} // namespace

XmlDocument& XMLSimpleAccessor::Document() {
    if (!document_)
        throw vorna::result_error(E_UNEXPECTED);
    return *document_;
}

STDMETHODIMP XMLSimpleAccessor::get_delimiter(BSTR* text) {
    return Answer(text, [] { return DELIMITER; });
}

STDMETHODIMP XMLSimpleAccessor::Load(BSTR text) {
    document_.reset();
    return vorna::closed_door([&] {
        document_.emplace(vorna::view_of(text));
        return S_OK;
    });
}

STDMETHODIMP XMLSimpleAccessor::Query(BSTR xpath, long kind, BSTR* result) {
    return Answer(result, [&] {
        if (kind != KIND_TEXT && kind != KIND_MARKUP)
            throw vorna::result_error(E_INVALIDARG);
        const auto nodes = Document().Select(vorna::view_of(xpath));
        // The root element alone means the whole document.
        if (kind == KIND_MARKUP && nodes.size() == 1 && nodes[0].IsRoot())
            return Document().Text();
        std::wstring joined;
        for (size_t i = 0; i < nodes.size(); ++i) {
            if (i > 0)
                joined += DELIMITER;
            joined += kind == KIND_TEXT ? nodes[i].Text() : Document().Markup(nodes[i]);
        }
        return joined;
    });
}

STDMETHODIMP XMLSimpleAccessor::Set(BSTR xpath, BSTR markup, long mode) {
    return vorna::closed_door([&] {
        if (mode < static_cast<long>(ChangeMode::Insert) || mode > static_cast<long>(ChangeMode::Replace))
            return E_INVALIDARG;
        const auto nodes = Document().Select(vorna::view_of(xpath));
        if (nodes.empty())
            return vorna::result_from_win32(ERROR_NOT_FOUND);
        Document().Change(nodes[0], vorna::view_of(markup), static_cast<ChangeMode>(mode));
        return S_OK;
    });
}

STDMETHODIMP XMLSimpleAccessor::get_RootName(BSTR* name) {
    return Answer(name, [&] { return Document().RootName(); });
}

STDMETHODIMP XMLSimpleAccessor::get_NamespaceList(BSTR* declarations) {
    return Answer(declarations, [&] { return Document().NamespaceList(); });
}

STDMETHODIMP XMLSimpleAccessor::TransformByFile(BSTR stylesheetFile, BSTR* result) {
    return Answer(result, [&] { return Transform(Document().Text(), std::wstring(vorna::view_of(stylesheetFile))); });
}

} // namespace keldan
