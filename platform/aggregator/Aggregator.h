// "QXKELDAN.Aggregator": data of a service, taken from its data model at the moment of the call.
//
// The answer is what the XPath selects. If it selects the document or its root element, the answer is the whole
// document. Otherwise its root element is <Data service="the serviceURI">, with the selected nodes in document order:
// elements, comments and processing instructions as they are in the model, with the namespace declarations that they
// need; an attribute as <Attribute name="..." namespace="...">value</Attribute> (no namespace if it has none), text as
// <Text>text</Text>.
//
//   S_FALSE       the model exists, nothing was selected
//   E_INVALIDARG  the prefixes or the XPath are not valid
//   0x80000142    the service is not a service object
//   0x80070490    the service has no data model
//   0x8000012D    its stored model is not well-formed, or has a document type definition
// Free-threaded; objects hold no state.
#pragma once

#include "QXKeldan.h"
#include "common/com/com_server.h"

namespace keldan {

class Aggregator : public vorna::dispatch_object<Aggregator, IAggregator> {
  public:
    STDMETHODIMP GetData(IUnknown* service, BSTR xpath, BSTR prefixes, BSTR* data, BSTR* secondResult) override;
};

} // namespace keldan
