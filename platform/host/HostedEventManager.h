// The event manager as a component of the host process.
#pragma once

#include "platform/events/EventManagerService.h"
#include "platform/host/HostedComponent.h"

namespace keldan {

class HostedEventManager : public HostedComponent {
  public:
    HostedEventManager();

    const std::vector<server_class>& Classes() const override;
    [[nodiscard]] HRESULT Start(const std::filesystem::path& folder) override;
    // Whoever raises an event starts the process; it must stay only for what was raised and not delivered yet.
    bool HasRegistrations() const override { return service_.pending() > 0; }
    void Stop() override { service_.Stop(); }

  private:
    EventManagerService service_;
};

} // namespace keldan
