// Names for registrations and tickets.
#pragma once

#include "common/com/text_forms.h"

namespace keldan {

// A name that was never used before: hexadecimal digits and dashes. Throws result_error if the system cannot create
// one.
inline std::wstring MakeNewName() {
    return vorna::new_guid_text().substr(1, 36);
}

} // namespace keldan
