// The platform component that calls a subscription back, whichever it is: timer, event manager or event access.
//
// One is made for one operation. One thread. Operations throw std::bad_alloc only.
#pragma once

#include "common/text/CPWStringBuffer.h"

#include <windows.h>

#include <string>
#include <string_view>

namespace vorna {

class Sender {
  public:
    // The texts in which registrations of the kinds differ. Wide ones are error texts, and logged too.
    struct Wording {
        const char* unspecified;
        const wchar_t* notCreated;
        const char* subscribing;
        const char* subscribeRefused;
        const wchar_t* subscribeFailed;
        // The component answered without an ID.
        const wchar_t* noId;
        const char* noDirectory;
        const char* addRefused;
        const wchar_t* addFailed;
        const char* modifying;
        const wchar_t* modifyFailed;
        const char* storeRefused;
        const wchar_t* storeFailed;
        const char* resubscribed;
        const char* unsubscribing;
        // Null where there is none.
        const char* unsubscribeRefused;
        const char* unsubscribeFailed;
        const char* invalidated;
        const wchar_t* invalidatedText;
        const char* unsubscribed;
    };

    // clientId: the recorded one, or empty.
    explicit Sender(std::wstring clientId) : clientId_(std::move(clientId)) {}
    virtual ~Sender() = default;
    Sender(const Sender&) = delete;
    Sender& operator=(const Sender&) = delete;

    virtual const Wording& Texts() const = 0;
    // The client ID to be recorded with what was registered last.
    const std::wstring& ClientId() const { return clientId_; }

    // Creates the component; every other operation needs it. A failure is logged and stands in errorText.
    [[nodiscard]] HRESULT Create(CPWStringBuffer& errorText);
    // Registers. id can name an archive; a registration whose ID cannot is ended again. A failure is logged and stands
    // in errorText.
    [[nodiscard]] HRESULT Subscribe(std::wstring& id, CPWStringBuffer& errorText);
    // What the component answers.
    [[nodiscard]] virtual HRESULT Modify(std::wstring_view id) = 0;
    // The same.
    [[nodiscard]] virtual HRESULT Unsubscribe(std::wstring_view id) = 0;

    // Whether a modification with this answer is followed by a fresh subscription. Whatever the refusal was, one may
    // still come about.
    virtual bool SubscribesAgainAfter([[maybe_unused]] HRESULT answer) const { return true; }
    // The component does not hold the registration any more.
    static bool IsGone(HRESULT answer);

  protected:
    virtual HRESULT CreateComponent() = 0;
    virtual HRESULT SubscribeWithComponent(std::wstring& id) = 0;
    // The result of a registration that the component answered like this; never S_OK.
    virtual HRESULT ResultOfRefusal(HRESULT answer) const { return FAILED(answer) ? answer : E_FAIL; }

    std::wstring clientId_;
};

} // namespace vorna
