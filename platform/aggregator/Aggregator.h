// "QXKELDAN.Aggregator": data of a service, taken from its data model at the moment of the call.
//
// The answer holds what the XPath selects. Where the document or its root element is among it, the answer is the whole
// document. Otherwise its root element is <Data service="the serviceURI">, with the selected nodes in document order:
// elements, comments and processing instructions as they are in the model, with the namespace declarations that they
// need; an attribute as <Attribute name="..." namespace="...">value</Attribute> (no namespace where it has none), text
// as <Text>text</Text>.
//
//   S_FALSE       the model is there, nothing was selected
//   E_INVALIDARG  the prefixes or the XPath are none
//   0x80000142    no service object
//   0x80070490    the service has no data model
//   0x8000012D    its stored model is not well-formed, or has a document type definition
// Free-threaded; an object holds nothing.
#pragma once

#include "QXKeldan.h"
#include "common/com/com_server.h"

namespace keldan {

class Aggregator : public vorna::dispatch_object<Aggregator, IAggregator> {
  public:
    STDMETHODIMP GetData(IUnknown* service, BSTR xpath, BSTR prefixes, BSTR* data, BSTR* secondResult) override;
};

} // namespace keldan
