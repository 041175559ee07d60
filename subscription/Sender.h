// The platform component that sends a subscription's callbacks: timer, event manager or event access.
//
// Create a new object for each operation. One thread. Operations throw std::bad_alloc only.
#pragma once

#include "common/text/CPWStringBuffer.h"

#include <windows.h>

#include <string>
#include <string_view>

namespace vorna {

class Sender {
  public:
    // The texts that differ between senders. Wide ones are error texts, which are also logged.
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
        // Null if there is none.
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
    // The client ID to record with the last registration.
    const std::wstring& ClientId() const { return clientId_; }

    // Creates the component; every other operation needs it. A failure is logged and described in errorText.
    [[nodiscard]] HRESULT Create(CPWStringBuffer& errorText);
    // Registers. A failure is logged and described in errorText; id is then empty, except if the component registered
    // under an ID that is not usable in file names: the caller has to end that registration.
    [[nodiscard]] HRESULT Subscribe(std::wstring& id, CPWStringBuffer& errorText);
    // Modify and Unsubscribe return the component's result.
    [[nodiscard]] virtual HRESULT Modify(std::wstring_view id) = 0;
    [[nodiscard]] virtual HRESULT Unsubscribe(std::wstring_view id) = 0;

    // Whether to register again after a modification with this result: registering may succeed although modifying
    // failed.
    virtual bool SubscribesAgainAfter([[maybe_unused]] HRESULT answer) const { return true; }
    // True if the result means that the component no longer has the registration.
    static bool IsGone(HRESULT answer);

  protected:
    virtual HRESULT CreateComponent() = 0;
    virtual HRESULT SubscribeWithComponent(std::wstring& id) = 0;
    // The result to return if the component has failed with this one; never S_OK.
    virtual HRESULT ResultOfRefusal(HRESULT answer) const { return FAILED(answer) ? answer : E_FAIL; }

    std::wstring clientId_;
};

} // namespace vorna
