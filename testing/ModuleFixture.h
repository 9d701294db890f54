// A package with its own application directory, installed as the module's package for
// the life of the fixture.
#pragma once

#include <string>

#include "frame/Package.h"
#include "testing/TempDir.h"

class PackageScope {
 public:
  PackageScope() {
    Package.ApplicationDirectory = Folder.Path();
    Previous = GetPackage();
    SetModulePackage(&Package);
  }
  PackageScope(const PackageScope&) = delete;
  PackageScope& operator=(const PackageScope&) = delete;
  ~PackageScope() { SetModulePackage(Previous); }

  // Writes the module's configuration file.
  void WriteSettings(const std::string& text) const { Folder.Write("Config/ZOLServer.ini", text); }

  TempDir Folder;
  CPackage Package;

 private:
  CPackage* Previous = nullptr;
};
