#include "distribution/OutputPage.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "distribution/PacketFormat.h"
#include "testing/PacketSizeScope.h"
#include "testing/PageReassembler.h"

namespace {

std::size_t HeaderLength(const BYTE* block) { return (block[2] >> 1) & 0x0F; }

DWORD PacketIdOf(const BYTE* block) {
  std::vector<BYTE> id;
  EXPECT_TRUE(wire::RemoveEscapes(block + 6, HeaderLength(block), id));
  EXPECT_EQ(id.size(), 4u);
  return id[0] | (id[1] << 8) | (id[2] << 16) | (static_cast<DWORD>(id[3]) << 24);
}

std::vector<BYTE> TextBytes(std::size_t size) {
  const std::string words = "Lap 12 Car 44 gap +0.512 best 1:23.456 Rider Name Team ";
  std::vector<BYTE> out(size);
  std::mt19937 random(7);
  for (std::size_t i = 0; i < size; ++i) out[i] = static_cast<BYTE>(words[(i + random() % 3) % words.size()]);
  return out;
}

std::vector<BYTE> RandomBytes(std::size_t size, unsigned seed) {
  std::vector<BYTE> out(size);
  std::mt19937 random(seed);
  for (auto& b : out) b = static_cast<BYTE>(random());
  return out;
}

// The length of the escaped page stream the page would be cut from.
std::size_t EscapedStreamLength(const COutputPage& page) {
  std::vector<BYTE> record = page.MakePageRecord();
  std::vector<BYTE> compressed(compressBound(record.size()) + 64);
  z_stream stream{};
  deflateInit2(&stream, -1, 8, 31, 8, 0);
  stream.next_in = record.data();
  stream.avail_in = static_cast<uInt>(record.size());
  stream.next_out = compressed.data();
  stream.avail_out = static_cast<uInt>(compressed.size());
  EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
  compressed.resize(stream.total_out);
  deflateEnd(&stream);
  const DWORD sizes[2] = {static_cast<DWORD>(record.size()), static_cast<DWORD>(compressed.size())};
  std::vector<BYTE> full(8 + compressed.size());
  for (int i = 0; i < 8; ++i) full[static_cast<std::size_t>(i)] = static_cast<BYTE>(sizes[i / 4] >> (8 * (i % 4)));
  if (!compressed.empty()) std::memcpy(full.data() + 8, compressed.data(), compressed.size());
  wire::InsertEscapes(full);
  return full.size();
}

}  // namespace

TEST(OutputPage, EmptyDataStillGivesOneLastPacket) {
  PacketSizeScope size(128);
  COutputPage page(1, 9, 0, 10, "", "empty.txt");
  page.BuildPackets();
  ASSERT_EQ(page.GetPackets().size(), 1u);
  const BYTE* block = page.GetPackets()[0];
  EXPECT_EQ(block[0], 0x8E);
  EXPECT_EQ(block[2] & 1, 1);
  EXPECT_EQ(block[127], 0x8F);
  CTestReassembler receiver(128);
  ASSERT_TRUE(receiver.FeedBlock(block));
  ASSERT_EQ(receiver.Completed.size(), 1u);
  EXPECT_TRUE(receiver.Completed[0].Data.empty());
  EXPECT_EQ(receiver.Completed[0].Name, "empty.txt");
}

TEST(OutputPage, ReservedBytesInTheKeyLengthenTheHeaderAndShrinkTheChunk) {
  PacketSizeScope size(128);
  // Level 2 and page 113 make the top byte of the key 0x8E.
  COutputPage page(0, 113, 2, 10, "", "a.txt");
  EXPECT_EQ(page.GetPageKey() >> 24, 0x8Eu);
  page.SetData(RandomBytes(600, 3));
  page.BuildPackets();
  ASSERT_GE(page.GetPackets().size(), 2u);
  const BYTE* first = page.GetPackets()[0];
  EXPECT_EQ(HeaderLength(first), 5u);
  EXPECT_EQ(first[6 + 3], 0x8D);
  EXPECT_EQ(first[6 + 4], 0xAE);
  EXPECT_EQ(PacketIdOf(first), page.GetPageKey() | page.GetSequenceLow());
  // A non-last packet is full: its chunk runs up to the end mark, 128 - (5 + 7) bytes.
  CTestReassembler receiver(128);
  for (const BYTE* block : page.GetPackets()) ASSERT_TRUE(receiver.FeedBlock(block));
  ASSERT_EQ(receiver.Completed.size(), 1u);
  EXPECT_EQ(receiver.Completed[0].Data, page.GetData());
  const std::size_t stream = EscapedStreamLength(page);
  EXPECT_EQ(page.GetPackets().size(), (stream + 115) / 116);
}

