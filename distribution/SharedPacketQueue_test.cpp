#include "distribution/SharedPacketQueue.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "distribution/PacketFormat.h"

namespace {

constexpr std::size_t kSize = 16;

// A version whose packet n is kSize bytes of the character tag + n.
SharedPageVersion Version(DWORD site, DWORD page, char tag, int packets, BYTE sequence = 1) {
  std::vector<std::vector<BYTE>> blocks(static_cast<std::size_t>(packets));
  PacketBlocks pointers;
  for (int n = 0; n < packets; ++n) {
    blocks[static_cast<std::size_t>(n)].assign(kSize, static_cast<BYTE>(tag + n));
    pointers.push_back(blocks[static_cast<std::size_t>(n)].data());
  }
  return std::make_shared<const CSharedPageVersion>(wire::MakePageKey(site, page, 1), sequence, pointers, kSize);
}

// Everything the queue gives, `step` bytes at a time, as one text.
std::string Drain(CSharedPacketQueue& queue, std::size_t step) {
  std::string out;
  platform::ByteSpan spans[4];
  while (!queue.IsEmpty()) {
    const std::size_t count = queue.NextSpans(spans, 4);
    std::size_t taken = 0;
    for (std::size_t i = 0; i < count && taken < step; ++i) {
      const std::size_t part = std::min(step - taken, spans[i].Length);
      out.append(static_cast<const char*>(spans[i].Data), part);
      taken += part;
    }
    queue.Consume(taken);
  }
  return out;
}

std::string Packets(const std::string& tags) {
  std::string out;
  for (char tag : tags) out.append(kSize, tag);
  return out;
}

}  // namespace

TEST(SharedPacketQueue, PagesLeaveLowestKeyFirstWholeAndInPacketOrder) {
  CSharedPacketQueue queue;
  EXPECT_TRUE(queue.Add(Version(1, 9, 'x', 2)));
  EXPECT_TRUE(queue.Add(Version(1, 3, 'a', 3)));
  EXPECT_EQ(queue.GetQueuedBytes(), 5 * kSize);
  EXPECT_EQ(queue.GetPacketCount(), 5u);
  EXPECT_EQ(Drain(queue, 1000), Packets("abcxy"));
  EXPECT_EQ(queue.GetQueuedBytes(), 0u);
}

TEST(SharedPacketQueue, AVersionOfAWaitingPageIsNotTakenUntilTheWaitingOneHasGone) {
  CSharedPacketQueue queue;
  EXPECT_TRUE(queue.Add(Version(1, 3, 'a', 2, 1)));
  EXPECT_FALSE(queue.Add(Version(1, 3, 'k', 2, 2)));
  EXPECT_TRUE(queue.Holds(wire::MakePageKey(1, 3, 1)));
  EXPECT_EQ(Drain(queue, 1000), Packets("ab"));
  EXPECT_FALSE(queue.Holds(wire::MakePageKey(1, 3, 1)));
  EXPECT_TRUE(queue.Add(Version(1, 3, 'k', 2, 2)));
  EXPECT_EQ(Drain(queue, 1000), Packets("kl"));
}

TEST(SharedPacketQueue, ACutPacketIsFinishedBeforeAPageOfALowerKeyThatCameMeanwhile) {
  CSharedPacketQueue queue;
  queue.Add(Version(1, 9, 'x', 3));
  platform::ByteSpan spans[4];
  ASSERT_EQ(queue.NextSpans(spans, 4), 1u);
  // A send took one packet and a half.
  queue.Consume(kSize + kSize / 2);
  EXPECT_EQ(queue.GetQueuedBytes(), 3 * kSize - (kSize + kSize / 2));
  queue.Add(Version(1, 2, 'a', 1));
  std::string rest = Drain(queue, 5);
  EXPECT_EQ(rest, std::string(kSize / 2, 'y') + Packets("a") + Packets("z"));
}

TEST(SharedPacketQueue, SendsOfAnySizeGiveTheSameStream) {
  for (std::size_t step : {1u, 7u, 16u, 17u, 33u, 1000u}) {
    CSharedPacketQueue queue;
    queue.Add(Version(2, 5, 'm', 3));
    queue.Add(Version(1, 5, 'a', 2));
    queue.Add(Version(1, 4, 'A', 1));
    EXPECT_EQ(Drain(queue, step), Packets("Aabmno")) << step;
  }
}

TEST(SharedPacketQueue, DroppingASiteKeepsTheOtherSiteAndTheRestOfACutPacket) {
  CSharedPacketQueue queue;
  queue.Add(Version(1, 4, 'a', 2));
  queue.Add(Version(2, 4, 'm', 2));
  queue.Consume(kSize / 4);
  const std::size_t before = queue.GetQueuedBytes();
  EXPECT_EQ(queue.DropSite(1), kSize);
  EXPECT_EQ(queue.GetQueuedBytes(), before - kSize);
  EXPECT_EQ(Drain(queue, 1000), std::string(kSize - kSize / 4, 'a') + Packets("mn"));
}

TEST(SharedPacketQueue, APageWithoutPacketsIsNotQueued) {
  CSharedPacketQueue queue;
  EXPECT_FALSE(queue.Add(Version(1, 4, 'a', 0)));
  EXPECT_FALSE(queue.Add(nullptr));
  EXPECT_TRUE(queue.IsEmpty());
}

TEST(SharedPacketQueue, ClientsShareOneCopyOfAVersion) {
  const SharedPageVersion version = Version(1, 4, 'a', 2);
  std::vector<CSharedPacketQueue> clients(100);
  for (CSharedPacketQueue& client : clients) client.Add(version);
  EXPECT_EQ(version.use_count(), 101);
  platform::ByteSpan first[1];
  platform::ByteSpan last[1];
  clients.front().NextSpans(first, 1);
  clients.back().NextSpans(last, 1);
  EXPECT_EQ(first[0].Data, last[0].Data);
  for (CSharedPacketQueue& client : clients) client.Consume(2 * kSize);
  EXPECT_EQ(version.use_count(), 1);
}
