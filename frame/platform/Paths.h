// File-system paths at the border: the module writes paths with "\\" as its settings
// and templates do; the platform turns them into "/" paths here.
#pragma once

#include <string>

namespace platform {

// Every "\\" becomes "/".
std::string ToNativePath(const std::string& path);

// Joins two parts with exactly one separator between them.
std::string JoinPath(const std::string& base, const std::string& relative);

// A root that begins with "/" (or a drive letter "X:") is absolute.
bool IsAbsolutePath(const std::string& path);

// The path with "/" separators, "." and ".." taken out by its text alone (no link is
// followed) and without a trailing "/": two spellings of one folder compare equal.
std::string LexicalPath(const std::string& path);

// The path made absolute against the working folder, without a trailing "/".
std::string AbsolutePath(const std::string& path);

// False for a path that no file-system call could take as it is: one with a NUL byte,
// which the system would read as the end of a shorter path.
bool IsUsablePath(const std::string& path);

bool DirectoryExists(const std::string& path);
bool FileExists(const std::string& path);

// The real location of `path`: absolute, with every symbolic link, "." and ".."
// resolved. False when the path does not exist (a dangling link included).
bool RealPath(const std::string& path, std::string& real);
// True when the real path `inner` lies below the real path `folder` (lexically: both
// come from RealPath). A folder is not below itself.
bool IsBelowRealFolder(const std::string& folder, const std::string& inner);
// True when `path` exists and its real location lies below the real location of
// `folder`: a symbolic link that leads out of the folder is outside.
bool IsInsideFolder(const std::string& folder, const std::string& path);

}  // namespace platform
