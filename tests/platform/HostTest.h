// The real host process over COM, and this program as the client that it calls back.
#pragma once

#include "VornaLib.h"
#include "common/com/bstr.h"
#include "common/com/com_server.h"
#include "support/Support.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

constexpr std::chrono::seconds PATIENCE(20);

// The class of this program that receives callbacks and stores them in the inbox; COM finds it while a HostTest exists.
constexpr wchar_t RECEIVER[] = L"QXKELDAN.TestReceiver";

// The callbacks that this program received.
class Inbox {
  public:
    HRESULT Take(BSTR document) {
        std::lock_guard lock(mutex_);
        documents_.push_back(std::wstring(vorna::view_of(document)));
        arrived_.notify_all();
        if (failures_ == 0)
            return S_OK;
        --failures_;
        return E_FAIL;
    }
    void FailNext(int times) {
        std::lock_guard lock(mutex_);
        failures_ = times;
    }
    void Clear() {
        std::lock_guard lock(mutex_);
        documents_.clear();
        failures_ = 0;
    }
    // The callbacks of a registration, in the order of their arrival.
    std::vector<std::wstring> Of(const std::wstring& id) {
        std::lock_guard lock(mutex_);
        return OfLocked(id);
    }
    std::size_t Count(const std::wstring& id) { return Of(id).size(); }
    // Waits for that many callbacks of the registration.
    bool WaitFor(const std::wstring& id, std::size_t count) {
        std::unique_lock lock(mutex_);
        return arrived_.wait_for(lock, PATIENCE, [&] { return OfLocked(id).size() >= count; });
    }
    std::wstring Last() {
        std::lock_guard lock(mutex_);
        return documents_.empty() ? L"" : documents_.back();
    }

  private:
    std::vector<std::wstring> OfLocked(const std::wstring& id) const {
        std::vector<std::wstring> found;
        for (const std::wstring& document : documents_)
            if (document.find(L"<SubscriptionID>" + id + L"</SubscriptionID>") != std::wstring::npos)
                found.push_back(document);
        return found;
    }

    std::mutex mutex_;
    std::condition_variable arrived_;
    std::vector<std::wstring> documents_;
    int failures_ = 0;
};

inline Inbox inbox;

// Registers a ProgID for a class of this program; COM finds it only while the program runs.
void RegisterProgId(const std::wstring& progId, const CLSID& clsid);

// Registers a class of this program for other processes, for the life of the object.
class RunningClass {
  public:
    template <typename Class>
    static RunningClass Of(const CLSID& clsid, DWORD context) {
        vorna::com_ptr<vorna::class_factory<Class>> factory;
        factory.attach(new vorna::class_factory<Class>());
        RunningClass running;
        EXPECT_HR(S_OK, CoRegisterClassObject(clsid, factory.get(), context, REGCLS_MULTIPLEUSE, &running.cookie_));
        return running;
    }
    RunningClass(RunningClass&& other) noexcept : cookie_(std::exchange(other.cookie_, 0)) {}
    ~RunningClass() {
        if (cookie_ != 0)
            CoRevokeClassObject(cookie_);
    }

  private:
    RunningClass() = default;
    DWORD cookie_ = 0;
};

// Runs QXKeldanHost.exe and returns its exit code.
DWORD RunHost(const std::wstring& option);

// A host with a data folder of its own, started by COM when a test connects, and stopped after the test.
class HostTest : public testing::Test {
  protected:
    static void SetUpTestSuite();
    HostTest();
    void TearDown() override;

    // Starts the host if none runs. For a moment, Wine still returns the class object of a killed host, and does not
    // signal when that has ended.
    template <typename Interface>
    void ConnectTo(const wchar_t* progId, vorna::com_ptr<Interface>& object) {
        CLSID clsid{};
        ASSERT_HR(S_OK, CLSIDFromProgID(progId, &clsid));
        const auto until = std::chrono::steady_clock::now() + PATIENCE;
        HRESULT result = E_FAIL;
        do {
            result = CoCreateInstance(clsid, nullptr, CLSCTX_ALL, __uuidof(Interface), object.put_void());
        } while (FAILED(result) && std::chrono::steady_clock::now() < until);
        ASSERT_HR(S_OK, result);
    }
    DWORD HostId() const;
    void KillHost();
    // Damages a file of the data folder while no host runs.
    void Damage(const wchar_t* name) const;
    // The number of files in the data folder whose names begin with this text.
    int FilesNamed(std::wstring_view begin) const;

    support::TestFolder folder_;
    // Does not exist before the host creates it.
    const std::filesystem::path dataFolder_ = folder_.Path() / "platform" / "data";
    support::PlatformData data_{dataFolder_};
    RunningClass receiver_;
};
