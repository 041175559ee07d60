// A growable buffer of 16-bit characters with spare room before and after the text.
//
// Not thread-safe. Growing throws std::bad_alloc and leaves the buffer as it was.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vorna {

class CPWStringBuffer {
  public:
    CPWStringBuffer() = default;
    CPWStringBuffer(std::wstring_view text) { Assign(text); }
    CPWStringBuffer(const CPWStringBuffer& other) { Assign(other.view()); }
    CPWStringBuffer(CPWStringBuffer&& other) noexcept;
    CPWStringBuffer& operator=(CPWStringBuffer other) noexcept;
    CPWStringBuffer& operator=(std::wstring_view text) {
        Assign(text);
        return *this;
    }
    CPWStringBuffer& operator=(const wchar_t* text) { return *this = std::wstring_view(text); }
    ~CPWStringBuffer();

    // Discards the text and allocates room for refsize characters; with grow also spare room, half in front and half
    // behind.
    void Allocate(std::uint32_t refsize, bool grow);
    // Sets where the text begins, at most 65535 characters from the front, without moving it. Returns 0.
    int SetOffset(std::uint32_t offset);

    // text may be part of this buffer; the same holds for Append and Prepend.
    void Assign(std::wstring_view text);
    // Amortised constant time per character.
    void Append(std::wstring_view text);
    // Moves nothing if the room in front is large enough.
    void Prepend(std::wstring_view text);
    void Clear() { Assign({}); }

    // Zero-terminated; never null. Valid until the next change.
    const wchar_t* c_str() const;
    std::wstring_view view() const { return {c_str(), Length()}; }
    std::uint32_t Length() const;
    bool empty() const { return Length() == 0; }
    std::uint32_t Capacity() const { return mCapacity; }
    std::uint32_t Offset() const { return mOffset; }

  private:
    void Swap(CPWStringBuffer& other) noexcept;
    // Ends the text after the given number of characters.
    void Finish(std::uint32_t length);

    wchar_t* mBuffer = nullptr;
    std::uint32_t mCapacity = 0;
    mutable std::uint32_t mLength = 0;
    std::uint32_t mOffset = 0;
};

} // namespace vorna
