// A time limit for repeated attempts to access something that another process is using.
#pragma once

#include <windows.h>

namespace keldan {

class Deadline {
  public:
    explicit Deadline(DWORD milliseconds) : end_(GetTickCount64() + milliseconds) {}

    // Pauses before the next attempt, later attempts for longer. False: the time limit has been reached.
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
