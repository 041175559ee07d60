// The result codes of the component and of the platform components it calls. They are not system codes, although they
// have the type HRESULT; all are negative, so that FAILED() is true.
#pragma once

#include <windows.h>

namespace vorna {

constexpr HRESULT result_code(unsigned long value) {
    return static_cast<HRESULT>(value);
}

// Subscription documents.
constexpr HRESULT RESULT_XML_MALFORMED = result_code(0x8000012D);
constexpr HRESULT RESULT_ARCHIVE_ID = result_code(0x8000012E);
constexpr HRESULT RESULT_COLLECT = result_code(0x8000012F);
constexpr HRESULT RESULT_LIFETIME_BEFORE_READ = result_code(0x80000130);
constexpr HRESULT RESULT_LIFETIME_AFTER_READ = result_code(0x80000131);
constexpr HRESULT RESULT_STORAGE_UNITS = result_code(0x80000132);
constexpr HRESULT RESULT_STORAGE_SIZE = result_code(0x80000133);
constexpr HRESULT RESULT_AGING = result_code(0x80000134);
constexpr HRESULT RESULT_EVENT_TYPE = result_code(0x80000135);
constexpr HRESULT RESULT_TIMER_FREQUENCY = result_code(0x80000136);
constexpr HRESULT RESULT_TIMER_RETRIES = result_code(0x80000138);
constexpr HRESULT RESULT_KRO_NAME = result_code(0x80000139);
constexpr HRESULT RESULT_KRO_FILTERS = result_code(0x8000013A);
constexpr HRESULT RESULT_KRO_ARCHIVE_TYPE = result_code(0x8000013B);
constexpr HRESULT RESULT_DATA_MODEL = result_code(0x8000013C);
constexpr HRESULT RESULT_XDM_EVENTS = result_code(0x8000013E);
constexpr HRESULT RESULT_XDM_EVENT_XPATH = result_code(0x8000013F);
constexpr HRESULT RESULT_XDM_PAYLOAD = result_code(0x80000140);
constexpr HRESULT RESULT_XDM_XPATH = result_code(0x80000141);
constexpr HRESULT RESULT_XDM_PREFIXES = result_code(0x800001A5);

// Requests.
constexpr HRESULT RESULT_SERVICE_OBJECT = result_code(0x80000142);
constexpr HRESULT RESULT_INPUT_STRING = result_code(0x80000143);
constexpr HRESULT RESULT_XPATH = result_code(0x80000144);
constexpr HRESULT RESULT_TIMER_REGISTRATION = result_code(0x80000147);
constexpr HRESULT RESULT_NO_SUBSCRIPTION = result_code(0x80000150);
constexpr HRESULT RESULT_XML_ACCESSOR = result_code(0x80000151);
constexpr HRESULT RESULT_ARCHIVE_MANAGER = result_code(0x80000152);
constexpr HRESULT RESULT_EXCEPTION = result_code(0x8000015E);

// Answers of the platform's timer, event manager and event access.
constexpr HRESULT PLATFORM_TICKET_UNKNOWN = result_code(0x800000D1);
constexpr HRESULT PLATFORM_TICKET_STALE = result_code(0x800000D2);
constexpr HRESULT PLATFORM_ID_UNKNOWN = result_code(0x800000D3);
constexpr HRESULT PLATFORM_ID_EXPIRED = result_code(0x800000D4);

// The one place that converts a Win32 error into a result, which is never a success.
inline HRESULT result_from_win32(DWORD error) {
    return error == ERROR_SUCCESS ? E_FAIL : HRESULT_FROM_WIN32(error);
}
inline HRESULT result_from_last_error() {
    return result_from_win32(GetLastError());
}

} // namespace vorna
