// The interface between the host process and its components.
#pragma once

#include "platform/registration/ServerClass.h"

#include <filesystem>
#include <utility>

namespace keldan {

class HostedComponent {
  public:
    virtual ~HostedComponent() = default;

    // The class that clients create.
    virtual const ServerClass& ClassEntry() const = 0;
    // Loads the registrations in the data folder. Called before the classes can be created.
    [[nodiscard]] virtual HRESULT Start(const std::filesystem::path& folder) = 0;
    // Whether the process must continue to run because the component still has to send callbacks.
    virtual bool HasRegistrations() const = 0;
    // No callback begins after this. The object exists until the process ends.
    virtual void Stop() = 0;
};

// A component that consists of a Service, which clients call through objects of Class.
template <typename Service, typename Class>
class Hosted : public HostedComponent {
  public:
    // entry must outlive the object; arguments: for the constructor of the service.
    template <typename... Arguments>
    explicit Hosted(const ServerClass& entry, Arguments&&... arguments)
        : class_(entry), service_(std::forward<Arguments>(arguments)...) {}

    const ServerClass& ClassEntry() const override { return class_; }
    [[nodiscard]] HRESULT Start(const std::filesystem::path& folder) override {
        const HRESULT result = service_.Start(folder);
        if (SUCCEEDED(result))
            Class::Serve(&service_);
        return result;
    }
    bool HasRegistrations() const override { return service_.InUse(); }
    void Stop() override { service_.Stop(); }

  private:
    const ServerClass& class_;
    Service service_;
};

} // namespace keldan
