// The work behind the methods of Vorna: finds the subscription that a request or a callback is about and hands it on.
//
// No state; made for one call. Every operation writes its error text into the caller's buffer and catches what is
// thrown inside it (0x8000015E, "Unknown Exception Occured"); only processor faults pass.
#pragma once

#include "common/services/XmlAccessor.h"
#include "common/text/CPWStringBuffer.h"
#include "persist/SubscriptionPersistance.h"

#include <oleauto.h>

#include <string>
#include <string_view>

namespace vorna {

class VornaHandler {
  public:
    // xdmDocument is set on success only.
    [[nodiscard]] HRESULT HandleGetData(IUnknown* pService, BSTR xPath, BSTR xdmPrefixes, CPWStringBuffer& errorText,
                                        BSTR* xdmDocument);
    [[nodiscard]] HRESULT HandleSetData(IUnknown* pService, BSTR subscriptionInfoXml, CPWStringBuffer& errorText);
    [[nodiscard]] HRESULT HandleCallBack(BSTR eventInfo, CPWStringBuffer& errorText);

    // What the first step of a GetData path says: /Archive[@ID='...']/inner.
    struct ArchivePath {
        // Empty where the first step names no archive.
        std::wstring archiveId;
        // The path from the second step on; the whole path where there is no second step.
        std::wstring innerPath;
        // False where the value of @ID holds a blank.
        bool valid = true;
    };
    static ArchivePath ParseArchivePath(std::wstring_view xPath);

  private:
    struct CallBack {
        std::wstring_view document;
        std::wstring root;
        std::wstring subscriptionId;
        std::wstring clientCookie;
    };

    HRESULT GetData(IUnknown* service, std::wstring_view xPath, std::wstring_view prefixes, CPWStringBuffer& errorText,
                    BSTR* xdmDocument);
    HRESULT SetData(IUnknown* service, std::wstring_view document, CPWStringBuffer& errorText);
    HRESULT ReadCallBack(CallBack& callBack, CPWStringBuffer& errorText);
    HRESULT Dispatch(const CallBack& callBack, CPWStringBuffer& errorText);
    HRESULT Unsubscribe(const CallBack& callBack, SubscriptionPersistance& persistance, CPWStringBuffer& errorText);
    HRESULT RunMaintenance();
    void Maintain(const SubscriptionListEntry& entry, SubscriptionPersistance& persistance);
};

} // namespace vorna
