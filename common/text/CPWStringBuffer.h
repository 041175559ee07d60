// A growable buffer of 16-bit characters with room in front of the text as well as behind it.
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

    // Discards the text and makes room for refsize characters; with grow, spare room is split evenly in front and
    // behind.
    void Allocate(std::uint32_t refsize, bool grow);
    // Sets the reserve in front of the text, at most 65535 characters. Returns 0.
    int SetOffset(std::uint32_t offset);

    // The given text may lie in this very buffer.
    void Assign(std::wstring_view text);
    // Amortised constant time a character.
    void Append(std::wstring_view text);
    // Uses the room in front where it is enough, so that nothing moves.
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
