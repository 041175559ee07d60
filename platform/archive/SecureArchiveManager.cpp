#include "platform/archive/SecureArchiveManager.h"

#include "common/com/ProcessorFault.h"
#include "common/com/bstr.h"
#include "common/com/paths.h"
#include "common/com/results.h"
#include "platform/archive/ArchiveDatabase.h"

#include <cstring>

namespace keldan {

namespace {

constexpr HRESULT NO_FILE = HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);

// A BSTR may contain any bytes, so an odd byte at the end is kept too.
Bytes BytesOf(BSTR text) {
    return {reinterpret_cast<const BYTE*>(text), SysStringByteLen(text)};
}

// What ends a name in a list of names: not a character, so no text needs it.
constexpr wchar_t DELIMITER = L'\xFFFF';

bool CanBeListed(BSTR name) {
    return SysStringByteLen(name) % sizeof(wchar_t) == 0 && vorna::view_of(name).find(DELIMITER) == std::wstring::npos;
}

// The full path of a file, of any length; empty if it is not one. What is in the long form already is taken literally,
// since the name of its file is one of the things that authenticate an archive.
std::wstring FullPath(std::wstring_view path) {
    const bool onNetwork = path.size() > 2 && path.starts_with(L"\\\\");
    if ((!vorna::is_on_drive(path) && !onNetwork) || path.find(L'\0') != path.npos || path.ends_with(L'\\') ||
        path.ends_with(L'/'))
        return {};
    return path.starts_with(vorna::LONG_PATH) ? std::wstring(path) : vorna::long_path(path);
}

// Runs work, which returns an HRESULT, on the database of an existing archive.
template <typename Work>
HRESULT InArchive(const std::wstring& path, ArchiveFile::Access access, Deadline& deadline, Work work) {
    ArchiveFile file(path);
    if (HRESULT result = file.Open(access, deadline); FAILED(result))
        return result;
    ArchiveDatabase database(file);
    HRESULT result = database.Open();
    return FAILED(result) ? result : work(database);
}

// Creates an archive with its first stream, completely or not at all.
HRESULT CreateWith(const std::wstring& path, Bytes name, Bytes data) {
    ArchiveFile file(path);
    HRESULT result = file.Create();
    if (FAILED(result))
        return result;
    {
        ArchiveDatabase database(file);
        result = database.Open();
        if (SUCCEEDED(result))
            result = database.Put(name, data);
    }
    return FAILED(result) ? result : file.Publish();
}

} // namespace

template <typename Work>
HRESULT SecureArchiveManager::Operation(Work work) {
    return vorna::closed_door([&]() -> HRESULT {
        if (path_.empty())
            return E_UNEXPECTED;
        HRESULT result = E_UNEXPECTED;
        vorna::call_guarded([&] {
            Deadline deadline(wait_);
            result = work(deadline);
        });
        return result;
    });
}

STDMETHODIMP SecureArchiveManager::put_Archive(BSTR path) {
    return vorna::closed_door([&]() -> HRESULT {
        path_.clear();
        std::wstring full = FullPath(vorna::view_of(path));
        if (full.empty() || ArchiveFile::IsReserved(full))
            return E_INVALIDARG;
        const DWORD attributes = GetFileAttributesW(full.substr(0, full.find_last_of(L"\\/") + 1).c_str());
        if (attributes == INVALID_FILE_ATTRIBUTES || !(attributes & FILE_ATTRIBUTE_DIRECTORY))
            return HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND);
        path_ = std::move(full);
        return S_OK;
    });
}

STDMETHODIMP SecureArchiveManager::GetEntryCount(long kind, long* count) {
    if (!count)
        return E_POINTER;
    *count = 0;
    constexpr long STREAMS = 2;
    if (kind != STREAMS)
        return E_INVALIDARG;
    return Operation([&](Deadline& deadline) {
        long found = 0;
        HRESULT result = InArchive(path_, ArchiveFile::Access::Read, deadline,
                                   [&](ArchiveDatabase& database) { return database.Count(found); });
        if (result == NO_FILE)
            return S_OK;
        if (SUCCEEDED(result))
            *count = found;
        return result;
    });
}

