// An owning BSTR, and conversions from and to views.
#pragma once

#include <windows.h>

#include <oleauto.h>

#include <new>
#include <string>
#include <string_view>
#include <utility>

namespace vorna {

class bstr {
  public:
    bstr() = default;
    // Copies the text; throws std::bad_alloc.
    explicit bstr(std::wstring_view text) : value_(SysAllocStringLen(text.data(), static_cast<UINT>(text.size()))) {
        if (!value_)
            throw std::bad_alloc();
    }
    bstr(bstr&& other) noexcept : value_(other.release()) {}
    bstr& operator=(bstr&& other) noexcept {
        std::swap(value_, other.value_);
        return *this;
    }
    bstr(const bstr&) = delete;
    bstr& operator=(const bstr&) = delete;
    ~bstr() { SysFreeString(value_); }

    BSTR get() const { return value_; }
    BSTR release() { return std::exchange(value_, nullptr); }
    BSTR* put() {
        SysFreeString(release());
        return &value_;
    }
    // Null reads as empty, as usual in COM. Valid until the text changes.
    std::wstring_view view() const { return {value_ ? value_ : L"", SysStringLen(value_)}; }
    std::wstring str() const { return std::wstring(view()); }
    bool empty() const { return SysStringLen(value_) == 0; }

  private:
    BSTR value_ = nullptr;
};

// A BSTR argument as a view; null reads as empty.
inline std::wstring_view view_of(BSTR text) {
    return {text ? text : L"", SysStringLen(text)};
}

} // namespace vorna
