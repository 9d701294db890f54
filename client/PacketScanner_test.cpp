#include "client/PacketScanner.h"

#include <gtest/gtest.h>

#include "client/HandBuiltPackets.h"
#include "testing/KVTCatch.h"

namespace {

using handbuilt::Bytes;
using zolclient::CPacketScanner;
using zolclient::ScannedPacket;

std::vector<ScannedPacket> FeedAll(CPacketScanner& scanner, const Bytes& bytes) {
  std::vector<ScannedPacket> out;
  scanner.Feed(bytes.data(), bytes.size(), [&](const ScannedPacket& p) { out.push_back(p); });
  return out;
}

Bytes SomeData(std::size_t n) {
  Bytes data(n);
  for (std::size_t i = 0; i < n; ++i) data[i] = static_cast<BYTE>((i * 131) ^ (i >> 3));
  return data;
}

TEST(PacketScanner, GoodPacketsOfAStreamAreFoundWithTheirFields) {
  const auto packets = handbuilt::PagePackets(2, 17, 5, 9, "dir", "a.html", SomeData(500));
  ASSERT_GT(packets.size(), 2u);
  CPacketScanner scanner;
  const auto found = FeedAll(scanner, handbuilt::Join(packets));
  ASSERT_EQ(found.size(), packets.size());
  for (std::size_t i = 0; i < found.size(); ++i) {
    EXPECT_EQ(wire::PacketNumber(found[i].PacketID), i);
    EXPECT_EQ(wire::SequenceLowOf(found[i].PacketID), 9u);
    EXPECT_EQ(found[i].PacketID & wire::kPageIdentityMask, wire::MakePageKey(2, 17, 0));
    EXPECT_EQ(found[i].SequenceHigh, 5);
    EXPECT_EQ(found[i].IsLast, i + 1 == found.size());
  }
  EXPECT_EQ(scanner.Counters().Good, packets.size());
  EXPECT_EQ(scanner.Counters().Resyncs, 0u);
}

TEST(PacketScanner, BytesArrivingOneByOneGiveTheSamePackets) {
  const auto packets = handbuilt::PagePackets(1, 3, 0, 1, "", "x", SomeData(300));
  const Bytes all = handbuilt::Join(packets);
  CPacketScanner scanner;
  std::size_t count = 0;
  for (BYTE b : all) scanner.Feed(&b, 1, [&](const ScannedPacket&) { ++count; });
  EXPECT_EQ(count, packets.size());
}

TEST(PacketScanner, CorruptedChecksumIsDroppedAndCountedAndTheNextPacketStillFound) {
  auto packets = handbuilt::PagePackets(1, 3, 0, 1, "", "x", SomeData(400));
  ASSERT_GE(packets.size(), 3u);
  packets[1][50] ^= 0x01;
  CPacketScanner scanner;
  const auto found = FeedAll(scanner, handbuilt::Join(packets));
  EXPECT_EQ(found.size(), packets.size() - 1);
  EXPECT_EQ(scanner.Counters().BadChecksum, 1u);
  EXPECT_EQ(scanner.Counters().Resyncs, 1u);
}

TEST(PacketScanner, ChecksumByteAboveItsBitsIsABadChecksum) {
  auto packets = handbuilt::PagePackets(1, 3, 0, 1, "", "x", SomeData(10));
  packets[0][5] |= 0x10;
  CPacketScanner scanner;
  EXPECT_TRUE(FeedAll(scanner, packets[0]).empty());
  EXPECT_EQ(scanner.Counters().BadChecksum, 1u);
}

TEST(PacketScanner, WrongEndMarkIsDroppedAndCounted) {
  auto packets = handbuilt::PagePackets(1, 3, 0, 1, "", "x", SomeData(10));
  packets[0][127] = 0x00;
  handbuilt::Reseal(packets[0]);
  CPacketScanner scanner;
  EXPECT_TRUE(FeedAll(scanner, packets[0]).empty());
  EXPECT_EQ(scanner.Counters().BadEndMark, 1u);
  EXPECT_EQ(scanner.Counters().BadChecksum, 0u);
}

TEST(PacketScanner, SmallPacketsHaveNoEndMarkAndAreStillChecked) {
  const auto packets = handbuilt::PagePackets(1, 3, 0, 1, "p", "x", SomeData(200), 16);
  CPacketScanner scanner(16);
  EXPECT_EQ(FeedAll(scanner, handbuilt::Join(packets)).size(), packets.size());
  auto broken = packets[0];
  broken[12] ^= 0x40;
  EXPECT_TRUE(FeedAll(scanner, broken).empty());
  EXPECT_EQ(scanner.Counters().BadChecksum, 1u);
}

TEST(PacketScanner, GarbageBeforeAndBetweenPacketsIsSkippedWithResyncs) {
  const auto packets = handbuilt::PagePackets(1, 3, 0, 1, "", "x", SomeData(300));
  Bytes stream = {0x01, 0x02, 0x8E, 0x33, 0x8F};
  stream.insert(stream.end(), packets[0].begin(), packets[0].end());
  stream.insert(stream.end(), {0x44, 0x8E, 0x8E, 0x00});
  for (std::size_t i = 1; i < packets.size(); ++i) stream.insert(stream.end(), packets[i].begin(), packets[i].end());
  CPacketScanner scanner;
  EXPECT_EQ(FeedAll(scanner, stream).size(), packets.size());
  EXPECT_EQ(scanner.Counters().Resyncs, 2u);
  EXPECT_GT(scanner.Counters().BadChecksum + scanner.Counters().BadEndMark, 0u);
}

TEST(PacketScanner, TruncatedPacketIsDroppedAndTheFollowingOneFound) {
  const auto packets = handbuilt::PagePackets(1, 3, 0, 1, "", "x", SomeData(300));
  Bytes stream(packets[0].begin(), packets[0].begin() + 60);
  stream.insert(stream.end(), packets[1].begin(), packets[1].end());
  CPacketScanner scanner;
  const auto found = FeedAll(scanner, stream);
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(wire::PacketNumber(found[0].PacketID), 1u);
  EXPECT_EQ(scanner.Counters().Resyncs, 1u);
}

TEST(PacketScanner, UnfinishedBlockAtTheEndWaitsAndResetDropsIt) {
  const auto packets = handbuilt::PagePackets(1, 3, 0, 1, "", "x", SomeData(10));
  CPacketScanner scanner;
  EXPECT_TRUE(FeedAll(scanner, Bytes(packets[0].begin(), packets[0].begin() + 100)).empty());
  scanner.Reset();
  EXPECT_EQ(scanner.Counters().TruncatedBytes, 100u);
  EXPECT_EQ(FeedAll(scanner, packets[0]).size(), 1u);
}

TEST(PacketScanner, ImpossibleHeaderWithRightChecksumIsDropped) {
  auto packets = handbuilt::PagePackets(1, 3, 0, 1, "", "x", SomeData(10));
  Bytes badLength = packets[0];
  badLength[2] = static_cast<BYTE>((9 << 1) | 1);
  handbuilt::Reseal(badLength);
  Bytes badEscape = packets[0];
  badEscape[6] = 0x8D;
  badEscape[7] = 0x01;
  handbuilt::Reseal(badEscape);
  CPacketScanner scanner;
  EXPECT_TRUE(FeedAll(scanner, badLength).empty());
  EXPECT_TRUE(FeedAll(scanner, badEscape).empty());
  EXPECT_EQ(scanner.Counters().BadHeader, 2u);
}

TEST(PacketScanner, EscapedPacketIdentifierLengthensTheHeader) {
  // Level 2, page 0x74, site 3: the identifier's top byte is 0x8E and must be escaped.
  const DWORD key = 0x8E8D0000u & wire::kPageIdentityMask;
  const auto packets = handbuilt::CutPackets(key, 1, 2, handbuilt::PageStreamOf(handbuilt::PageRecordBytes("", "k", 0, SomeData(50))));
  ASSERT_GT((packets[0][2] >> 1) & 0x0F, 4);
  CPacketScanner scanner;
  const auto found = FeedAll(scanner, handbuilt::Join(packets));
  ASSERT_EQ(found.size(), packets.size());
  EXPECT_EQ(found[0].PacketID & wire::kPageIdentityMask, key);
  EXPECT_EQ(found[0].Chunk.size(), 128u - (((packets[0][2] >> 1) & 0x0F) + 7));
}

TEST(PacketScanner, DatagramOfTheWrongSizeIsDroppedAndCounted) {
  const auto packets = handbuilt::PagePackets(1, 3, 0, 1, "", "x", SomeData(10));
  CPacketScanner scanner;
  std::size_t count = 0;
  const auto sink = [&](const ScannedPacket&) { ++count; };
  scanner.FeedDatagram(packets[0].data(), 100, sink);
  Bytes longer = packets[0];
  longer.push_back(0);
  scanner.FeedDatagram(longer.data(), longer.size(), sink);
  scanner.FeedDatagram(packets[0].data(), packets[0].size(), sink);
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(scanner.Counters().BadSize, 2u);
}

TEST(PacketScanner, PacketSizeOutsideItsRangeIsRefused) {
  EXPECT_NE(CatchKVT([] { CPacketScanner scanner(15); }), nullptr);
  EXPECT_NE(CatchKVT([] { CPacketScanner scanner(129); }), nullptr);
  EXPECT_EQ(CatchKVT([] { CPacketScanner scanner(16); }), nullptr);
}

}  // namespace
