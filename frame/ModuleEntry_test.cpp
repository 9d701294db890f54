#include "frame/ModuleEntry.h"

#include <gtest/gtest.h>

#include <cstring>

#include "frame/Package.h"

TEST(ModuleEntry, RecordCarriesKindClassNameAndVersions) {
  ModuleInformation record;
  std::memset(&record, 0xCC, sizeof record);
  ModuleInformation* returned = GetModuleInformation(&record);
  EXPECT_EQ(returned, &record);
  const auto* bytes = reinterpret_cast<const unsigned char*>(&record);
  EXPECT_EQ(bytes[0], 5);
  EXPECT_EQ(bytes[2], 38);
  EXPECT_EQ(bytes[3], 0);
  EXPECT_STREQ(record.ModuleName, "ZOL Server");
  EXPECT_EQ(record.Reserved, 0u);
  EXPECT_NE(record.CreateModule, nullptr);
}

TEST(ModuleEntry, ModuleNameBytesAfterTheTerminatingNulAreAllZero) {
  ModuleInformation record;
  std::memset(&record, 0xCC, sizeof record);
  GetModuleInformation(&record);
  const std::size_t length = std::strlen("ZOL Server");
  for (std::size_t i = length; i < sizeof record.ModuleName; ++i) {
    EXPECT_EQ(record.ModuleName[i], 0) << "at byte " << i;
  }
}

TEST(ModuleEntry, PackedVersionReads0x03010233) {
  ModuleInformation record{};
  GetModuleInformation(&record);
  EXPECT_EQ(record.Version, 0x03010233u);
  EXPECT_EQ(record.MinimumVersion, 0x03000233u);
  EXPECT_EQ(PackVersion(3, 1, 563), 0x03010233u);
}

TEST(ModuleEntry, SetPackageStoresAndReturnsThePointer) {
  CPackage* before = GetPackage();
  CPackage package;
  EXPECT_EQ(SetPackage(&package), &package);
  EXPECT_EQ(GetPackage(), &package);
  SetPackage(before);
}
