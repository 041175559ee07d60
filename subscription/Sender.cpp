#include "subscription/Sender.h"

#include "common/com/results.h"
#include "common/log/Logging.h"
#include "persist/SubscriptionPersistance.h"

namespace vorna {

HRESULT Sender::Create(CPWStringBuffer& errorText) {
    const HRESULT created = CreateComponent();
    if (created == S_OK)
        return S_OK;
    errorText = Texts().notCreated;
    VORNA_LOG(LOG_TRACE, "%S", Texts().notCreated);
    return ResultOfRefusal(created);
}

HRESULT Sender::Subscribe(std::wstring& id, CPWStringBuffer& errorText) {
    HRESULT answer = SubscribeWithComponent(id);
    const wchar_t* failure = Texts().subscribeFailed;
    if (answer == S_OK && id.empty()) {
        failure = Texts().noId;
        answer = E_UNEXPECTED;
    } else if (answer == S_OK &&
               (!SubscriptionPersistance::IsPlainValue(id) || id.find_first_of(L"\\/:*?|.") != std::wstring::npos)) {
        VORNA_LOG(LOG_TRACE, "The subscription ID cannot name an archive : \"%S\"", id.c_str());
        answer = E_UNEXPECTED;
    } else if (answer != S_OK) {
        id.clear();
    }
    if (answer == S_OK)
        return S_OK;
    errorText = failure;
    VORNA_LOG(LOG_TRACE, "%S (hr: %#x)", failure, static_cast<unsigned>(answer));
    VORNA_LOG(LOG_TRACE, "%s", Texts().subscribeRefused);
    return ResultOfRefusal(answer);
}

bool Sender::IsGone(HRESULT answer) {
    return answer == PLATFORM_ID_UNKNOWN || answer == PLATFORM_ID_EXPIRED;
}

} // namespace vorna
