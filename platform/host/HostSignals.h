// The named kernel objects by which the processes of one data folder agree who is its host.
#pragma once

#include "common/com/unique_any.h"

#include <filesystem>

namespace keldan {

class HostSignals {
  public:
    // Throws result_error if the objects cannot be created.
    explicit HostSignals(const std::filesystem::path& folder);
    // Gives the place up; the very last thing a host does.
    ~HostSignals();
    HostSignals(const HostSignals&) = delete;
    HostSignals& operator=(const HostSignals&) = delete;

    // Waits until this process has the place (true) or another one serves already, or for too long (false). In the
    // second case the other one is asked to renew its class objects: COM would not have started this process if it had
    // found them.
    bool TakePlace();
    // Whether clients reach this host.
    void SetServing(bool serving);
    enum class Wish { None, Renew, Stop };
    // What somebody asked of the host within the time.
    Wish WaitForWish(DWORD milliseconds) const;
    HANDLE Renew() const { return renew_.get(); }

    // Asks the host of the folder to end and waits until it has. True also where there is none.
    static bool StopHost(const std::filesystem::path& folder);

  private:
    vorna::unique_handle place_;
    vorna::unique_handle serving_;
    vorna::unique_handle stop_;
    vorna::unique_handle renew_;
    bool taken_ = false;
};

} // namespace keldan
