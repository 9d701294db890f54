#include "client/SiteInformation.h"

#include <gtest/gtest.h>

#include <random>

#include "client/InformationRecords.h"
#include "frame/Parameters.h"
#include "frame/TTBuffer.h"
#include "testing/KVTCatch.h"

namespace {

using handbuilt::Bytes;
using zolclient::DecodeSiteInformation;
using zolclient::SiteInformation;
using zolclient::SitePageCount;

bool Decode(const Bytes& bytes, SiteInformation& information, std::string* reason = nullptr) {
  return DecodeSiteInformation(bytes.data(), bytes.size(), information, reason);
}

TEST(SiteInformation, RecordWrittenByTheModuleWritersDecodesWithSiteParameters) {
  const CParameters clock = inforecords::Clock("yellow", "14:02:09");
  const CParameters site = inforecords::SiteParameters("Main board", 12);
  SiteInformation information;
  ASSERT_TRUE(Decode(inforecords::Record(0x65A1B2C3u, clock, &site), information));
  EXPECT_EQ(information.BuildTime, 0x65A1B2C3u);
  EXPECT_EQ(information.Clock, clock.GetEntries());
  EXPECT_EQ(information.Clock.at("flag"), "yellow");
  EXPECT_EQ(information.Clock.at("timeofday"), "14:02:09");
  EXPECT_TRUE(information.HasSiteParameters);
  EXPECT_EQ(information.SiteParameters, site.GetEntries());
  EXPECT_EQ(information.SiteParameters.at("pagecount"), "12");
  EXPECT_EQ(SitePageCount(information.SiteParameters), 12u);
}

TEST(SiteInformation, EmptyBlockInPlaceOfTheSiteParametersMeansNoneThisTime) {
  SiteInformation information;
  ASSERT_TRUE(Decode(inforecords::Record(7, inforecords::Clock(), nullptr), information));
  EXPECT_EQ(information.BuildTime, 7u);
  EXPECT_EQ(information.Clock.size(), 4u);
  EXPECT_FALSE(information.HasSiteParameters);
  EXPECT_TRUE(information.SiteParameters.empty());
}

TEST(SiteInformation, DecoderAndTheModuleReaderAgreeOnEveryEntry) {
  CParameters clock = inforecords::Clock();
  clock.Add("extra", std::string("with\0zero", 9));
  CParameters site = inforecords::SiteParameters(std::string(3000, 'n'), 400);
  site.Add("", "empty key");
  const Bytes record = inforecords::Record(123456, clock, &site);

  CTTBuffer buffer(16);
  buffer.Assign(record.data(), record.size());
  DWORD buildTime = 0;
  buffer >> buildTime;
  CParameters clockRead;
  CParameters siteRead;
  clockRead.BufferToParameters(buffer);
  siteRead.BufferToParameters(buffer);
  EXPECT_EQ(buffer.GetRemaining(), 0u);

  SiteInformation information;
  ASSERT_TRUE(Decode(record, information));
  EXPECT_EQ(information.BuildTime, buildTime);
  EXPECT_EQ(information.Clock, clockRead.GetEntries());
  EXPECT_EQ(information.SiteParameters, siteRead.GetEntries());
}

TEST(SiteInformation, EveryCutOfAGoodRecordIsNotAnInformationPage) {
  const CParameters site = inforecords::SiteParameters("cut", 3);
  const Bytes record = inforecords::Record(99, inforecords::Clock(), &site);
  for (std::size_t length = 0; length < record.size(); ++length) {
    const Bytes cut(record.begin(), record.begin() + static_cast<std::ptrdiff_t>(length));
    SiteInformation information;
    information.BuildTime = 4242;
    std::string reason;
    EXPECT_FALSE(Decode(cut, information, &reason)) << length;
    EXPECT_FALSE(reason.empty()) << length;
    EXPECT_EQ(information.BuildTime, 4242u) << "left as it was";
  }
}

TEST(SiteInformation, NullDataIsNotAnInformationPage) {
  SiteInformation information;
  std::string reason;
  EXPECT_FALSE(DecodeSiteInformation(nullptr, 100, information, &reason));
  EXPECT_EQ(reason, "shorter than the build time");
}

TEST(SiteInformation, NegativeCountIsRefused) {
  Bytes record;
  handbuilt::PutDword(record, 1);
  handbuilt::PutDword(record, 0xFFFFFFFFu);  // -1
  handbuilt::PutDword(record, 0);
  SiteInformation information;
  std::string reason;
  EXPECT_FALSE(Decode(record, information, &reason));
  EXPECT_EQ(reason, "the count of the clock parameters is negative");
}

TEST(SiteInformation, HugeCountWithFewBytesIsRefusedWithoutReadingFurther) {
  Bytes record;
  handbuilt::PutDword(record, 1);
  handbuilt::PutDword(record, 0x7FFFFFFFu);
  handbuilt::PutDword(record, 1);
  record.push_back('k');
  handbuilt::PutDword(record, 1);
  record.push_back('v');
  SiteInformation information;
  std::string reason;
  EXPECT_FALSE(Decode(record, information, &reason));
  EXPECT_EQ(reason, "the clock parameters end before their count of 2147483647");
}

TEST(SiteInformation, StringLengthPastTheEndIsRefused) {
  Bytes record;
  handbuilt::PutDword(record, 1);
  handbuilt::PutDword(record, 0);  // no clock entries
  handbuilt::PutDword(record, 1);  // one site entry
  handbuilt::PutDword(record, 0xFFFFFFF0u);  // a key "longer" than everything
  record.insert(record.end(), {'n', 'a', 'm', 'e'});
  SiteInformation information;
  std::string reason;
  EXPECT_FALSE(Decode(record, information, &reason));
  EXPECT_EQ(reason, "the site parameters end before their count of 1");
}

TEST(SiteInformation, BytesAfterTheLastBlockAreRefused) {
  Bytes record = inforecords::Record(5, inforecords::Clock(), nullptr);
  record.push_back(0);
  SiteInformation information;
  std::string reason;
  EXPECT_FALSE(Decode(record, information, &reason));
  EXPECT_EQ(reason, "1 bytes after the site parameters");
}

TEST(SiteInformation, TextPageIsNotAnInformationPage) {
  const Bytes text = handbuilt::TextBytes("<html><body>a page that is text</body></html>");
  SiteInformation information;
  EXPECT_FALSE(Decode(text, information));
}

TEST(SiteInformation, LaterEntryOfTheSameKeyWins) {
  Bytes record;
  handbuilt::PutDword(record, 1);
  handbuilt::PutDword(record, 2);
  for (const char* value : {"red", "green"}) {
    handbuilt::PutDword(record, 4);
    record.insert(record.end(), {'f', 'l', 'a', 'g'});
    const std::string v = value;
    handbuilt::PutDword(record, static_cast<DWORD>(v.size()));
    record.insert(record.end(), v.begin(), v.end());
  }
  handbuilt::PutDword(record, 0);
  SiteInformation information;
  ASSERT_TRUE(Decode(record, information));
  EXPECT_EQ(information.Clock.at("flag"), "green");
}

TEST(SiteInformation, DamagedRecordsEitherFailOrAgreeWithTheModuleReader) {
  const CParameters site = inforecords::SiteParameters("damage", 5);
  const Bytes good = inforecords::Record(31337, inforecords::Clock(), &site);
  std::mt19937 random(7);
  int decoded = 0;
  for (int round = 0; round < 3000; ++round) {
    Bytes record = good;
    const int changes = 1 + static_cast<int>(random() % 3);
    for (int i = 0; i < changes; ++i) record[random() % record.size()] = static_cast<BYTE>(random());
    if (random() % 4 == 0) record.resize(random() % (record.size() + 1));
    SiteInformation information;
    if (!Decode(record, information)) continue;
    ++decoded;
    // What the decoder accepts, the module's own reader reads alike, to the last byte.
    CTTBuffer buffer(16);
    buffer.Assign(record.data(), record.size());
    DWORD buildTime = 0;
    CParameters clock, parameters;
    const auto failure = CatchKVT([&] {
      buffer >> buildTime;
      clock.BufferToParameters(buffer);
      parameters.BufferToParameters(buffer);
    });
    ASSERT_TRUE(failure == nullptr) << round;
    EXPECT_EQ(buffer.GetRemaining(), 0u) << round;
    EXPECT_EQ(information.BuildTime, buildTime) << round;
    EXPECT_EQ(information.Clock, clock.GetEntries()) << round;
    EXPECT_EQ(information.SiteParameters, parameters.GetEntries()) << round;
  }
  EXPECT_GT(decoded, 0) << "some damage (inside a value) leaves a readable record";
}

TEST(SiteInformation, PageCountMustBeAPlainNumber) {
  const auto count = [](const char* text) {
    return SitePageCount({{"pagecount", text}});
  };
  EXPECT_EQ(count("0"), 0u);
  EXPECT_EQ(count("17"), 17u);
  EXPECT_EQ(count("007"), 7u);
  EXPECT_FALSE(count("").has_value());
  EXPECT_FALSE(count("-1").has_value());
  EXPECT_FALSE(count("3 ").has_value());
  EXPECT_FALSE(count("1e3").has_value());
  EXPECT_FALSE(count("1234567890").has_value());
  EXPECT_FALSE(SitePageCount({{"name", "x"}}).has_value());
}

}  // namespace
