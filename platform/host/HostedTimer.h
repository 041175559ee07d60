// The timer as a component of the host process.
#pragma once

#include "platform/host/HostedComponent.h"
#include "platform/timer/TimerService.h"

namespace keldan {

class HostedTimer : public HostedComponent {
  public:
    HostedTimer();

    const std::vector<server_class>& Classes() const override;
    [[nodiscard]] HRESULT Start(const std::filesystem::path& folder) override;
    bool HasRegistrations() const override { return service_.RegistrationCount() > 0; }
    void Stop() override { service_.Stop(); }

  private:
    TimerService service_;
};

} // namespace keldan
