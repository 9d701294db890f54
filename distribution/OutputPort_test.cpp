#include "distribution/OutputPort.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <string>
#include <vector>

#include "distribution/OutputPage.h"
#include "distribution/OutputStream.h"
#include "distribution/PacketFormat.h"
#include "frame/IniFile.h"
#include "frame/Package.h"
#include "testing/PacketSizeScope.h"

namespace {

// A port that records what its loop does instead of sending anywhere.
class RecordingPort : public CZOLOutputPort {
 public:
  explicit RecordingPort(DWORD id, int burst = 1) : CZOLOutputPort(id) { PacketsPerBurst = burst; }
  ~RecordingPort() override {
    if (!ThreadStarted) Running.store(0);
    Stop();
  }
  void LoadSettings(CIniFile&, const std::string&) override {}
  void SaveSettings(CIniFile&, const std::string&) override {}
  // Accepts pages; the loop starts only with StartSending.
  void Start() override { Running.store(1); }
  void StartSending() {
    ThreadStarted = true;
    StartThread();
  }
  void MarkStopped() { Running.store(0); }
  void SendPacket(const BYTE* packet) override {
    std::lock_guard<std::mutex> lock(EventsMutex);
    Events.push_back("send " + std::to_string(wire::PacketNumber(packet[6] | (packet[7] << 8))));
    Changed.notify_all();
  }
  void PauseBetweenBursts() override {
    {
      std::lock_guard<std::mutex> lock(EventsMutex);
      if (Events.empty() || Events.back() != "pause") Events.push_back("pause");
      Changed.notify_all();
    }
    CZOLOutputPort::PauseBetweenBursts();
  }
  std::vector<std::string> WaitForSends(std::size_t sends) {
    std::unique_lock<std::mutex> lock(EventsMutex);
    Changed.wait_for(lock, std::chrono::seconds(10), [&] {
      std::size_t n = 0;
      for (const auto& e : Events) n += e.rfind("send", 0) == 0 ? 1 : 0;
      return n >= sends && Events.back() == "pause";
    });
    return Events;
  }
  void AddSent(int bytes) { SentBytes.fetch_add(bytes); }

 private:
  bool ThreadStarted = false;
  std::mutex EventsMutex;
  std::condition_variable Changed;
  std::vector<std::string> Events;
};

// A page of `packets` packets of PacketSize bytes with the last-packet bit on the last.
PacketBlocks MakeBlocks(DWORD key, int packets, std::vector<std::vector<BYTE>>& storage) {
  PacketBlocks blocks;
  storage.clear();
  for (int n = 0; n < packets; ++n) {
    std::vector<BYTE> block(PacketSize, 0);
    block[0] = 0x8E;
    block[2] = static_cast<BYTE>((n == packets - 1 ? 1 : 0) | (4 << 1));
    const DWORD id = wire::MakePacketID(key, static_cast<DWORD>(n), 1);
    block[6] = static_cast<BYTE>(id);
    block[7] = static_cast<BYTE>(id >> 8);
    block[8] = static_cast<BYTE>(id >> 16);
    block[9] = static_cast<BYTE>(id >> 24);
    storage.push_back(block);
  }
  for (auto& block : storage) blocks.push_back(block.data());
  return blocks;
}

DWORD KeyOfPacket(const BYTE* packet) { return packet[6] | (packet[7] << 8) | (packet[8] << 16) | (static_cast<DWORD>(packet[9]) << 24); }

}  // namespace

TEST(OutputPort, PageQueuedTwiceBeforeItsFirstPacketLeftIsQueuedOnce) {
  PacketSizeScope size(128);
  RecordingPort port(1);
  port.Start();
  std::vector<std::vector<BYTE>> storage;
  const DWORD key = wire::MakePageKey(1, 5, 1);
  const PacketBlocks blocks = MakeBlocks(key, 3, storage);
  port.UpdatePage(key, 1, blocks);
  port.UpdatePage(key, 2, blocks);
  EXPECT_EQ(port.GetQueueLength(), 3u);
  EXPECT_EQ(port.GetQueuedBytes(), 3 * 128);
  EXPECT_EQ(port.GetPageSequences()[key], 1);
  EXPECT_EQ(port.GetInQueue()[key], 1);
}

TEST(OutputPort, AfterTheLastPacketLeavesTheNextUpdateIsAccepted) {
  PacketSizeScope size(128);
  RecordingPort port(1);
  port.Start();
  std::vector<std::vector<BYTE>> storage;
  const DWORD key = wire::MakePageKey(1, 5, 1);
  const PacketBlocks blocks = MakeBlocks(key, 2, storage);
  port.UpdatePage(key, 1, blocks);
  BYTE* first = port.PopPacket();
  port.UpdatePage(key, 2, blocks);  // still in the queue: ignored
  EXPECT_EQ(port.GetQueueLength(), 1u);
  BYTE* last = port.PopPacket();  // taken, not yet sent
  ASSERT_NE(last, nullptr);
  EXPECT_EQ(port.GetInQueue()[key], 0);
  port.UpdatePage(key, 3, blocks);
  EXPECT_EQ(port.GetQueueLength(), 2u);
  EXPECT_EQ(port.GetPageSequences()[key], 3);
  delete[] first;
  delete[] last;
}

