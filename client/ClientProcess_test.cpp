// Runs the built zolclient program against a small TCP server on 127.0.0.1 and against
// a pseudo-terminal, and looks at the files, lines and counts it leaves.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <random>
#include <thread>

#include "client/HandBuiltPackets.h"
#include "client/InformationRecords.h"
#include "client/TestFolders.h"
#include "frame/platform/SerialLine.h"
#include "frame/platform/Sockets.h"
#include "frame/platform/Time.h"
#include "testing/ChildProcess.h"

namespace {

namespace fs = std::filesystem;

// A listening TCP socket on a free port of this machine, or kNoSocket.
int ListenOnFreePort(std::uint16_t& port) {
  port = platform::FindFreeTcpPort();
  if (port == 0) return platform::kNoSocket;
  const int listener = platform::OpenTcpSocket();
  if (listener == platform::kNoSocket) return listener;
  if (!platform::BindAnyAddress(listener, port) || !platform::Listen(listener, 4)) {
    platform::CloseSocket(listener);
    return platform::kNoSocket;
  }
  return listener;
}

using handbuilt::Bytes;
using testfolders::ListTree;
using testfolders::ReadWholeFile;
using testfolders::ScopedTempFolder;

// Runs zolclient with `arguments` (and a command `prefix` such as "ip netns exec NAME ")
// through the shell; its standard output and error go to files of a folder of its own, so
// that the folders a test looks at hold only what the client wrote.
class ClientProgram {
 public:
  explicit ClientProgram(const std::string& arguments, const std::string& prefix = "")
      : Process("/bin/sh", {"-c", "exec " + prefix + std::string(ZOL_BINARY_DIR) + "/zolclient " + arguments},
                Logs.Path().string()) {}
  // The exit status, or -1 when the program has not ended within two minutes.
  int Wait() { return Process.WaitForExit(120).value_or(-1); }
  bool HasFinished() { return !Process.Running(); }
  std::string Stdout() const { return Process.Stdout(); }
  std::string Stderr() const { return Process.Stderr(); }

