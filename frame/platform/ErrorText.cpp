#include "frame/platform/ErrorText.h"

#include <cctype>
#include <cerrno>
#include <cstring>

namespace platform {

int LastError() { return errno; }

std::string ErrorText(int error) {
  switch (error) {
    case 0:
      return "unknown error";
    case EADDRINUSE:
      return "address in use";
    case EADDRNOTAVAIL:
      return "address not available";
    case ENOENT:
    case ENODEV:
    case ENXIO:
      return "no such device";
    case EACCES:
    case EPERM:
      return "permission denied";
    case EBUSY:
      return "device busy";
    case EINVAL:
      return "invalid argument";
    case ENETUNREACH:
      return "network unreachable";
    default:
      break;
  }
  char buffer[256] = {};
  // The GNU strerror_r returns the text, which may or may not be in the buffer.
  const char* text = strerror_r(error, buffer, sizeof buffer);
  std::string result = text != nullptr ? text : "error " + std::to_string(error);
  if (!result.empty()) result[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(result[0])));
  return result;
}

}  // namespace platform
