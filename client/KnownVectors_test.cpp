// Checks the packet checksum, the escapes, the packet identifier, the sender's packets
// and the client's reassembly against the known answers in testing/vectors/, which were
// worked out from the wire rules without this code.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "client/PageReceiver.h"
#include "client/PageUnpacker.h"
#include "distribution/OutputPage.h"
#include "distribution/PacketFormat.h"
#include "testing/PacketSizeScope.h"

namespace {

using Bytes = std::vector<BYTE>;

// One vector: its fields as written, the lines of a field given on several lines joined.
struct Vector {
  std::map<std::string, std::string> Fields;

  bool Has(const std::string& field) const { return Fields.count(field) != 0; }
  std::string Text(const std::string& field) const {
    const auto found = Fields.find(field);
    return found == Fields.end() ? std::string() : found->second;
  }
  unsigned long Number(const std::string& field) const { return std::stoul(Text(field), nullptr, 10); }
  unsigned long Hex(const std::string& field) const { return std::stoul(Text(field), nullptr, 16); }
  Bytes HexBytes(const std::string& field) const {
    Bytes bytes;
    std::istringstream in(Text(field));
    std::string pair;
    while (in >> pair) {
      EXPECT_EQ(pair.size(), 2u) << field << ": " << pair;
      bytes.push_back(static_cast<BYTE>(std::stoul(pair, nullptr, 16)));
    }
    return bytes;
  }
};

std::map<std::string, Vector> ReadVectors() {
  std::map<std::string, Vector> vectors;
  std::ifstream in(std::string(ZOL_SOURCE_DIR) + "/testing/vectors/packet_vectors.txt");
  EXPECT_TRUE(in.good()) << "testing/vectors/packet_vectors.txt is missing";
  std::string line;
  std::string current;
  std::string previousField;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') {
      previousField.clear();
      continue;
    }
    if (line.front() == '[' && line.back() == ']') {
      current = line.substr(1, line.size() - 2);
      vectors[current];
      previousField.clear();
      continue;
    }
    const std::size_t colon = line.find(':');
    EXPECT_NE(colon, std::string::npos) << line;
    EXPECT_FALSE(current.empty()) << line;
    if (colon == std::string::npos || current.empty()) continue;
    const std::string field = line.substr(0, colon);
    std::string value = line.substr(colon + 1);
    if (!value.empty() && value[0] == ' ') value.erase(0, 1);
    std::string& text = vectors[current].Fields[field];
    if (field == previousField) {
      text += " " + value;
    } else {
      EXPECT_TRUE(text.empty()) << "field " << field << " given twice in " << current;
      text = value;
    }
    previousField = field;
  }
  return vectors;
}

const std::map<std::string, Vector>& Vectors() {
  static const std::map<std::string, Vector> vectors = ReadVectors();
  return vectors;
}

const Vector& Named(const std::string& name) {
  static const Vector none;
  const auto found = Vectors().find(name);
  EXPECT_NE(found, Vectors().end()) << "no vector " << name;
  return found == Vectors().end() ? none : found->second;
}

Bytes LittleEndian(DWORD value) {
  return {static_cast<BYTE>(value), static_cast<BYTE>(value >> 8), static_cast<BYTE>(value >> 16),
          static_cast<BYTE>(value >> 24)};
}

TEST(KnownVectors, ChecksumOfTheDigitsOneToNineAndOf128Zeros) {
  const Vector& digits = Named("checksum-digits");
  EXPECT_EQ(digits.HexBytes("data"), Bytes({'1', '2', '3', '4', '5', '6', '7', '8', '9'}));
  const Bytes digitBytes = digits.HexBytes("data");
  EXPECT_EQ(wire::PacketChecksum(digitBytes.data(), digitBytes.size()), digits.Hex("checksum"));
  EXPECT_EQ(digits.Hex("checksum"), 0xA69Du);

  const Vector& zeros = Named("checksum-zeros");
  const Bytes zeroBytes = zeros.HexBytes("data");
  EXPECT_EQ(zeroBytes, Bytes(128, 0));
  EXPECT_EQ(wire::PacketChecksum(zeroBytes.data(), zeroBytes.size()), zeros.Hex("checksum"));
  EXPECT_EQ(zeros.Hex("checksum"), 0xF00Au);
}

TEST(KnownVectors, EscapesGoBothWays) {
  for (const char* name : {"escape-reserved-bytes", "escape-page-key", "escape-packet-number"}) {
    const Vector& vector = Named(name);
    const Bytes plain = vector.HexBytes("plain");
    const Bytes escaped = vector.HexBytes("escaped");
    ASSERT_FALSE(plain.empty()) << name;
    Bytes made = plain;
    wire::InsertEscapes(made);
    EXPECT_EQ(made, escaped) << name;
    Bytes back;
    EXPECT_TRUE(wire::RemoveEscapes(escaped.data(), escaped.size(), back)) << name;
    EXPECT_EQ(back, plain) << name;
  }
}

