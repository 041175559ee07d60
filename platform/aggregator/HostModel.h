// The live model "host": this machine, as its operating system describes it at the moment of the call.
//
//   Host/Name                              the machine's name
//   Host/Time[@Utc]                        local time; the attribute is the same moment in UTC
//   Host/Memory/Total, Available           bytes (Unit="bytes")
//   Host/Memory/Load                       per cent in use (Unit="percent")
//   Host/Disks/Disk[@Drive]/Total, Free    bytes; drives of this machine, not network drives
//   Host/Processors[@Count]/Busy           per cent since the previous call, or since the module was loaded
//   Host/Processes[@Count]/Process[@Id]    Name, Threads, and Memory in bytes if it can be read
#pragma once

#include <windows.h>

#include <cstdint>
#include <mutex>
#include <string>

namespace keldan {

class HostModel {
  public:
    HostModel();
    // Returns a well-formed document without an XML declaration. Any thread. Throws standard exceptions.
    std::wstring Compute();

  private:
    unsigned BusyPercent();

    std::mutex mutex_;
    // In units of 100 nanoseconds, summed over all processors.
    std::uint64_t idleBefore_ = 0;
    std::uint64_t totalBefore_ = 0;
    unsigned busy_ = 0;
};

} // namespace keldan
