// How this room reports a failure inside; the accessor's methods turn it into their result.
#pragma once

#include "common/com/results.h"

namespace keldan {

struct Failure {
    HRESULT result;
};

} // namespace keldan
