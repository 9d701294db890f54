#include "frame/platform/FileStream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "frame/platform/Paths.h"

namespace platform {

int CreateFileForWriting(const std::string& path) {
  if (!IsUsablePath(path)) {
    errno = EINVAL;
    return kNoFile;
  }
  const int file = ::open(ToNativePath(path).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (file < 0) return kNoFile;
  struct stat status {};
  if (::fstat(file, &status) != 0 || !S_ISREG(status.st_mode)) {
    ::close(file);
    errno = EINVAL;
    return kNoFile;
  }
  return file;
}

int OpenFileForReading(const std::string& path) {
  if (!IsUsablePath(path)) {
    errno = EINVAL;
    return kNoFile;
  }
  // O_NONBLOCK keeps a pipe put in the file's place from holding the open.
  const int file = ::open(ToNativePath(path).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (file < 0) return kNoFile;
  struct stat status {};
  if (::fstat(file, &status) != 0 || !S_ISREG(status.st_mode)) {
    ::close(file);
    errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    return kNoFile;
  }
  const int flags = ::fcntl(file, F_GETFL);
  if (flags >= 0) ::fcntl(file, F_SETFL, flags & ~O_NONBLOCK);
  return file;
}

bool WriteToFile(int file, const void* data, std::size_t size) {
  const char* bytes = static_cast<const char*>(data);
  std::size_t written = 0;
  while (written < size) {
    const ssize_t n = ::write(file, bytes + written, size - written);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return false;
    if (n == 0) {
      errno = ENOSPC;
      return false;
    }
    written += static_cast<std::size_t>(n);
  }
  return true;
}

long ReadFromFile(int file, void* data, std::size_t size) {
  while (true) {
    const ssize_t n = ::read(file, data, size);
    if (n < 0 && errno == EINTR) continue;
    return static_cast<long>(n);
  }
}

bool TruncateFile(int file, std::uint64_t size) {
  if (::ftruncate(file, static_cast<off_t>(size)) != 0) return false;
  return ::lseek(file, static_cast<off_t>(size), SEEK_SET) >= 0;
}

void CloseFile(int file) {
  if (file >= 0) ::close(file);
}

}  // namespace platform
