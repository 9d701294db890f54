// docs/protocol.md shows its examples as fenced blocks tagged "hex vector=NAME field=FIELD",
// each taken from testing/vectors/packet_vectors.txt. These tests hold every such block
// to the vector it names, require the examples the document is built around, and run
// its --trace example through the client.
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "client/ClientSession.h"
#include "client/HandBuiltPackets.h"
#include "client/PacketTrace.h"

namespace {

using Bytes = std::vector<BYTE>;

std::vector<std::string> ReadLines(const std::string& path) {
  std::ifstream in(path);
  EXPECT_TRUE(in.good()) << path << " is missing";
  std::vector<std::string> lines;
  std::string line;
  while (std::getline(in, line)) lines.push_back(line);
  return lines;
}

std::vector<std::string> Words(const std::string& text) {
  std::vector<std::string> words;
  std::istringstream in(text);
  std::string word;
  while (in >> word) words.push_back(word);
  return words;
}

// vector name -> field -> its value, the lines of a field given on several lines joined.
using VectorFields = std::map<std::string, std::map<std::string, std::string>>;

VectorFields ReadVectorFile() {
  VectorFields vectors;
  std::string current;
  std::string previous;
  for (const std::string& line : ReadLines(std::string(ZOL_SOURCE_DIR) + "/testing/vectors/packet_vectors.txt")) {
    if (line.empty() || line[0] == '#') {
      previous.clear();
    } else if (line.front() == '[' && line.back() == ']') {
      current = line.substr(1, line.size() - 2);
      previous.clear();
    } else if (const std::size_t colon = line.find(':'); colon != std::string::npos) {
      const std::string field = line.substr(0, colon);
      std::string& value = vectors[current][field];
      if (field == previous) value += ' ';
      value += line.substr(colon + 1);
      previous = field;
    }
  }
  return vectors;
}

struct DocumentBlock {
  std::string Tag;  // what follows the opening fence
  std::size_t Line = 0;
  std::vector<std::string> Lines;
};

std::vector<DocumentBlock> ReadDocumentBlocks() {
  std::vector<DocumentBlock> blocks;
  const std::vector<std::string> lines = ReadLines(std::string(ZOL_SOURCE_DIR) + "/docs/protocol.md");
  bool inside = false;
  for (std::size_t n = 0; n < lines.size(); ++n) {
    const std::string& line = lines[n];
    if (line.rfind("```", 0) == 0) {
      if (!inside) blocks.push_back(DocumentBlock{line.substr(3), n + 1, {}});
      inside = !inside;
    } else if (inside) {
      blocks.back().Lines.push_back(line);
    }
  }
  EXPECT_FALSE(inside) << "docs/protocol.md ends inside a fenced block";
  return blocks;
}

// The attribute `name=` of a tag such as "hex vector=page field=packet-0".
std::string Attribute(const std::string& tag, const std::string& name) {
  for (const std::string& word : Words(tag)) {
    if (word.rfind(name + "=", 0) == 0) return word.substr(name.size() + 1);
  }
  return "";
}

TEST(ProtocolDocument, EveryHexExampleIsTheVectorItNames) {
  const VectorFields vectors = ReadVectorFile();
  std::set<std::pair<std::string, std::string>> shown;
  for (const DocumentBlock& block : ReadDocumentBlocks()) {
    if (Words(block.Tag).empty() || Words(block.Tag)[0] != "hex") continue;
    const std::string vector = Attribute(block.Tag, "vector");
    const std::string field = Attribute(block.Tag, "field");
    SCOPED_TRACE("docs/protocol.md line " + std::to_string(block.Line) + ": " + block.Tag);
    ASSERT_EQ(vectors.count(vector), 1u) << "no vector " << vector;
    ASSERT_EQ(vectors.at(vector).count(field), 1u) << "no field " << field;
    std::string text;
    for (const std::string& line : block.Lines) text += line + " ";
    // Byte fields compare pair by pair; numbers in hex (checksum, page-key, packet-id) as written.
    EXPECT_EQ(Words(text), Words(vectors.at(vector).at(field)));
    shown.insert({vector, field});
  }
  const std::vector<std::pair<std::string, std::string>> required = {
      {"checksum-digits", "data"},     {"checksum-digits", "checksum"},    {"checksum-zeros", "checksum"},
      {"escape-reserved-bytes", "plain"}, {"escape-reserved-bytes", "escaped"}, {"escape-page-key", "page-key"},
      {"escape-page-key", "packet-id"}, {"escape-page-key", "escaped"},    {"escape-packet-number", "packet-id"},
      {"escape-packet-number", "escaped"}, {"page", "record"},             {"page", "stream"},
      {"page", "packet-0"},            {"page", "packet-1"},               {"page", "packet-2"},
  };
  for (const auto& [vector, field] : required) {
    EXPECT_EQ(shown.count({vector, field}), 1u) << "docs/protocol.md shows no " << vector << " " << field;
  }
}

Bytes HexBytes(const std::string& text) {
  Bytes bytes;
  for (const std::string& pair : Words(text)) bytes.push_back(static_cast<BYTE>(std::stoul(pair, nullptr, 16)));
  return bytes;
}

TEST(ProtocolDocument, TheTraceExampleIsWhatTheClientPrints) {
  const VectorFields vectors = ReadVectorFile();
  ASSERT_EQ(vectors.count("page"), 1u);
  const auto& page = vectors.at("page");
  std::vector<Bytes> packets;
  for (const char* field : {"packet-0", "packet-1", "packet-2"}) {
    ASSERT_EQ(page.count(field), 1u) << field;
    packets.push_back(HexBytes(page.at(field)));
  }
  // As the document tells it: packet 1 damaged, then the page whole again.
  Bytes damaged = packets[1];
  damaged[40] ^= 0x01;
  std::ostringstream out;
  std::ostringstream err;
  zolclient::CClientSession session(128, "", out, err);
  zolclient::CPacketTrace trace(out);
  session.SetTrace(&trace);
  const Bytes stream = handbuilt::Join({packets[0], damaged, packets[2], packets[0], packets[1], packets[2]});
  session.OnStreamBytes(stream.data(), stream.size());

  std::vector<std::string> printed;
  std::istringstream lines(out.str());
  for (std::string line; std::getline(lines, line);) printed.push_back(line);
  std::size_t examples = 0;
  for (const DocumentBlock& block : ReadDocumentBlocks()) {
    if (block.Tag != "text trace-example") continue;
    ++examples;
    EXPECT_EQ(block.Lines, printed) << "docs/protocol.md line " << block.Line;
  }
  EXPECT_EQ(examples, 1u);
}

}  // namespace
