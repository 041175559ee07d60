// The host process at work: it takes the place of its data folder, starts its components, lets COM create their
// classes, and ends when it is asked to or when nobody needs it.
#pragma once

#include "platform/host/ClassObjects.h"
#include "platform/host/HostedComponent.h"

#include <vector>

namespace keldan {

class HostSignals;

class Host {
  public:
    explicit Host(std::filesystem::path folder);

    // The exit code of the process: 0 also where another host serves the folder already.
    int Run();

    // Registration of the program and everything in it.
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