TEST(KnownVectors, PageKeyAndPacketIdentifierAreBuiltFromTheirFields) {
  for (const char* name : {"escape-page-key", "escape-packet-number"}) {
    const Vector& vector = Named(name);
    const DWORD key = wire::MakePageKey(static_cast<DWORD>(vector.Number("site")),
                                        static_cast<DWORD>(vector.Number("page")),
                                        static_cast<DWORD>(vector.Number("level")));
    EXPECT_EQ(key, vector.Hex("page-key")) << name;
    const DWORD id = wire::MakePacketID(key, static_cast<DWORD>(vector.Number("packet-number")),
                                        static_cast<DWORD>(vector.Number("sequence-low")));
    EXPECT_EQ(id, vector.Hex("packet-id")) << name;
    EXPECT_EQ(LittleEndian(id), vector.HexBytes("plain")) << name;
    EXPECT_EQ(wire::PacketNumber(id), vector.Number("packet-number") & 0xFFF) << name;
  }
}

std::vector<Bytes> PagePackets(const Vector& page) {
  std::vector<Bytes> packets;
  for (unsigned long n = 0; n < page.Number("packets"); ++n) {
    packets.push_back(page.HexBytes("packet-" + std::to_string(n)));
  }
  return packets;
}

TEST(KnownVectors, PagePacketsCarryTheirChecksumsAndMarks) {
  const Vector& page = Named("page");
  const std::vector<Bytes> packets = PagePackets(page);
  ASSERT_EQ(packets.size(), 3u);
  for (const Bytes& packet : packets) {
    ASSERT_EQ(packet.size(), page.Number("packet-size"));
    EXPECT_EQ(packet[0], wire::kStartMark);
    EXPECT_EQ(packet[127], wire::kEndMark);
    Bytes zeroed = packet;
    zeroed[3] = zeroed[4] = zeroed[5] = 0;
    EXPECT_EQ(wire::LoadChecksum(packet.data()), wire::PacketChecksum(zeroed.data(), zeroed.size()));
    Bytes resealed = zeroed;
    wire::StoreChecksum(resealed.data(), wire::PacketChecksum(zeroed.data(), zeroed.size()));
    EXPECT_EQ(resealed, packet);
  }
  // The stream's steps follow from each other.
  Bytes escaped = page.HexBytes("stream");
  wire::InsertEscapes(escaped);
  EXPECT_EQ(escaped, page.HexBytes("escaped-stream"));
  Bytes record;
  const Bytes gzip = page.HexBytes("gzip");
  ASSERT_TRUE(zolclient::GunzipExact(gzip.data(), gzip.size(), page.HexBytes("record").size(), record));
  EXPECT_EQ(record, page.HexBytes("record"));
}

TEST(KnownVectors, ClientRebuildsThePageFromItsPackets) {
  const Vector& page = Named("page");
  zolclient::CPageReceiver receiver(page.Number("packet-size"));
  receiver.FeedBlocks(PagePackets(page));
  const std::vector<zolclient::ReceivedPage> pages = receiver.TakePages();
  ASSERT_EQ(pages.size(), 1u);
  EXPECT_EQ(pages[0].SiteNumber, page.Number("site"));
  EXPECT_EQ(pages[0].PageNumber, page.Number("page"));
  EXPECT_EQ(pages[0].Level, page.Number("level"));
  EXPECT_EQ(pages[0].SequenceHigh, page.Number("sequence-high"));
  EXPECT_EQ(pages[0].SequenceLow, page.Number("sequence-low"));
  EXPECT_EQ(pages[0].Record.Path, page.Text("path"));
  EXPECT_EQ(pages[0].Record.Name, page.Text("name"));
  EXPECT_EQ(pages[0].Record.IsTemplate, page.Number("is-template"));
  EXPECT_EQ(pages[0].Record.Data, page.HexBytes("data"));
}

TEST(KnownVectors, ServerCutsThePageIntoTheSamePackets) {
  const Vector& page = Named("page");
  PacketSizeScope size(static_cast<DWORD>(page.Number("packet-size")));
  COutputPage output(static_cast<DWORD>(page.Number("site")), static_cast<DWORD>(page.Number("page")),
                     static_cast<DWORD>(page.Number("level")), 10, page.Text("path"), page.Text("name"));
  output.SetData(page.HexBytes("data"));
  // The next build counts SequenceLow on by one.
  output.SetSequence(static_cast<BYTE>(page.Number("sequence-high")),
                     static_cast<BYTE>(page.Number("sequence-low") - 1));
  output.BuildPackets();
  EXPECT_EQ(output.GetIsTemplate(), page.Number("is-template"));
  EXPECT_EQ(output.MakePageRecord(), page.HexBytes("record"));
  EXPECT_EQ(output.GetCompressedSize(), page.HexBytes("gzip").size());
  const std::vector<Bytes> expected = PagePackets(page);
  ASSERT_EQ(output.GetPackets().size(), expected.size());
  for (std::size_t n = 0; n < expected.size(); ++n) {
    const BYTE* block = output.GetPackets()[n];
    EXPECT_EQ(Bytes(block, block + expected[n].size()), expected[n]) << "packet " << n;
  }
}

}  // namespace
