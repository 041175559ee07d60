#include "platform/journal/Journal.h"

#include "common/com/results.h"

#include <array>
#include <cstring>
#include <string_view>

namespace keldan {

using vorna::result_from_last_error;

namespace {

constexpr std::string_view SIGNATURE = "QXKELDAN JOURNAL 1\r\n";
constexpr int MOST_ASIDE_AT_ONCE = 100;

std::uint32_t Checksum(std::string_view bytes) {
    static const std::array<std::uint32_t, 256> table = [] {
        std::array<std::uint32_t, 256> made{};
        for (std::uint32_t i = 0; i < 256; ++i) {
            std::uint32_t value = i;
            for (int bit = 0; bit < 8; ++bit)
                value = value >> 1 ^ (value & 1 ? 0xEDB88320u : 0);
            made[i] = value;
        }
        return made;
    }();
    std::uint32_t sum = 0xFFFFFFFFu;
    for (char character : bytes)
        sum = sum >> 8 ^ table[(sum ^ static_cast<unsigned char>(character)) & 0xFF];
    return ~sum;
}

void PutNumber(std::string& bytes, std::uint32_t value) {
    bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
}

std::uint32_t NumberAt(std::string_view bytes, std::size_t offset) {
    std::uint32_t value = 0;
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
}

// Every commit begins with its size, the checksum of that size and the checksum of the content. This distinguishes a
// wrong size from an interrupted commit.
constexpr std::size_t FRAME = 3 * sizeof(std::uint32_t);

// Builds one commit after the given bytes, without copies, because contents may be large.
class FrameBuilder {
  public:
    FrameBuilder(std::string_view before, std::size_t content) : begin_(before.size()) {
        bytes_.reserve(begin_ + FRAME + content);
        bytes_.append(before).append(FRAME, '\0');
    }
    void Put(const std::string& name, const std::string* value) {
        PutNumber(bytes_, static_cast<std::uint32_t>(name.size()));
        bytes_ += name;
        PutNumber(bytes_, value ? static_cast<std::uint32_t>(value->size()) : ~0u);
        if (value)
            bytes_ += *value;
    }
    std::string Take() {
        const std::string_view content = std::string_view(bytes_).substr(begin_ + FRAME);
        std::string frame;
        PutNumber(frame, static_cast<std::uint32_t>(content.size()));
        PutNumber(frame, Checksum(frame));
        PutNumber(frame, Checksum(content));
        bytes_.replace(begin_, FRAME, frame);
        return std::move(bytes_);
    }

  private:
    const std::size_t begin_;
    std::string bytes_;
};

// The two sizes before a name and its value.
constexpr std::size_t CHANGE = 2 * sizeof(std::uint32_t);

// Nothing if the content is not in the format of FrameBuilder.
std::optional<std::vector<Journal::Change>> ReadContent(std::string_view content) {
    std::vector<Journal::Change> changes;
    const auto take = [&](std::uint32_t size) -> std::optional<std::string> {
        if (content.size() < size)
            return std::nullopt;
        std::string taken(content.substr(0, size));
        content.remove_prefix(size);
        return taken;
    };
    const auto number = [&](std::uint32_t& value) {
        if (content.size() < sizeof value)
            return false;
        value = NumberAt(content, 0);
        content.remove_prefix(sizeof value);
        return true;
    };
    while (!content.empty()) {
        Journal::Change change;
        std::uint32_t size = 0;
        if (!number(size))
            return std::nullopt;
        auto name = take(size);
        if (!name || !number(size))
            return std::nullopt;
        change.name = std::move(*name);
        if (size != ~0u) {
            change.value = take(size);
            if (!change.value)
                return std::nullopt;
        }
        changes.push_back(std::move(change));
    }
    return changes;
}

HRESULT WriteAt(HANDLE file, std::uint64_t offset, std::string_view bytes) {
    LARGE_INTEGER place{};
    place.QuadPart = static_cast<LONGLONG>(offset);
    // Removes what a failed or interrupted write left.
    if (!SetFilePointerEx(file, place, nullptr, FILE_BEGIN) || !SetEndOfFile(file))
        return result_from_last_error();
    DWORD written = 0;
    if (!WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr))
        return result_from_last_error();
    if (written != bytes.size())
        return HRESULT_FROM_WIN32(ERROR_DISK_FULL);
    return FlushFileBuffers(file) ? S_OK : result_from_last_error();
}

} // namespace

HRESULT Journal::OpenFile() {
    file_.reset(CreateFileW(path_.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_ALWAYS,
                            FILE_ATTRIBUTE_NORMAL, nullptr));
    return file_ ? S_OK : result_from_last_error();
}

HRESULT Journal::ReadWhole(std::string& bytes) {
    LARGE_INTEGER size{};
    if (!GetFileSizeEx(file_.get(), &size))
        return result_from_last_error();
    if (size.QuadPart > 0x40000000)
        return HRESULT_FROM_WIN32(ERROR_FILE_TOO_LARGE);
    bytes.resize(static_cast<std::size_t>(size.QuadPart));
    DWORD read = 0;
    if (!ReadFile(file_.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr))
        return result_from_last_error();
    return read == bytes.size() ? S_OK : E_UNEXPECTED;
}

