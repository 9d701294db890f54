// The host around the real module library: an exception that leaves the module is
// reported with its trail and the host goes on.
#include "host/ModuleHost.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "data/DataEncoder.h"
#include "testing/TempDir.h"
#include "testing/WaitUntil.h"

namespace {

// A data manager that answers the connect request properly and the all-data request
// with a payload far shorter than its fields.
class ShortAnsweringPeer : public CHostPeer {
 public:
  WORD PeerClass() const override { return kDataManagerClass; }
  DWORD PeerInstance() const override { return 0; }
  DWORD PeerComputer() const override { return 0x0100007F; }
  std::vector<CModuleMessage*> Receive(CModuleMessage& message) override {
    auto* reply = new CModuleMessage(message.ID, kZolServerClass, 0, 0);
    if (message.ID == 2) *reply << 5;  // a count, and then nothing
    return {reply};
  }
};

// A data manager that answers nothing by itself and writes down the IDs of the messages
// the module sends it; what it has to say, the test posts through the host.
class SilentDataManager : public CHostPeer {
 public:
  WORD PeerClass() const override { return kDataManagerClass; }
  DWORD PeerInstance() const override { return 0; }
  DWORD PeerComputer() const override { return 0x0100007F; }
  std::vector<CModuleMessage*> Receive(CModuleMessage& message) override {
    std::lock_guard<std::mutex> guard(Lock);
    Received.push_back(message.ID);
    return {};
  }
  std::vector<WORD> ReceivedIDs() const {
    std::lock_guard<std::mutex> guard(Lock);
    return Received;
  }

 private:
  mutable std::mutex Lock;
  std::vector<WORD> Received;
};

// A data manager with a clock: at each of its timer calls it sends "connected" of its own
// accord, and writes down on which thread the call came.
class ClockedDataManager : public SilentDataManager {
 public:
  int PeerTimerInterval() const override { return 50; }
  std::vector<CModuleMessage*> OnPeerTimer() override {
    std::lock_guard<std::mutex> guard(TimerLock);
    Threads.push_back(std::this_thread::get_id());
    return {DataEncoder::Connected()};
  }
  std::vector<std::thread::id> TimerThreads() const {
    std::lock_guard<std::mutex> guard(TimerLock);
    return Threads;
  }

 private:
  mutable std::mutex TimerLock;
  std::vector<std::thread::id> Threads;
};

HostOptions OptionsFor(const TempDir& appdir) {
  HostOptions options;
  options.ModulePath = std::string(ZOL_BINARY_DIR) + "/libzolserver.so";
  options.ApplicationDirectory = appdir.Path();
  return options;
}

bool WaitFor(const std::function<bool()>& condition, double seconds) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

}  // namespace

TEST(ModuleHostThread, ShortMessageIsReportedWithItsTrailAndTheHostGoesOn) {
  TempDir appdir;
  CModuleHost host(OptionsFor(appdir));
  ASSERT_TRUE(host.Load()) << host.Error();
  host.AddPeer(std::make_unique<ShortAnsweringPeer>());
  testing::internal::CaptureStderr();
  ASSERT_TRUE(host.Start()) << host.Error();
  const bool ticking = WaitFor([&] { return host.TimerTicks() >= 3; }, 10);
  host.Stop();
  const std::string log = testing::internal::GetCapturedStderr();
  ASSERT_TRUE(ticking) << log;
  EXPECT_NE(log.find("exception in ProcessMessage: CTTBuffer: read past the end of the message <- CTTBuffer::operator>>"),
            std::string::npos)
      << log;
  EXPECT_NE(log.find("<- CZOLServer::ProcessMessage()"), std::string::npos) << log;
}

TEST(ModuleHostThread, TimerRunsAtTheIntervalTheModuleAskedFor) {
  TempDir appdir;
  CModuleHost host(OptionsFor(appdir));
  ASSERT_TRUE(host.Load()) << host.Error();
  testing::internal::CaptureStderr();
  ASSERT_TRUE(host.Start()) << host.Error();
  EXPECT_TRUE(WaitFor([&] { return host.TimerInterval() == 200; }, 10));
  EXPECT_TRUE(WaitFor([&] { return host.TimerTicks() >= 2; }, 10));
  host.Stop();
  testing::internal::GetCapturedStderr();
}