TEST(OutputPage, PacketNumberWhoseBytesHitTheEscapeRangeIsEscaped) {
  PacketSizeScope size(128);
  COutputPage page(1, 2, 0, 10, "", "big.bin");
  page.SetSequence(0, 12);  // the next version is 13 = 0x0D
  page.SetData(RandomBytes(80000, 5));
  page.BuildPackets();
  ASSERT_GT(page.GetPackets().size(), 600u);
  // Packet 574: low byte (2 << 6) | 0x0D = 0x8D, next byte 574 >> 2 = 0x8F.
  const BYTE* block = page.GetPackets()[574];
  EXPECT_EQ(HeaderLength(block), 6u);
  EXPECT_EQ(PacketIdOf(block), wire::MakePacketID(page.GetPageKey(), 574, 13));
  EXPECT_EQ(HeaderLength(page.GetPackets()[561]), 4u);  // 0x4D 0x8C: nothing to escape
}

TEST(OutputPage, PacketNumber4096WrapsToZeroInThePacketId) {
  PacketSizeScope size(128);
  COutputPage page(1, 3, 0, 10, "", "huge.bin");
  page.SetData(RandomBytes(520000, 9));
  page.BuildPackets();
  ASSERT_GT(page.GetPackets().size(), 4097u);
  EXPECT_EQ(wire::PacketNumber(PacketIdOf(page.GetPackets()[4096])), 0u);
  EXPECT_EQ(wire::PacketNumber(PacketIdOf(page.GetPackets()[4097])), 1u);
  EXPECT_EQ(wire::PacketNumber(PacketIdOf(page.GetPackets()[4095])), 4095u);
}

TEST(OutputPage, StreamOfExactlyCapacityIsOnePacketAndOneMoreByteIsTwo) {
  PacketSizeScope size(128);
  // Capacity with a four-byte id: 128 - (4 + 7) = 117. Find lengths that give streams
  // of exactly that and one more.
  for (std::size_t length = 0; length < 200; ++length) {
    COutputPage page(1, 4, 0, 10, "", "x");
    page.SetData(RandomBytes(length, 11));
    const std::size_t stream = EscapedStreamLength(page);
    if (stream != 117 && stream != 118) continue;
    page.BuildPackets();
    EXPECT_EQ(page.GetPackets().size(), stream == 117 ? 1u : 2u) << "stream " << stream;
    if (stream == 118) {
      EXPECT_EQ(page.GetPackets()[1][2] & 1, 1);
    }
  }
  // Both lengths must have been met for the test to mean anything.
  bool sawExact = false, sawOneMore = false;
  for (std::size_t length = 0; length < 200; ++length) {
    COutputPage page(1, 4, 0, 10, "", "x");
    page.SetData(RandomBytes(length, 11));
    const std::size_t stream = EscapedStreamLength(page);
    sawExact |= stream == 117;
    sawOneMore |= stream == 118;
  }
  EXPECT_TRUE(sawExact);
  EXPECT_TRUE(sawOneMore);
}

TEST(OutputPage, SequenceCountsSixtyFourLowThenCarriesAndWrapsAt127And63) {
  COutputPage page(1, 5, 0, 10, "", "a");
  page.BuildPackets();
  EXPECT_EQ(page.GetSequenceLow(), 1);
  EXPECT_EQ(page.GetSequenceHigh(), 0);
  page.SetSequence(4, 63);
  page.BuildPackets();
  EXPECT_EQ(page.GetSequenceLow(), 0);
  EXPECT_EQ(page.GetSequenceHigh(), 5);
  EXPECT_EQ(page.GetPackets()[0][1], 5);
  page.SetSequence(127, 63);
  page.BuildPackets();
  EXPECT_EQ(page.GetSequenceLow(), 0);
  EXPECT_EQ(page.GetSequenceHigh(), 0);
}

