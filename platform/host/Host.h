// The host process: it becomes the only host of its data folder, starts its components, registers their classes with
// COM, and ends when it is asked to or is no longer in use.
#pragma once

#include "platform/host/ClassObjects.h"
#include "platform/host/HostedComponent.h"

#include <vector>

namespace keldan {

class HostSignals;

class Host {
  public:
    explicit Host(std::filesystem::path folder);

    // Returns the exit code of the process; 0 also if another host serves the folder already.
    int Run();

    // Registration of the program, its type library and its classes.
    [[nodiscard]] HRESULT Register() const;
    [[nodiscard]] HRESULT Unregister() const;

  private:
    [[nodiscard]] HRESULT StartComponents();
    std::vector<ServerClass> Classes() const;
    bool InUse(const ClassObjects& classes) const;
    void WritePid() const;
    void Serve(HostSignals& signals, ClassObjects& classes) const;

    const std::filesystem::path folder_;
    std::vector<HostedComponent*> components_;
};

} // namespace keldan