 private:
  ScopedTempFolder Logs;
  ChildProcess Process;
};

bool SendAll(int socket, const Bytes& bytes) {
  std::size_t offset = 0;
  while (offset < bytes.size()) {
    if (!platform::WaitWritable(socket, 5000000)) return false;
    const long sent = platform::SendSome(socket, bytes.data() + offset, bytes.size() - offset);
    if (sent <= 0) return false;
    offset += static_cast<std::size_t>(sent);
  }
  return true;
}

int AcceptWithin(int listener, long seconds) {
  if (!platform::WaitReadable(listener, seconds * 1000000)) return platform::kNoSocket;
  std::uint32_t peer = 0;
  return platform::AcceptConnection(listener, peer);
}

Bytes Text(const std::string& text) { return handbuilt::TextBytes(text); }

std::vector<BYTE> LongText(std::size_t n, unsigned seed) { return handbuilt::SeededBytes(n, seed); }

TEST(ClientProcessPort, TcpClientRebuildsPagesAcrossAReconnection) {
  ScopedTempFolder temp;
  const fs::path out = temp.Path() / "out";
  const auto pageA = handbuilt::PagePackets(1, 2, 0, 1, "", "a.html", Text("<p>first page</p>"));
  const Bytes dataB = LongText(3000, 5);
  const auto pageB = handbuilt::PagePackets(1, 3, 0, 4, "sub/", "b.bin", dataB);
  const auto pageC = handbuilt::PagePackets(2, 7, 1, 1, "x/y", "c.txt", Text("third"));
  const auto evil = handbuilt::PagePackets(1, 9, 0, 1, "../", "evil.html", Text("must not appear"));

  std::uint16_t port = 0;
  const int listener = ListenOnFreePort(port);
  ASSERT_NE(listener, platform::kNoSocket);

  ClientProgram client("tcp://127.0.0.1:" + std::to_string(port) + " --out " + out.string() +
                       " --until-complete 4 --timeout 30 --stats --reconnect-pause 0.2");

  // First connection: page A whole, then noise, a damaged packet and half of B; then it drops.
  int connection = AcceptWithin(listener, 20);
  ASSERT_NE(connection, platform::kNoSocket);
  Bytes first = handbuilt::Join(pageA);
  first.insert(first.end(), {0x00, 0x8E, 0x13, 0x37});
  Bytes damaged = pageB[0];
  damaged[40] ^= 0x20;
  first.insert(first.end(), damaged.begin(), damaged.end());
  for (std::size_t i = 0; i < pageB.size() / 2; ++i) first.insert(first.end(), pageB[i].begin(), pageB[i].end());
  first.insert(first.end(), pageB.back().begin(), pageB.back().begin() + 50);  // cut off mid-packet
  ASSERT_TRUE(SendAll(connection, first));
  platform::SleepMilliseconds(300);
  platform::CloseSocket(connection);

  // Second connection: B from the start, the page that would leave the folder, then C.
  connection = AcceptWithin(listener, 20);
  ASSERT_NE(connection, platform::kNoSocket);
  Bytes second = handbuilt::Join(pageB);
  const Bytes evilBytes = handbuilt::Join(evil);
  second.insert(second.end(), evilBytes.begin(), evilBytes.end());
  const Bytes cBytes = handbuilt::Join(pageC);
  second.insert(second.end(), cBytes.begin(), cBytes.end());
  ASSERT_TRUE(SendAll(connection, second));

  const int status = client.Wait();
  platform::CloseSocket(connection);
  platform::CloseSocket(listener);

  const std::string stdoutText = client.Stdout();
  const std::string stderrText = client.Stderr();
  EXPECT_EQ(status, 0) << stderrText;
  EXPECT_EQ(ReadWholeFile(out / "a.html"), "<p>first page</p>");
  EXPECT_EQ(ReadWholeFile(out / "sub/b.bin"), std::string(dataB.begin(), dataB.end()));
  EXPECT_EQ(ReadWholeFile(out / "x/y/c.txt"), "third");
  EXPECT_NE(stdoutText.find("site 1 page 2 a.html 17 bytes version 0.1\n"), std::string::npos) << stdoutText;
  EXPECT_NE(stdoutText.find("site 1 page 3 sub/b.bin 3000 bytes version 0.4\n"), std::string::npos);
  EXPECT_NE(stdoutText.find("site 2 page 7 x/y/c.txt 5 bytes version 1.1\n"), std::string::npos);
  EXPECT_EQ(stdoutText.find("evil"), std::string::npos);
  EXPECT_NE(stderrText.find("refused page site 1 page 9 '../evil.html'"), std::string::npos) << stderrText;
  EXPECT_NE(stderrText.find("lost; reconnecting"), std::string::npos) << stderrText;
  EXPECT_NE(stdoutText.find("bad checksum 1,"), std::string::npos) << stdoutText;
  EXPECT_NE(stdoutText.find("refused 1,"), std::string::npos) << stdoutText;
  EXPECT_NE(stdoutText.find("truncated bytes 50\n"), std::string::npos) << stdoutText;
  // Nothing was written beside the output folder but the captured output.
  EXPECT_EQ(ListTree(temp.Path()),
            (std::vector<std::string>{"out", "out/a.html", "out/sub", "out/sub/b.bin", "out/x", "out/x/y",
                                      "out/x/y/c.txt"}));
}

TEST(ClientProcessPort, TcpClientRebuildsAPageOfMoreThan4096Packets) {
  ScopedTempFolder temp;
  const fs::path out = temp.Path() / "out";
  const Bytes data = LongText(3 * 1024 * 1024, 17);  // incompressible: the packet numbers wrap six times
  const auto page = handbuilt::PagePackets(1, 12, 0, 1, "", "big.bin", data);
  ASSERT_GT(page.size(), 6u * 4096u);

  std::uint16_t port = 0;
  const int listener = ListenOnFreePort(port);
  ASSERT_NE(listener, platform::kNoSocket);
  ClientProgram client("tcp://127.0.0.1:" + std::to_string(port) + " --out " + out.string() +
                       " --until-complete 1 --timeout 60 --stats");
  const int connection = AcceptWithin(listener, 20);
  ASSERT_NE(connection, platform::kNoSocket);
  EXPECT_TRUE(SendAll(connection, handbuilt::Join(page)));
  const int status = client.Wait();
  platform::CloseSocket(connection);
  platform::CloseSocket(listener);
  EXPECT_EQ(status, 0) << client.Stderr();
  EXPECT_TRUE(ReadWholeFile(out / "big.bin") == std::string(data.begin(), data.end()));
  EXPECT_NE(client.Stdout().find("site 1 page 12 big.bin 3145728 bytes version 0.1\n"), std::string::npos)
      << client.Stdout();
}

TEST(ClientProcessPort, TcpClientKeepsOneFilePerPageAndStopsWritingAtMaxBytes) {
  ScopedTempFolder temp;
  const fs::path out = temp.Path() / "out";
  // Every version of page 4 comes under a new path; then page 5 would pass the limit.
  Bytes stream;
  for (int version = 1; version <= 30; ++version) {
    const Bytes one = handbuilt::Join(handbuilt::PagePackets(1, 4, 0, static_cast<BYTE>(version),
                                                             "v" + std::to_string(version) + "/", "page.html",
                                                             Text("version " + std::to_string(version))));
    stream.insert(stream.end(), one.begin(), one.end());
  }
  for (DWORD page : {5u, 6u}) {
    const Bytes more = handbuilt::Join(handbuilt::PagePackets(1, page, 0, 1, "", "p" + std::to_string(page),
                                                              LongText(600, page)));
    stream.insert(stream.end(), more.begin(), more.end());
  }

  std::uint16_t port = 0;
  const int listener = ListenOnFreePort(port);
  ASSERT_NE(listener, platform::kNoSocket);
  ClientProgram client("tcp://127.0.0.1:" + std::to_string(port) + " --out " + out.string() +
                       " --max-bytes 1000 --until-complete 3 --timeout 30 --stats");
  const int connection = AcceptWithin(listener, 20);
  ASSERT_NE(connection, platform::kNoSocket);
  EXPECT_TRUE(SendAll(connection, stream));
  const int status = client.Wait();
  platform::CloseSocket(connection);
  platform::CloseSocket(listener);
  EXPECT_EQ(status, 0) << client.Stderr();
  EXPECT_EQ(ListTree(out), (std::vector<std::string>{"p5", "v30", "v30/page.html"}));
  EXPECT_EQ(ReadWholeFile(out / "v30/page.html"), "version 30");
  // Told once, for page 5 and page 6 alike.
  const std::string told = "zolclient: the files under " + out.string() +
                           " reached the limit of 1000 bytes (--max-bytes); nothing more is written\n";
  const std::string stderrText = client.Stderr();
  EXPECT_NE(stderrText.find(told), std::string::npos) << stderrText;
  EXPECT_EQ(stderrText.find("limit", stderrText.find(told) + told.size()), std::string::npos) << stderrText;
  EXPECT_NE(client.Stdout().find("files: bytes kept 610 of 1000, old files removed 29, not written for the byte "
                                 "limit 1\n"),
            std::string::npos)
      << client.Stdout();
}

TEST(ClientProcessPort, TcpClientKeepsTryingWhileNoServerListens) {
  const std::uint16_t port = platform::FindFreeTcpPort();
  ASSERT_NE(port, 0);
  ClientProgram client("tcp://127.0.0.1:" + std::to_string(port) +
                       " --timeout 1 --until-complete 1 --reconnect-pause 0.2");
  EXPECT_EQ(client.Wait(), 1);
  const std::string stderrText = client.Stderr();
  EXPECT_NE(stderrText.find("cannot connect to 127.0.0.1:" + std::to_string(port) + "; trying again in 0.2 s"),
            std::string::npos)
      << stderrText;
  EXPECT_NE(stderrText.find("0 of 1 pages complete when the time ran out"), std::string::npos) << stderrText;
}

TEST(ClientProcessPort, SerialClientReadsPagesFromAPseudoTerminal) {
  ScopedTempFolder temp;
  int controller = -1;
  int device = -1;
  std::string deviceName;
  ASSERT_TRUE(platform::OpenPseudoTerminal(controller, device, deviceName));
  const fs::path out = temp.Path() / "out";
  const Bytes data = LongText(2000, 9);
  std::vector<Bytes> carousel = handbuilt::PagePackets(3, 1, 0, 2, "", "one.dat", data, 64);
  const auto two = handbuilt::PagePackets(3, 2, 0, 1, "s/", "two.txt", Text("second"), 64);
  carousel.insert(carousel.end(), two.begin(), two.end());

  ClientProgram client("serial:" + deviceName + "?baud=57600 --packet-size 64 --out " + out.string() +
                       " --until-complete 2 --timeout 30 --stats");
  // The carousel goes round until the client has what it wants, as a server's does.
  const std::uint64_t start = platform::MonotonicMilliseconds();
  while (!client.HasFinished() && platform::MonotonicMilliseconds() - start < 30000) {
    for (const Bytes& packet : carousel) {
      if (client.HasFinished()) break;
      if (!platform::WaitWritable(controller, 100000)) continue;
      platform::WriteSerial(controller, packet.data(), packet.size());
    }
    platform::SleepMilliseconds(20);
  }
  const int status = client.Wait();
  platform::CloseSerial(device);
  platform::CloseSerial(controller);
  EXPECT_EQ(status, 0) << client.Stderr();
  EXPECT_EQ(ReadWholeFile(out / "one.dat"), std::string(data.begin(), data.end()));
  EXPECT_EQ(ReadWholeFile(out / "s/two.txt"), "second");
  const std::string stdoutText = client.Stdout();
  EXPECT_NE(stdoutText.find("site 3 page 1 one.dat 2000 bytes version 0.2\n"), std::string::npos) << stdoutText;
  EXPECT_NE(stdoutText.find("pages: complete 2, distinct 2"), std::string::npos) << stdoutText;
}

TEST(ClientProcessPort, UdpClientTakesOneDatagramPerPacket) {
  ScopedTempFolder temp;
  const fs::path out = temp.Path() / "out";
  const std::uint16_t port = platform::FindFreeTcpPort();  // the same number is almost always free for UDP
  ASSERT_NE(port, 0);
  const Bytes data = LongText(1500, 3);
  const auto page = handbuilt::PagePackets(0, 5, 0, 1, "", "u.bin", data);
  ClientProgram client("udp://127.0.0.1:" + std::to_string(port) + " --out " + out.string() +
                       " --until-complete 1 --timeout 30 --stats");
  const int sender = platform::OpenUdpSocket();
  ASSERT_NE(sender, platform::kNoSocket);
  const std::uint64_t start = platform::MonotonicMilliseconds();
  while (!client.HasFinished() && platform::MonotonicMilliseconds() - start < 30000) {
    const Bytes shortOne(page[0].begin(), page[0].begin() + 100);
    platform::SendDatagram(sender, shortOne.data(), shortOne.size(), "127.0.0.1", port);
    for (const Bytes& packet : page) platform::SendDatagram(sender, packet.data(), packet.size(), "127.0.0.1", port);
    platform::SleepMilliseconds(50);
  }
  platform::CloseSocket(sender);
  EXPECT_EQ(client.Wait(), 0) << client.Stderr();
  EXPECT_EQ(ReadWholeFile(out / "u.bin"), std::string(data.begin(), data.end()));
  const std::string stdoutText = client.Stdout();
  EXPECT_NE(stdoutText.find("site 0 page 5 u.bin 1500 bytes version 0.1\n"), std::string::npos) << stdoutText;
  // Short datagrams are counted as such (whether one arrived before the client listened
  // is up to timing, so only the count's presence is checked here; the scanner's own
  // tests assert the count).
  EXPECT_NE(stdoutText.find(", bad size "), std::string::npos) << stdoutText;
}

// Two network namespaces joined by a veth pair, with a multicast route on each side; the
// sender lives in one, the client in the other. Needs root and the ip tool.
class NamespacePair {
 public:
  NamespacePair() {
    std::random_device random;
    Tag = std::to_string(random() % 100000);
    Sender = "zolcs" + Tag;
    Receiver = "zolcr" + Tag;
    const std::string veth = "zcs" + Tag;
    const std::string peer = "zcr" + Tag;
    Ready = Run("ip netns add " + Sender) && Run("ip netns add " + Receiver) &&
            Run("ip link add " + veth + " type veth peer name " + peer) &&
            Run("ip link set " + veth + " netns " + Sender) && Run("ip link set " + peer + " netns " + Receiver) &&
            Run("ip -n " + Sender + " addr add 10.251.0.1/24 dev " + veth) &&
            Run("ip -n " + Receiver + " addr add 10.251.0.2/24 dev " + peer) &&
            Run("ip -n " + Sender + " link set " + veth + " up") && Run("ip -n " + Receiver + " link set " + peer + " up") &&
            Run("ip -n " + Sender + " link set lo up") && Run("ip -n " + Receiver + " link set lo up") &&
            Run("ip -n " + Sender + " route add 224.0.0.0/4 dev " + veth) &&
            Run("ip -n " + Receiver + " route add 224.0.0.0/4 dev " + peer);
    ReceiverInterface = peer;
  }
  ~NamespacePair() {
    Run("ip netns del " + Sender);
    Run("ip netns del " + Receiver);
  }
  static bool Run(const std::string& command) { return std::system((command + " >/dev/null 2>&1").c_str()) == 0; }

