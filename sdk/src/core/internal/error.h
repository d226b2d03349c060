// Recording of the last failure's explanation, per thread.
#pragma once

#include <string>

#include "pv/defines.h"

namespace pv::internal {

/// Records `detail` as the calling thread's last error text (see pv::lastErrorDetail).
void setLastError(const std::string& detail);

/// Records `detail` and returns `code`, for `return fail(ERROR_CODE::..., "why");`.
ERROR_CODE fail(ERROR_CODE code, const std::string& detail);

}  // namespace pv::internal
