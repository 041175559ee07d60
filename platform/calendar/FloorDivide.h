// Integer division that rounds towards negative infinity.
#pragma once

#include <cstdint>

namespace keldan {

constexpr std::int64_t FloorDivide(std::int64_t value, std::int64_t by) {
    return value / by - (value % by != 0 && (value < 0) != (by < 0) ? 1 : 0);
}

} // namespace keldan
