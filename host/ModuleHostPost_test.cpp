// Jobs queued for the message thread without waiting: the completion comes once, on the
// message thread after the job, or with false when the host stops first.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <thread>

#include "frame/BaseModule.h"
#include "frame/KVTException.h"
#include "host/ModuleHost.h"
#include "testing/TempDir.h"
#include "testing/WaitUntil.h"

namespace {

HostOptions PostOptionsFor(const TempDir& appdir) {
  HostOptions options;
  options.ModulePath = std::string(ZOL_BINARY_DIR) + "/libzolserver.so";
  options.ApplicationDirectory = appdir.Path();
  return options;
}

}  // namespace

TEST(ZolhostThreadCall, APostedJobRunsOnTheMessageThreadAndItsCompletionFollowsThere) {
  TempDir appdir;
  CModuleHost host(PostOptionsFor(appdir));
  ASSERT_TRUE(host.Load()) << host.Error();
  testing::internal::CaptureStderr();
  // Before the start the completion comes at once, with false.
  auto early = std::make_shared<std::atomic<int>>(-1);
  host.PostToMessageThread([](CBaseModule&) {}, [early](bool ran) { *early = ran ? 1 : 0; });
  EXPECT_EQ(early->load(), 0);
  ASSERT_TRUE(host.Start()) << host.Error();

  struct Seen {
    std::thread::id Job;
    std::thread::id Completion;
    bool Ran = false;
    std::atomic<bool> Done{false};
  };
  auto seen = std::make_shared<Seen>();
  const auto before = std::chrono::steady_clock::now();
  host.PostToMessageThread(
      [seen](CBaseModule&) {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        seen->Job = std::this_thread::get_id();
      },
      [seen](bool ran) {
        seen->Ran = ran;
        seen->Completion = std::this_thread::get_id();
        seen->Done = true;
      });
  // The caller does not wait for the job.
  EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(150));
  ASSERT_TRUE(WaitUntil([&] { return seen->Done.load(); }, 10));
  EXPECT_TRUE(seen->Ran);
  EXPECT_EQ(seen->Job, seen->Completion);
  EXPECT_NE(seen->Job, std::this_thread::get_id());
  host.Stop();
  testing::internal::GetCapturedStderr();
}

TEST(ZolhostThreadCall, AJobStillQueuedAtStopIsCompletedWithFalseAndAFailureLogsItsReason) {
  TempDir appdir;
  CModuleHost host(PostOptionsFor(appdir));
  ASSERT_TRUE(host.Load()) << host.Error();
  testing::internal::CaptureStderr();
  ASSERT_TRUE(host.Start()) << host.Error();
  // A job that fails with a standard exception inside a guarded method.
  auto failed = std::make_shared<std::atomic<int>>(-1);
  host.PostToMessageThread(
      [](CBaseModule&) {
        Guarded("CPage::Outer()", [] { Guarded("CPage::Inner()", [] { throw std::out_of_range("index 9 of 2"); }); });
      },
      [failed](bool ran) { *failed = ran ? 1 : 0; });
  ASSERT_TRUE(WaitUntil([&] { return failed->load() >= 0; }, 10));
  EXPECT_EQ(failed->load(), 1);
  // One job holds the message thread; the next is still queued when the host stops.
  std::atomic<bool> holding{false};
  auto later = std::make_shared<std::atomic<int>>(-1);
  auto laterRan = std::make_shared<std::atomic<bool>>(false);
  host.PostToMessageThread(
      [&holding](CBaseModule&) {
        holding = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
      },
      [](bool) {});
  ASSERT_TRUE(WaitUntil([&] { return holding.load(); }, 10));
  host.PostToMessageThread([laterRan](CBaseModule&) { *laterRan = true; }, [later](bool ran) { *later = ran ? 1 : 0; });
  host.Stop();
  EXPECT_EQ(later->load(), 0);
  EXPECT_FALSE(laterRan->load());
  // After the stop the completion comes at once.
  auto after = std::make_shared<std::atomic<int>>(-1);
  host.PostToMessageThread([](CBaseModule&) {}, [after](bool ran) { *after = ran ? 1 : 0; });
  EXPECT_EQ(after->load(), 0);
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_NE(log.find("exception in a web request: CPage::Inner() <- CPage::Outer(): index 9 of 2"), std::string::npos)
      << log;
}
