// The class objects of this process, as COM provides them to clients.
//
// Wine's COM service keeps the class objects of a killed process and still gives them to clients, so that the process
// is never started again. Under Wine a class object is therefore registered for one activation and renewed after it:
// after a kill, at most one activation of each class fails, and the next one starts the process, which uses up the
// remaining registrations of its other classes.
#pragma once

#include "common/com/unique_any.h"
#include "platform/registration/ServerClass.h"

#include <atomic>
#include <thread>
#include <vector>

namespace keldan {

// Not thread-safe.
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
    // Their share of the use count of this module.
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
