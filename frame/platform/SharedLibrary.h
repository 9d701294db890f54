// Loading a shared library and finding its exported functions.
#pragma once

#include <string>

namespace platform {

class SharedLibrary {
 public:
  SharedLibrary() = default;
  SharedLibrary(const SharedLibrary&) = delete;
  SharedLibrary& operator=(const SharedLibrary&) = delete;
  ~SharedLibrary();

  // False with Error() set when the library cannot be loaded.
  bool Open(const std::string& path);
  void Close();
  // The address of an exported symbol, or null with Error() set.
  void* Find(const char* symbol);
  const std::string& Error() const { return LastError; }

 private:
  void* Handle = nullptr;
  std::string LastError;
};

// The folder of the running program, for finding files built beside it.
std::string ProgramDirectory();

}  // namespace platform
