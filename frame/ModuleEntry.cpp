#include "frame/ModuleEntry.h"

#include <cstring>
#include <new>

#include "distribution/ZOLServer.h"
#include "frame/Package.h"

namespace {

CBaseModule* CreateModule() { return new (std::nothrow) CZOLServer(); }

}  // namespace

extern "C" ModuleInformation* GetModuleInformation(ModuleInformation* record) {
  // The filler byte is left as the caller had it.
  record->RecordKind = 5;
  record->ModuleClass = kZolServerClass;
  std::memset(record->ModuleName, 0, sizeof record->ModuleName);
  std::strncpy(record->ModuleName, "ZOL Server", sizeof record->ModuleName - 1);
  record->Version = PackVersion(3, 1, 563);
  record->MinimumVersion = PackVersion(3, 0, 563);
  record->Reserved = 0;
  record->CreateModule = &CreateModule;
  return record;
}

extern "C" CPackage* SetPackage(CPackage* package) {
  SetModulePackage(package);
  return package;
}
