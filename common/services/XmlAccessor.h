// The platform's XML accessor, "QXKELDAN.XMLSimpleAccessor": one document, queried and changed by XPath.
//
// Create a new object for each task. One thread at a time.
#pragma once

#include "QXKeldan.h"
#include "common/com/com_ptr.h"

#include <string>
#include <string_view>
#include <vector>

namespace vorna {

// How Set changes a document.
enum class XmlChange : long { Insert = 1, Append = 2, Replace = 3 };

class XmlAccessor {
  public:
    // Creates the component's instance; every other operation needs it. 0x80000151 on failure, which is logged.
    [[nodiscard]] HRESULT Create();

    // Anything but S_OK means that the document is not well-formed.
    [[nodiscard]] HRESULT Load(std::wstring_view document);

    // The text (kind 4) or the markup (kind 8) of what the path selects; several nodes are joined by the delimiter.
    // S_OK only with a result that is not empty; S_FALSE for an empty one, which counts as a missing node. result is
    // empty on everything but S_OK.
    [[nodiscard]] HRESULT QueryText(std::wstring_view xpath, std::wstring& result);
    [[nodiscard]] HRESULT QueryMarkup(std::wstring_view xpath, std::wstring& result);

    // The same for each selected node separately, in document order, without empty texts. S_OK also if there are none.
    [[nodiscard]] HRESULT QueryTexts(std::wstring_view xpath, std::vector<std::wstring>& results);
    [[nodiscard]] HRESULT QueryMarkups(std::wstring_view xpath, std::vector<std::wstring>& results);

    // Changes the node that the path selects; a failure changes nothing. Empty markup with Replace deletes the node.
    [[nodiscard]] HRESULT Set(std::wstring_view xpath, std::wstring_view markup, XmlChange mode);

    // The text between the nodes in the result of a query. A failure is logged.
    [[nodiscard]] HRESULT GetDelimiter(std::wstring& delimiter);
    [[nodiscard]] HRESULT GetRootName(std::wstring& name);
    // The document's namespace declarations in the form of MSXML's SelectionNamespaces property; may be empty.
    [[nodiscard]] HRESULT GetNamespaceList(std::wstring& declarations);
    [[nodiscard]] HRESULT TransformByFile(std::wstring_view stylesheetFile, std::wstring& result);

  private:
    HRESULT Query(std::wstring_view xpath, long kind, std::wstring& result);
    HRESULT QueryAll(std::wstring_view xpath, long kind, std::vector<std::wstring>& results);
    template <typename Function>
    HRESULT Read(Function get, std::wstring& result);

    com_ptr<IXMLSimpleAccessor> accessor_;
};

} // namespace vorna
