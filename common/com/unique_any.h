// Owners of what the operating system hands out: one per kind, closed once, on every path.
#pragma once

#include <windows.h>

#include <utility>

namespace vorna {

// Traits: type, invalid() (the value that owns nothing), close(value).
template <typename Traits>
class unique_any {
  public:
    using type = typename Traits::type;

    unique_any() = default;
    explicit unique_any(type value) : value_(value) {}
    unique_any(unique_any&& other) noexcept : value_(other.release()) {}
    unique_any& operator=(unique_any&& other) noexcept {
        if (this != &other)
            reset(other.release());
        return *this;
    }
    unique_any(const unique_any&) = delete;
    unique_any& operator=(const unique_any&) = delete;
    ~unique_any() { reset(); }

    type get() const { return value_; }
    explicit operator bool() const { return value_ != Traits::invalid(); }

    void reset(type value = Traits::invalid()) {
        type old = std::exchange(value_, value);
        if (old != Traits::invalid())
            Traits::close(old);
    }
    type release() { return std::exchange(value_, Traits::invalid()); }

    // For functions that fill a pointer; what was held is closed first.
    type* put() {
        reset();
        return &value_;
    }

  private:
    type value_ = Traits::invalid();
};

// Kernel objects whose "none" is null: events, mutexes, processes, threads.
struct handle_traits {
    using type = HANDLE;
    static type invalid() { return nullptr; }
    static void close(type value) { CloseHandle(value); }
};
using unique_handle = unique_any<handle_traits>;

// Files, whose "none" is INVALID_HANDLE_VALUE.
struct file_traits {
    using type = HANDLE;
    static type invalid() { return INVALID_HANDLE_VALUE; }
    static void close(type value) { CloseHandle(value); }
};
using unique_file = unique_any<file_traits>;

struct find_traits {
    using type = HANDLE;
    static type invalid() { return INVALID_HANDLE_VALUE; }
    static void close(type value) { FindClose(value); }
};
using unique_find = unique_any<find_traits>;

struct registry_key_traits {
    using type = HKEY;
    static type invalid() { return nullptr; }
    static void close(type value) { RegCloseKey(value); }
};
using unique_registry_key = unique_any<registry_key_traits>;

struct library_traits {
    using type = HMODULE;
    static type invalid() { return nullptr; }
    static void close(type value) { FreeLibrary(value); }
};
using unique_library = unique_any<library_traits>;

struct local_memory_traits {
    using type = HLOCAL;
    static type invalid() { return nullptr; }
    static void close(type value) { LocalFree(value); }
};
using unique_local_memory = unique_any<local_memory_traits>;

} // namespace vorna