TEST(OutputPage, ExportNamesFollowTheExtension) {
  COutputPage feed(1, 1, 0, 10, "data", "ZOLFeed.zol");
  EXPECT_EQ(feed.GetExportName(), "dataZOLFeed.xml");
  EXPECT_EQ(feed.GetIsTemplate(), 1u);
  COutputPage result(1, 2, 0, 10, "", "results.zol");
  EXPECT_EQ(result.GetExportName(), "results.html");
  EXPECT_EQ(result.GetIsTemplate(), 1u);
  EXPECT_EQ(result.GetExtension(), "zol");
  COutputPage picture(1, 3, 0, 10, "img/", "logo.gif");
  EXPECT_EQ(picture.GetExportName(), "img/logo.gif");
  EXPECT_EQ(picture.GetIsTemplate(), 0u);
  picture.SetFilename("README");
  EXPECT_EQ(picture.GetExportName(), "img/README");
  EXPECT_EQ(picture.GetIsTemplate(), 0u);
  result.SetFilename("LICENSE");
  EXPECT_EQ(result.GetExportName(), "LICENSE");
  EXPECT_EQ(result.GetIsTemplate(), 1u);  // a name without a dot leaves it
}

TEST(OutputPage, CompressionRatioOfAPageThatGrewIsZero) {
  COutputPage page(1, 6, 0, 10, "", "r");
  EXPECT_EQ(page.GetCompressionRatio(), 0.0);
  page.SetData(RandomBytes(40, 1));
  page.BuildPackets();
  ASSERT_GT(page.GetCompressedSize(), page.GetPlainSize());
  EXPECT_EQ(page.GetCompressionRatio(), 0.0);
  page.SetData(std::vector<BYTE>(10000, 'a'));
  page.BuildPackets();
  EXPECT_GT(page.GetCompressionRatio(), 90.0);
  EXPECT_LT(page.GetCompressionRatio(), 100.0);
}

TEST(OutputPage, PathWithBackslashesAndALeadingOneIsCleaned) {
  COutputPage page(1, 7, 0, 10, "\\results\\day1\\", "a.htm");
  EXPECT_EQ(page.GetPath(), "results/day1/");
  EXPECT_EQ(page.GetExportName(), "results/day1/a.htm");
}

TEST(OutputPage, RepeatCountdownStartsAtPageNumberModuloRepeat) {
  COutputPage page(1, 7, 0, 5, "", "a");
  EXPECT_EQ(page.GetRepeatCountdown(), 2u);
  EXPECT_FALSE(page.ShouldRepeat());
  EXPECT_FALSE(page.ShouldRepeat());
  EXPECT_TRUE(page.ShouldRepeat());
  for (int i = 0; i < 4; ++i) EXPECT_FALSE(page.ShouldRepeat());
  EXPECT_TRUE(page.ShouldRepeat());
  COutputPage once(1, 7, 0, 0, "", "b");
  EXPECT_TRUE(once.ShouldRepeat());
  EXPECT_FALSE(once.ShouldRepeat());
}

TEST(OutputPage, FileImportReadsRootPathAndName) {
  const std::filesystem::path dir = std::filesystem::temp_directory_path() / "zol_import_test";
  std::filesystem::create_directories(dir / "sub");
  { std::ofstream(dir / "sub" / "f.txt") << "contents"; }
  { std::ofstream(dir / "sub" / "empty.txt"); }
  const std::string root = dir.string() + "\\";
  COutputPage page(1, 8, 0, 10, "sub/", "f.txt");
  EXPECT_TRUE(page.FileImport(root));
  EXPECT_EQ(page.GetDataAsString(), "contents");
  EXPECT_EQ(page.GetSourceRoot(), root);
  page.SetFilename("empty.txt");
  EXPECT_TRUE(page.FileImport(root));
  EXPECT_EQ(page.GetDataAsString(), "contents");  // an empty file leaves the old data
  page.SetFilename("missing.txt");
  EXPECT_FALSE(page.FileImport(root));
  EXPECT_EQ(page.GetDataAsString(), "contents");
  std::filesystem::remove_all(dir);
}

TEST(OutputPage, ObserversAreToldAndForgetDeletedPages) {
  struct Counter : COutputPageObserver {
    int Calls = 0;
    void OnPageUpdated(COutputPage*) override { ++Calls; }
  };
  Counter counter;
  auto* page = new COutputPage(1, 1, 0, 10, "", "a");
  counter.Attach(page);
  counter.Attach(page);
  EXPECT_EQ(page->GetObservers().size(), 1u);
  page->NotifyPageUpdated();
  EXPECT_EQ(counter.Calls, 1);
  delete page;
  EXPECT_TRUE(counter.GetSubjects().empty());
  {
    COutputPage second(1, 2, 0, 10, "", "b");
    {
      Counter shortLived;
      shortLived.Attach(&second);
    }
    EXPECT_TRUE(second.GetObservers().empty());
  }
}

