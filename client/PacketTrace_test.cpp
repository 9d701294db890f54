// zolclient --trace on hand-built streams: the exact lines for good packets, a packet
// with a bad checksum, the page it completes, and a page of more than 4096 packets.
#include "client/PacketTrace.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "client/ClientSession.h"
#include "client/HandBuiltPackets.h"

namespace {

using handbuilt::Bytes;

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line)) lines.push_back(line);
  return lines;
}

std::string Hex4(WORD value) {
  char text[8];
  std::snprintf(text, sizeof text, "%04x", static_cast<unsigned>(value));
  return text;
}

// The page of testing/vectors/packet_vectors.txt ([page]): three packets whose checksums
// the vector file gives as 2057, c8de and 57ce.
std::vector<Bytes> VectorPage() {
  Bytes data(256);
  for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<BYTE>((i * 167 + 13) & 0xFF);
  return handbuilt::PagePackets(3, 113, 5, 13, "results/", "heat1.html", data, 128, 2);
}

TEST(PacketTrace, GoodAndBadPacketsAndTheCompletedPage) {
  const std::vector<Bytes> packets = VectorPage();
  ASSERT_EQ(packets.size(), 3u);
  Bytes damaged = packets[1];
  damaged[40] ^= 0x01;  // the checksum it carries no longer fits
  ASSERT_NE(damaged[40], wire::kStartMark);

  std::ostringstream out;
  std::ostringstream err;
  zolclient::CClientSession session(128, "", out, err);
  zolclient::CPacketTrace trace(out);
  session.SetTrace(&trace);
  // One turn with packet 1 damaged, then a whole turn.
  const Bytes stream = handbuilt::Join({packets[0], damaged, packets[2], packets[0], packets[1], packets[2]});
  session.OnStreamBytes(stream.data(), stream.size());

  const std::vector<std::string> expected = {
      "packet site 3 page 113 level 2 number 0 of ? version 5.13 checksum 2057 good bytes 128",
      "packet bad checksum c8de bytes 128",
      "packet site 3 page 113 level 2 number 2 of 3 version 5.13 checksum 57ce good bytes 128",
      "packet site 3 page 113 level 2 number 0 of ? version 5.13 checksum 2057 good bytes 128",
      "packet site 3 page 113 level 2 number 1 of ? version 5.13 checksum c8de good bytes 128",
      "page site 3 page 113 level 2 version 5.13 complete packets 3 bytes 256 results/heat1.html",
      "site 3 page 113 results/heat1.html 256 bytes version 5.13",
      "packet site 3 page 113 level 2 number 2 of 3 version 5.13 checksum 57ce good bytes 128",
  };
  EXPECT_EQ(Lines(out.str()), expected);
  EXPECT_EQ(session.Scanner().Counters().BadChecksum, 1u);
  EXPECT_EQ(err.str(), "");
}

TEST(PacketTrace, DatagramsAreTracedAsStreamsAre) {
  const std::vector<Bytes> packets = VectorPage();
  Bytes damaged = packets[0];
  damaged[100] ^= 0x40;
  std::ostringstream out;
  std::ostringstream err;
  zolclient::CClientSession session(128, "", out, err);
  zolclient::CPacketTrace trace(out);
  session.SetTrace(&trace);
  session.OnDatagram(damaged.data(), damaged.size());
  session.OnDatagram(packets[2].data(), packets[2].size());
  const std::vector<std::string> expected = {
      "packet bad checksum 2057 bytes 128",
      "packet site 3 page 113 level 2 number 2 of 3 version 5.13 checksum 57ce good bytes 128",
  };
  EXPECT_EQ(Lines(out.str()), expected);
}

TEST(PacketTrace, APageOfMoreThan4096PacketsCountsItsRoundsOfNumbers) {
  // Data that does not compress, large enough for more than 4096 packets of 128 bytes.
  const std::vector<Bytes> packets =
      handbuilt::PagePackets(1, 9, 0, 7, "images/", "big.jpg", handbuilt::SeededBytes(480000, 11), 128, 3);
  ASSERT_GT(packets.size(), 4096u + 10u);
  ASSERT_LT(packets.size(), 2 * 4096u);

  std::ostringstream out;
  std::ostringstream err;
  zolclient::CClientSession session(128, "", out, err);
  zolclient::CPacketTrace trace(out);
  session.SetTrace(&trace);
  const Bytes stream = handbuilt::Join(packets);
  session.OnStreamBytes(stream.data(), stream.size());

  const std::vector<std::string> lines = Lines(out.str());
  ASSERT_EQ(lines.size(), packets.size() + 2);
  const auto line = [&](std::size_t n, const std::string& of) {
    return "packet site 1 page 9 level 3 number " + std::to_string(n % 4096) + " of " + of + " version 0.7 checksum " +
           Hex4(wire::LoadChecksum(packets[n].data())) + " good bytes 128";
  };
  EXPECT_EQ(lines[0], line(0, "?"));
  EXPECT_EQ(lines[4095], line(4095, "?"));
  EXPECT_EQ(lines[4096], line(4096, "?"));
  const std::size_t last = packets.size() - 1;
  EXPECT_EQ(lines[last], line(last, std::to_string(packets.size())));
  EXPECT_EQ(lines[last + 1], "page site 1 page 9 level 3 version 0.7 complete packets " +
                                 std::to_string(packets.size()) + " bytes 480000 images/big.jpg");
  EXPECT_EQ(lines[last + 2], "site 1 page 9 images/big.jpg 480000 bytes version 0.7");
}

TEST(PacketTrace, WithoutATraceNothingMoreIsPrinted) {
  const std::vector<Bytes> packets = VectorPage();
  std::ostringstream out;
  std::ostringstream err;
  zolclient::CClientSession session(128, "", out, err);
  const Bytes stream = handbuilt::Join(packets);
  session.OnStreamBytes(stream.data(), stream.size());
  EXPECT_EQ(Lines(out.str()), std::vector<std::string>({"site 3 page 113 results/heat1.html 256 bytes version 5.13"}));
}

}  // namespace
