#include "distribution/ZOLServer.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstring>
#include <string>

#include "frame/KVTException.h"
#include "site/ZOLServerSite.h"
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

namespace {

// Serial ports on a device that is no terminal stay not running: enough to test how the
// server numbers and hands out ports without opening anything.
std::string SerialPorts(int count, const std::string& sections) {
  std::string text = "[ports]\ncount=" + std::to_string(count) + "\n";
  for (int i = 0; i < count; ++i) text += "port" + std::to_string(i) + "=1\n";
  return text + sections;
}

}  // namespace

TEST(ZOLServerPorts, CountOfTwoWithOnePortKeyGivesATypeZeroLineThatMakesNoPort) {
  PackageScope scope;
  scope.Package.ComPorts[1] = "/dev/null";
  scope.WriteSettings("[ports]\ncount=2\nport0=1\n[port0]\nID=4\nport=1\n");
  CZOLServer server;
  ASSERT_EQ(server.GetPorts().size(), 1u);
  EXPECT_NE(server.GetPort(4), nullptr);
  EXPECT_EQ(server.PortAdd(0, 9), nullptr);
  EXPECT_EQ(server.GetPorts().size(), 1u);
  EXPECT_EQ(server.GetNextPortID(), 5u);
}

TEST(ZOLServerPorts, PortWithoutIdGetsTheNextFreeNumberAboveEveryIdRead) {
  PackageScope scope;
  scope.Package.ComPorts[1] = "/dev/null";
  scope.WriteSettings(SerialPorts(3, "[port0]\nID=7\n[port1]\nport=1\n[port2]\nID=2\n"));
  CZOLServer server;
  ASSERT_EQ(server.GetPorts().size(), 3u);
  EXPECT_NE(server.GetPort(7), nullptr);
  EXPECT_NE(server.GetPort(8), nullptr) << "the port without ID follows the highest ID so far";
  EXPECT_NE(server.GetPort(2), nullptr);
  EXPECT_EQ(server.GetNextPortID(), 9u);
  for (const auto& [id, port] : server.GetPorts()) EXPECT_LT(id, server.GetNextPortID());
}

TEST(ZOLServerPorts, PortDeleteReportsWhetherThePortExistedAndSitesForgetIt) {
  PackageScope scope;
  scope.Package.ComPorts[1] = "/dev/null";
  scope.WriteSettings(SerialPorts(1, "[port0]\nID=1\n[sites]\ncount=1\nsite0=main\n[main]\nports=1\n"));
  CZOLServer server;
  ASSERT_EQ(server.GetSites().size(), 1u);
  ASSERT_EQ(server.GetSites()[0]->GetPorts().size(), 1u);
  EXPECT_EQ(server.PortDelete(1), 1);
  EXPECT_EQ(server.PortDelete(1), 0);
  EXPECT_TRUE(server.GetSites()[0]->GetPorts().empty());
}

TEST(ZOLServerSites, UnknownPortIdsInASiteAreDroppedSoOneNineTwoGivesTwoPorts) {
  PackageScope scope;
  scope.Package.ComPorts[1] = "/dev/null";
  scope.WriteSettings(SerialPorts(2, "[port0]\nID=1\n[port1]\nID=2\n[sites]\ncount=1\nsite0=main\n[main]\nports=1,9,2\n"));
  CZOLServer server;
  ASSERT_EQ(server.GetSites().size(), 1u);
  const auto& ports = server.GetSites()[0]->GetPorts();
  ASSERT_EQ(ports.size(), 2u);
  EXPECT_EQ(ports[0], server.GetPort(1));
  EXPECT_EQ(ports[1], server.GetPort(2));
}

TEST(ZOLServerSites, SitesAreNumberedFromOneInFileOrderAndNamedByTheirSection) {
  PackageScope scope;
  scope.WriteSettings("[sites]\ncount=2\nsite0=north\nsite1=south\n[north]\nports=,,\n");
  CZOLServer server;
  ASSERT_EQ(server.GetSites().size(), 2u);
  EXPECT_EQ(server.GetSites()[0]->GetSiteId(), 1u);
  EXPECT_EQ(server.GetSites()[1]->GetSiteId(), 2u);
  EXPECT_EQ(server.GetSites()[0]->GetParameter("name"), "north");
  EXPECT_EQ(server.GetSites()[1]->GetParameter("name"), "south");
  EXPECT_TRUE(server.GetSites()[0]->GetPorts().empty());
}

TEST(ZOLServerSites, TwoHostTicksInOneSecondCauseOneTimerEventPerSite) {
  PackageScope scope;
  scope.WriteSettings("[sites]\ncount=2\nsite0=a\nsite1=b\n");
  CZOLServer server;
  // Ticks right after each other fall into one whole second unless that second just
  // ended; then the next pair does.
  for (int attempt = 0; attempt < 2; ++attempt) {
    const DWORD before = server.GetSites()[0]->GetTimerEvents();
    server.OnTimer();
    server.OnTimer();
    const DWORD events = server.GetSites()[0]->GetTimerEvents() - before;
    EXPECT_EQ(server.GetSites()[1]->GetTimerEvents(), server.GetSites()[0]->GetTimerEvents());
    if (events == 1) return SUCCEED();
    EXPECT_LE(events, 2u);
  }
  ADD_FAILURE() << "two ticks in a row never fell into one second";
}

namespace {

// A host whose log fails on the line the server writes once it has read its ports and
// sites and built the sites, so that loading throws after everything has been made.
class FailingLogPackage : public CPackage {
 public:
  void WriteLog(const std::string& line) const override {
    if (line.rfind("Settings ", 0) == 0) ThrowKVT("FailingLogPackage::WriteLog()");
  }
};

}  // namespace

TEST(ZOLServer, LoadingThatFailsHalfWayFreesThePortsSitesAndLinkItMade) {
  PackageScope scope;
  FailingLogPackage package;
  package.ApplicationDirectory = scope.Package.ApplicationDirectory;
  package.ComPorts[1] = "/dev/null";
  scope.WriteSettings(
      SerialPorts(2, "[port0]\nID=1\n[port1]\nID=1\n[sites]\ncount=2\nsite0=a\nsite1=b\n[a]\nports=1\n"));
  SetModulePackage(&package);
  CKVTException* failure = nullptr;
  try {
    CZOLServer server;
  } catch (CKVTException* e) {
    failure = e;
  }
  SetModulePackage(&scope.Package);
  // The leak check of the sanitizer build finds whatever the failed construction kept.
  ASSERT_NE(failure, nullptr) << "the failing log did not reach the constructor";
  const auto& trail = failure->GetTrail();
  EXPECT_EQ(trail.front(), "FailingLogPackage::WriteLog()");
  EXPECT_EQ(trail.back(), "CZOLServer::CZOLServer()");
  delete failure;
}