TEST(OutputPort, PageWithoutPacketsQueuesNothingAndDoesNotBlockItsKey) {
  // A page held back before its first export has no packets yet; handing it on must not
  // mark it queued, or its first real version would never be taken.
  PacketSizeScope size(128);
  RecordingPort port(1);
  port.Start();
  const DWORD key = wire::MakePageKey(1, 9, 2);
  port.UpdatePage(key, 1, PacketBlocks());
  EXPECT_EQ(port.GetQueueLength(), 0u);
  EXPECT_EQ(port.GetInQueue()[key], 0);
  std::vector<std::vector<BYTE>> storage;
  port.UpdatePage(key, 2, MakeBlocks(key, 2, storage));
  EXPECT_EQ(port.GetQueueLength(), 2u);
  EXPECT_EQ(port.GetPageSequences()[key], 2);
}

TEST(OutputPort, LowestKeyGoesFirstSoALevelZeroPageOvertakes) {
  PacketSizeScope size(128);
  RecordingPort port(1);
  port.Start();
  std::vector<std::vector<BYTE>> slowStorage, fastStorage;
  const DWORD slow = wire::MakePageKey(1, 2, 2);
  const DWORD fast = wire::MakePageKey(1, 9, 0);
  port.UpdatePage(slow, 1, MakeBlocks(slow, 3, slowStorage));
  BYTE* packet = port.PopPacket();
  EXPECT_EQ(KeyOfPacket(packet) & wire::kPageIdentityMask, slow);
  delete[] packet;
  port.UpdatePage(fast, 1, MakeBlocks(fast, 2, fastStorage));
  std::vector<DWORD> order;
  while ((packet = port.PopPacket()) != nullptr) {
    order.push_back(KeyOfPacket(packet));
    delete[] packet;
  }
  ASSERT_EQ(order.size(), 4u);
  EXPECT_EQ(order[0] & wire::kPageIdentityMask, fast);
  EXPECT_EQ(order[1] & wire::kPageIdentityMask, fast);
  EXPECT_EQ(wire::PacketNumber(order[2]), 1u);
  EXPECT_EQ(wire::PacketNumber(order[3]), 2u);
}

TEST(OutputPort, ClearAllPacketsOfOneSiteLeavesTheOtherAndReopensTheQueue) {
  PacketSizeScope size(128);
  RecordingPort port(1);
  port.Start();
  std::vector<std::vector<BYTE>> one, two;
  const DWORD siteOne = wire::MakePageKey(1, 4, 1);
  const DWORD siteTwo = wire::MakePageKey(2, 4, 1);
  port.UpdatePage(siteOne, 1, MakeBlocks(siteOne, 2, one));
  port.UpdatePage(siteTwo, 1, MakeBlocks(siteTwo, 3, two));
  port.ClearAllPackets(2);
  EXPECT_EQ(port.GetQueueLength(), 2u);
  EXPECT_EQ(port.GetQueuedBytes(), 2 * 128);
  EXPECT_EQ(port.GetInQueue().count(siteTwo), 0u);
  EXPECT_EQ(port.GetInQueue()[siteOne], 1);
  port.UpdatePage(siteTwo, 2, MakeBlocks(siteTwo, 3, two));
  EXPECT_EQ(port.GetQueueLength(), 5u);
}

TEST(OutputPort, StopOnAStoppedPortStillEmptiesTheQueueAndClearsCounters) {
  PacketSizeScope size(128);
  RecordingPort port(1);
  port.Start();
  std::vector<std::vector<BYTE>> storage;
  const DWORD key = wire::MakePageKey(1, 1, 0);
  port.UpdatePage(key, 1, MakeBlocks(key, 4, storage));
  port.AddSent(512);
  port.DetermineDataRate();
  port.MarkStopped();
  port.Stop();
  EXPECT_EQ(port.GetQueueLength(), 0u);
  EXPECT_TRUE(port.GetInQueue().empty());
  EXPECT_EQ(port.GetQueuedBytes(), 0);
  EXPECT_EQ(port.GetTotalBytes(), 0);
  EXPECT_EQ(port.GetSampleIndex(), 0);
  EXPECT_EQ(port.GetDataRate(), 0u);
}

TEST(OutputPort, StoppedPortTakesNoPages) {
  PacketSizeScope size(128);
  RecordingPort port(1);
  std::vector<std::vector<BYTE>> storage;
  const DWORD key = wire::MakePageKey(1, 1, 0);
  port.UpdatePage(key, 1, MakeBlocks(key, 4, storage));
  EXPECT_EQ(port.GetQueueLength(), 0u);
}

