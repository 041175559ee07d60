// Implements the methods of Vorna: finds the subscription of a request or a callback and passes the work to it.
//
// Stateless. Every operation writes its error text into the caller's buffer. Exceptions are caught (0x8000015E,
// "Unknown Exception Occured"); only processor faults are rethrown.
#pragma once

#include "common/services/XmlAccessor.h"
#include "common/text/CPWStringBuffer.h"
#include "persist/SubscriptionPersistance.h"
#include "src/SubscriptionInfo.h"

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

    // The parts of a GetData path: /Archive[@ID='...']/inner.
    struct ArchivePath {
        // Empty if the first step does not name an archive.
        std::wstring archiveId;
        // The path from the second step on; the whole path if there is no second step.
        std::wstring innerPath;
        // False if the value of @ID contains a blank.
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
    HRESULT SetDataOf(IUnknown* service, const std::wstring& key, SubscriptionInfo request, CPWStringBuffer& errorText);
    HRESULT ReadCallBack(CallBack& callBack, CPWStringBuffer& errorText);
    HRESULT Dispatch(const CallBack& callBack, CPWStringBuffer& errorText);
    HRESULT Unsubscribe(const CallBack& callBack, SubscriptionPersistance& persistance, CPWStringBuffer& errorText);
    HRESULT RunMaintenance();
    void Maintain(const SubscriptionListEntry& entry, SubscriptionPersistance& persistance);
};

} // namespace vorna
