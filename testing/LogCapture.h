// A package for tests that keeps the module's log lines, and a scope that installs it.
#pragma once

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include "frame/Package.h"

class LogCapturePackage : public CPackage {
 public:
  void WriteLog(const std::string& line) const override {
    std::lock_guard<std::mutex> lock(Mutex);
    Lines.push_back(line);
  }
  std::vector<std::string> GetLines() const {
    std::lock_guard<std::mutex> lock(Mutex);
    return Lines;
  }
  bool HasLine(const std::string& line) const {
    std::lock_guard<std::mutex> lock(Mutex);
    return std::find(Lines.begin(), Lines.end(), line) != Lines.end();
  }

 private:
  mutable std::mutex Mutex;
  mutable std::vector<std::string> Lines;
};

// Makes `package` the module's package for the scope's life.
class InstalledPackage {
 public:
  explicit InstalledPackage(CPackage* package) : Previous(GetPackage()) { SetModulePackage(package); }
  ~InstalledPackage() { SetModulePackage(Previous); }
  InstalledPackage(const InstalledPackage&) = delete;
  InstalledPackage& operator=(const InstalledPackage&) = delete;

 private:
  CPackage* Previous;
};
