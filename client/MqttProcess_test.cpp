// zolclient and a broker as real processes: zolhost plays the example meeting, one
// zolclient publishes what it receives to a Mosquitto broker of the test's own, others
// read the site back from that broker, from a broker bridged to it, or after the broker
// was killed and started again.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <signal.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "frame/platform/Sockets.h"
#include "testing/ChildProcess.h"
#include "testing/ExampleInstallation.h"
#include "testing/MqttBroker.h"
#include "testing/TempDir.h"

namespace {

namespace fs = std::filesystem;

const std::string kHost = std::string(ZOL_BINARY_DIR) + "/zolhost";
const std::string kClient = std::string(ZOL_BINARY_DIR) + "/zolclient";

// Every file below `folder` by its relative path, with its contents; the site's
// information file (its clock changes every second) left out.
std::map<std::string, std::string> PageFiles(const std::string& folder) {
  std::map<std::string, std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    if (!entry.is_regular_file()) continue;
    const std::string relative = fs::relative(entry.path(), folder).generic_string();
    if (relative.rfind("_site", 0) == 0) continue;
    files[relative] = ReadWholeFile(entry.path().string());
  }
  return files;
}

std::size_t CountLines(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) count += line.find(part) != std::string::npos ? 1 : 0;
  return count;
}

// The distinct versions of results/current.zol in a client's page lines.
std::set<std::string> ResultVersions(const std::string& stdoutText) {
  std::set<std::string> versions;
  std::istringstream lines(stdoutText);
  for (std::string line; std::getline(lines, line);) {
    if (line.find(" results/current.zol ") == std::string::npos) continue;
    versions.insert(line.substr(line.rfind(' ') + 1));
  }
  return versions;
}

