// The publisher and the broker source in one process, through a broker of the test's
// own: each version once, a moved page clears its old topic, the clock object carries
// the site's parameters, and a lost broker gets every page again when it returns.
#include "client/MqttPublisher.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <vector>
#include <sstream>
#include <string>
#include <thread>

#include "client/ClientSession.h"
#include "client/MqttSource.h"
#include "testing/ExampleInstallation.h"
#include "testing/MqttBroker.h"
#include "testing/TempDir.h"

namespace {

using zolclient::CClientSession;
using zolclient::CMqttPageSource;
using zolclient::CMqttPublisher;
using zolclient::CSiteTracker;
using zolclient::MqttAddress;
using zolclient::MqttSettings;
using zolclient::ReceivedPage;

MqttSettings Settings(const MqttBroker& broker, const std::string& prefix, DWORD site = 0) {
  MqttSettings settings;
  settings.Address.Host = "127.0.0.1";
  settings.Address.Port = broker.Port();
  settings.Address.Prefix = prefix;
  settings.Address.Site = site;
  return settings;
}

ReceivedPage Page(DWORD number, const std::string& path, const std::string& name, BYTE low, const std::string& data) {
  ReceivedPage page;
  page.SiteNumber = 1;
  page.PageNumber = number;
  page.SequenceLow = low;
  page.Record.Path = path;
  page.Record.Name = name;
  page.Record.Data.assign(data.begin(), data.end());
  return page;
}

// A reader of site 1 into a folder, turned by hand.
struct Reader {
  explicit Reader(const MqttBroker& broker) : Source(Settings(broker, "zol", 1), 1u << 20) {
    std::string error;
    EXPECT_TRUE(Session.Prepare(error)) << error;
    EXPECT_TRUE(Source.Start(error)) << error;
  }
  // Turns until `text` is in the page lines; false after `seconds`.
  bool WaitForLine(const std::string& text, double seconds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (std::chrono::steady_clock::now() < deadline) {
      if (Lines.str().find(text) != std::string::npos) return true;
      Source.Deliver(Session, Errors, 50);
    }
    return Lines.str().find(text) != std::string::npos;
  }
  void TurnFor(double seconds) { WaitForLine("\x01never", seconds); }
  TempDir Root;
  std::string Out = Root.File("out");
  std::ostringstream Lines;
  std::ostringstream Errors;
  CClientSession Session{128, Out, Lines, Errors};
  CMqttPageSource Source;
};

bool WaitUntil(const std::function<bool()>& done, double seconds) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (std::chrono::steady_clock::now() < deadline) {
    if (done()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return false;
}

TEST(MqttPublisher, EachVersionOnceAndAMovedPageClearsItsOldTopic) {
  MqttBroker broker;
  ASSERT_TRUE(broker.Start()) << broker.Log();
  CSiteTracker sites;
  CMqttPublisher publisher(Settings(broker, "zol"), sites, 1u << 20);
  std::string error;
  ASSERT_TRUE(publisher.Start(error)) << error;
  Reader reader(broker);
  ASSERT_TRUE(WaitUntil(
      [&] {
        reader.Source.Deliver(reader.Session, reader.Errors, 10);
        return reader.Errors.str().find("connected") != std::string::npos;
      },
      10));

  // The carousel repeats; the publisher passes over what it published.
  for (int turn = 0; turn < 3; ++turn) publisher.OnPage(Page(2, "results/", "current.zol", 1, "one"));
  publisher.OnPage(Page(2, "results/", "current.zol", 2, "two"));
  ASSERT_TRUE(reader.WaitForLine("results/current.zol 3 bytes version 0.2", 10)) << reader.Lines.str();
  EXPECT_EQ(ReadWholeFile(reader.Out + "/results/current.zol"), "two");
  const auto counters = publisher.Counters();
  EXPECT_EQ(counters.Repeats, 2u);

  // Page 2 moves: its old topic is emptied, so a new reader does not see it there.
  publisher.OnPage(Page(2, "results/", "moved.zol", 3, "three"));
  ASSERT_TRUE(reader.WaitForLine("results/moved.zol", 10)) << reader.Lines.str();
  EXPECT_EQ(publisher.Counters().Clears, 1u);
  Reader late(broker);
  ASSERT_TRUE(late.WaitForLine("results/moved.zol 5 bytes version 0.3", 10)) << late.Lines.str();
  late.TurnFor(0.3);
  EXPECT_EQ(late.Lines.str().find("current.zol"), std::string::npos) << late.Lines.str();
  EXPECT_EQ(late.Errors.str().find("skipped"), std::string::npos) << late.Errors.str();
  EXPECT_EQ(reader.Errors.str().find("skipped"), std::string::npos) << reader.Errors.str();
}

TEST(MqttPublisher, ALostBrokerGetsEveryPageAndTheClockAgain) {
  MqttBroker broker;
  ASSERT_TRUE(broker.Start()) << broker.Log();
  CSiteTracker sites;
  // The session's site tracker is read on the receiving thread: here this one.
  zolclient::SiteInformation information;
  information.BuildTime = 99;
  information.Clock = {{"flag", "green"}, {"racetime", "0:00:10"}};
  information.HasSiteParameters = true;
  information.SiteParameters = {{"name", "demo"}, {"pagecount", "2"}};
  sites.OnDecodedInformation(1, information);
  CMqttPublisher publisher(Settings(broker, "zol"), sites, 1u << 20);
  std::string error;
  ASSERT_TRUE(publisher.Start(error)) << error;
  publisher.OnPage(Page(1, "", "index.zol", 1, "index"));
  publisher.OnPage(Page(2, "pages/", "track.zol", 1, "track"));
  publisher.OnSiteClock(1, sites.Sites().at(1).Clock);
  {
    Reader reader(broker);
    ASSERT_TRUE(reader.WaitForLine("(information)", 10)) << reader.Lines.str() << reader.Errors.str();
    ASSERT_TRUE(reader.WaitForLine("pages/track.zol", 10)) << reader.Lines.str();
    EXPECT_TRUE(reader.Session.AllSitesComplete());
  }
  broker.Kill();
  ASSERT_TRUE(WaitUntil([&] {
    for (const std::string& line : publisher.TakeNews()) {
      if (line.find("lost broker") != std::string::npos) return true;
    }
    return false;
  }, 10));
  ASSERT_TRUE(broker.Start()) << broker.Log();
  std::vector<std::string> news;
  ASSERT_TRUE(WaitUntil([&] {
    for (const std::string& line : publisher.TakeNews()) news.push_back(line);
    return !news.empty();
  }, 11));
  EXPECT_NE(news.front().find("back; publishing every page again"), std::string::npos) << news.front();
  Reader reader(broker);
  ASSERT_TRUE(reader.WaitForLine("pages/track.zol", 10)) << reader.Lines.str();
  ASSERT_TRUE(reader.WaitForLine("(information)", 10)) << reader.Lines.str();
  ASSERT_TRUE(reader.WaitForLine("index.zol", 10)) << reader.Lines.str();
  EXPECT_TRUE(reader.Session.AllSitesComplete());
  EXPECT_GE(publisher.Counters().Republished, 3u);
}

}  // namespace
