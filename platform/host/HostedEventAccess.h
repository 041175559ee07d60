// The event access as a component of the host process.
#pragma once

#include "platform/eventaccess/EventAccessService.h"
#include "platform/host/HostedComponent.h"

namespace keldan {

class HostedEventAccess : public HostedComponent {
  public:
    HostedEventAccess();

    const std::vector<server_class>& Classes() const override;
    [[nodiscard]] HRESULT Start(const std::filesystem::path& folder) override;
    bool HasRegistrations() const override { return service_.InUse(); }
    void Stop() override { service_.Stop(); }

  private:
    EventAccessService service_;
};

} // namespace keldan