bool WaitFor(const std::function<bool()>& done, double seconds) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (std::chrono::steady_clock::now() < deadline) {
    if (done()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  return done();
}

// The example meeting on zolhost, with a publishing zolclient that connects before the
// host starts, so that it hears the first turn of every page.
struct PublishedMeeting {
  explicit PublishedMeeting(const MqttBroker& broker, const std::string& speed)
      : PagePort(platform::FindFreeTcpPort()) {
    Ready = PagePort != 0 && CopyExamples(AppDir, PagePort);
    if (!Ready) return;
    Publisher = std::make_unique<ChildProcess>(
        kClient,
        std::vector<std::string>{"tcp://127.0.0.1:" + std::to_string(PagePort), "--mqtt", broker.Url("zol"),
                                 "--reconnect-pause", "0.1", "--out", Work.File("published")},
        Work.Path());
    Host = std::make_unique<ChildProcess>(
        kHost,
        std::vector<std::string>{"--appdir", AppDir.Path(), "--no-web", "--race", kExampleRace, "--race-speed",
                                 speed},
        Work.Path());
    Ready = Host->WaitForStderr("Starting TCP/IP server (Port " + std::to_string(PagePort) + ").", 20) &&
            Publisher->WaitForStderr("connected to 127.0.0.1:" + std::to_string(PagePort), 20);
  }
  std::uint16_t PagePort;
  TempDir AppDir;
  TempDir Work;
  std::unique_ptr<ChildProcess> Publisher;
  std::unique_ptr<ChildProcess> Host;
  bool Ready = false;
};

// Reads site 1 from `url` into `out` until the site is complete; the exit status.
int ReadWholeSite(const std::string& url, const std::string& out, const std::string& logs, std::string& stdoutText,
                  std::string& stderrText) {
  const auto status = RunToEnd(kClient, {url, "--out", out, "--until-complete", "site", "--timeout", "40"}, logs, 50,
                               &stdoutText, &stderrText);
  return status.value_or(-1);
}

TEST(MqttPublishing, ReaderOfTheBrokerGetsEveryPageAndFollowsTheResults) {
  MqttBroker broker;
  ASSERT_TRUE(broker.Start()) << broker.Log();
  PublishedMeeting meeting(broker, "12");
  ASSERT_TRUE(meeting.Ready) << meeting.Host->Stderr() << meeting.Publisher->Stderr();

  TempDir work;
  ChildProcess follower(kClient, {broker.Url("zol/1"), "--out", work.File("follow"), "--timeout", "40"}, work.Path());
  std::string out;
  std::string err;
  ASSERT_EQ(ReadWholeSite(broker.Url("zol/1"), work.File("whole"), work.Path(), out, err), 0) << err << out;
  // pagecount 18 of the example: every page arrived, and its information.
  const std::map<std::string, std::string> pages = PageFiles(work.File("whole"));
  EXPECT_EQ(pages.size(), 18u);
  EXPECT_TRUE(pages.count("results/current.zol"));
  EXPECT_TRUE(fs::exists(work.File("whole/_site1.info")));
  EXPECT_NE(ReadWholeFile(work.File("whole/_site1.info")).find("site.pagecount=18"), std::string::npos);

  // A reader that stays sees the results page version by version, each once.
  EXPECT_TRUE(WaitFor([&] { return ResultVersions(follower.Stdout()).size() >= 3; }, 30)) << follower.Stdout();
  const std::string followed = follower.Stdout();
  EXPECT_EQ(CountLines(followed, " results/current.zol "), ResultVersions(followed).size()) << followed;
  EXPECT_EQ(CountLines(follower.Stderr(), "skipped"), 0u) << follower.Stderr();
}

TEST(MqttPublishing, PublisherRecoversFromABrokerRestartAndANewReaderGetsTheLatestPages) {
  MqttBroker broker;
  ASSERT_TRUE(broker.Start()) << broker.Log();
  PublishedMeeting meeting(broker, "60");
  ASSERT_TRUE(meeting.Ready) << meeting.Host->Stderr() << meeting.Publisher->Stderr();
  ChildProcess& publisher = *meeting.Publisher;
  ASSERT_TRUE(WaitFor([&] { return ResultVersions(publisher.Stdout()).size() >= 2; }, 20)) << publisher.Stdout();

  // The broker dies mid-race, and it kept nothing.
  broker.Kill();
  ASSERT_TRUE(publisher.WaitForStderr("zolclient: lost broker 127.0.0.1:" + std::to_string(broker.Port()), 10))
      << publisher.Stderr();
  std::this_thread::sleep_for(std::chrono::seconds(1));
  ASSERT_TRUE(broker.Start()) << broker.Log();
  const auto back = std::chrono::steady_clock::now();
  ASSERT_TRUE(publisher.WaitForStderr("back; publishing every page again", 12)) << publisher.Stderr();
  EXPECT_LE(std::chrono::duration<double>(std::chrono::steady_clock::now() - back).count(), 10.5);
  EXPECT_EQ(CountLines(publisher.Stderr(), "lost broker"), 1u) << publisher.Stderr();
  EXPECT_EQ(CountLines(publisher.Stderr(), "back; publishing"), 1u) << publisher.Stderr();

  // Some more versions after the broker's return, then zolhost stops: from then on the
  // publisher's folder holds the final pages, and so must the broker.
  const std::size_t versionsBefore = ResultVersions(publisher.Stdout()).size();
  EXPECT_TRUE(WaitFor([&] { return ResultVersions(publisher.Stdout()).size() >= versionsBefore + 2; }, 20))
      << publisher.Stdout();
  meeting.Host->Signal(SIGTERM);
  ASSERT_TRUE(meeting.Host->WaitForExit(20).has_value());
  ASSERT_TRUE(publisher.WaitForStderr("connection to 127.0.0.1:" + std::to_string(meeting.PagePort) + " lost", 10));
  std::this_thread::sleep_for(std::chrono::seconds(1));

  TempDir work;
  std::string out;
  std::string err;
  ASSERT_EQ(ReadWholeSite(broker.Url("zol/1"), work.File("after"), work.Path(), out, err), 0) << err << out;
  const std::map<std::string, std::string> fromBroker = PageFiles(work.File("after"));
  const std::map<std::string, std::string> fromHost = PageFiles(meeting.Work.File("published"));
  EXPECT_EQ(fromBroker.size(), 18u);
  EXPECT_TRUE(fromBroker == fromHost) << "the broker's pages differ from those the TCP client of zolhost holds";
}

TEST(MqttPublishing, PagesPublishedIntoOneBrokerArriveWholeAtAReaderOfABridgedOne) {
  MqttBroker track;
  ASSERT_TRUE(track.Start()) << track.Log();
  MqttBroker cloud("connection track\n"
                   "address 127.0.0.1:" + std::to_string(track.Port()) + "\n"
                   "bridge_protocol_version mqttv50\n"
                   "topic zol/# in 1\n"
                   "restart_timeout 1\n");
  ASSERT_TRUE(cloud.Start()) << cloud.Log();
  PublishedMeeting meeting(track, "12");
  ASSERT_TRUE(meeting.Ready) << meeting.Host->Stderr() << meeting.Publisher->Stderr();

  TempDir work;
  std::string out;
  std::string err;
  ASSERT_EQ(ReadWholeSite(cloud.Url("zol/1"), work.File("cloud"), work.Path(), out, err), 0) << err << out << cloud.Log();
  EXPECT_EQ(CountLines(err, "skipped"), 0u) << err;
  const std::map<std::string, std::string> pages = PageFiles(work.File("cloud"));
  EXPECT_EQ(pages.size(), 18u);
  // Whole: every page equals what the publisher wrote of the same version or a later one
  // (results change), and the pages that do not change are equal byte for byte.
  const std::map<std::string, std::string> published = PageFiles(meeting.Work.File("published"));
  for (const char* still : {"index.zol", "style.css", "clock.js", "images/flag.gif", "about.html"}) {
    ASSERT_TRUE(pages.count(still)) << still;
    EXPECT_EQ(pages.at(still), published.at(still)) << still;
  }
}

TEST(MqttPublishing, ForeignRetainedMessagesAreSkippedWithOneLineAndNothingIsWrittenOutside) {
  MqttBroker broker;
  ASSERT_TRUE(broker.Start()) << broker.Log();
  const std::vector<std::pair<std::string, std::string>> ours{{"version", "0.1"}, {"page", "2"}, {"level", "0"}};
  ASSERT_TRUE(PublishRetainedForTest(broker.Port(), "zol/1/../../etc/x", "escaped", ours));
  ASSERT_TRUE(PublishRetainedForTest(broker.Port(), "zol/1/plain.html", "no properties"));
  ASSERT_TRUE(PublishRetainedForTest(broker.Port(), "zol/1/_clock", "{not json"));
  ASSERT_TRUE(PublishRetainedForTest(broker.Port(), "zol/1/good/page.html", "<p>good</p>",
                                     {{"version", "0.3"}, {"page", "1"}, {"level", "0"}}));
  // A clock object of another writer under another topic of the site is no page either.
  ASSERT_TRUE(PublishRetainedForTest(broker.Port(), "zol/1/info/_clock", "{}", {}));

  TempDir work;
  ChildProcess reader(kClient, {broker.Url("zol/1"), "--out", work.File("a/b/out"), "--until-complete", "site",
                                "--timeout", "20"},
                      work.Path());
  ASSERT_TRUE(reader.WaitForStdout("good/page.html", 20)) << reader.Stderr();
  // The good clock comes last and live: once it is there, every retained message came
  // before it, and the site (pagecount 1) is complete.
  ASSERT_TRUE(PublishRetainedForTest(
      broker.Port(), "zol/1/_clock",
      R"({"buildtime":7,"clock":{"flag":"green","racetime":"0:00:01","timeofday":"10:00:01","timetogo":"0:01:00"},)"
      R"("site":{"name":"t","pagecount":"1"}})"));
  const auto status = reader.WaitForExit(20);
  ASSERT_TRUE(status.has_value());
  EXPECT_EQ(*status, 0) << reader.Stderr();
  const std::string err = reader.Stderr();
  EXPECT_EQ(CountLines(err, "zolclient: skipped broker message"), 4u) << err;
  EXPECT_EQ(CountLines(err, "'zol/1/../../etc/x': no valid page location"), 1u) << err;
  EXPECT_EQ(CountLines(err, "'zol/1/plain.html': no page"), 1u) << err;
  EXPECT_EQ(CountLines(err, "'zol/1/_clock': not a clock object"), 1u) << err;
  EXPECT_EQ(CountLines(err, "'zol/1/info/_clock': no page"), 1u) << err;
  EXPECT_FALSE(fs::exists(work.File("a/etc")));
  EXPECT_FALSE(fs::exists(work.File("etc")));
  const std::map<std::string, std::string> files = PageFiles(work.File("a/b/out"));
  ASSERT_EQ(files.size(), 1u);
  EXPECT_EQ(files.begin()->first, "good/page.html");
  EXPECT_EQ(files.begin()->second, "<p>good</p>");
  EXPECT_NE(ReadWholeFile(work.File("a/b/out/_site1.info")).find("clock.flag=green"), std::string::npos);
}

}  // namespace