  bool Ready = false;
  std::string Tag, Sender, Receiver, ReceiverInterface;
};

TEST(ClientProcessPort, MulticastClientJoinsTheGroupOnItsInterface) {
  if (std::system("[ \"$(id -u)\" = 0 ] && command -v ip >/dev/null && command -v python3 >/dev/null") != 0) {
    GTEST_SKIP() << "needs root, ip and python3 for network namespaces";
  }
  NamespacePair pair;
  if (!pair.Ready) GTEST_SKIP() << "network namespaces could not be made here";
  ScopedTempFolder temp;
  const fs::path out = temp.Path() / "out";
  const Bytes data = LongText(2500, 21);
  const auto page = handbuilt::PagePackets(4, 8, 0, 3, "m/", "multi.bin", data);
  {
    std::ofstream file(temp.Path() / "packets.bin", std::ios::binary);
    const Bytes all = handbuilt::Join(page);
    file.write(reinterpret_cast<const char*>(all.data()), static_cast<std::streamsize>(all.size()));
  }
  // The sender sends each 128-byte block as one datagram, with the group's TTL of 2, round
  // and round until the stop file appears or 30 seconds pass.
  const fs::path stop = temp.Path() / "stop";
  const std::string sender =
      "ip netns exec " + pair.Sender + " python3 -c '"
      "import socket,time,os,sys\n"
      "data=open(sys.argv[1],\"rb\").read()\n"
      "s=socket.socket(socket.AF_INET,socket.SOCK_DGRAM)\n"
      "s.setsockopt(socket.IPPROTO_IP,socket.IP_MULTICAST_TTL,2)\n"
      "end=time.time()+30\n"
      "while time.time()<end and not os.path.exists(sys.argv[2]):\n"
      "  [s.sendto(data[i:i+128],(\"239.254.1.2\",7125)) for i in range(0,len(data),128)]\n"
      "  time.sleep(0.05)\n"
      "' " + (temp.Path() / "packets.bin").string() + " " + stop.string() + " >/dev/null 2>&1";
  std::thread senderThread([&] { std::system(sender.c_str()); });
  ClientProgram client("udp://239.254.1.2:7125 --interface " + pair.ReceiverInterface + " --out " +
                       out.string() + " --until-complete 1 --timeout 20 --stats",
                       "ip netns exec " + pair.Receiver + " ");
  const int status = client.Wait();
  { std::ofstream(stop) << "stop"; }
  senderThread.join();
  EXPECT_EQ(status, 0) << client.Stderr();
  EXPECT_EQ(ReadWholeFile(out / "m/multi.bin"), std::string(data.begin(), data.end()));
  EXPECT_NE(client.Stdout().find("site 4 page 8 m/multi.bin 2500 bytes version 0.3\n"), std::string::npos)
      << client.Stdout();
}

TEST(ClientProcessPort, SerialClientNoticesALineThatHangsUp) {
  int controller = -1;
  int device = -1;
  std::string deviceName;
  ASSERT_TRUE(platform::OpenPseudoTerminal(controller, device, deviceName));
  ClientProgram client("serial:" + deviceName + " --timeout 4 --reconnect-pause 0.5");
  // A page coming through shows that the client has the line open; then the other end goes.
  const auto page = handbuilt::PagePackets(1, 1, 0, 1, "", "h", Text("here"));
  const std::uint64_t start = platform::MonotonicMilliseconds();
  while (client.Stdout().find("site 1 page 1 h") == std::string::npos && !client.HasFinished() &&
         platform::MonotonicMilliseconds() - start < 3500) {
    if (platform::WaitWritable(controller, 100000)) platform::WriteSerial(controller, page[0].data(), page[0].size());
    platform::SleepMilliseconds(20);
  }
  ASSERT_FALSE(client.HasFinished()) << client.Stderr();
  platform::CloseSerial(device);
  platform::CloseSerial(controller);
  EXPECT_EQ(client.Wait(), 0);
  EXPECT_NE(client.Stderr().find("zolclient: serial line " + deviceName + " lost; opening it again in 0.5 s"),
            std::string::npos)
      << client.Stderr();
}

// A carousel of two sites, sent round by round on one connection until the client leaves:
// site 1 has the page count 2 and pages 1 and 9 (9 only from the fourth round on); its
// parameters come in every third round only. Site 2 has one page, 8.
class TwoSiteCarousel {
 public:
  explicit TwoSiteCarousel(std::size_t site1Pages = 2) : Site1Pages(site1Pages) {}

