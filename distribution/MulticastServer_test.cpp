#include "distribution/MulticastServer.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <random>
#include <thread>

#include "distribution/OutputPage.h"
#include "frame/IniFile.h"
#include "frame/platform/Sockets.h"
#include "testing/LogCapture.h"
#include "testing/PacketSizeScope.h"
#include "testing/PageReassembler.h"

namespace {

// Two network namespaces joined by a veth pair, each with a route for 224.0.0.0/4.
class NamespacePair {
 public:
  NamespacePair() {
    const std::string id = std::to_string(getpid() % 100000);
    Sender = "zolmc_a_" + id;
    Receiver = "zolmc_b_" + id;
    const std::string a = "zma" + id, b = "zmb" + id;
    const std::string commands[] = {
        "ip netns add " + Sender,
        "ip netns add " + Receiver,
        "ip link add " + a + " type veth peer name " + b,
        "ip link set " + a + " netns " + Sender,
        "ip link set " + b + " netns " + Receiver,
        "ip -n " + Sender + " addr add 10.213.0.1/24 dev " + a,
        "ip -n " + Receiver + " addr add 10.213.0.2/24 dev " + b,
        "ip -n " + Sender + " link set " + a + " up",
        "ip -n " + Receiver + " link set " + b + " up",
        "ip -n " + Sender + " link set lo up",
        "ip -n " + Receiver + " link set lo up",
        "ip -n " + Sender + " route add 224.0.0.0/4 dev " + a,
        "ip -n " + Receiver + " route add 224.0.0.0/4 dev " + b,
    };
    Ready = true;
    for (const std::string& command : commands) {
      if (std::system((command + " 2>/dev/null").c_str()) != 0) {
        Failed = command;
        Ready = false;
        break;
      }
    }
  }
  ~NamespacePair() {
    std::system(("ip netns del " + Sender + " 2>/dev/null").c_str());
    std::system(("ip netns del " + Receiver + " 2>/dev/null").c_str());
  }
  std::string Sender, Receiver, Failed;
  bool Ready = false;
};

// Receives datagrams on its own thread inside a namespace.
class DatagramReceiver {
 public:
  DatagramReceiver(const std::string& ns, const std::string& interfaceAddress, std::uint16_t port,
                   std::size_t packetSize)
      : Receiver(packetSize) {
    std::atomic<int> opened{0};
    Thread = std::thread([=, this, &opened] {
      if (!platform::EnterNetworkNamespace(ns)) {
        opened = -1;
        return;
      }
      Socket = platform::OpenMulticastReceiver("239.254.1.2", port, interfaceAddress);
      opened = Socket >= 0 ? 1 : -1;
      if (Socket < 0) return;
      std::vector<BYTE> buffer(2048);
      while (!Done.load()) {
        if (!platform::WaitReadable(Socket, 50000)) continue;
        const long got = platform::ReceiveDatagram(Socket, buffer.data(), buffer.size());
        if (got <= 0) continue;
        std::lock_guard<std::mutex> lock(Mutex);
        Sizes.push_back(static_cast<std::size_t>(got));
        if (static_cast<std::size_t>(got) == packetSize) Receiver.FeedBlock(buffer.data());
      }
    });
    while (opened.load() == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    Open = opened.load() == 1;
  }
  ~DatagramReceiver() {
    Done = true;
    if (Thread.joinable()) Thread.join();
    platform::CloseSocket(Socket);
  }
  std::size_t CompletedPages() {
    std::lock_guard<std::mutex> lock(Mutex);
    return Receiver.Completed.size();
  }
  bool Open = false;
  std::mutex Mutex;
  CTestReassembler Receiver;
  std::vector<std::size_t> Sizes;

 private:
  std::atomic<bool> Done{false};
  int Socket = -1;
  std::thread Thread;
};

std::vector<BYTE> RandomBytes(std::size_t size, unsigned seed) {
  std::vector<BYTE> out(size);
  std::mt19937 random(seed);
  for (auto& b : out) b = static_cast<BYTE>(random());
  return out;
}

}  // namespace

TEST(MulticastServerPort, AnAddressThatIsNoGroupFailsTheJoinAndThePortStaysStopped) {
  LogCapturePackage package;
  InstalledPackage scope(&package);
  CZOLMulticastServer port(4);
  EXPECT_EQ(port.GetPacketsPerBurst(), 3);
  EXPECT_EQ(port.GetTypeName(), "Network (multicast)");
  port.SetAddress("127.0.0.1");
  port.SetPort(7125);
  port.Start();
  EXPECT_EQ(port.IsRunning(), 0);
  EXPECT_EQ(port.GetInfoLine1(), "Port: 7125");
  EXPECT_EQ(port.GetInfoLine2(), "IP: 127.0.0.1");
  EXPECT_TRUE(package.HasLine("Starting multicast server (Address: 127.0.0.1, Port: 7125)."));
  port.Stop();
  EXPECT_EQ(port.IsRunning(), 0);
}

TEST(MulticastServerPort, SettingsAreReadAndWrittenInOrder) {
  CIniFile ini("/nonexistent/none.ini");
  ini.Write("port1", "address", std::string("239.1.2.3"));
  ini.Write("port1", "port", 9000);
  CZOLMulticastServer port(6);
  port.LoadSettings(ini, "port1");
  EXPECT_EQ(port.GetAddress(), "239.1.2.3");
  EXPECT_EQ(port.GetPort(), 9000u);
  CZOLMulticastServer defaults(7);
  defaults.LoadSettings(ini, "port9");
  EXPECT_EQ(defaults.GetAddress(), "239.254.1.2");
  EXPECT_EQ(defaults.GetPort(), 7125u);
  CIniFile out("/nonexistent/out.ini");
  port.SaveSettings(out, "port1");
  std::string text;
  out.Read("port1", "ID", text, "");
  EXPECT_EQ(text, "6");
}

// Between two namespaces: every datagram is one packet of PacketSize bytes, and the
// pages arrive whole. A receiver beside the sender hears nothing (loopback is off).
TEST(MulticastServerPort, PagesCrossAVethPairAsOneDatagramPerPacket) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to make network namespaces (ip netns add, veth)";
  NamespacePair pair;
  ASSERT_TRUE(pair.Ready) << "could not run: " << pair.Failed;
  for (DWORD packetSize : {128u, 64u}) {
    PacketSizeScope size(packetSize);
    const std::uint16_t udpPort = static_cast<std::uint16_t>(47125 + packetSize);
    DatagramReceiver remote(pair.Receiver, "10.213.0.2", udpPort, packetSize);
    DatagramReceiver local(pair.Sender, "10.213.0.1", udpPort, packetSize);
    ASSERT_TRUE(remote.Open);
    ASSERT_TRUE(local.Open);

    std::unique_ptr<CZOLMulticastServer> port;
    std::thread starter([&] {
      if (!platform::EnterNetworkNamespace(pair.Sender)) return;
      port = std::make_unique<CZOLMulticastServer>(1);
      port->SetPort(udpPort);
      port->Start();
    });
    starter.join();
    ASSERT_NE(port, nullptr);
    ASSERT_EQ(port->IsRunning(), 1);

    std::vector<std::unique_ptr<COutputPage>> pages;
    pages.push_back(std::make_unique<COutputPage>(1, 1, 0, 10, "", "a.txt"));
    pages.push_back(std::make_unique<COutputPage>(1, 2, 1, 10, "", "b.bin"));
    pages[0]->SetData(std::vector<BYTE>(3000, 'm'));
    pages[1]->SetData(RandomBytes(20000, 8));
    for (auto& page : pages) page->BuildPackets();
    // A lost datagram is made good by the next turn, as on the real carousel.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (remote.CompletedPages() < 2 && std::chrono::steady_clock::now() < deadline) {
      for (auto& page : pages) port->UpdatePage(page->GetPageKey(), page->GetSequenceLow(), page->GetPackets());
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    port->Stop();
    EXPECT_EQ(port->IsRunning(), 0);
    {
      std::lock_guard<std::mutex> lock(remote.Mutex);
      ASSERT_GE(remote.Receiver.Completed.size(), 2u);
      for (std::size_t got : remote.Sizes) EXPECT_EQ(got, packetSize);
      for (const ReceivedPage& page : remote.Receiver.Completed) {
        EXPECT_EQ(page.Data, pages[page.Name == "a.txt" ? 0 : 1]->GetData());
      }
      EXPECT_EQ(remote.Receiver.DroppedBlocks, 0u);
    }
    std::lock_guard<std::mutex> lock(local.Mutex);
    EXPECT_TRUE(local.Sizes.empty());
  }
}
