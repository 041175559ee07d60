// The real host process over COM, and this program as the client that it calls back.
#pragma once

#include "VornaLib.h"
#include "common/com/com_server.h"
#include "fakes/InstalledClass.h"
#include "platform/Inbox.h"
#include "support/ChildProcess.h"

// The class of this program that receives callbacks and stores them in the inbox; COM finds it while a HostTest exists.
constexpr wchar_t RECEIVER[] = L"QXKELDAN.TestReceiver";

// The callbacks that this program received.
inline Inbox inbox;

// The class of RECEIVER.
class Receiver : public vorna::com_object<Receiver, IComBaseClient> {
  public:
    STDMETHODIMP Deliver(BSTR document, BSTR* error) override {
        if (error)
            *error = nullptr;
        return inbox.Take(vorna::view_of(document));
    }
};

// A host with a data folder of its own, started by COM when a test connects, and stopped after the test.
class HostTest : public testing::Test {
  protected:
    static void SetUpTestSuite();
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
    // Damages a file of the data folder while no host runs.
    void Damage(const wchar_t* name) const { support::DamageFile(dataFolder_ / name, 12); }
    bool WasMovedAside(const std::wstring& name) const;

    support::TestFolder folder_;
    // Does not exist before the host creates it.
    const std::filesystem::path dataFolder_ = folder_.Path() / "platform" / "data";
    support::PlatformData data_{dataFolder_};
    fakes::InstalledClass<Receiver> receiver_{RECEIVER, CLSCTX_LOCAL_SERVER};
};

// A HostTest with a connection to one of the host's services.
template <typename Interface>
class ServiceTest : public HostTest {
  protected:
    explicit ServiceTest(const wchar_t* progId) : progId_(progId) {}
    void SetUp() override {
        inbox.Clear();
        ASSERT_NO_FATAL_FAILURE(Connect());
    }
    void TearDown() override {
        service_.reset();
        HostTest::TearDown();
    }
    void Connect() { ConnectTo(progId_, service_); }
    void KillHost() {
        EXPECT_TRUE(support::KillHost(dataFolder_.wstring()));
        service_.reset();
    }
    void KillAndReconnect() {
        KillHost();
        Connect();
    }
    vorna::com_ptr<Interface> service_;

  private:
    const wchar_t* progId_;
};
