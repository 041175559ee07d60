#include "platform/service/ServiceObject.h"

#include <utility>

namespace keldan {

namespace {

HRESULT Give(const std::wstring& text, BSTR* value) {
    if (!value)
        return E_POINTER;
    *value = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    return *value ? S_OK : E_OUTOFMEMORY;
}

} // namespace

ServiceObject::ServiceObject(Description values) : values_(std::move(values)) {}

STDMETHODIMP ServiceObject::get_portID(BSTR* value) {
    return Give(values_.portId, value);
}
STDMETHODIMP ServiceObject::get_serviceId(BSTR* value) {
    return Give(values_.serviceId, value);
}
STDMETHODIMP ServiceObject::get_serviceURI(BSTR* value) {
    return Give(values_.serviceUri, value);
}
STDMETHODIMP ServiceObject::get_model(BSTR* value) {
    return Give(values_.model, value);
}
STDMETHODIMP ServiceObject::get_address(BSTR* value) {
    return Give(values_.address, value);
}
STDMETHODIMP ServiceObject::get_addressType(BSTR* value) {
    return Give(values_.addressType, value);
}
STDMETHODIMP ServiceObject::get_friendlyName(BSTR* value) {
    return Give(values_.friendlyName, value);
}

} // namespace keldan
