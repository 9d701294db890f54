// Many random pages, their packets shuffled, repeated and partly damaged: every page
// whose packets all arrived intact at least once comes back byte for byte.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>

#include "client/HandBuiltPackets.h"
#include "client/PageAssembler.h"

namespace {

using handbuilt::Bytes;

struct SentPage {
  DWORD Site;
  DWORD Number;
  BYTE High;
  BYTE Low;
  std::string Path;
  std::string Name;
  Bytes Data;
  std::vector<Bytes> Packets;
};

Bytes RandomData(std::mt19937& random) {
  const std::size_t kind = random() % 4;
  std::size_t length = random() % (kind == 0 ? 20 : 6000);
  Bytes data(length);
  for (auto& b : data) {
    switch (kind) {
      case 0:
      case 1: b = static_cast<BYTE>(random()); break;                      // incompressible
      case 2: b = static_cast<BYTE>("<td>12:34.567</td>"[random() % 18]); break;  // page-like
      default: b = static_cast<BYTE>(0x8D + random() % 3); break;          // reserved values only
    }
  }
  return data;
}

void RunProperty(unsigned seed, std::size_t packetSize, bool asStream, int turns = 2, unsigned damageOneIn = 20) {
  std::mt19937 random(seed);
  std::vector<SentPage> pages;
  std::map<DWORD, std::size_t> latestByIdentity;
  for (int i = 0; i < 60; ++i) {
    SentPage page;
    page.Site = random() % 8;
    page.Number = random() % 512;
    page.High = static_cast<BYTE>(random() % 128);
    page.Low = static_cast<BYTE>(random() % 64);
    page.Path = (random() % 2) ? "results/" : "";
    page.Name = "p" + std::to_string(i) + ".html";
    page.Data = RandomData(random);
    const DWORD level = random() % 4;
    page.Packets = handbuilt::PagePackets(page.Site, page.Number, page.High, page.Low, page.Path, page.Name,
                                          page.Data, packetSize, level);
    const DWORD identity = wire::MakePageKey(page.Site, page.Number, level);
    // One version per identity, so that every page can be expected back.
    if (latestByIdentity.count(identity) != 0) continue;
    latestByIdentity[identity] = pages.size();
    pages.push_back(page);
  }

  // Each page's packets go out `turns` times; a packet copy may be corrupted, dropped or doubled,
  // and all copies are shuffled.
  std::vector<std::pair<std::size_t, Bytes>> sent;
  std::map<std::size_t, std::vector<int>> intactCopies;  // page -> intact count per packet
  for (std::size_t p = 0; p < pages.size(); ++p) {
    intactCopies[p].assign(pages[p].Packets.size(), 0);
    for (int turn = 0; turn < turns; ++turn) {
      for (std::size_t k = 0; k < pages[p].Packets.size(); ++k) {
        Bytes copy = pages[p].Packets[k];
        const unsigned fate = random() % damageOneIn;
        if (fate == 0) continue;  // lost
        if (fate == 1) {
          copy[random() % copy.size()] ^= static_cast<BYTE>(1 + random() % 255);
        } else {
          ++intactCopies[p][k];
        }
        sent.emplace_back(p, copy);
        if (fate == 2) sent.emplace_back(p, copy);
      }
    }
  }
  std::shuffle(sent.begin(), sent.end(), random);

  zolclient::CPacketScanner scanner(packetSize);
  zolclient::CPageAssembler assembler;
  std::map<std::string, Bytes> received;
  const auto onPacket = [&](const zolclient::ScannedPacket& packet) {
    assembler.Add(packet, [&](const zolclient::ReceivedPage& page) {
      EXPECT_EQ(received.count(page.Record.Name), 0u) << "delivered twice: " << page.Record.Name;
      received[page.Record.Name] = page.Record.Data;
    });
  };
  for (const auto& [page, bytes] : sent) {
    if (asStream) {
      // Occasional garbage between packets, as on a noisy line.
      if (random() % 30 == 0) {
        Bytes noise(random() % 40);
        for (auto& b : noise) b = static_cast<BYTE>(random());
        scanner.Feed(noise.data(), noise.size(), onPacket);
      }
      scanner.Feed(bytes.data(), bytes.size(), onPacket);
    } else {
      scanner.FeedDatagram(bytes.data(), bytes.size(), onPacket);
    }
  }
  if (asStream) {
    // Flush: the last packet may wait behind a false start mark from the noise.
    Bytes tail(packetSize, 0);
    scanner.Feed(tail.data(), tail.size(), onPacket);
  }

  std::size_t expected = 0;
  for (std::size_t p = 0; p < pages.size(); ++p) {
    const auto& counts = intactCopies[p];
    const bool allIntact = std::all_of(counts.begin(), counts.end(), [](int c) { return c > 0; });
    const auto found = received.find(pages[p].Name);
    if (!allIntact) {
      // A page with a packet never intact cannot come back, and must not come back wrong.
      if (found != received.end()) {
        EXPECT_EQ(found->second, pages[p].Data) << pages[p].Name;
      }
      continue;
    }
    ++expected;
    ASSERT_NE(found, received.end()) << "seed " << seed << " page " << pages[p].Name;
    EXPECT_EQ(found->second, pages[p].Data) << pages[p].Name;
  }
  EXPECT_GT(expected, pages.size() / 2);
  EXPECT_GT(scanner.Counters().BadChecksum + scanner.Counters().BadEndMark, 0u);
}

TEST(ReassemblyProperty, ShuffledDuplicatedCorruptedStreamRecoversEveryIntactPage) {
  for (unsigned seed = 1; seed <= 8; ++seed) RunProperty(seed, 128, true);
}

TEST(ReassemblyProperty, ShuffledDatagramsRecoverEveryIntactPage) {
  for (unsigned seed = 100; seed <= 104; ++seed) RunProperty(seed, 128, false);
}

TEST(ReassemblyProperty, SmallPacketsRecoverEveryIntactPage) {
  for (unsigned seed = 200; seed <= 202; ++seed) RunProperty(seed, 16 + seed % 50, true, 3, 50);
}

}  // namespace