TEST(OutputPort, SilentPortReportsRateZeroAndTheFirstCallAfterClearIsNearZero) {
  RecordingPort port(1);
  // Right after Clear the oldest sample has time 0: the rate is over all time since 1970.
  port.AddSent(1280);
  port.DetermineDataRate();
  EXPECT_EQ(port.GetDataRate(), 0u);
  EXPECT_EQ(port.GetTotalBytes(), 1280);
  EXPECT_EQ(port.GetSentBytes(), 0);
  for (int i = 0; i < 9; ++i) port.DetermineDataRate();
  // The clock counts milliseconds; the window must span at least one.
  std::this_thread::sleep_for(std::chrono::milliseconds(3));
  // Ten samples in: the window now holds real times; one with traffic gives a rate.
  port.AddSent(1280);
  port.DetermineDataRate();
  EXPECT_GT(port.GetDataRate(), 0u);
  // Ten more seconds of silence push the traffic out of the window.
  for (int i = 0; i < 9; ++i) port.DetermineDataRate();
  std::this_thread::sleep_for(std::chrono::milliseconds(3));
  port.DetermineDataRate();
  EXPECT_EQ(port.GetDataRate(), 0u);
}

TEST(OutputPortThread, FivePacketsWithABurstOfThreeGoThreeThenAPauseThenTwo) {
  PacketSizeScope size(128, 20);
  RecordingPort port(1, 3);
  port.Start();
  std::vector<std::vector<BYTE>> storage;
  const DWORD key = wire::MakePageKey(1, 1, 0);
  port.UpdatePage(key, 1, MakeBlocks(key, 5, storage));
  port.StartSending();
  const std::vector<std::string> events = port.WaitForSends(5);
  const std::vector<std::string> expected = {"send 0", "send 1", "send 2", "pause", "send 3", "send 4", "pause"};
  ASSERT_GE(events.size(), expected.size());
  EXPECT_EQ(std::vector<std::string>(events.begin(), events.begin() + 7), expected);
  port.Stop();
  EXPECT_EQ(port.IsRunning(), 0);
  EXPECT_EQ(port.GetQueuedBytes(), 0);
}

TEST(OutputPortThread, StopWaitsForTheThreadThenClearsWhileUpdatesArrive) {
  PacketSizeScope size(128, 1);
  RecordingPort port(1, 2);
  port.Start();
  port.StartSending();
  std::vector<std::vector<BYTE>> storage;
  for (int round = 0; round < 200; ++round) {
    const DWORD key = wire::MakePageKey(1 + round % 3, static_cast<DWORD>(round % 50), round % 4);
    port.UpdatePage(key, 1, MakeBlocks(key, 3, storage));
    port.DetermineDataRate();
    if (round % 50 == 0) port.ClearAllPackets(2);
  }
  port.Stop();
  EXPECT_EQ(port.IsRunning(), 0);
  EXPECT_EQ(port.GetQueueLength(), 0u);
}

TEST(OutputStream, RelativeRootIsJoinedToTheApplicationDirectoryAsItStands) {
  CPackage package;
  package.ApplicationDirectory = "/opt/zol";
  CPackage* previous = GetPackage();
  SetModulePackage(&package);
  CIniFile ini("/nonexistent/none.ini");
  ini.Write("site1", "root", std::string("sites\\main"));
  ini.Write("site2", "root", std::string("/srv/results\\"));
  ini.Write("site2", "width", 800);
  CZOLOutputStream relative, absolute, fallback;
  relative.LoadSettings(ini, "site1");
  absolute.LoadSettings(ini, "site2");
  fallback.LoadSettings(ini, "site3");
  SetModulePackage(previous);
  EXPECT_EQ(relative.GetRoot(), "/opt/zolsites\\main\\");
  EXPECT_EQ(absolute.GetRoot(), "/srv/results\\");
  EXPECT_EQ(fallback.GetRoot(), "/opt/zol\\");
  EXPECT_EQ(relative.GetParameter("name"), "site1");
  EXPECT_EQ(relative.GetParameter("width"), "1024");
  EXPECT_EQ(relative.GetParameter("height"), "768");
  EXPECT_EQ(absolute.GetParameter("width"), "800");
}

TEST(OutputStream, UpdateGoesOnlyToRunningPortsAndClearToAll) {
  PacketSizeScope size(128);
  RecordingPort running(1), stopped(2);
  running.Start();
  CZOLOutputStream stream;
  stream.PortAdd(&running);
  stream.PortAdd(&stopped);
  std::vector<std::vector<BYTE>> storage;
  const DWORD key = wire::MakePageKey(3, 1, 0);
  stream.UpdatePage(key, 1, MakeBlocks(key, 2, storage));
  EXPECT_EQ(running.GetQueueLength(), 2u);
  EXPECT_EQ(stopped.GetQueueLength(), 0u);
  stream.ClearAllPackets(3);
  EXPECT_EQ(running.GetQueueLength(), 0u);
  EXPECT_EQ(stream.PortRemove(2), 1);
  EXPECT_EQ(stream.PortRemove(2), 0);
  stream.PortRemove(&running);
  EXPECT_TRUE(stream.GetPorts().empty());
}
