#include "DebuggerOutput.h"

namespace {

// The system's protocol: the sender's process identifier and its text in one shared page, two events.
struct SharedPage {
    DWORD process;
    char text[4096 - sizeof(DWORD)];
};

} // namespace

DebuggerOutput::DebuggerOutput() {
    mapping_.reset(
        CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(SharedPage), "DBWIN_BUFFER"));
    ready_.reset(CreateEventA(nullptr, FALSE, FALSE, "DBWIN_BUFFER_READY"));
    filled_.reset(CreateEventA(nullptr, FALSE, FALSE, "DBWIN_DATA_READY"));
    end_.reset(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    listener_ = std::thread([this] { Listen(); });
}

DebuggerOutput::~DebuggerOutput() {
    SetEvent(end_.get());
    listener_.join();
}

void DebuggerOutput::Listen() {
    const auto* page = static_cast<const SharedPage*>(MapViewOfFile(mapping_.get(), FILE_MAP_READ, 0, 0, 0));
    HANDLE waits[] = {filled_.get(), end_.get()};
    SetEvent(ready_.get());
    while (WaitForMultipleObjects(2, waits, FALSE, INFINITE) == WAIT_OBJECT_0) {
        if (page->process == GetCurrentProcessId()) {
            std::lock_guard guard(lock_);
            texts_.emplace_back(page->text);
        }
        SetEvent(ready_.get());
    }
    UnmapViewOfFile(page);
}

std::vector<std::string> DebuggerOutput::Texts() {
    // The page is free again only when the last text was taken from it.
    WaitForSingleObject(ready_.get(), 5000);
    SetEvent(ready_.get());
    std::lock_guard guard(lock_);
    return texts_;
}
