// The module's package for benchmark runs: logs nothing, so that log lines do not weigh on
// the figures.
#pragma once

#include <string>

#include "frame/Package.h"

class QuietPackage : public CPackage {
 public:
  void WriteLog(const std::string&) const override {}
};

// Installs a quiet package for the life of one benchmark run.
class PackageInstalled {
 public:
  PackageInstalled() : Previous(GetPackage()) { SetModulePackage(&Package); }
  PackageInstalled(const PackageInstalled&) = delete;
  PackageInstalled& operator=(const PackageInstalled&) = delete;
  ~PackageInstalled() { SetModulePackage(Previous); }

 private:
  QuietPackage Package;
  CPackage* Previous;
};
