#include "frame/platform/FileWrite.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "frame/platform/Paths.h"

namespace platform {

bool OverwriteExistingFile(const std::string& path, const std::string& data) {
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

bool IsInsideFolder(const std::string& folder, const std::string& path) {
  std::error_code error;
  const std::filesystem::path base = std::filesystem::canonical(ToNativePath(folder), error);
  if (error) return false;
  const std::filesystem::path target = std::filesystem::canonical(ToNativePath(path), error);
  if (error) return false;
  auto b = base.begin();
  auto t = target.begin();
  for (; b != base.end(); ++b, ++t) {
    if (t == target.end() || *t != *b) return false;
  }
  return t != target.end();
}

}  // namespace platform
