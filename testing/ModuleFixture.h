// A package with its own application directory, installed as the module's package for
// the life of the fixture. The module-wide packet values that loading settings may change
// are put back at the end.
#pragma once

#include <string>

#include "distribution/ZOLServer.h"
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
  ~PackageScope() {
    SetModulePackage(Previous);
    PacketSize = OldPacketSize;
    PacketDelay = OldPacketDelay;
  }

  // Writes the module's configuration file.
  void WriteSettings(const std::string& text) const { Folder.Write("Config/ZOLServer.ini", text); }

  TempDir Folder;
  CPackage Package;

 private:
  CPackage* Previous = nullptr;
  DWORD OldPacketSize = PacketSize;
  DWORD OldPacketDelay = PacketDelay;
};