  Bytes Round(unsigned round) const {
    std::vector<Bytes> packets;
    const auto add = [&](const std::vector<Bytes>& more) { packets.insert(packets.end(), more.begin(), more.end()); };
    const CParameters site1 = inforecords::SiteParameters("Main board", static_cast<int>(Site1Pages));
    const CParameters site2 = inforecords::SiteParameters("Pit lane", 1);
    const BYTE version = static_cast<BYTE>(1 + round % 60);
    add(inforecords::Packets(1, version,
                             inforecords::Record(1000, inforecords::Clock("green", "10:00:0" + std::to_string(round % 10)),
                                                 round % 3 == 2 ? &site1 : nullptr)));
    add(handbuilt::PagePackets(1, 1, 0, 1, "results/", "schedule.html", Text("<p>schedule</p>")));
    add(inforecords::Packets(2, version, inforecords::Record(2000, inforecords::Clock("red"), &site2)));
    add(handbuilt::PagePackets(2, 8, 0, 1, "", "pit.html", Text("<p>pit</p>")));
    if (round >= 3) add(handbuilt::PagePackets(1, 9, 0, 1, "", "late.css", Text("p{}")));
    return handbuilt::Join(packets);
  }

 private:
  std::size_t Site1Pages;
};

// Serves rounds of `carousel` to one connection, about ten a second, until the client is
// done, the connection fails or 30 seconds pass.
void ServeRounds(int listener, const TwoSiteCarousel& carousel, ClientProgram& client) {
  const int connection = AcceptWithin(listener, 20);
  if (connection == platform::kNoSocket) return;
  const std::uint64_t start = platform::MonotonicMilliseconds();
  for (unsigned round = 0; !client.HasFinished() && platform::MonotonicMilliseconds() - start < 30000; ++round) {
    if (!SendAll(connection, carousel.Round(round))) break;
    platform::SleepMilliseconds(100);
  }
  platform::CloseSocket(connection);
}

TEST(ClientProcessPort, UntilCompleteSiteWaitsForEveryPageOfEverySite) {
  ScopedTempFolder temp;
  const fs::path out = temp.Path() / "out";
  std::uint16_t port = 0;
  const int listener = ListenOnFreePort(port);
  ASSERT_NE(listener, platform::kNoSocket);
  ClientProgram client("tcp://127.0.0.1:" + std::to_string(port) + " --out " + out.string() +
                       " --until-complete site --timeout 30 --stats --reconnect-pause 0.2");
  ServeRounds(listener, TwoSiteCarousel(), client);
  const int status = client.Wait();
  platform::CloseSocket(listener);

  const std::string stdoutText = client.Stdout();
  EXPECT_EQ(status, 0) << client.Stderr() << stdoutText;
  // Site 1 is complete only with page 9, which came late.
  EXPECT_NE(stdoutText.find("site 1 page 9 late.css 3 bytes version 0.1\n"), std::string::npos) << stdoutText;
  EXPECT_NE(stdoutText.find("site 1 page 0 (information) "), std::string::npos) << stdoutText;
  EXPECT_NE(stdoutText.find("site 1: name Main board, pagecount 2, pages complete 2, build time 1000, "),
            std::string::npos)
      << stdoutText;
  EXPECT_NE(stdoutText.find("rebuilds 0, flag green, racetime 0:12:03.400, timeofday 10:00:0"), std::string::npos)
      << stdoutText;
  EXPECT_NE(stdoutText.find("site 2: name Pit lane, pagecount 1, pages complete 1, build time 2000, "),
            std::string::npos)
      << stdoutText;
  EXPECT_NE(stdoutText.find(", flag red, "), std::string::npos) << stdoutText;
  // The information pages are beside the pages as text, and nothing has an empty name.
  EXPECT_EQ(ListTree(out), (std::vector<std::string>{"_site1.info", "_site2.info", "late.css", "pit.html", "results",
                                                     "results/schedule.html"}));
  const std::string info1 = ReadWholeFile(out / "_site1.info");
  EXPECT_EQ(info1.rfind("site=1\nbuildtime=1000\nclock.flag=green\n", 0), 0u) << info1;
  EXPECT_NE(info1.find("site.name=Main board\nsite.pagecount=2\n"), std::string::npos) << info1;
  EXPECT_NE(ReadWholeFile(out / "_site2.info").find("site.name=Pit lane\n"), std::string::npos);
}

TEST(ClientProcessPort, UntilCompleteSiteTellsWhatIsMissingWhenTheTimeRunsOut) {
  std::uint16_t port = 0;
  const int listener = ListenOnFreePort(port);
  ASSERT_NE(listener, platform::kNoSocket);
  ClientProgram client("tcp://127.0.0.1:" + std::to_string(port) +
                       " --until-complete site --timeout 2 --reconnect-pause 0.2");
  ServeRounds(listener, TwoSiteCarousel(3), client);  // site 1 claims 3 pages but has 2
  const int status = client.Wait();
  platform::CloseSocket(listener);
  EXPECT_EQ(status, 1);
  const std::string stderrText = client.Stderr();
  EXPECT_NE(stderrText.find("zolclient: site 1: 2 of 3 pages complete when the time ran out\n"), std::string::npos)
      << stderrText;
  EXPECT_EQ(stderrText.find("site 2"), std::string::npos) << stderrText;
}

TEST(ClientProcessPort, UntilCompleteSiteWithNothingHeardFailsInTime) {
  const std::uint16_t port = platform::FindFreeTcpPort();
  ASSERT_NE(port, 0);
  ClientProgram client("tcp://127.0.0.1:" + std::to_string(port) +
                       " --timeout 1 --until-complete site --reconnect-pause 0.2");
  EXPECT_EQ(client.Wait(), 1);
  EXPECT_NE(client.Stderr().find("zolclient: no site seen when the time ran out\n"), std::string::npos)
      << client.Stderr();
}

TEST(ClientProcess, BadArgumentGivesOneLineAndStatusTwo) {
  ClientProgram client("tcp://127.0.0.1:1 --packet-size 200");
  EXPECT_EQ(client.Wait(), 2);
  EXPECT_EQ(client.Stderr(), "zolclient: bad --packet-size '200': expected 16 to 128\n");
  EXPECT_EQ(client.Stdout(), "");
}

TEST(ClientProcess, BadMaxBytesGivesOneLineAndStatusTwo) {
  ClientProgram client("tcp://127.0.0.1:1 --max-bytes lots");
  EXPECT_EQ(client.Wait(), 2);
  EXPECT_EQ(client.Stderr(), "zolclient: bad --max-bytes 'lots': expected a positive whole number of bytes\n");
  EXPECT_EQ(client.Stdout(), "");
}

TEST(ClientProcess, HelpExplainsEveryOption) {
  ClientProgram client("--help");
  EXPECT_EQ(client.Wait(), 0);
  const std::string text = client.Stdout();
  for (const char* option : {"--out", "--stats", "--timeout", "--until-complete N", "--until-complete site",
                             "_siteS.info", "(information)", "rebuilt", "--packet-size", "--interface",
                             "--reconnect-pause", "--max-bytes", "--help", "tcp://", "udp://", "serial:"}) {
    EXPECT_NE(text.find(option), std::string::npos) << option;
  }
}

TEST(ClientProcess, MissingSerialDeviceFailsWithStatusOne) {
  ScopedTempFolder temp;
  ClientProgram client("serial:" + (temp.Path() / "no-such-tty").string() + " --timeout 1");
  EXPECT_EQ(client.Wait(), 1);
  EXPECT_NE(client.Stderr().find("cannot open serial device"), std::string::npos);
}

}  // namespace
