// "QXKELDAN.XMLSimpleAccessor": one XML document in memory, queried and changed by XPath 1.0; backed by MSXML.
#pragma once

#include "QXKeldan.h"
#include "common/com/com_server.h"
#include "platform/xml/XmlDocument.h"

#include <optional>

namespace keldan {

// One thread at a time. Before the first Load, and after one that failed, operations on the document return
// E_UNEXPECTED. The prefixes of a path are those of NamespaceList.
class XMLSimpleAccessor : public vorna::dispatch_object<XMLSimpleAccessor, IXMLSimpleAccessor> {
  public:
    STDMETHODIMP get_delimiter(BSTR* text) override;
    STDMETHODIMP Reserved8() override { return E_NOTIMPL; }
    STDMETHODIMP Reserved9() override { return E_NOTIMPL; }
    STDMETHODIMP Reserved10() override { return E_NOTIMPL; }
    STDMETHODIMP Reserved11() override { return E_NOTIMPL; }
    STDMETHODIMP Load(BSTR document) override;
    STDMETHODIMP Reserved13() override { return E_NOTIMPL; }
    STDMETHODIMP Reserved14() override { return E_NOTIMPL; }
    STDMETHODIMP Query(BSTR xpath, long kind, BSTR* result) override;
    STDMETHODIMP Reserved16() override { return E_NOTIMPL; }
    // If the path selects several nodes, the first in document order is changed. Inserted markup becomes the first
    // child. For an attribute, the markup is its new value. A failure changes nothing.
    STDMETHODIMP Set(BSTR xpath, BSTR markup, long mode) override;
    STDMETHODIMP get_RootName(BSTR* name) override;
    STDMETHODIMP get_NamespaceList(BSTR* declarations) override;
    STDMETHODIMP TransformByFile(BSTR stylesheetFile, BSTR* result) override;

  private:
    XmlDocument& Document();

    std::optional<XmlDocument> document_;
};

} // namespace keldan
