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

// The path made absolute against the working folder, without a trailing "/".
std::string AbsolutePath(const std::string& path);

bool DirectoryExists(const std::string& path);
bool FileExists(const std::string& path);

}  // namespace platform
