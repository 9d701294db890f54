#include "client/PageAssembler.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "client/HandBuiltPackets.h"

namespace {

using handbuilt::Bytes;
using zolclient::CPacketScanner;
using zolclient::CPageAssembler;
using zolclient::ReceivedPage;
using zolclient::ScannedPacket;

// Scanner and assembler together, as the client runs them, keeping what comes out.
struct Receiver {
  explicit Receiver(std::size_t packetSize = 128) : Scanner(packetSize) {}
  void Feed(const Bytes& bytes) {
    Scanner.Feed(bytes.data(), bytes.size(), [&](const ScannedPacket& packet) {
      Assembler.Add(packet, [&](const ReceivedPage& page) { Pages.push_back(page); });
    });
  }
  void Feed(const std::vector<Bytes>& packets) {
    for (const Bytes& p : packets) Feed(p);
  }
  CPacketScanner Scanner;
  CPageAssembler Assembler;
  std::vector<ReceivedPage> Pages;
};

Bytes SomeData(std::size_t n, unsigned seed = 1) {
  Bytes data(n);
  unsigned x = seed;
  for (std::size_t i = 0; i < n; ++i) {
    x = x * 1103515245u + 12345u;
    data[i] = static_cast<BYTE>(x >> 16);
  }
  return data;
}

Bytes EscapeHeavyData(std::size_t n) {
  Bytes data(n);
  for (std::size_t i = 0; i < n; ++i) data[i] = static_cast<BYTE>(0x8D + (i % 3));
  return data;
}

TEST(PageAssembler, PageSplitOverSeveralPacketsComesBackWhole) {
  const Bytes data = SomeData(2000);
  const auto packets = handbuilt::PagePackets(3, 42, 1, 7, "results/", "list.html", data, 128, 1, 1);
  ASSERT_GT(packets.size(), 10u);
  Receiver r;
  r.Feed(packets);
  ASSERT_EQ(r.Pages.size(), 1u);
  const ReceivedPage& page = r.Pages[0];
  EXPECT_EQ(page.SiteNumber, 3u);
  EXPECT_EQ(page.PageNumber, 42u);
  EXPECT_EQ(page.Level, 1u);
  EXPECT_EQ(page.SequenceHigh, 1);
  EXPECT_EQ(page.SequenceLow, 7);
  EXPECT_EQ(page.Record.Path, "results/");
  EXPECT_EQ(page.Record.Name, "list.html");
  EXPECT_EQ(page.Record.IsTemplate, 1u);
  EXPECT_EQ(page.Record.Data, data);
  EXPECT_EQ(r.Assembler.Counters().PagesComplete, 1u);
  EXPECT_EQ(r.Assembler.PendingBytes(), 0u);
}

TEST(PageAssembler, EmptyPageArrivesInOnePacket) {
  const auto packets = handbuilt::PagePackets(0, 0, 0, 1, "", "info.html", {});
  ASSERT_EQ(packets.size(), 1u);
  Receiver r;
  r.Feed(packets);
  ASSERT_EQ(r.Pages.size(), 1u);
  EXPECT_TRUE(r.Pages[0].Record.Data.empty());
}

bool SomeChunkEndsInAnEscape(const std::vector<Bytes>& packets) {
  for (std::size_t i = 0; i + 1 < packets.size(); ++i) {
    const std::size_t h = (packets[i][2] >> 1) & 0x0F;
    if (packets[i][6 + h + (128 - (h + 7)) - 1] == 0x8D) return true;
  }
  return false;
}

TEST(PageAssembler, EscapePairSplitAcrossAPacketBoundaryIsJoined) {
  // Random data compresses to random-looking bytes with some reserved values; look for a
  // page whose cutting puts an escape byte last in a packet and its partner in the next.
  int found = 0;
  for (unsigned seed = 1; seed < 2000 && found < 3; ++seed) {
    const Bytes data = SomeData(3000, seed);
    const auto packets = handbuilt::PagePackets(1, 5, 0, 1, "", "s", data);
    if (!SomeChunkEndsInAnEscape(packets)) continue;
    ++found;
    Receiver r;
    r.Feed(packets);
    ASSERT_EQ(r.Pages.size(), 1u) << seed;
    EXPECT_EQ(r.Pages[0].Record.Data, data);
  }
  EXPECT_EQ(found, 3);
}

TEST(PageAssembler, DataFullOfReservedBytesComesBackWhole) {
  const Bytes data = EscapeHeavyData(3000);
  Receiver r;
  r.Feed(handbuilt::PagePackets(1, 1, 0, 1, "", "e.bin", data));
  ASSERT_EQ(r.Pages.size(), 1u);
  EXPECT_EQ(r.Pages[0].Record.Data, data);
}

TEST(PageAssembler, NewerVersionReplacesAnUnfinishedOne) {
  const auto v1 = handbuilt::PagePackets(1, 9, 0, 1, "", "p.html", SomeData(1500, 1));
  const auto v2 = handbuilt::PagePackets(1, 9, 0, 2, "", "p.html", SomeData(1500, 2));
  Receiver r;
  r.Feed(std::vector<Bytes>(v1.begin(), v1.begin() + 3));
  r.Feed(v2);
  // The rest of the old version finds a collection of another version and replaces it.
  ASSERT_EQ(r.Pages.size(), 1u);
  EXPECT_EQ(r.Pages[0].SequenceLow, 2);
  EXPECT_EQ(r.Pages[0].Record.Data, SomeData(1500, 2));
  EXPECT_EQ(r.Assembler.Counters().VersionsReplaced, 1u);
}

TEST(PageAssembler, VersionsFollowingEachOtherAreEachDelivered) {
  Receiver r;
  for (BYTE low = 1; low <= 3; ++low) r.Feed(handbuilt::PagePackets(1, 9, 0, low, "", "p", SomeData(300, low)));
  r.Feed(handbuilt::PagePackets(1, 9, 1, 0, "", "p", SomeData(300, 9)));
  ASSERT_EQ(r.Pages.size(), 4u);
  EXPECT_EQ(r.Pages[3].SequenceHigh, 1);
  EXPECT_EQ(r.Pages[3].Record.Data, SomeData(300, 9));
  EXPECT_EQ(r.Assembler.DistinctCompletePages(), 1u);
}

TEST(PageAssembler, SameVersionDiffersOnlyInSequenceHigh) {
  Receiver r;
  r.Feed(handbuilt::PagePackets(1, 9, 0, 5, "", "p", SomeData(300, 1)));
  r.Feed(handbuilt::PagePackets(1, 9, 1, 5, "", "p", SomeData(300, 2)));
  ASSERT_EQ(r.Pages.size(), 2u);
  EXPECT_EQ(r.Pages[1].Record.Data, SomeData(300, 2));
}

TEST(PageAssembler, InterleavedPagesAreKeptApart) {
  const auto a = handbuilt::PagePackets(1, 10, 0, 1, "", "a", SomeData(1200, 3));
  const auto b = handbuilt::PagePackets(2, 10, 0, 1, "", "b", SomeData(900, 4));
  const auto c = handbuilt::PagePackets(1, 11, 0, 1, "", "c", SomeData(700, 5));
  std::vector<Bytes> mixed;
  for (std::size_t i = 0; i < std::max({a.size(), b.size(), c.size()}); ++i) {
    if (i < a.size()) mixed.push_back(a[i]);
    if (i < b.size()) mixed.push_back(b[i]);
    if (i < c.size()) mixed.push_back(c[i]);
  }
  Receiver r;
  r.Feed(handbuilt::Join(mixed));
  ASSERT_EQ(r.Pages.size(), 3u);
  std::map<std::string, Bytes> byName;
  for (const auto& page : r.Pages) byName[page.Record.Name] = page.Record.Data;
  EXPECT_EQ(byName["a"], SomeData(1200, 3));
  EXPECT_EQ(byName["b"], SomeData(900, 4));
  EXPECT_EQ(byName["c"], SomeData(700, 5));
}

TEST(PageAssembler, RepeatedPacketsAndRepeatedCyclesGiveOnePage) {
  const auto packets = handbuilt::PagePackets(1, 10, 0, 1, "", "a", SomeData(600));
  Receiver r;
  r.Feed(packets[0]);
  r.Feed(packets[0]);
  r.Feed(std::vector<Bytes>(packets.begin() + 1, packets.end()));
  r.Feed(packets);  // the next turn of the carousel
  EXPECT_EQ(r.Pages.size(), 1u);
  EXPECT_EQ(r.Assembler.Counters().Duplicates, 1u);
  EXPECT_EQ(r.Assembler.Counters().RepeatsOfComplete, packets.size());
}

TEST(PageAssembler, PacketsOutOfOrderStillComplete) {
  auto packets = handbuilt::PagePackets(1, 10, 0, 1, "", "a", SomeData(900));
  std::reverse(packets.begin(), packets.end());
  Receiver r;
  r.Feed(packets);
  ASSERT_EQ(r.Pages.size(), 1u);
  EXPECT_EQ(r.Pages[0].Record.Data, SomeData(900));
}

TEST(PageAssembler, MissingPacketKeepsThePageIncompleteUntilTheNextTurn) {
  const auto packets = handbuilt::PagePackets(1, 10, 0, 1, "", "a", SomeData(900));
  auto firstTurn = packets;
  firstTurn.erase(firstTurn.begin() + 2);
  Receiver r;
  r.Feed(firstTurn);
  EXPECT_TRUE(r.Pages.empty());
  r.Feed(packets);
  EXPECT_EQ(r.Pages.size(), 1u);
}

TEST(PageAssembler, ForgettingDeliveredVersionsTakesTheSameVersionAgain) {
  const auto packets = handbuilt::PagePackets(1, 10, 0, 1, "", "a", SomeData(100));
  Receiver r;
  r.Feed(packets);
  r.Assembler.ForgetDeliveredVersions();
  r.Feed(packets);
  EXPECT_EQ(r.Pages.size(), 2u);
}

TEST(PageAssembler, ForgettingOneSiteTakesItsPagesAgainButNotTheKeptOneNorOtherSites) {
  const auto info = handbuilt::PagePackets(1, 0, 0, 1, "", "", SomeData(20));
  const auto page = handbuilt::PagePackets(1, 8, 0, 1, "", "a", SomeData(100));
  const auto other = handbuilt::PagePackets(2, 8, 0, 1, "", "b", SomeData(100));
  Receiver r;
  r.Feed(info);
  r.Feed(page);
  r.Feed(other);
  ASSERT_EQ(r.Pages.size(), 3u);
  r.Assembler.ForgetDeliveredVersionsOfSite(1, wire::MakePageKey(1, 0, 0));
  r.Feed(info);
  r.Feed(page);
  r.Feed(other);
  ASSERT_EQ(r.Pages.size(), 4u);
  EXPECT_EQ(r.Pages[3].SiteNumber, 1u);
  EXPECT_EQ(r.Pages[3].PageNumber, 8u);
}

// A stream whose sizes are wrong on purpose, cut and checksummed correctly.
std::size_t DeliveredFromStream(const Bytes& stream, zolclient::AssemblyCounters& counters) {
  Receiver r;
  r.Feed(handbuilt::CutPackets(wire::MakePageKey(1, 1, 0), 0, 1, stream));
  counters = r.Assembler.Counters();
  return r.Pages.size();
}

TEST(PageAssembler, ImpossibleLengthsAreDroppedAndCounted) {
  const Bytes record = handbuilt::PageRecordBytes("", "n", 0, SomeData(500));
  const Bytes gz = handbuilt::Gzip(record);
  const DWORD plain = static_cast<DWORD>(record.size());
  const DWORD packed = static_cast<DWORD>(gz.size());
  zolclient::AssemblyCounters c;

  EXPECT_EQ(DeliveredFromStream(handbuilt::PageStream(plain, packed, gz), c), 1u);

  // CompressedSize beyond what the packets carry.
  EXPECT_EQ(DeliveredFromStream(handbuilt::PageStream(plain, packed + 5000, gz), c), 0u);
  EXPECT_EQ(c.BadLength, 1u);
  // CompressedSize far short of the packets: more than a packet of "filler".
  EXPECT_EQ(DeliveredFromStream(handbuilt::PageStream(plain, packed - 200, gz), c), 0u);
  EXPECT_EQ(c.BadLength, 1u);
  // An absurd PlainSize is refused before any memory is taken for it.
  EXPECT_EQ(DeliveredFromStream(handbuilt::PageStream(0xFFFFFFF0u, packed, gz), c), 0u);
  EXPECT_EQ(c.BadLength, 1u);
  EXPECT_EQ(DeliveredFromStream(handbuilt::PageStream(70u * 1024 * 1024, packed, gz), c), 0u);
  EXPECT_EQ(c.BadLength, 1u);
  // A PlainSize that deflate could never have shrunk into so few bytes.
  EXPECT_EQ(DeliveredFromStream(handbuilt::PageStream(packed * 2000, packed, gz), c), 0u);
  EXPECT_EQ(c.BadLength, 1u);
  // Fewer than 8 bytes of stream.
  EXPECT_EQ(DeliveredFromStream(Bytes{1, 2, 3}, c), 0u);
  EXPECT_EQ(c.BadLength, 1u);
}

TEST(PageAssembler, WrongPlainSizeOrBrokenGzipIsABadCompression) {
  const Bytes record = handbuilt::PageRecordBytes("", "n", 0, SomeData(500));
  Bytes gz = handbuilt::Gzip(record);
  const DWORD plain = static_cast<DWORD>(record.size());
  const DWORD packed = static_cast<DWORD>(gz.size());
  zolclient::AssemblyCounters c;
  EXPECT_EQ(DeliveredFromStream(handbuilt::PageStream(plain + 1, packed, gz), c), 0u);
  EXPECT_EQ(c.BadCompression, 1u);
  EXPECT_EQ(DeliveredFromStream(handbuilt::PageStream(plain - 1, packed, gz), c), 0u);
  EXPECT_EQ(c.BadCompression, 1u);
  gz[gz.size() / 2] ^= 0x55;
  EXPECT_EQ(DeliveredFromStream(handbuilt::PageStream(plain, packed, gz), c), 0u);
  EXPECT_EQ(c.BadCompression, 1u);
  // A failed compression on the sender leaves twice PlainSize of whatever was there.
  Bytes failed = handbuilt::Gzip(record);
  failed.resize(2 * plain, 0);
  EXPECT_EQ(DeliveredFromStream(handbuilt::PageStream(plain, 2 * plain, failed), c), 0u);
  EXPECT_EQ(c.BadCompression, 1u);
}

TEST(PageAssembler, PageRecordWithImpossibleFieldsIsDropped) {
  zolclient::AssemblyCounters c;
  const auto deliver = [&](const Bytes& record) { return DeliveredFromStream(handbuilt::PageStreamOf(record), c); };

  Bytes record = handbuilt::PageRecordBytes("d", "n", 0, SomeData(40));
  Bytes wrongType = record;
  wrongType[0] = 2;
  EXPECT_EQ(deliver(wrongType), 0u);
  EXPECT_EQ(c.BadRecord, 1u);
  Bytes wrongVersion = record;
  wrongVersion[1] = 1;
  EXPECT_EQ(deliver(wrongVersion), 0u);
  Bytes longPath = record;
  longPath[2] = 0xFF;
  longPath[3] = 0xFF;
  EXPECT_EQ(deliver(longPath), 0u);
  EXPECT_EQ(c.BadRecord, 1u);
  Bytes longData = record;
  const std::size_t dataLengthAt = 2 + 2 + 1 + 2 + 1 + 4;
  longData[dataLengthAt + 3] = 0x7F;
  EXPECT_EQ(deliver(longData), 0u);
  EXPECT_EQ(c.BadRecord, 1u);
  Bytes trailing = record;
  trailing.push_back(0);
  EXPECT_EQ(deliver(trailing), 0u);
  EXPECT_EQ(c.BadRecord, 1u);
  EXPECT_EQ(deliver(record), 1u);
}

TEST(PageAssembler, LastPacketBelowCollectedNumbersIsInconsistent) {
  auto packets = handbuilt::PagePackets(1, 10, 0, 1, "", "a", SomeData(900));
  ASSERT_GT(packets.size(), 3u);
  Bytes early = packets[1];
  early[2] |= 1;
  handbuilt::Reseal(early);
  Receiver r;
  r.Feed(packets[3]);
  r.Feed(early);
  EXPECT_TRUE(r.Pages.empty());
  EXPECT_EQ(r.Assembler.Counters().Inconsistent, 1u);
  EXPECT_EQ(r.Assembler.PendingBytes(), 0u);
}

TEST(PageAssembler, SmallPacketSizeReassembles) {
  const Bytes data = SomeData(800, 11);
  for (std::size_t size : {16u, 17u, 64u, 127u}) {
    const auto packets = handbuilt::PagePackets(4, 100, 2, 3, "a/b", "c.txt", data, size);
    Receiver r(size);
    r.Feed(handbuilt::Join(packets));
    ASSERT_EQ(r.Pages.size(), 1u) << size;
    EXPECT_EQ(r.Pages[0].Record.Data, data);
  }
}

// A page of more than 4096 packets numbers its packets 0 to 4095 again and again.
TEST(PageAssembler, PageOfMoreThan4096PacketsComesBackWholeOverAStream) {
  const Bytes data = SomeData(3 * 1024 * 1024, 21);  // incompressible: some 27000 packets
  const auto packets = handbuilt::PagePackets(2, 40, 5, 9, "big/", "page.bin", data);
  ASSERT_GT(packets.size(), 6u * 4096u);
  Receiver r;
  const Bytes all = handbuilt::Join(packets);
  r.Feed(all);
  ASSERT_EQ(r.Pages.size(), 1u);
  EXPECT_EQ(r.Pages[0].Record.Name, "page.bin");
  EXPECT_TRUE(r.Pages[0].Record.Data == data);
  EXPECT_EQ(r.Assembler.Counters().Duplicates, 0u);
  EXPECT_EQ(r.Assembler.PendingBytes(), 0u);
}

TEST(PageAssembler, WrappedPageWithAPacketLostInOneTurnCompletesInTheNext) {
  const Bytes data = SomeData(600 * 1024, 22);
  const auto packets = handbuilt::PagePackets(2, 41, 0, 3, "", "wrap.bin", data);
  ASSERT_GT(packets.size(), 4096u + 100u);
  Receiver r;
  // First turn: a packet behind the wrap and the last packet are lost, as on a noisy line.
  for (std::size_t k = 0; k + 1 < packets.size(); ++k) {
    if (k != 4096 + 7) r.Feed(packets[k]);
  }
  EXPECT_TRUE(r.Pages.empty());
  // The next turn starts again from packet 0 and fills the gap.
  r.Feed(handbuilt::Join(packets));
  ASSERT_EQ(r.Pages.size(), 1u);
  EXPECT_TRUE(r.Pages[0].Record.Data == data);
  EXPECT_EQ(r.Assembler.Counters().BadCompression, 0u);
}

}  // namespace
