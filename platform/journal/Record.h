// The values of a journal: a sequence of numbers and texts, in the byte order of this machine.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace keldan {

// The name of a record: its kind and an ID, which consists of letters, digits and dashes.
inline std::string RecordName(std::string_view kind, std::wstring_view id) {
    return std::string(kind).append(id.begin(), id.end());
}

class RecordWriter {
  public:
    void Number(std::int64_t value) { bytes_.append(reinterpret_cast<const char*>(&value), sizeof value); }
    void Text(std::wstring_view text) {
        bytes_.reserve(bytes_.size() + sizeof(std::int64_t) + text.size() * sizeof(wchar_t));
        Number(static_cast<std::int64_t>(text.size()));
        bytes_.append(reinterpret_cast<const char*>(text.data()), text.size() * sizeof(wchar_t));
    }
    std::string Take() { return std::move(bytes_); }

  private:
    std::string bytes_;
};

// After the end of the bytes every read returns an empty value, and Complete is false.
class RecordReader {
  public:
    explicit RecordReader(std::string_view bytes) : bytes_(bytes) {}

    std::int64_t Number() {
        std::int64_t value = 0;
        if (Has(sizeof value)) {
            std::memcpy(&value, bytes_.data(), sizeof value);
            bytes_.remove_prefix(sizeof value);
        }
        return value;
    }
    std::wstring Text() {
        std::wstring text;
        AppendText(text);
        return text;
    }
    // Appends the next text to another one.
    void AppendText(std::wstring& text) {
        const std::int64_t size = Number();
        if (size < 0 || size > static_cast<std::int64_t>(bytes_.size()) || !Has(size * sizeof(wchar_t))) {
            good_ = false;
            return;
        }
        const std::size_t before = text.size();
        text.resize(before + static_cast<std::size_t>(size));
        std::memcpy(text.data() + before, bytes_.data(), static_cast<std::size_t>(size) * sizeof(wchar_t));
        bytes_.remove_prefix(static_cast<std::size_t>(size) * sizeof(wchar_t));
    }
    bool Complete() const { return good_ && bytes_.empty(); }
    bool Good() const { return good_; }

  private:
    bool Has(std::uint64_t size) {
        good_ = good_ && bytes_.size() >= size;
        return good_;
    }

    std::string_view bytes_;
    bool good_ = true;
};

} // namespace keldan
