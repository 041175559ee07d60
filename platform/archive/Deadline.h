// A wait with an end, for something that another process holds.
#pragma once

#include <windows.h>

namespace keldan {

class Deadline {
  public:
    explicit Deadline(DWORD milliseconds) : end_(GetTickCount64() + milliseconds) {}

    // Pauses before the next attempt, later attempts for longer. False: the time is over.
    bool Pause() {
        if (GetTickCount64() >= end_)
            return false;
        Sleep(tries_ < 20 ? 1 : 10);
        ++tries_;
        return true;
    }

  private:
    ULONGLONG end_;
    int tries_ = 0;
};

} // namespace keldan