STDMETHODIMP SecureArchiveManager::AddStream(BSTR name, BSTR data, long) {
    return Operation([&](Deadline& deadline) {
        if (!CanBeListed(name))
            return E_INVALIDARG;
        for (;;) {
            HRESULT result = InArchive(path_, ArchiveFile::Access::Write, deadline, [&](ArchiveDatabase& database) {
                return database.Put(BytesOf(name), BytesOf(data));
            });
            if (result != NO_FILE)
                return result;
            result = CreateWith(path_, BytesOf(name), BytesOf(data));
            // Another process has just created the archive, or is creating it.
            if (result != HRESULT_FROM_WIN32(ERROR_ALREADY_EXISTS) &&
                result != HRESULT_FROM_WIN32(ERROR_SHARING_VIOLATION))
                return result;
            if (!deadline.Pause())
                return HRESULT_FROM_WIN32(ERROR_LOCK_VIOLATION);
        }
    });
}

STDMETHODIMP SecureArchiveManager::GetStream(BSTR name, long, BSTR* data) {
    if (!data)
        return E_POINTER;
    *data = nullptr;
    return Operation([&](Deadline& deadline) {
        vorna::bstr found;
        HRESULT result = InArchive(path_, ArchiveFile::Access::Read, deadline, [&](ArchiveDatabase& database) {
            return database.Get(BytesOf(name), [&](Bytes bytes) {
                *found.put() =
                    SysAllocStringByteLen(reinterpret_cast<const char*>(bytes.data()), static_cast<UINT>(bytes.size()));
                return found.get() ? S_OK : E_OUTOFMEMORY;
            });
        });
        if (SUCCEEDED(result))
            *data = found.release();
        return result;
    });
}

STDMETHODIMP SecureArchiveManager::RemoveFile(BSTR name) {
    return Operation([&](Deadline& deadline) {
        return InArchive(path_, ArchiveFile::Access::Write, deadline,
                         [&](ArchiveDatabase& database) { return database.Remove(BytesOf(name)); });
    });
}

STDMETHODIMP SecureArchiveManager::put_Mode(long) {
    return S_OK;
}

STDMETHODIMP SecureArchiveManager::GetStreamNames(BSTR* names) {
    if (!names)
        return E_POINTER;
    *names = nullptr;
    return Operation([&](Deadline& deadline) {
        std::wstring found;
        HRESULT result = InArchive(path_, ArchiveFile::Access::Read, deadline, [&](ArchiveDatabase& database) {
            return database.ForEachName([&](Bytes name) {
                const size_t end = found.size();
                const size_t length = name.size() / sizeof(wchar_t);
                found.resize(end + length);
                if (length > 0)
                    std::memcpy(found.data() + end, name.data(), length * sizeof(wchar_t));
                if (name.size() % sizeof(wchar_t) != 0 || found.find(DELIMITER, end) != found.npos)
                    return HRESULT_FROM_WIN32(ERROR_INVALID_DATA);
                found += DELIMITER;
                return S_OK;
            });
        });
        if (FAILED(result) && result != NO_FILE)
            return result;
        *names = vorna::bstr(found).release();
        return S_OK;
    });
}

STDMETHODIMP SecureArchiveManager::GetIDsOfNames(REFIID iid, LPOLESTR* names, UINT count, LCID locale, DISPID* ids) {
    const HRESULT result = dispatch_object::GetIDsOfNames(iid, names, count, locale, ids);
    ITypeInfo* streams = nullptr;
    if (result != DISP_E_UNKNOWNNAME || vorna::get_dispatch_type<IArchiveStreams>(streams) != S_OK)
        return result;
    return streams->GetIDsOfNames(names, count, ids);
}

STDMETHODIMP SecureArchiveManager::Invoke(DISPID id, REFIID iid, LCID locale, WORD flags, DISPPARAMS* parameters,
                                          VARIANT* result, EXCEPINFO* exception, UINT* argument) {
    const HRESULT called = dispatch_object::Invoke(id, iid, locale, flags, parameters, result, exception, argument);
    ITypeInfo* streams = nullptr;
    if (called != DISP_E_MEMBERNOTFOUND || vorna::get_dispatch_type<IArchiveStreams>(streams) != S_OK)
        return called;
    return streams->Invoke(static_cast<IArchiveStreams*>(this), id, flags, parameters, result, exception, argument);
}

} // namespace keldan
