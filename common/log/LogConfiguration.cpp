#include "common/log/LogConfiguration.h"

#include "common/com/unique_any.h"

#include <cstdlib>
#include <cstring>

namespace vorna {

namespace {

constexpr char LOGGING_KEY[] = "SOFTWARE\\Ostrevane\\QXKeldan\\Logging";
constexpr char PRODUCT_KEY[] = "SOFTWARE\\Ostrevane\\QXKeldan";

using Value = char[LogConfiguration::MAX_VALUE + 1];

LSTATUS ReadString(HKEY key, const char* name, Value& value) {
    DWORD type = REG_NONE;
    DWORD size = LogConfiguration::MAX_VALUE + 1;
    LSTATUS status = RegQueryValueExA(key, name, nullptr, &type, reinterpret_cast<BYTE*>(value), &size);
    if (status != ERROR_SUCCESS)
        return status;
    if (type != REG_SZ && type != REG_EXPAND_SZ)
        return ERROR_INVALID_DATATYPE;
    // The registry keeps strings as they were written, with or without a terminating zero.
    value[size <= LogConfiguration::MAX_VALUE ? size : LogConfiguration::MAX_VALUE] = '\0';
    return ERROR_SUCCESS;
}

unsigned long Number(const char* text) {
    return static_cast<unsigned long>(std::strtol(text, nullptr, 10));
}

} // namespace

void LogConfiguration::Parse(const char* value) {
    *this = {};
    const char* comma = std::strchr(value, ',');
    if (!comma)
        return;
    const size_t length = static_cast<size_t>(comma - value);
    auto firstFieldIs = [&](const char* name) {
        return length == std::strlen(name) && _strnicmp(value, name, length) == 0;
    };
    const char* rest = comma + 1;
    if (firstFieldIs("console") || firstFieldIs("debug")) {
        mode = firstFieldIs("console") ? LOG_MODE_CONSOLE : LOG_MODE_DEBUGGER;
        level = static_cast<unsigned char>(Number(rest));
    } else if (firstFieldIs("file")) {
        const char* second = std::strchr(rest, ',');
        if (!second || static_cast<size_t>(second - rest) >= sizeof path)
            return;
        std::memcpy(path, rest, static_cast<size_t>(second - rest));
        const char* third = std::strchr(second + 1, ',');
        mode = third ? LOG_MODE_LIMITED_FILE : LOG_MODE_FILE;
        kilobytes = third ? Number(second + 1) : 0;
        level = static_cast<unsigned char>(Number((third ? third : second) + 1));
    }
}

bool LogConfiguration::Read(const char* programId) {
    *this = {};
    Value value;
    unique_registry_key key;
    LSTATUS status;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, LOGGING_KEY, 0, KEY_READ, key.put()) == ERROR_SUCCESS) {
        status = ReadString(key.get(), programId, value);
        if (status == ERROR_FILE_NOT_FOUND)
            status = ReadString(key.get(), nullptr, value);
    } else {
        status = RegOpenKeyExA(HKEY_LOCAL_MACHINE, PRODUCT_KEY, 0, KEY_READ, key.put());
        if (status == ERROR_SUCCESS)
            status = ReadString(key.get(), "Logging", value);
    }
    if (status != ERROR_SUCCESS)
        return false;
    Parse(value);
    return true;
}

} // namespace vorna
