// The frames that the operations of SubscriptionPersistance share; for its own sources only.
#pragma once

#include "common/com/bstr.h"
#include "common/com/results.h"
#include "common/log/Logging.h"
#include "persist/SubscriptionPersistance.h"
#include "subscription/archive/ArchiveNames.h"

#include <string>
#include <string_view>

namespace vorna {

inline constexpr std::wstring_view PERSIST_STREAM = L"VornaPersist";

// A composed message at level 4.
inline void LogTraceText(const std::wstring& message) {
    VORNA_LOG(LOG_TRACE, "%S", message.c_str());
}

// A stream that is not there, in an archive that may not be there either: not an error of the archive.
inline bool IsMissing(HRESULT result) {
    return result == HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND) || result == HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND);
}

// Reads a stream; an empty one counts as missing (ERROR_FILE_NOT_FOUND).
HRESULT ReadStream(std::wstring_view archive, std::wstring_view name, std::wstring& text);
HRESULT WriteStream(std::wstring_view archive, std::wstring_view name, std::wstring_view text);

// Runs work between an entry and an exit line; what it throws becomes 0x8000015E. Processor faults pass.
template <typename Work>
HRESULT TracedOperation(const char* operation, const char* exceptionText, Work work) {
    VORNA_LOG(LOG_TRACE, "%s - Entering", operation);
    HRESULT result = E_FAIL;
    try {
        result = work();
    } catch (const processor_fault&) {
        throw;
    } catch (...) {
        VORNA_LOG(LOG_TRACE, "%s", exceptionText);
        result = RESULT_EXCEPTION;
    }
    VORNA_LOG(LOG_TRACE, "%s - Exiting (hr: %#x)", operation, static_cast<unsigned>(result));
    return result;
}

// Lock, load, work, and for a change write back: the frame of every operation on the persist document. work takes the
// loaded accessor.
template <typename Work>
HRESULT SubscriptionPersistance::WithPersistDocument(const Texts& texts, Access access, Work work) {
    return TracedOperation(texts.operation, texts.exception, [&]() -> HRESULT {
        ScopedLock lock(locks_, PERSIST_LOCK);
        if (!lock.Held())
            return lock.Result();
        XmlAccessor accessor;
        if (HRESULT result = LoadPersistDocument(texts, accessor); result != S_OK)
            return result;
        if (HRESULT result = work(accessor); result != S_OK || access == Access::Read)
            return result;
        std::wstring document;
        if (accessor.QueryMarkup(L"/*", document) != S_OK) {
            VORNA_LOG(LOG_TRACE, "%s", texts.rootFailed);
            return E_FAIL;
        }
        return WriteStream(PersistArchive(), PERSIST_STREAM, document);
    });
}

// The same for a subscription's snapshot index, under its archive lock. work takes the text of the index, empty where
// there is none, and changes it; S_FALSE leaves the stream as it is and counts as success.
template <typename Work>
HRESULT SubscriptionPersistance::WithIndex(const Texts& texts, std::wstring_view directory,
                                           std::wstring_view subscriptionId, Work work) {
    return TracedOperation(texts.operation, texts.exception, [&]() -> HRESULT {
        ScopedLock lock(locks_, ArchiveLockName(subscriptionId));
        if (!lock.Held())
            return lock.Result();
        const std::wstring archive = ConfigArchivePath(directory, subscriptionId);
        std::wstring index;
        HRESULT result = ReadStream(archive, SnapShotInfoStream(subscriptionId), index);
        if (FAILED(result) && !IsMissing(result))
            return result;
        result = work(index);
        if (result != S_OK)
            return result == S_FALSE ? S_OK : result;
        return WriteStream(archive, SnapShotInfoStream(subscriptionId), index);
    });
}

} // namespace vorna
