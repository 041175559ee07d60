// The named kernel objects by which processes agree on the one host of a data folder.
#pragma once

#include "common/com/unique_any.h"

#include <filesystem>

namespace keldan {

class HostSignals {
  public:
    // Throws result_error if the objects cannot be created.
    explicit HostSignals(const std::filesystem::path& folder);
    // Lets another process become the host; must be the last step of a host.
    ~HostSignals();
    HostSignals(const HostSignals&) = delete;
    HostSignals& operator=(const HostSignals&) = delete;

    // Waits until this process is the host (true), or until another host serves or the wait took too long (false). In
    // the second case the other host is asked to renew its class objects: COM would not have started this process if it
    // had found them.
    bool TakePlace();
    // Tells other processes whether clients can reach this host.
    void SetServing(bool serving);
    enum class Request { None, Renew, Stop };
    // Waits for a request to the host, at most for the given time.
    Request WaitForRequest(DWORD milliseconds) const;
    HANDLE Renew() const { return renew_.get(); }

    // Asks the host of the folder to end and waits until it has. True also if there is none.
    static bool StopHost(const std::filesystem::path& folder);

  private:
    vorna::unique_handle place_;
    vorna::unique_handle serving_;
    vorna::unique_handle stop_;
    vorna::unique_handle renew_;
    bool taken_ = false;
};

} // namespace keldan
