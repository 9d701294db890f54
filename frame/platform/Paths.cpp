#include "frame/platform/Paths.h"

#include <cctype>
#include <filesystem>
#include <iterator>
#include <system_error>

namespace platform {

std::string ToNativePath(const std::string& path) {
  std::string native = path;
  for (char& c : native) {
    if (c == '\\') c = '/';
  }
  return native;
}

std::string JoinPath(const std::string& base, const std::string& relative) {
  std::string left = ToNativePath(base);
  std::string right = ToNativePath(relative);
  while (!left.empty() && left.back() == '/') left.pop_back();
  std::size_t skip = 0;
  while (skip < right.size() && right[skip] == '/') ++skip;
  right.erase(0, skip);
  if (left.empty()) return base.empty() ? right : "/" + right;
  if (right.empty()) return left;
  return left + "/" + right;
}

bool IsAbsolutePath(const std::string& path) {
  if (!path.empty() && path[0] == '/') return true;
  return path.size() >= 2 && std::isalpha(static_cast<unsigned char>(path[0])) && path[1] == ':';
}

std::string LexicalPath(const std::string& path) {
  std::string text = std::filesystem::path(ToNativePath(path)).lexically_normal().string();
  while (text.size() > 1 && text.back() == '/') text.pop_back();
  return text;
}

std::string AbsolutePath(const std::string& path) {
  std::error_code error;
  const auto absolute = std::filesystem::absolute(ToNativePath(path), error);
  if (error) return path;
  std::string text = absolute.lexically_normal().string();
  while (text.size() > 1 && text.back() == '/') text.pop_back();
  return text;
}

bool IsUsablePath(const std::string& path) { return path.find('\0') == std::string::npos; }

bool DirectoryExists(const std::string& path) {
  if (!IsUsablePath(path)) return false;
  std::error_code error;
  return std::filesystem::is_directory(ToNativePath(path), error);
}

bool FileExists(const std::string& path) {
  if (!IsUsablePath(path)) return false;
  std::error_code error;
  return std::filesystem::is_regular_file(ToNativePath(path), error);
}

bool RealPath(const std::string& path, std::string& real) {
  if (path.empty() || !IsUsablePath(path)) return false;
  std::error_code error;
  const std::filesystem::path resolved = std::filesystem::canonical(ToNativePath(path), error);
  if (error) return false;
  real = resolved.string();
  return true;
}

bool IsBelowRealFolder(const std::string& folder, const std::string& inner) {
  const std::filesystem::path base(folder);
  const std::filesystem::path target(inner);
  auto b = base.begin();
  auto t = target.begin();
  for (; b != base.end(); ++b, ++t) {
    // canonical() of "/" ends in an empty element; it matches every path below.
    if (b->empty() && std::next(b) == base.end()) break;
    if (t == target.end() || *t != *b) return false;
  }
  return t != target.end();
}

bool IsInsideFolder(const std::string& folder, const std::string& path) {
  std::string realFolder;
  std::string realPath;
  return RealPath(folder, realFolder) && RealPath(path, realPath) && IsBelowRealFolder(realFolder, realPath);
}

}  // namespace platform
