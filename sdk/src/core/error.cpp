#include "core/internal/error.h"

namespace pv {
namespace {
thread_local std::string g_last_error;
}

String lastErrorDetail() { return String(g_last_error); }

namespace internal {

void setLastError(const std::string& detail) { g_last_error = detail; }

ERROR_CODE fail(ERROR_CODE code, const std::string& detail) {
  g_last_error = std::string(toString(code).c_str()) + ": " + detail;
  return code;
}

}  // namespace internal
}  // namespace pv
