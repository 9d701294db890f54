#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "distribution/MulticastServer.h"
#include "distribution/SerialPort.h"
#include "distribution/TCPIPServer.h"
#include "distribution/ZOLServer.h"
#include "frame/platform/Sockets.h"
#include "testing/LogCapture.h"
#include "testing/PacketSizeScope.h"
#include "testing/WaitUntil.h"

namespace {

class ServerDirectory {
 public:
  explicit ServerDirectory(const std::string& ini) {
    Root = std::filesystem::temp_directory_path() /
           ("zol_ports_" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) + "_" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::create_directories(Root / "Config");
    std::ofstream(Root / "Config" / "ZOLServer.ini") << ini;
    Package.ApplicationDirectory = Root.string();
  }
  ~ServerDirectory() { std::filesystem::remove_all(Root); }
  std::filesystem::path Root;
  LogCapturePackage Package;
};

}  // namespace

TEST(ZOLServerPort, PortsAreLoadedByIdUnknownTypesSkippedAndATakenTcpPortStaysStopped) {
  PacketSizeScope size(128);
  const std::uint16_t freePort = platform::FindFreeTcpPort();
  // Hold a port so that the second TCP server cannot have it.
  const int holder = platform::OpenTcpSocket();
  ASSERT_TRUE(platform::BindAnyAddress(holder, 0));
  ASSERT_TRUE(platform::Listen(holder, 1));
  const std::uint16_t takenPort = platform::LocalPort(holder);
  ServerDirectory dir("[ports]\ncount=5\nport0=2\nport1=99\nport2=2\nport3=1\nport4=3\n"
                      "[port0]\nID=5\nport=" + std::to_string(freePort) + "\n"
                      "[port1]\nID=7\n"
                      "[port2]\nport=" + std::to_string(takenPort) + "\n"
                      "[port3]\nID=2\nport=0\n"
                      "[port4]\nID=3\naddress=127.0.0.1\n");
  InstalledPackage scope(&dir.Package);
  {
    CZOLServer server;
    const auto& ports = server.GetPorts();
    ASSERT_EQ(ports.size(), 4u);
    std::vector<DWORD> ids;
    for (const auto& entry : ports) ids.push_back(entry.first);
    EXPECT_EQ(ids, (std::vector<DWORD>{2, 3, 5, 6}));
    EXPECT_EQ(server.GetPort(7), nullptr);
    EXPECT_EQ(server.GetNextPortID(), 7u);
    EXPECT_EQ(server.GetPort(2)->GetType(), 1u);
    EXPECT_EQ(server.GetPort(3)->GetType(), 3u);
    EXPECT_EQ(server.GetPort(5)->GetType(), 2u);
    EXPECT_EQ(server.GetPort(6)->GetType(), 2u);
    EXPECT_EQ(static_cast<CZOLTCPIPServer*>(server.GetPort(6))->GetPort(), takenPort);

    EXPECT_TRUE(WaitUntil([&] { return server.GetPort(5)->IsRunning() != 0; }));
    EXPECT_EQ(server.GetPort(2)->IsRunning(), 0);  // COM0 is "None"
    EXPECT_EQ(server.GetPort(3)->IsRunning(), 0);  // not a group address
    // The taken port never comes up, while the other TCP port accepts connections.
    const int client = platform::TcpConnect("127.0.0.1", freePort);
    EXPECT_GE(client, 0);
    EXPECT_TRUE(WaitUntil([&] { return static_cast<CZOLTCPIPServer*>(server.GetPort(5))->GetClientCount() == 1; }));
    EXPECT_EQ(server.GetPort(6)->IsRunning(), 0);
    platform::CloseSocket(client);

    // The once-a-second beat reaches every port: the stopped serial port takes a sample.
    EXPECT_EQ(server.GetPort(2)->GetSampleIndex(), 0);
    server.OnTimer();
    EXPECT_EQ(server.GetPort(2)->GetSampleIndex(), 1);

    EXPECT_EQ(server.PortDelete(5), 1);
    EXPECT_EQ(server.PortDelete(5), 0);
    EXPECT_EQ(server.GetPorts().size(), 3u);
  }
  EXPECT_TRUE(dir.Package.HasLine("Starting TCP/IP server (Port " + std::to_string(freePort) + ")."));
  EXPECT_TRUE(dir.Package.HasLine("Stopping TCP/IP server."));
  platform::CloseSocket(holder);
}

TEST(ZOLServerPort, PortAddTakesTheNextNumberAndAnUnknownTypeMakesNothing) {
  ServerDirectory dir("");
  InstalledPackage scope(&dir.Package);
  CZOLServer server;
  EXPECT_TRUE(server.GetPorts().empty());
  CZOLOutputPort* first = server.PortAdd(3, 0xFFFFFFFF);
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first->GetID(), 0u);
  EXPECT_EQ(first->IsRunning(), 0);  // a new port waits for its settings
  EXPECT_EQ(server.PortAdd(0, 0xFFFFFFFF), nullptr);
  EXPECT_EQ(server.PortAdd(4, 9), nullptr);
  EXPECT_EQ(server.GetNextPortID(), 1u);
  CZOLOutputPort* ten = server.PortAdd(1, 10);
  EXPECT_EQ(ten->GetTypeName(), "Serial");
  EXPECT_EQ(server.GetNextPortID(), 11u);
  // An ID given again replaces the map entry; the old port lives on until teardown.
  CZOLOutputPort* again = server.PortAdd(2, 10);
  EXPECT_EQ(server.GetPort(10), again);
  EXPECT_EQ(server.GetPorts().size(), 2u);
}

TEST(ZOLServerPort, PortCountWithAMissingTypeKeyLoadsNothingForIt) {
  ServerDirectory dir("[ports]\ncount=2\nport0=3\n[port0]\nID=4\naddress=10.0.0.1\n");
  InstalledPackage scope(&dir.Package);
  CZOLServer server;
  ASSERT_EQ(server.GetPorts().size(), 1u);
  EXPECT_NE(server.GetPort(4), nullptr);
  EXPECT_EQ(server.GetNextPortID(), 5u);
}
