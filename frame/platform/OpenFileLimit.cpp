#include "frame/platform/OpenFileLimit.h"

#include <sys/resource.h>

namespace platform {

std::uint64_t RaiseOpenFileLimit() {
  struct rlimit limit {};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return 0;
  if (limit.rlim_cur < limit.rlim_max) {
    struct rlimit raised = limit;
    raised.rlim_cur = limit.rlim_max;
    if (::setrlimit(RLIMIT_NOFILE, &raised) == 0) limit = raised;
  }
  return limit.rlim_cur == RLIM_INFINITY ? UINT64_MAX : static_cast<std::uint64_t>(limit.rlim_cur);
}

std::uint64_t OpenFileLimit() {
  struct rlimit limit {};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return 0;
  return limit.rlim_cur == RLIM_INFINITY ? UINT64_MAX : static_cast<std::uint64_t>(limit.rlim_cur);
}

}  // namespace platform
