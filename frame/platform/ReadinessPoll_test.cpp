#include "frame/platform/ReadinessPoll.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

#include "frame/platform/Sockets.h"

namespace {

bool Has(const std::vector<platform::CReadinessPoll::Event>& events, std::uint64_t token, bool writable) {
  for (const auto& event : events) {
    if (event.Token == token && (writable ? event.Writable : event.Readable)) return true;
  }
  return false;
}

}  // namespace

TEST(ReadinessPoll, ListenerIsReportedWhileAConnectionWaitsAndAWriterOncePerChange) {
  platform::CReadinessPoll poll;
  ASSERT_TRUE(poll.IsOpen());
  const int listener = platform::OpenTcpListener("127.0.0.1", 0, 16);
  ASSERT_GE(listener, 0);
  ASSERT_TRUE(poll.AddReader(listener, 1));
  std::vector<platform::CReadinessPoll::Event> events;
  ASSERT_TRUE(poll.Wait(0, events));
  EXPECT_TRUE(events.empty());

  const int client = platform::TcpConnect("127.0.0.1", platform::LocalPort(listener));
  ASSERT_GE(client, 0);
  ASSERT_TRUE(poll.Wait(2000, events));
  EXPECT_TRUE(Has(events, 1, false));
  // Still waiting: reported again.
  ASSERT_TRUE(poll.Wait(0, events));
  EXPECT_TRUE(Has(events, 1, false));
  std::uint32_t address = 0;
  std::uint16_t peerPort = 0;
  const int served = platform::AcceptConnectionFrom(listener, address, peerPort);
  ASSERT_GE(served, 0);

  // A new socket takes data: told once, and not again until it was full.
  ASSERT_TRUE(poll.AddWriter(served, 2));
  ASSERT_TRUE(poll.Wait(2000, events));
  EXPECT_TRUE(Has(events, 2, true));
  ASSERT_TRUE(poll.Wait(0, events));
  EXPECT_FALSE(Has(events, 2, true));

  poll.Remove(served);
  poll.Remove(listener);
  platform::CloseSocket(served);
  platform::CloseSocket(client);
  platform::CloseSocket(listener);
}

TEST(ReadinessPoll, AWakeFromAnotherThreadEndsTheWait) {
  platform::CReadinessPoll poll;
  std::thread waker([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    poll.Wake();
  });
  std::vector<platform::CReadinessPoll::Event> events;
  const auto start = std::chrono::steady_clock::now();
  ASSERT_TRUE(poll.Wait(10000, events));
  waker.join();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
  EXPECT_TRUE(Has(events, platform::CReadinessPoll::kWakeToken, false));
  // The wake is taken: the next wait finds nothing.
  ASSERT_TRUE(poll.Wait(0, events));
  EXPECT_TRUE(events.empty());
}
