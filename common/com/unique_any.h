// Owners of handles of the operating system: one type for each kind, and each handle is closed exactly once.
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

    // For functions that return a handle through an argument; closes the current one first.
    type* put() {
        reset();
        return &value_;
    }

  private:
    type value_ = Traits::invalid();
};

// Handles that are closed by a function with one argument, and are null if not valid.
template <typename Type, auto Close>
struct null_traits {
    using type = Type;
    static type invalid() { return nullptr; }
    static void close(type value) { Close(value); }
};
// Events, mutexes, processes, threads.
using unique_handle = unique_any<null_traits<HANDLE, CloseHandle>>;
using unique_registry_key = unique_any<null_traits<HKEY, RegCloseKey>>;
using unique_library = unique_any<null_traits<HMODULE, FreeLibrary>>;
using unique_local_memory = unique_any<null_traits<HLOCAL, LocalFree>>;

// The same for handles that are INVALID_HANDLE_VALUE if not valid.
template <auto Close>
struct file_traits {
    using type = HANDLE;
    static type invalid() { return INVALID_HANDLE_VALUE; }
    static void close(type value) { Close(value); }
};
using unique_file = unique_any<file_traits<CloseHandle>>;
using unique_find = unique_any<file_traits<FindClose>>;

} // namespace vorna
