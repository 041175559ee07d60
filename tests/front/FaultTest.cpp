// Without memory the component fails; it neither throws nor ends the process.
#include "ComponentTest.h"

#include "common/log/Logging.h"
#include "common/services/NamedLock.h"
#include "front/Vorna.h"

#include <cstdlib>
#include <new>

namespace {

// The number of allocations of the test's thread that still succeed; negative: no limit.
long allocationsLeft = -1;
long failures = 0;
DWORD limitedThread = 0;

void* Allocate(std::size_t size) {
    if (allocationsLeft >= 0 && GetCurrentThreadId() == limitedThread) {
        if (allocationsLeft == 0) {
            ++failures;
            return nullptr;
        }
        --allocationsLeft;
    }
    return std::malloc(size ? size : 1);
}

class LimitedMemory {
  public:
    explicit LimitedMemory(long allocations) {
        failures = 0;
        limitedThread = GetCurrentThreadId();
        allocationsLeft = allocations;
    }
    ~LimitedMemory() { allocationsLeft = -1; }
    LimitedMemory(const LimitedMemory&) = delete;
    LimitedMemory& operator=(const LimitedMemory&) = delete;
};

// Runs work with memory for none, one, two, ... allocations, until one run needs no more. failed: checks each run that
// ran out of memory. Returns the last run's result.
template <typename Work, typename Check>
HRESULT WithEveryShortage(Work work, Check failed) {
    for (long allocations = 0;; ++allocations) {
        HRESULT result;
        {
            const LimitedMemory limited(allocations);
            result = work();
        }
        if (failures == 0)
            return result;
        failed(result);
    }
}

class FaultTest : public ComponentTest {
  protected:
    FaultTest()
        : log_(L"SOFTWARE\\Ostrevane\\QXKeldan\\Logging", L"QXKELDAN.Vorna",
               L"file," + (logFolder_.Path() / "a.log").wstring() + L",8") {}
    void SetUp() override {
        ComponentTest::SetUp();
        // Linked into this program, so that its allocations can fail.
        object_.attach(new vorna::Vorna());
    }
    void TearDown() override {
        object_.reset();
        vorna::StopLogging();
        ComponentTest::TearDown();
    }

    support::TestFolder logFolder_;
    support::RegistryValue log_;
    vorna::com_ptr<vorna::Vorna> object_;
};

} // namespace

// The library's operator delete frees what malloc has allocated.
void* operator new(std::size_t size) {
    if (void* memory = Allocate(size))
        return memory;
    throw std::bad_alloc();
}

TEST_F(FaultTest, MethodsWithoutMemory) {
    const vorna::bstr archive(L"/Archive[@ID='A1']/*"), document(L"<Archive ID='A1'/>"), event(L"<Event/>"), none;
    vorna::bstr info, data;
    const struct {
        const char* name;
        std::function<HRESULT()> call;
        HRESULT result;
        const wchar_t* text;
    } cases[] = {
        {"GetData without service",
         [&] { return object_->GetData(nullptr, archive.get(), none.get(), info.put(), data.put()); },
         vorna::RESULT_SERVICE_OBJECT, L"Invalid Service Object"},
        {"GetData of no archive",
         [&] { return object_->GetData(service_.get(), archive.get(), none.get(), info.put(), data.put()); },
         vorna::RESULT_NO_SUBSCRIPTION, L"No Subscription exists for the service and archive id"},
        {"SetData without service", [&] { return object_->SetData(nullptr, document.get(), 0, info.put()); },
         vorna::RESULT_SERVICE_OBJECT, L"Invalid Service Object"},
        {"SetData of no archive", [&] { return object_->SetData(service_.get(), document.get(), 0, info.put()); },
         vorna::RESULT_NO_SUBSCRIPTION,
         L"No subscription exists for the ArchiveID and Service params combination specified"},
        {"Deliver", [&] { return object_->Deliver(event.get(), info.put()); }, E_FAIL,
         L"Failed to get subscription ID from Call back XML"},
    };
    for (const auto& item : cases) {
        SCOPED_TRACE(item.name);
        const HRESULT result = WithEveryShortage(item.call, [](HRESULT failed) { EXPECT_TRUE(FAILED(failed)); });
        EXPECT_HR(item.result, result);
        EXPECT_EQ(item.text, info.view());
    }
    EXPECT_EQ(0u, FilesLeft());
}

TEST_F(FaultTest, DefaultTextsNeedNoMemory) {
    const vorna::bstr archive(L"/Archive[@ID='A1']/*"), document(L"<Archive ID='A1'/>"), event(L"<Event/>"), none;
    vorna::bstr ofGetData, ofSetData, ofDeliver, data;
    {
        const LimitedMemory limited(0);
        object_->GetData(service_.get(), archive.get(), none.get(), ofGetData.put(), data.put());
        object_->SetData(service_.get(), document.get(), 0, ofSetData.put());
        object_->Deliver(event.get(), ofDeliver.put());
    }
    EXPECT_EQ(L"Unknown Exception", ofGetData.view());
    EXPECT_EQ(L"Unknown Error", ofSetData.view());
    EXPECT_EQ(L"UnknownException", ofDeliver.view());
}

TEST_F(FaultTest, LateBindingWithoutMemory) {
    wchar_t name[] = L"SetData";
    LPOLESTR names[] = {name};
    DISPID id = 0;
    // This program has no type library; with memory, that is the result.
    EXPECT_HR(TYPE_E_LIBNOTREGISTERED,
              WithEveryShortage([&] { return object_->GetIDsOfNames(IID_NULL, names, 1, 0, &id); },
                                [](HRESULT failed) { EXPECT_HR(E_OUTOFMEMORY, failed); }));
}

TEST_F(FaultTest, LocksAreReleasedWithoutMemory) {
    for (const bool early : {true, false}) {
        std::optional<vorna::NamedLock> lock;
        lock.emplace(vorna::NamedLock::Name{L"VORNATEST.Fault", ""});
        ASSERT_TRUE(lock->Held());
        {
            const LimitedMemory limited(0);
            if (early)
                lock->Unlock();
            lock.reset();
        }
        EXPECT_EQ(0, failures);
    }
}
