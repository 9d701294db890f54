#include "frame/platform/RandomBytes.h"

#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

namespace platform {

namespace {

bool ReadUrandom(unsigned char* buffer, std::size_t size) {
  const int file = ::open("/dev/urandom", O_RDONLY | O_CLOEXEC);
  if (file < 0) return false;
  std::size_t filled = 0;
  while (filled < size) {
    const ssize_t got = ::read(file, buffer + filled, size - filled);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    filled += static_cast<std::size_t>(got);
  }
  ::close(file);
  return filled == size;
}

}  // namespace

bool RandomBytes(void* buffer, std::size_t size) {
  auto* bytes = static_cast<unsigned char*>(buffer);
  std::size_t filled = 0;
  while (filled < size) {
    const ssize_t got = ::getrandom(bytes + filled, size - filled, 0);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return ReadUrandom(bytes, size);
    filled += static_cast<std::size_t>(got);
  }
  return true;
}

std::string RandomHex(std::size_t bytes) {
  std::vector<unsigned char> raw(bytes);
  if (bytes == 0 || !RandomBytes(raw.data(), raw.size())) return std::string();
  static const char digits[] = "0123456789abcdef";
  std::string hex;
  hex.reserve(bytes * 2);
  for (unsigned char byte : raw) {
    hex += digits[byte >> 4];
    hex += digits[byte & 0x0F];
  }
  return hex;
}

}  // namespace platform
