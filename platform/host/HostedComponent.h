// What the host process asks of a component that lives in it, and how it asks.
#pragma once

#include "platform/registration/ServerClass.h"

#include <filesystem>
#include <utility>
#include <vector>

namespace keldan {

class HostedComponent {
  public:
    virtual ~HostedComponent() = default;

    // The classes that clients create; constant.
    virtual const std::vector<ServerClass>& Classes() const = 0;
    // Takes up the registrations in the data folder. Called before the classes can be created.
    [[nodiscard]] virtual HRESULT Start(const std::filesystem::path& folder) = 0;
    // Whether somebody has to be called back some time, so that the process must stay.
    virtual bool HasRegistrations() const = 0;
    // No callback begins after this. The object itself lives until the process ends.
    virtual void Stop() = 0;
};

// A component whose operations are a Service, which clients reach through objects of Class.
template <typename Service, typename Class>
class Hosted : public HostedComponent {
  public:
    // arguments: what the service is made of.
    template <typename... Arguments>
    explicit Hosted(const ServerClass& entry, Arguments&&... arguments)
        : classes_{entry}, service_(std::forward<Arguments>(arguments)...) {}

    const std::vector<ServerClass>& Classes() const override { return classes_; }
    [[nodiscard]] HRESULT Start(const std::filesystem::path& folder) override {
        const HRESULT result = service_.Start(folder);
        if (SUCCEEDED(result))
            Class::Serve(&service_);
        return result;
    }
    bool HasRegistrations() const override { return service_.InUse(); }
    void Stop() override { service_.Stop(); }

  private:
    const std::vector<ServerClass> classes_;
    Service service_;
};

} // namespace keldan
