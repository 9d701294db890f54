#include "distribution/ZOLServer.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstring>
#include <string>

#include "testing/ModuleFixture.h"
#include "testing/RecordingTarget.h"

namespace {

std::string Communication(const std::string& items) { return "[communication]\n" + items; }

}  // namespace

TEST(ZOLServerSettings, PacketSizeOf15Or129LeavesTheDefault) {
  for (const char* value : {"15", "129", "-3", "abc"}) {
    PackageScope scope;
    scope.WriteSettings(Communication(std::string("packetsize=") + value + "\n"));
    CZOLServer server;
    EXPECT_EQ(PacketSize, 128u) << "packetsize=" << value;
  }
}

TEST(ZOLServerSettings, PacketSizeOf16And128AreTaken) {
  for (DWORD value : {16u, 100u, 128u}) {
    PackageScope scope;
    scope.WriteSettings(Communication("packetsize=" + std::to_string(value) + "\n"));
    CZOLServer server;
    EXPECT_EQ(PacketSize, value);
  }
}

TEST(ZOLServerSettings, PacketDelayOfZeroOrLessLeavesOne) {
  for (const char* value : {"0", "-5"}) {
    PackageScope scope;
    scope.WriteSettings(Communication(std::string("packetdelay=") + value + "\n"));
    CZOLServer server;
    EXPECT_EQ(PacketDelay, 1u) << "packetdelay=" << value;
  }
  PackageScope scope;
  scope.WriteSettings(Communication("packetdelay=7\n"));
  CZOLServer server;
  EXPECT_EQ(PacketDelay, 7u);
}

TEST(ZOLServerSettings, TestPageSizeIsStoredAsItStands) {
  PackageScope scope;
  scope.WriteSettings(Communication("testpagesize=4096\n"));
  CZOLServer server;
  EXPECT_EQ(server.GetTestPageSize(), 4096u);
  server.SetTestPageSize(12);
  EXPECT_EQ(server.GetTestPageSize(), 12u);
}

TEST(ZOLServerSettings, MissingFileLeavesEverythingAtDefaults) {
  PackageScope scope;
  CZOLServer server;
  EXPECT_EQ(PacketSize, 128u);
  EXPECT_EQ(PacketDelay, 1u);
  EXPECT_EQ(server.GetTestPageSize(), 0u);
  EXPECT_EQ(server.GetNextPortID(), 0u);
}

TEST(ZOLServerSettings, SettingsWithoutFinalLineFeedLoseTheirLastLine) {
  PackageScope scope;
  scope.WriteSettings("[communication]\npacketsize=64");
  CZOLServer server;
  EXPECT_EQ(PacketSize, 128u);
}

TEST(ZOLServer, ConstructionSetsTheCLocaleAndTheModuleNames) {
  PackageScope scope;
  std::setlocale(LC_ALL, "");
  CZOLServer server;
  EXPECT_STREQ(std::setlocale(LC_ALL, nullptr), "C");
  EXPECT_EQ(server.Name, "ZOL Server");
  EXPECT_EQ(server.ShortName, "zol");
  EXPECT_EQ(server.HomePage, "_server/index.html");
  EXPECT_NE(server.GetComm(), nullptr);
}

TEST(ZOLServer, InitializeAsksTheHostForA200MillisecondTimer) {
  PackageScope scope;
  CZOLServer server;
  RecordingTarget target;
  server.SendTarget = &target;
  server.Initialize();
  const auto timers = target.WithID(kMsgSetTimerInterval);
  ASSERT_EQ(timers.size(), 1u);
  EXPECT_EQ(timers[0]->TargetClass, kHostClass);
  timers[0]->Reset();
  int interval = 0;
  *timers[0] >> interval;
  EXPECT_EQ(interval, 200);
}

TEST(ZOLServer, MessageOfAClassOtherThanFiveChangesNothingAndReturnsZero) {
  PackageScope scope;
  CZOLServer server;
  RecordingTarget target;
  server.SendTarget = &target;
  CModuleMessage message(0, kZolServerClass, 0, 0);
  message.Class = 2;
  message << 12345;
  EXPECT_EQ(server.ProcessMessage(&message), 0);
  EXPECT_TRUE(target.Sent.empty());
  EXPECT_EQ(server.ConnectedClass, kNoClass);
}

TEST(ZOLServer, TwoTicksInOneSecondDoTheWorkOnce) {
  PackageScope scope;
  CZOLServer server;
  // Ticks right after each other fall into one whole second unless that second just
  // ended; in that case the second pair is in one second for sure.
  for (int attempt = 0; attempt < 2; ++attempt) {
    const DWORD before = server.GetBeatCount();
    server.OnTimer();
    server.OnTimer();
    const DWORD beats = server.GetBeatCount() - before;
    if (beats == 1) return SUCCEED();
    EXPECT_LE(beats, 2u);
  }
  ADD_FAILURE() << "two ticks in a row never fell into one second";
}

TEST(ZOLServer, WebServerComingUpGetsThePageList) {
  PackageScope scope;
  CZOLServer server;
  RecordingTarget target;
  server.SendTarget = &target;
  server.OnModifyModule(kWebServerClass, 3, 0x0100007F, 1);
  server.OnModifyModule(kWebServerClass, 3, 0x0100007F, 0);
  const auto registrations = target.WithID(kMsgWebRegisterModule);
  ASSERT_EQ(registrations.size(), 1u);
  EXPECT_EQ(registrations[0]->TargetClass, kWebServerClass);
  EXPECT_EQ(server.WebServerInstance, 3u);
}

TEST(ZOLServer, DisconnectClearsTheDataFlag) {
  PackageScope scope;
  CZOLServer server;
  server.OnDisconnect();
  EXPECT_EQ(server.IsDataConnected(), 0);
}
