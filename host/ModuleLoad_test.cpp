// Loads the built module library the way a host does and drives it through its life.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "frame/BaseModule.h"
#include "frame/ModuleEntry.h"
#include "frame/Package.h"
#include "frame/platform/SharedLibrary.h"
#include "testing/RecordingTarget.h"
#include "testing/TempDir.h"

namespace {

const std::string kModulePath = std::string(ZOL_BINARY_DIR) + "/libzolserver.so";

}  // namespace

TEST(ModuleLibrary, RecordBytesZeroTo79AreAsTheHostExpects) {
  platform::SharedLibrary library;
  ASSERT_TRUE(library.Open(kModulePath)) << library.Error();
  auto getInformation = reinterpret_cast<GetModuleInformationFunction>(library.Find("GetModuleInformation"));
  ASSERT_NE(getInformation, nullptr) << library.Error();

  unsigned char bytes[sizeof(ModuleInformation)];
  std::memset(bytes, 0xAB, sizeof bytes);
  auto* record = reinterpret_cast<ModuleInformation*>(bytes);
  ASSERT_EQ(getInformation(record), record);

  EXPECT_EQ(bytes[0], 5);
  EXPECT_EQ(bytes[2], 38);
  EXPECT_EQ(bytes[3], 0);
  const char name[] = "ZOL Server";
  EXPECT_EQ(std::memcmp(bytes + 4, name, sizeof name - 1), 0);
  for (std::size_t i = 4 + sizeof name - 1; i < 68; ++i) EXPECT_EQ(bytes[i], 0) << "name byte " << i;
  const unsigned char version[] = {0x33, 0x02, 0x01, 0x03};
  const unsigned char minimum[] = {0x33, 0x02, 0x00, 0x03};
  EXPECT_EQ(std::memcmp(bytes + 68, version, 4), 0);
  EXPECT_EQ(std::memcmp(bytes + 72, minimum, 4), 0);
  for (std::size_t i = 76; i < 80; ++i) EXPECT_EQ(bytes[i], 0) << "reserved byte " << i;
}

TEST(ModuleLibrary, FactoryCreatesAModuleThatInitializesTicksAndIsDestroyed) {
  platform::SharedLibrary library;
  ASSERT_TRUE(library.Open(kModulePath)) << library.Error();
  auto getInformation = reinterpret_cast<GetModuleInformationFunction>(library.Find("GetModuleInformation"));
  auto setPackage = reinterpret_cast<SetPackageFunction>(library.Find("SetPackage"));
  ASSERT_NE(getInformation, nullptr);
  ASSERT_NE(setPackage, nullptr);

  TempDir folder;
  folder.Write("Config/ZOLServer.ini", "[communication]\npacketsize=64\n");
  CPackage package;
  package.ApplicationDirectory = folder.Path();
  EXPECT_EQ(setPackage(&package), &package);

  ModuleInformation record{};
  getInformation(&record);
  ASSERT_NE(record.CreateModule, nullptr);
  std::unique_ptr<CBaseModule> module(record.CreateModule());
  ASSERT_NE(module, nullptr);
  EXPECT_EQ(module->Name, "ZOL Server");

  RecordingTarget target;
  module->SendTarget = &target;
  module->Initialize();
  const auto timers = target.WithID(kMsgSetTimerInterval);
  ASSERT_EQ(timers.size(), 1u);
  timers[0]->Reset();
  int interval = 0;
  *timers[0] >> interval;
  EXPECT_EQ(interval, 200);

  for (int tick = 0; tick < 6; ++tick) module->OnTimer();
  CModuleMessage foreign(0, 38, 0, 0);
  foreign.Class = 9;
  EXPECT_EQ(module->ProcessMessage(&foreign), 0);
  module.reset();
}