TEST(ModuleHostThread, MessagePostedByAPeerReachesTheModuleAsThatPeers) {
  TempDir appdir;
  CModuleHost host(OptionsFor(appdir));
  ASSERT_TRUE(host.Load()) << host.Error();
  auto peer = std::make_unique<SilentDataManager>();
  SilentDataManager& dataManager = *peer;
  host.AddPeer(std::move(peer));
  testing::internal::CaptureStderr();
  ASSERT_TRUE(host.Start()) << host.Error();
  // The module asks to connect when it hears of the data manager, and goes no further.
  const bool asked = WaitUntil([&] { return dataManager.ReceivedIDs() == std::vector<WORD>{0}; }, 10);
  // "Connected" under another class is none of the data manager's business.
  host.PostFromPeer(kWebServerClass, DataEncoder::Connected());
  // "Connected" from the data manager makes the module ask for all data.
  std::vector<WORD> expected = {0, 2};
  host.PostFromPeer(kDataManagerClass, DataEncoder::Connected());
  const bool allData = WaitUntil([&] { return dataManager.ReceivedIDs() == expected; }, 10);
  // Several posts from another thread arrive in order, each handled once.
  std::thread poster([&] {
    for (int i = 0; i < 3; ++i) host.PostFromPeer(kDataManagerClass, DataEncoder::Connected());
  });
  poster.join();
  expected = {0, 2, 2, 2, 2};
  const bool again = WaitUntil([&] { return dataManager.ReceivedIDs() == expected; }, 10);
  host.Stop();
  // After the stop a post is freed unread.
  host.PostFromPeer(kDataManagerClass, DataEncoder::Connected());
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_TRUE(asked) << log;
  EXPECT_TRUE(allData) << log;
  EXPECT_TRUE(again) << log;
  EXPECT_EQ(dataManager.ReceivedIDs(), expected);
  EXPECT_EQ(log.find("exception"), std::string::npos) << log;
}

TEST(ModuleHostThread, PeerTimerSendsToTheModuleOnTheMessageThreadBesideTheModulesTimer) {
  TempDir appdir;
  CModuleHost host(OptionsFor(appdir));
  ASSERT_TRUE(host.Load()) << host.Error();
  auto peer = std::make_unique<ClockedDataManager>();
  ClockedDataManager& dataManager = *peer;
  host.AddPeer(std::move(peer));
  testing::internal::CaptureStderr();
  ASSERT_TRUE(host.Start()) << host.Error();
  // Each "connected" the peer's clock sends makes the module ask for all data (2).
  const auto allDataRequests = [&] {
    const auto ids = dataManager.ReceivedIDs();
    return std::count(ids.begin(), ids.end(), WORD{2});
  };
  const bool pushed = WaitUntil([&] { return allDataRequests() >= 5; }, 10);
  const bool moduleTicks = WaitUntil([&] { return host.TimerTicks() >= 2; }, 10);
  host.Stop();
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_TRUE(pushed) << log;
  EXPECT_TRUE(moduleTicks) << log;
  const auto threads = dataManager.TimerThreads();
  ASSERT_FALSE(threads.empty());
  EXPECT_NE(threads.front(), std::this_thread::get_id());
  EXPECT_EQ(std::count(threads.begin(), threads.end(), threads.front()), static_cast<long>(threads.size()))
      << "every timer call comes on the one message thread";
}

TEST(ModuleHost, MissingModuleFailsToLoadWithAReason) {
  TempDir appdir;
  HostOptions options = OptionsFor(appdir);
  options.ModulePath = appdir.Path() + "/absent.so";
  CModuleHost host(options);
  EXPECT_FALSE(host.Load());
  EXPECT_NE(host.Error().find("cannot load module"), std::string::npos) << host.Error();
}
