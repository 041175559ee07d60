// What the host process asks of a component that lives in it. One adapter a component, in this folder.
#pragma once

#include "platform/module/Registration.h"

#include <filesystem>
#include <vector>

namespace keldan {

class HostedComponent {
  public:
    virtual ~HostedComponent() = default;

    // The classes that clients create; constant.
    virtual const std::vector<server_class>& Classes() const = 0;
    // Takes up the registrations in the data folder. Called before the classes can be created.
    [[nodiscard]] virtual HRESULT Start(const std::filesystem::path& folder) = 0;
    // Whether somebody has to be called back some time, so that the process must stay.
    virtual bool HasRegistrations() const = 0;
    // No callback begins after this. The object itself lives until the process ends.
    virtual void Stop() = 0;
};

} // namespace keldan
