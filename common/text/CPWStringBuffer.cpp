#include "common/text/CPWStringBuffer.h"

#include "common/log/Logging.h"

#include <algorithm>
#include <cwchar>
#include <new>
#include <utility>

namespace vorna {

namespace {

constexpr std::uint32_t MAX_OFFSET = 65535;
// The most that a 32-bit process can address.
constexpr double MAX_CHARACTERS = 0x3FFFFFF0;

std::uint32_t CapacityFor(std::uint32_t refsize, bool grow) {
    double capacity = refsize;
    if (grow)
        capacity = refsize < 256 ? std::max(2.0 * refsize, 32.0) : refsize * (1.0 + 512.0 / (256.0 + refsize));
    if (capacity > MAX_CHARACTERS)
        throw std::bad_alloc();
    return static_cast<std::uint32_t>(capacity);
}

// A text ends at its first zero.
std::wstring_view UpToZero(std::wstring_view text) {
    return text.substr(0, text.find(L'\0'));
}

std::uint32_t SizeOf(std::wstring_view text) {
    if (static_cast<double>(text.size()) > MAX_CHARACTERS)
        throw std::bad_alloc();
    return static_cast<std::uint32_t>(text.size());
}

// needed is the sum of at most two lengths up to MAX_CHARACTERS, so it cannot wrap. Doubling ends at half the maximum,
// because a larger block may not be available.
std::uint32_t Doubled(std::uint32_t needed, std::uint32_t capacity) {
    return std::max(needed, static_cast<std::uint32_t>(std::min(2.0 * capacity, MAX_CHARACTERS / 2)));
}

} // namespace

CPWStringBuffer::CPWStringBuffer(CPWStringBuffer&& other) noexcept {
    Swap(other);
}

CPWStringBuffer& CPWStringBuffer::operator=(CPWStringBuffer other) noexcept {
    Swap(other);
    return *this;
}

CPWStringBuffer::~CPWStringBuffer() {
    delete[] mBuffer;
}

void CPWStringBuffer::Swap(CPWStringBuffer& other) noexcept {
    std::swap(mBuffer, other.mBuffer);
    std::swap(mCapacity, other.mCapacity);
    std::swap(mLength, other.mLength);
    std::swap(mOffset, other.mOffset);
}

void CPWStringBuffer::Allocate(std::uint32_t refsize, bool grow) {
    delete[] std::exchange(mBuffer, nullptr);
    mCapacity = mLength = mOffset = 0;
    const std::uint32_t capacity = CapacityFor(refsize, grow);
    // Two characters more than the capacity, all zero: the header and a terminating zero fit into any buffer.
    mBuffer = new wchar_t[capacity + 2]();
    mCapacity = capacity;
    SetOffset((capacity - refsize) / 2);
    mBuffer[mOffset ? mOffset : 1] = L'\0';
    VORNA_LOG(LOG_BUFFER, "CPWStringBuffer::Allocate - refsize=%d | mBuffer=%X | mCapacity=%d | mOffset=%d", refsize,
              mBuffer, mCapacity, mOffset);
}

int CPWStringBuffer::SetOffset(std::uint32_t offset) {
    mOffset = std::min(offset, MAX_OFFSET);
    // The text now begins at a different place, so its length must be measured again.
    mLength = 0;
    if (mOffset > 1 && mBuffer && mCapacity > 2) {
        mBuffer[0] = L'\0';
        mBuffer[1] = static_cast<wchar_t>(mOffset);
    } else {
        mOffset = 0;
        if (mBuffer && mBuffer[0] == L'\0')
            mBuffer[1] = L'\0';
    }
    VORNA_LOG(LOG_BUFFER, "CPWStringBuffer::SetOffset - mOffset=%d", mOffset);
    return 0;
}

const wchar_t* CPWStringBuffer::c_str() const {
    return mBuffer && mOffset <= mCapacity ? mBuffer + mOffset : L"";
}

std::uint32_t CPWStringBuffer::Length() const {
    if (mLength == 0)
        mLength = static_cast<std::uint32_t>(std::wcslen(c_str()));
    return mLength;
}

void CPWStringBuffer::Finish(std::uint32_t length) {
    mBuffer[mOffset + length] = L'\0';
    // An empty text at offset 0 also has an empty header.
    if (mOffset == 0 && length == 0)
        mBuffer[1] = L'\0';
    mLength = length;
}

void CPWStringBuffer::Assign(std::wstring_view text) {
    text = UpToZero(text);
    const std::uint32_t size = SizeOf(text);
    if (size > mCapacity) {
        CPWStringBuffer grown;
        grown.Allocate(Doubled(size, mCapacity), true);
        std::wmemcpy(grown.mBuffer + grown.mOffset, text.data(), size);
        grown.Finish(size);
        Swap(grown);
    } else if (mBuffer) {
        const bool fits = mOffset <= mCapacity - size;
        if (size != 0)
            std::wmemmove(mBuffer + (fits ? mOffset : 0), text.data(), size);
        if (!fits)
            SetOffset(0);
        Finish(size);
    }
}

void CPWStringBuffer::Append(std::wstring_view text) {
    text = UpToZero(text);
    const std::uint32_t size = SizeOf(text);
    const std::uint32_t length = Length();
    if (size == 0)
        return;
    if (mOffset <= mCapacity && size <= mCapacity - mOffset - length) {
        std::wmemmove(mBuffer + mOffset + length, text.data(), size);
        Finish(length + size);
        return;
    }
    CPWStringBuffer grown;
    grown.Allocate(Doubled(length + size, mCapacity), true);
    std::wmemcpy(grown.mBuffer + grown.mOffset, c_str(), length);
    std::wmemcpy(grown.mBuffer + grown.mOffset + length, text.data(), size);
    grown.Finish(length + size);
    Swap(grown);
}

void CPWStringBuffer::Prepend(std::wstring_view text) {
    text = UpToZero(text);
    const std::uint32_t size = SizeOf(text);
    const std::uint32_t length = Length();
    if (size == 0)
        return;
    // Either two characters remain for the header, or the text begins at offset 0 and needs none.
    if (mOffset <= mCapacity && (size == mOffset || size + 2 <= mOffset)) {
        std::wmemcpy(mBuffer + mOffset - size, text.data(), size);
        SetOffset(mOffset - size);
        mLength = length + size;
        return;
    }
    CPWStringBuffer grown;
    const std::uint32_t refsize = Doubled(length + size, mCapacity);
    grown.Allocate(refsize, true);
    // More text is likely to be prepended, so most of the spare room goes in front, up to the largest offset.
    const std::uint32_t spare = grown.mCapacity - length - size;
    grown.SetOffset(spare - std::min(spare, refsize / 16));
    std::wmemcpy(grown.mBuffer + grown.mOffset, text.data(), size);
    std::wmemcpy(grown.mBuffer + grown.mOffset + size, c_str(), length);
    grown.Finish(length + size);
    Swap(grown);
}

} // namespace vorna