TEST(OutputPage, ReplaceAllScansFromTheStartAfterEachReplacement) {
  EXPECT_EQ(COutputPage::ReplaceAll("a\\b\\c", "\\", "/"), "a/b/c");
  EXPECT_EQ(COutputPage::ReplaceAll("aaab", "ab", "b"), "b");
}

TEST(OutputPage, SmallPacketSizeLeavesOutTheEndMarkAndStaysInTheBlock) {
  PacketSizeScope size(64);
  COutputPage page(2, 10, 1, 10, "p/", "small.txt");
  page.SetData(TextBytes(3000));
  page.BuildPackets();
  CTestReassembler receiver(64);
  for (const BYTE* block : page.GetPackets()) ASSERT_TRUE(receiver.FeedBlock(block));
  ASSERT_EQ(receiver.Completed.size(), 1u);
  EXPECT_EQ(receiver.Completed[0].Data, page.GetData());
  // Blocks are 64 bytes; AddressSanitizer watches that nothing is written past them.
}

// Many sizes and kinds of page, keys and packet numbers that hit the reserved bytes,
// through the packets and back.
TEST(OutputPage, RoundTripOfManyPagesThroughPacketsAndReassembly) {
  PacketSizeScope size(128);
  const std::size_t sizes[] = {0, 1, 2, 50, 100, 115, 116, 117, 1000, 4096, 65536, 300000, 2 * 1024 * 1024};
  int kinds = 0;
  for (std::size_t length : sizes) {
    for (int kind = 0; kind < 3; ++kind) {
      if (length > 300000 && kind == 1) continue;  // one big random page is enough
      std::vector<BYTE> data = kind == 0   ? TextBytes(length)
                               : kind == 1 ? RandomBytes(length, static_cast<unsigned>(length))
                                           : std::vector<BYTE>(length, static_cast<BYTE>(0x8E));
      if (length == 2 * 1024 * 1024 && kind == 2) data = RandomBytes(length, 77);
      // Page 113 at level 2 puts 0x8E in the key; sequence 13 with numbers like 574 puts
      // 0x8D and 0x8F in the packet id.
      COutputPage page(kind + 1, kind == 0 ? 113 : 40 + kind, kind == 0 ? 2 : 1, 10, "dir\\sub", "page.zol");
      page.SetSequence(0, 12);
      page.SetData(data);
      page.BuildPackets();
      CTestReassembler receiver(128);
      for (const BYTE* block : page.GetPackets()) ASSERT_TRUE(receiver.FeedBlock(block));
      ASSERT_EQ(receiver.Completed.size(), 1u) << "length " << length << " kind " << kind;
      const ReceivedPage& got = receiver.Completed[0];
      EXPECT_EQ(got.Data, data) << "length " << length << " kind " << kind;
      EXPECT_EQ(got.Path, "dir/sub");
      EXPECT_EQ(got.Name, "page.zol");
      EXPECT_EQ(got.IsTemplate, 1u);
      EXPECT_EQ(got.PageIdentity, page.GetPageKey());
      EXPECT_EQ(got.SequenceLow, 13);
      EXPECT_EQ(receiver.BadPages, 0u);
      ++kinds;
    }
  }
  EXPECT_EQ(kinds, 38);
}

TEST(OutputPage, ByteStreamReceiverFindsBlocksAfterGarbageAndSkipsACorruptOne) {
  PacketSizeScope size(128);
  COutputPage page(1, 20, 0, 10, "", "s.txt");
  page.SetData(TextBytes(5000));
  page.BuildPackets();
  std::vector<BYTE> stream = {0x01, 0x8E, 0x02};
  for (const BYTE* block : page.GetPackets()) stream.insert(stream.end(), block, block + 128);
  CTestReassembler receiver(128);
  receiver.FeedStream(stream.data(), stream.size());
  ASSERT_EQ(receiver.Completed.size(), 1u);
  EXPECT_EQ(receiver.Completed[0].Data, page.GetData());
  // A flipped byte fails the checksum: the block is dropped and the page stays open.
  std::vector<BYTE> damaged(page.GetPackets()[0], page.GetPackets()[0] + 128);
  damaged[40] ^= 0x01;
  CTestReassembler second(128);
  EXPECT_FALSE(second.FeedBlock(damaged.data()));
}
