// The class objects of this process, as COM hands them to clients.
//
// Wine's COM service keeps the class objects of a process that was killed, and goes on handing them to clients, who
// then never start the process again. There each registration is good for one activation and is renewed behind it:
// after a kill one activation of a class fails at most, and the next one starts the process, which uses up what was
// left of its other classes.
#pragma once

#include "common/com/unique_any.h"
#include "platform/registration/ServerClass.h"

#include <atomic>
#include <thread>
#include <vector>

namespace keldan {

// One thread.
class ClassObjects {
  public:
    // renew: an event that is set when a registration has been used up.
    explicit ClassObjects(HANDLE renew);
    ~ClassObjects() { Close(); }
    ClassObjects(const ClassObjects&) = delete;
    ClassObjects& operator=(const ClassObjects&) = delete;

    [[nodiscard]] HRESULT Open(std::vector<ServerClass> classes);
    [[nodiscard]] HRESULT Renew();
    void Close();
    // What they add to the count of uses of this module.
    long Uses() const { return uses_; }

  private:
    [[nodiscard]] HRESULT Register();
    void Revoke();
    void UseUpLeftOvers();

    const HANDLE renew_;
    const bool singleUse_;
    std::vector<ServerClass> classes_;
    std::vector<DWORD> cookies_;
    long uses_ = 0;
    std::atomic<bool> closing_{false};
    std::thread sweep_;
};

} // namespace keldan
