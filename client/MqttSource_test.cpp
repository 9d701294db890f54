// Broker messages as the broker source hands them to the session: pages and clocks of
// ours are taken whole; anything else under the prefix is passed over with a reason and
// never written, least of all outside the output folder.
#include "client/MqttSource.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>

#include "client/ClientSession.h"
#include "testing/ExampleInstallation.h"
#include "testing/TempDir.h"

namespace {

namespace fs = std::filesystem;
using zolclient::CClientSession;
using zolclient::DeliverMqttMessage;
using zolclient::MqttPageMessage;

MqttPageMessage PageMessage(const std::string& topic, const std::string& payload, const std::string& version,
                            const std::string& page, const std::string& level = "0") {
  MqttPageMessage message;
  message.Topic = topic;
  message.Payload.assign(payload.begin(), payload.end());
  message.Version = version;
  message.Page = page;
  message.Level = level;
  return message;
}

struct SessionUnderTest {
  TempDir Root;
  std::string Out = Root.File("out");
  std::ostringstream Lines;
  std::ostringstream Errors;
  CClientSession Session{128, Out, Lines, Errors};
  SessionUnderTest() {
    std::string error;
    EXPECT_TRUE(Session.Prepare(error)) << error;
  }
  bool Deliver(const MqttPageMessage& message, std::string& why) {
    return DeliverMqttMessage(message, "zol", 1, Session, why);
  }
};

TEST(MqttMessages, APageIsWrittenAtItsTopicOnceForEachVersion) {
  SessionUnderTest s;
  std::string why;
  ASSERT_TRUE(s.Deliver(PageMessage("zol/1/results/current.zol", "<zol>1</zol>", "0.3", "2"), why)) << why;
  EXPECT_EQ(ReadWholeFile(s.Out + "/results/current.zol"), "<zol>1</zol>");
  ASSERT_TRUE(s.Deliver(PageMessage("zol/1/results/current.zol", "<zol>1</zol>", "0.3", "2"), why)) << why;
  ASSERT_TRUE(s.Deliver(PageMessage("zol/1/results/current.zol", "<zol>2</zol>", "0.4", "2"), why)) << why;
  EXPECT_EQ(ReadWholeFile(s.Out + "/results/current.zol"), "<zol>2</zol>");
  EXPECT_EQ(s.Lines.str(),
            "site 1 page 2 results/current.zol 12 bytes version 0.3\n"
            "site 1 page 2 results/current.zol 12 bytes version 0.4\n");
  EXPECT_EQ(s.Session.DistinctCompletePages(), 1u);
}

TEST(MqttMessages, TheClockObjectCompletesTheSiteWithItsPageCount) {
  SessionUnderTest s;
  std::string why;
  ASSERT_TRUE(s.Deliver(PageMessage("zol/1/index.zol", "a", "0.1", "1"), why)) << why;
  EXPECT_FALSE(s.Session.AllSitesComplete());
  const std::string clock =
      R"({"buildtime":1234,"clock":{"flag":"green","racetime":"0:01:00","timeofday":"10:01:00","timetogo":"0:09:00"},)"
      R"("site":{"name":"demo","pagecount":"2"}})";
  ASSERT_TRUE(s.Deliver(PageMessage("zol/1/_clock", clock, "", ""), why)) << why;
  EXPECT_FALSE(s.Session.AllSitesComplete());
  ASSERT_TRUE(s.Deliver(PageMessage("zol/1/style.css", "b", "0.1", "3"), why)) << why;
  EXPECT_TRUE(s.Session.AllSitesComplete());
  const std::string info = ReadWholeFile(s.Out + "/_site1.info");
  EXPECT_NE(info.find("buildtime=1234"), std::string::npos) << info;
  EXPECT_NE(info.find("clock.flag=green"), std::string::npos) << info;
  EXPECT_NE(info.find("site.pagecount=2"), std::string::npos) << info;
}

TEST(MqttMessages, ForeignMessagesArePassedOverAndNothingLeavesTheFolder) {
  SessionUnderTest s;
  std::string why;
  EXPECT_FALSE(s.Deliver(PageMessage("zol/1/../../etc/x", "evil", "0.1", "2"), why));
  EXPECT_EQ(why, "no valid page location");
  EXPECT_FALSE(s.Deliver(PageMessage("zol/1/a/./b", "x", "0.1", "2"), why));
  EXPECT_EQ(why, "no valid page location");
  EXPECT_FALSE(s.Deliver(PageMessage("zol/1/a//b", "x", "0.1", "2"), why));
  EXPECT_FALSE(s.Deliver(PageMessage("zol/1/a\\b", "x", "0.1", "2"), why));
  EXPECT_FALSE(s.Deliver(PageMessage("zol/1/page.html", "no properties", "", ""), why));
  EXPECT_EQ(why, "no page: version, page or level properties missing or bad");
  EXPECT_FALSE(s.Deliver(PageMessage("zol/1/page.html", "x", "1.256", "2"), why));
  EXPECT_FALSE(s.Deliver(PageMessage("zol/1/page.html", "x", "1.2", "0"), why));
  EXPECT_FALSE(s.Deliver(PageMessage("zol/1/page.html", "x", "1.2", "512"), why));
  EXPECT_FALSE(s.Deliver(PageMessage("zol/1/page.html", "x", "1.2", "3", "4"), why));
  EXPECT_FALSE(s.Deliver(PageMessage("zol/1/_clock", "{not json", "", ""), why));
  EXPECT_EQ(why, "not a clock object (no JSON object)");
  EXPECT_FALSE(s.Deliver(PageMessage("zol/1/_clock", R"({"clock":{}})", "", ""), why));
  EXPECT_EQ(why, "not a clock object (no build time)");
  EXPECT_FALSE(s.Deliver(PageMessage("zol/1/_clock", R"({"buildtime":1,"clock":{"flag":3}})", "", ""), why));
  EXPECT_EQ(why, "not a clock object (no clock of strings)");
  EXPECT_FALSE(s.Deliver(PageMessage("zol/2/index.zol", "x", "0.1", "1"), why));
  // A cleared page removes nothing.
  EXPECT_TRUE(s.Deliver(PageMessage("zol/1/index.zol", "", "", ""), why));
  EXPECT_EQ(s.Lines.str(), "");
  EXPECT_TRUE(fs::is_empty(s.Out));
  EXPECT_FALSE(fs::exists(s.Root.File("etc")));
  EXPECT_EQ(s.Session.DistinctCompletePages(), 0u);
}

}  // namespace
