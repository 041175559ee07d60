// Where the data of one subscription lie: two archives in the folder of its service, named after the subscription's ID.
// The configuration archive holds the subscription document and the snapshot index, the snapshot archive one stream for
// each snapshot, named by its Id.
//
// A value: it holds two names and no open file. The operations on streams take no lock: the caller holds Lock(). Their
// results are the archive manager's own, as SamAccessor gives them; an empty stream counts as one that is not there
// (0x80070002).
#pragma once

#include "common/com/bstr.h"
#include "common/services/NamedLock.h"
#include "subscription/archive/SnapShotIndex.h"

#include <string>
#include <string_view>

namespace vorna {

// The folder of a service's archives, without a backslash at its end. servicePath: serviceId\serviceURI\portID.
std::wstring ArchiveDirectory(std::wstring_view servicePath);

// A stream that is not there, in an archive that may not be there either: not an error of the archive.
bool IsMissing(HRESULT result);
// Streams of any archive as texts.
[[nodiscard]] HRESULT ReadStream(std::wstring_view archive, std::wstring_view name, std::wstring& text);
[[nodiscard]] HRESULT WriteStream(std::wstring_view archive, std::wstring_view name, std::wstring_view text);

class SubscriptionArchive {
  public:
    // directory: as ArchiveDirectory gives it.
    SubscriptionArchive(std::wstring_view directory, std::wstring_view subscriptionId)
        : directory_(directory), id_(subscriptionId) {}

    // The lock on both archives; every access to a stream is made under it.
    NamedLock Lock() const;

    std::wstring ConfigPath() const { return directory_ + L"\\config_" + id_; }
    std::wstring SnapShotsPath() const { return directory_ + L"\\snapshot_" + id_; }
    // The names of the two streams of the configuration archive.
    std::wstring DocumentStream() const { return id_ + L"_Subscription"; }
    std::wstring IndexStream() const { return id_ + L"_SnapShotInfo"; }

    // Whether there is a configuration archive. A subscription that was ended has none.
    bool Exists() const;

    [[nodiscard]] HRESULT ReadDocument(std::wstring& text) const;
    [[nodiscard]] HRESULT WriteDocument(std::wstring_view text) const;
    // An index that is not there reads as an empty one.
    [[nodiscard]] HRESULT ReadIndex(SnapShotIndex& index) const;
    [[nodiscard]] HRESULT WriteIndex(const SnapShotIndex& index) const;
    // The entries of the index.
    [[nodiscard]] HRESULT ReadSnapShots(std::vector<SnapShot>& snapShots) const;

    [[nodiscard]] HRESULT Store(std::wstring_view snapShotId, std::wstring_view data) const;
    [[nodiscard]] HRESULT Remove(std::wstring_view snapShotId) const;
    [[nodiscard]] HRESULT Count(long& snapShots) const;

    // Everything, under the name of another subscription of the same service. This archive stays as it is.
    [[nodiscard]] HRESULT CopyTo(const SubscriptionArchive& to) const;
    // The snapshots that the other archive lacks go over; then this archive is deleted. If one cannot be moved, this
    // archive stays. Takes both locks.
    void MoveLateSnapShotsTo(const SubscriptionArchive& to) const;
    // Deletes the files of both archives, under the lock. A file that cannot be deleted is logged.
    void RemoveFiles() const;

    // Whether the folder holds an archive of any subscription.
    static bool AnyIn(const std::wstring& directory);

  private:
    std::wstring directory_;
    std::wstring id_;
};

} // namespace vorna
