// The description of one device or service.
#pragma once

#include "QXKeldan.h"
#include "common/com/com_server.h"

#include <string>

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

    explicit ServiceObject(Description values);

    STDMETHODIMP get_portID(BSTR* value) override;
    STDMETHODIMP get_serviceId(BSTR* value) override;
    STDMETHODIMP get_serviceURI(BSTR* value) override;
    STDMETHODIMP get_model(BSTR* value) override;
    STDMETHODIMP get_address(BSTR* value) override;
    STDMETHODIMP get_addressType(BSTR* value) override;
    STDMETHODIMP get_friendlyName(BSTR* value) override;

  private:
    const Description values_;
};

} // namespace keldan
