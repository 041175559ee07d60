// "QXKELDAN.ZEBSecureArchiveManager": named streams in one encrypted file.
#pragma once

#include "common/com/com_server.h"

#include "QXKeldan.h"

#include <string>

namespace keldan {

// The contract is that of ISecureArchiveManager and IArchiveStreams. Each operation opens the archive, is one
// transaction, and closes it: between operations there is only the one file at the path. One thread at a time; several
// objects, threads and processes may use one archive at the same time and wait for each other.
class SecureArchiveManager
    : public vorna::dispatch_object<SecureArchiveManager, ISecureArchiveManager, IArchiveStreams> {
  public:
    static constexpr DWORD LONGEST_WAIT = 30000;

    // milliseconds: the longest wait for an archive that another object or process is using.
    explicit SecureArchiveManager(DWORD milliseconds = LONGEST_WAIT) : wait_(milliseconds) {}

    STDMETHODIMP put_Archive(BSTR path) override;
    STDMETHODIMP GetEntryCount(long kind, long* count) override;
    STDMETHODIMP AddStream(BSTR name, BSTR data, long flags) override;
    STDMETHODIMP GetStream(BSTR name, long flags, BSTR* data) override;
    STDMETHODIMP RemoveFile(BSTR name) override;
    STDMETHODIMP put_Mode(long flag) override;
    STDMETHODIMP GetStreamNames(BSTR* names) override;

    // Late binding reaches the methods of both interfaces.
    STDMETHODIMP GetIDsOfNames(REFIID iid, LPOLESTR* names, UINT count, LCID locale, DISPID* ids) override;
    STDMETHODIMP Invoke(DISPID id, REFIID iid, LCID locale, WORD flags, DISPPARAMS* parameters, VARIANT* result,
                        EXCEPINFO* exception, UINT* argument) override;

  private:
    // The frame of an operation on the bound archive: work(deadline). A processor fault in it gives E_UNEXPECTED, and
    // the archive is released.
    template <typename Work>
    HRESULT Operation(Work work);

    const DWORD wait_;
    // Empty: no archive is selected.
    std::wstring path_;
};

} // namespace keldan
