// Calls into the module from other threads, run on the host's one message thread.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "frame/BaseModule.h"
#include "host/ModuleHost.h"
#include "testing/TempDir.h"
#include "testing/WaitUntil.h"

namespace {

HostOptions OptionsFor(const TempDir& appdir) {
  HostOptions options;
  options.ModulePath = std::string(ZOL_BINARY_DIR) + "/libzolserver.so";
  options.ApplicationDirectory = appdir.Path();
  return options;
}

}  // namespace

TEST(ZolhostThreadCall, JobsRunOnTheMessageThreadInOrderAndTheCallerWaitsForTheirEnd) {
  TempDir appdir;
  CModuleHost host(OptionsFor(appdir));
  ASSERT_TRUE(host.Load()) << host.Error();
  testing::internal::CaptureStderr();
  ASSERT_TRUE(host.Start()) << host.Error();
  // The message thread is the one the module's timer comes on; jobs of several callers
  // all come on one thread, never the caller's.
  std::vector<std::thread::id> threads(8);
  std::vector<int> order;
  std::vector<std::thread> callers;
  std::atomic<int> ran{0};
  for (int i = 0; i < 8; ++i) {
    callers.emplace_back([&, i] {
      auto seen = std::make_shared<std::thread::id>();
      const bool done = host.RunOnMessageThread(
          [seen](CBaseModule& module) {
            *seen = std::this_thread::get_id();
            EXPECT_NE(module.WebServerFindPage("_server/index.html"), nullptr);
          },
          std::chrono::milliseconds(10000));
      if (done) {
        ran.fetch_add(1);
        threads[static_cast<std::size_t>(i)] = *seen;
        EXPECT_NE(*seen, std::this_thread::get_id());
      }
    });
  }
  for (std::thread& caller : callers) caller.join();
  EXPECT_EQ(ran.load(), 8);
  for (const auto& id : threads) EXPECT_EQ(id, threads[0]);
  // In order with what was queued before: a message the module sent earlier is handled first.
  auto flag = std::make_shared<std::vector<int>>();
  ASSERT_TRUE(host.RunOnMessageThread([flag](CBaseModule&) { flag->push_back(1); }, std::chrono::milliseconds(5000)));
  ASSERT_TRUE(host.RunOnMessageThread([flag](CBaseModule&) { flag->push_back(2); }, std::chrono::milliseconds(5000)));
  EXPECT_EQ(*flag, (std::vector<int>{1, 2}));
  host.Stop();
  testing::internal::GetCapturedStderr();
}

TEST(ZolhostThreadCall, AJobNotStartedInTimeIsLeftOutAndTheCallerReturnsAtTheLimit) {
  TempDir appdir;
  CModuleHost host(OptionsFor(appdir));
  ASSERT_TRUE(host.Load()) << host.Error();
  testing::internal::CaptureStderr();
  ASSERT_TRUE(host.Start()) << host.Error();
  // A job that holds the message thread for a while.
  std::atomic<bool> holding{false};
  std::thread blocker([&] {
    host.RunOnMessageThread(
        [&holding](CBaseModule&) {
          holding = true;
          std::this_thread::sleep_for(std::chrono::milliseconds(800));
        },
        std::chrono::milliseconds(5000));
  });
  ASSERT_TRUE(WaitUntil([&] { return holding.load(); }, 10));
  auto late = std::make_shared<std::atomic<bool>>(false);
  const auto before = std::chrono::steady_clock::now();
  const bool ran = host.RunOnMessageThread([late](CBaseModule&) { *late = true; }, std::chrono::milliseconds(100));
  const auto waited = std::chrono::steady_clock::now() - before;
  EXPECT_FALSE(ran);
  EXPECT_GE(waited, std::chrono::milliseconds(100));
  EXPECT_LT(waited, std::chrono::milliseconds(700));
  blocker.join();
  // The message thread is free again and the abandoned job never ran.
  auto after = std::make_shared<bool>(false);
  EXPECT_TRUE(host.RunOnMessageThread([after](CBaseModule&) { *after = true; }, std::chrono::milliseconds(5000)));
  EXPECT_TRUE(*after);
  EXPECT_FALSE(late->load());
  host.Stop();
  testing::internal::GetCapturedStderr();
}

TEST(ZolhostThreadCall, AnExceptionInAJobIsLoggedAndAfterStopNothingRuns) {
  TempDir appdir;
  CModuleHost host(OptionsFor(appdir));
  ASSERT_TRUE(host.Load()) << host.Error();
  testing::internal::CaptureStderr();
  // Before the start there is no module to run a job with.
  EXPECT_FALSE(host.RunOnMessageThread([](CBaseModule&) {}, std::chrono::milliseconds(100)));
  ASSERT_TRUE(host.Start()) << host.Error();
  EXPECT_TRUE(host.RunOnMessageThread([](CBaseModule&) { throw std::runtime_error("job failed"); },
                                      std::chrono::milliseconds(5000)));
  host.Stop();
  const auto before = std::chrono::steady_clock::now();
  EXPECT_FALSE(host.RunOnMessageThread([](CBaseModule&) {}, std::chrono::milliseconds(5000)));
  EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(1000));
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_NE(log.find("exception in a web request: job failed"), std::string::npos) << log;
}