// False if the bytes are damaged. An interrupted last commit is ignored.
bool Journal::Parse(const std::string& bytes) {
    const std::string_view whole(bytes);
    Clear();
    size_ = 0;
    if (whole.size() < SIGNATURE.size())
        return whole == SIGNATURE.substr(0, whole.size());
    if (!whole.starts_with(SIGNATURE))
        return false;
    std::size_t offset = SIGNATURE.size();
    while (whole.size() - offset >= FRAME) {
        const std::string_view frame = whole.substr(offset, FRAME);
        const std::uint32_t size = NumberAt(frame, 0);
        if (NumberAt(frame, 4) != Checksum(frame.substr(0, 4))) {
            // After a loss of power between the size and the content, file systems may leave zeros.
            if (whole.find_first_not_of('\0', offset) != std::string_view::npos)
                return false;
            break;
        }
        if (size > whole.size() - offset - FRAME)
            break;
        const std::string_view content = whole.substr(offset + FRAME, size);
        if (NumberAt(frame, 8) != Checksum(content))
            return false;
        auto changes = ReadContent(content);
        if (!changes)
            return false;
        Apply(std::move(*changes));
        offset += FRAME + size;
    }
    size_ = offset;
    return true;
}

void Journal::Apply(std::vector<Change> changes) {
    for (Change& change : changes) {
        if (const auto known = table_.find(change.name); known != table_.end()) {
            content_ -= known->first.size() + known->second.size();
            if (!change.value)
                table_.erase(known);
        }
        if (change.value) {
            content_ += change.name.size() + change.value->size();
            table_[std::move(change.name)] = std::move(*change.value);
        }
    }
}

void Journal::Clear() {
    table_.clear();
    content_ = 0;
}

HRESULT Journal::Open(const std::filesystem::path& file) {
    path_ = file;
    state_ = State::Good;
    if (HRESULT result = OpenFile(); FAILED(result))
        return result;
    std::string bytes;
    if (HRESULT result = ReadWhole(bytes); FAILED(result)) {
        file_.reset();
        return result;
    }
    if (!Parse(bytes))
        return Discard();
    if (size_ == 0) {
        if (HRESULT result = WriteAt(file_.get(), 0, SIGNATURE); FAILED(result))
            return result;
        size_ = SIGNATURE.size();
    }
    return S_OK;
}

HRESULT Journal::Open(const std::filesystem::path& file, const std::wstring& what, const Reader& read) {
    if (HRESULT result = Open(file); FAILED(result))
        return result;
    if (!read(table_)) {
        if (HRESULT result = Discard(); FAILED(result))
            return result;
        (void)read(table_);
    }
    if (state_ == State::Damaged)
        OutputDebugStringW(
            (L"QXKeldanHost: " + what + L" were damaged; the file was kept as " + setAside_.wstring() + L"\n").c_str());
    return S_OK;
}

HRESULT Journal::Discard() {
    Clear();
    file_.reset();
    SYSTEMTIME now{};
    GetSystemTime(&now);
    wchar_t suffix[64];
    swprintf(suffix, std::size(suffix), L".damaged-%04u%02u%02u-%02u%02u%02u-%03u", now.wYear, now.wMonth, now.wDay,
             now.wHour, now.wMinute, now.wSecond, now.wMilliseconds);
    // Several files may be moved aside within a millisecond.
    for (int taken = 0;; ++taken) {
        setAside_ = path_;
        setAside_ += suffix + (taken == 0 ? std::wstring() : L"-" + std::to_wstring(taken));
        if (MoveFileExW(path_.c_str(), setAside_.c_str(), MOVEFILE_WRITE_THROUGH))
            break;
        if (GetLastError() != ERROR_ALREADY_EXISTS || taken == MOST_ASIDE_AT_ONCE)
            return result_from_last_error();
    }
    state_ = State::Damaged;
    if (HRESULT result = OpenFile(); FAILED(result))
        return result;
    if (HRESULT result = WriteAt(file_.get(), 0, SIGNATURE); FAILED(result))
        return result;
    size_ = SIGNATURE.size();
    return S_OK;
}

HRESULT Journal::Append(const std::string& bytes) {
    if (!file_)
        if (HRESULT result = OpenFile(); FAILED(result))
            return result;
    if (HRESULT result = WriteAt(file_.get(), size_, bytes); FAILED(result)) {
        // The incomplete rest must not be read as a commit at the next start.
        (void)WriteAt(file_.get(), size_, {});
        return result;
    }
    size_ += bytes.size();
    return S_OK;
}

HRESULT Journal::Commit(std::vector<Change> changes) {
    if (changes.empty())
        return S_OK;
    std::size_t size = 0;
    for (const Change& change : changes)
        size += CHANGE + change.name.size() + (change.value ? change.value->size() : 0);
    FrameBuilder frame({}, size);
    for (const Change& change : changes)
        frame.Put(change.name, change.value ? &*change.value : nullptr);
    if (HRESULT result = Append(frame.Take()); FAILED(result))
        return result;
    Apply(std::move(changes));
    // The commit is complete; a file that cannot be rewritten only stays larger.
    if (size_ > compactFrom_ && size_ / 4 > content_)
        compactFrom_ = SUCCEEDED(Compact()) ? SMALLEST_TO_COMPACT : size_ + size_ / 4;
    return S_OK;
}

HRESULT Journal::Compact() {
    FrameBuilder frame(SIGNATURE, static_cast<std::size_t>(content_) + CHANGE * table_.size());
    for (const auto& [name, value] : table_)
        frame.Put(name, &value);
    const std::string bytes = frame.Take();
    std::filesystem::path fresh = path_;
    fresh += L".new";
    {
        vorna::unique_file file(
            CreateFileW(fresh.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
        if (!file)
            return result_from_last_error();
        if (HRESULT result = WriteAt(file.get(), 0, bytes); FAILED(result))
            return result;
    }
    file_.reset();
    HRESULT result = S_OK;
    if (MoveFileExW(fresh.c_str(), path_.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
        size_ = bytes.size();
    else
        result = result_from_last_error();
    // If this fails, the next commit opens the file.
    (void)OpenFile();
    return result;
}

} // namespace keldan
