// The stored data of one subscription: two archives in the folder of its service, named after the subscription's ID.
// The configuration archive contains the subscription document and the snapshot index; the snapshot archive contains
// one stream for each snapshot, named after its Id.
//
// A value with two names and no open file. The operations on streams acquire no lock: the caller holds Lock(). They
// return the results of SamAccessor; an empty stream counts as missing (0x80070002).
#pragma once

#include "common/com/bstr.h"
#include "common/services/NamedLock.h"
#include "subscription/archive/SnapShotIndex.h"

#include <string>
#include <string_view>

namespace vorna {

// The folder of a service's archives, without a trailing backslash. servicePath: serviceId\serviceURI\portID.
std::wstring ArchiveDirectory(std::wstring_view servicePath);

// True if the stream, its archive or its folder does not exist; false for all other failures.
bool IsMissing(HRESULT result);
// Read and write a stream of any archive as text.
[[nodiscard]] HRESULT ReadStream(std::wstring_view archive, std::wstring_view name, std::wstring& text);
[[nodiscard]] HRESULT WriteStream(std::wstring_view archive, std::wstring_view name, std::wstring_view text);

class SubscriptionArchive {
  public:
    // directory: as ArchiveDirectory returns it.
    SubscriptionArchive(std::wstring_view directory, std::wstring_view subscriptionId)
        : directory_(directory), id_(subscriptionId) {}

    // Acquires the lock of both archives, which every access to a stream requires.
    NamedLock Lock() const;

    std::wstring ConfigPath() const { return directory_ + L"\\config_" + id_; }
    std::wstring SnapShotsPath() const { return directory_ + L"\\snapshot_" + id_; }
    // The names of the two streams of the configuration archive.
    std::wstring DocumentStream() const { return id_ + L"_Subscription"; }
    std::wstring IndexStream() const { return id_ + L"_SnapShotInfo"; }

    // True if there is certainly no configuration archive, as after the end of a subscription; false also if the file
    // system returns another error.
    bool IsGone() const;

    [[nodiscard]] HRESULT ReadDocument(std::wstring& text) const;
    [[nodiscard]] HRESULT WriteDocument(std::wstring_view text) const;
    // A missing index is read as an empty one.
    [[nodiscard]] HRESULT ReadIndex(SnapShotIndex& index) const;
    [[nodiscard]] HRESULT WriteIndex(const SnapShotIndex& index) const;
    // The entries of the index.
    [[nodiscard]] HRESULT ReadSnapShots(std::vector<SnapShot>& snapShots) const;

    [[nodiscard]] HRESULT Store(std::wstring_view snapShotId, std::wstring_view data) const;
    [[nodiscard]] HRESULT Remove(std::wstring_view snapShotId) const;
    [[nodiscard]] HRESULT Count(long& snapShots) const;
    // The size of the snapshot archive's file in bytes; S_FALSE if it cannot be read.
    [[nodiscard]] HRESULT Size(std::uint64_t& bytes) const;
    // Makes index and streams consistent again after a crash or a failed removal: removes streams without an entry and
    // entries without a stream. snapShots: the number of snapshots that have both. If the archive manager cannot list
    // its streams, nothing is removed and snapShots is the number of entries.
    [[nodiscard]] HRESULT Reconcile(long& snapShots) const;

    // Copies everything to the archives of another subscription of the same service. This archive is not changed; after
    // a failure the copy is incomplete. Acquires the locks for one snapshot at a time, so that captures are not
    // delayed. A damaged snapshot is logged and not copied.
    [[nodiscard]] HRESULT CopyTo(const SubscriptionArchive& to) const;
    // Copies what has changed since CopyTo to the other archive, then deletes this archive. If a snapshot cannot be
    // copied, this archive is kept. Acquires both locks.
    void MoveLateSnapShotsTo(const SubscriptionArchive& to) const;
    // Deletes the files of both archives, under the lock. Files that cannot be deleted are logged.
    void RemoveFiles() const;

    // True if the folder certainly contains no archive of any subscription.
    static bool NoneIn(const std::wstring& directory);

  private:
    HRESULT CopySnapShot(const std::wstring& snapShotId, const SubscriptionArchive& to) const;

    std::wstring directory_;
    std::wstring id_;
};

} // namespace vorna
