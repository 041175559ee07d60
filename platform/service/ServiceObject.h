// The description of one device or service.
#pragma once

#include "QXKeldan.h"
#include "common/com/com_server.h"

#include <string>
#include <utility>

namespace keldan {

// Immutable, so any number of threads may read it.
class ServiceObject : public vorna::dispatch_object<ServiceObject, IZEBServiceObject> {
  public:
    struct Description {
        std::wstring portId;
        std::wstring serviceId;
        std::wstring serviceUri;
        std::wstring model;
        std::wstring address;
        std::wstring addressType;
        std::wstring friendlyName;
    };

    explicit ServiceObject(Description values) : values_(std::move(values)) {}

    STDMETHODIMP get_portID(BSTR* value) override { return Give(values_.portId, value); }
    STDMETHODIMP get_serviceId(BSTR* value) override { return Give(values_.serviceId, value); }
    STDMETHODIMP get_serviceURI(BSTR* value) override { return Give(values_.serviceUri, value); }
    STDMETHODIMP get_model(BSTR* value) override { return Give(values_.model, value); }
    STDMETHODIMP get_address(BSTR* value) override { return Give(values_.address, value); }
    STDMETHODIMP get_addressType(BSTR* value) override { return Give(values_.addressType, value); }
    STDMETHODIMP get_friendlyName(BSTR* value) override { return Give(values_.friendlyName, value); }

  private:
    static HRESULT Give(const std::wstring& text, BSTR* value) {
        if (!value)
            return E_POINTER;
        *value = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
        return *value ? S_OK : E_OUTOFMEMORY;
    }

    const Description values_;
};

} // namespace keldan
