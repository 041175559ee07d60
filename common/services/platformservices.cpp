#include "common/services/platformservices.h"

#include "common/com/ProcessorFault.h"
#include "common/com/text_forms.h"
#include "common/com/unique_any.h"
#include "common/log/Logging.h"

#include <objbase.h>

#include <string>

namespace vorna {

namespace {

constexpr wchar_t FORCE_KEY[] = L"SOFTWARE\\Ostrevane\\QXKeldan\\ForceToOutOfProc";
constexpr DWORD ALL_CONTEXTS =
    CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER | CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER;

bool HasStringValue(HKEY key, const wchar_t* name) {
    DWORD type = REG_NONE;
    return RegQueryValueExW(key, name, nullptr, &type, nullptr, nullptr) == ERROR_SUCCESS &&
           (type == REG_SZ || type == REG_EXPAND_SZ);
}

DWORD ServerContext(const wchar_t* progId) {
    unique_registry_key key;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, FORCE_KEY, 0, KEY_READ, key.put()) != ERROR_SUCCESS) {
        VORNA_LOG(LOG_VERBOSE, "PlatformServices::CreateInstance() could not find forcekey");
        return ALL_CONTEXTS;
    }
    VORNA_LOG(LOG_VERBOSE, "PlatformServices::CreateInstance() found forcekey");
    if (!HasStringValue(key.get(), progId)) {
        VORNA_LOG(LOG_VERBOSE, "PlatformServices::CreateInstance() string value in forcekey not found");
        return ALL_CONTEXTS;
    }
    VORNA_LOG(LOG_VERBOSE, "PlatformServices::CreateInstance() found string value in forcekey");
    return CLSCTX_LOCAL_SERVER;
}

// Whether the server program may have ended before or during the call. "Not registered" is Wine's result for the class
// of a killed program.
bool IsServerGone(HRESULT result) {
    return result == REGDB_E_CLASSNOTREG || result == HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE) ||
           result == HRESULT_FROM_WIN32(RPC_S_CALL_FAILED) || result == RPC_E_DISCONNECTED ||
           result == CO_E_OBJNOTCONNECTED;
}

bool IsServedByAProgram(const CLSID& clsid) {
    unique_registry_key key;
    return RegOpenKeyExW(HKEY_CLASSES_ROOT, (L"CLSID\\" + guid_text(clsid) + L"\\LocalServer32").c_str(), 0, KEY_READ,
                         key.put()) == ERROR_SUCCESS;
}

HRESULT Create(const wchar_t* progId, const wchar_t* modulePath, REFIID iid, void** instance) {
    VORNA_LOG(LOG_ERROR, "CI 2");
    CLSID clsid{};
    HRESULT result = CLSIDFromProgID(progId, &clsid);
    VORNA_LOG(LOG_ERROR, "CI 3");
    if (FAILED(result) && modulePath) {
        VORNA_LOG(LOG_WARNING, "PlatformServices::CreateInstance() CLSIDFromProgID failed");
        CPComPtr<>::RegisterComponent(modulePath, true);
        result = CLSIDFromProgID(progId, &clsid);
        VORNA_LOG(LOG_ERROR, "CI 4 ret: -- %08lx\n", result);
    }
    if (FAILED(result)) {
        VORNA_LOG(LOG_ERROR, "PlatformServices::CreateInstance() unable to resolve CLSID");
        return result;
    }
    VORNA_LOG(LOG_VERBOSE, "PlatformServices::CreateInstance() CLSIDFromProgID succeeded");
    const DWORD context = ServerContext(progId);
    result = CoCreateInstance(clsid, nullptr, context, iid, instance);
    // A server program that has terminated may still be registered as running; the second attempt starts it again.
    // Other failures are not repeated: the second attempt would fail too, after as long a wait.
    if (IsServerGone(result) && IsServedByAProgram(clsid))
        result = CoCreateInstance(clsid, nullptr, context, iid, instance);
    return result;
}

} // namespace

HRESULT PlatformServices::CreateInstance(const wchar_t* progId, const wchar_t* modulePath, REFIID iid,
                                         void** instance) {
    VORNA_LOG(LOG_SCOPE, "PlatformServices::CreateInstance() Entering");
    VORNA_LOG(LOG_ERROR, "CI 1");
    HRESULT result = E_POINTER;
    if (instance) {
        *instance = nullptr;
        try {
            call_guarded([&] { result = Create(progId, modulePath, iid, instance); });
        } catch (...) {
            VORNA_LOG(LOG_ERROR, "CI 5");
            VORNA_LOG(LOG_ERROR, "PlatformServices::CreateInstance() caught exception.");
            *instance = nullptr;
            result = E_FAIL;
        }
    }
    if (FAILED(result))
        VORNA_LOG(LOG_ERROR, "PlatformServices::CreateInstance() returning FAIL.");
    else
        VORNA_LOG(LOG_VERBOSE, "PlatformServices::CreateInstance() returning SUCCESS.");
    return result;
}

} // namespace vorna
