// The two functions the host finds by name, and the information record they hand out.
#pragma once

#include <cstddef>

#include "frame/Types.h"

class CBaseModule;
class CPackage;

#pragma pack(push, 1)
struct ModuleInformation {
  BYTE RecordKind;
  BYTE Filler;
  WORD ModuleClass;
  char ModuleName[64];
  DWORD Version;
  DWORD MinimumVersion;
  DWORD Reserved;
  CBaseModule* (*CreateModule)();
};
#pragma pack(pop)

// Offsets 0 to 79 are fixed; the factory pointer at 80 is pointer-sized, so on a 64-bit
// build the record is 88 bytes.
static_assert(offsetof(ModuleInformation, ModuleClass) == 2);
static_assert(offsetof(ModuleInformation, ModuleName) == 4);
static_assert(offsetof(ModuleInformation, Version) == 68);
static_assert(offsetof(ModuleInformation, MinimumVersion) == 72);
static_assert(offsetof(ModuleInformation, Reserved) == 76);
static_assert(offsetof(ModuleInformation, CreateModule) == 80);
static_assert(sizeof(ModuleInformation) == 80 + sizeof(void*));

// Major in the top 8 bits, minor in the next 8, build in the low 16.
constexpr DWORD PackVersion(DWORD major, DWORD minor, DWORD build) {
  return (major << 24) | (minor << 16) | (build & 0xFFFF);
}

#define ZOL_EXPORT __attribute__((visibility("default")))

extern "C" {
ZOL_EXPORT ModuleInformation* GetModuleInformation(ModuleInformation* record);
ZOL_EXPORT CPackage* SetPackage(CPackage* package);
}

// The host resolves the exports by these names with dlsym.
using GetModuleInformationFunction = ModuleInformation* (*)(ModuleInformation*);
using SetPackageFunction = CPackage* (*)(CPackage*);
