#include "frame/platform/SharedLibrary.h"

#include <dlfcn.h>

#include <filesystem>
#include <system_error>

namespace platform {

SharedLibrary::~SharedLibrary() { Close(); }

bool SharedLibrary::Open(const std::string& path) {
  Close();
  Handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (Handle == nullptr) {
    const char* error = dlerror();
    LastError = error != nullptr ? error : "cannot load " + path;
    return false;
  }
  return true;
}

void SharedLibrary::Close() {
  if (Handle != nullptr) dlclose(Handle);
  Handle = nullptr;
}

void* SharedLibrary::Find(const char* symbol) {
  if (Handle == nullptr) {
    LastError = "no library loaded";
    return nullptr;
  }
  dlerror();
  void* address = dlsym(Handle, symbol);
  if (address == nullptr) {
    const char* error = dlerror();
    LastError = error != nullptr ? error : std::string("symbol not found: ") + symbol;
  }
  return address;
}

std::string ProgramDirectory() {
  std::error_code error;
  const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
  return error ? std::string(".") : self.parent_path().string();
}

}  // namespace platform
