#include "frame/platform/FileWrite.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "frame/platform/Paths.h"

namespace platform {

bool OverwriteExistingFile(const std::string& path, const std::string& data) {
  if (!IsUsablePath(path)) return false;
  const std::string native = ToNativePath(path);
  struct stat before {};
  if (::stat(native.c_str(), &before) != 0 || !S_ISREG(before.st_mode)) return false;
  // No O_CREAT: a file that is gone stays gone. O_NONBLOCK keeps a pipe put in its place
  // from holding the open.
  const int file = ::open(native.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC | O_NONBLOCK);
  if (file < 0) return false;
  struct stat status {};
  if (::fstat(file, &status) != 0 || !S_ISREG(status.st_mode)) {
    ::close(file);
    return false;
  }
  std::size_t written = 0;
  bool ok = true;
  while (written < data.size()) {
    const ssize_t n = ::write(file, data.data() + written, data.size() - written);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      ok = false;
      break;
    }
    written += static_cast<std::size_t>(n);
  }
  if (::close(file) != 0) ok = false;
  return ok;
}

}  // namespace platform
