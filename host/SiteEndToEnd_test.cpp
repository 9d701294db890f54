// The example site from end to end: zolhost publishes examples/ over TCP, and a zolclient
// that joins late receives every page of the site, as many as the information page
// announces, within the site's longest repeat plus five seconds.
#include <gtest/gtest.h>

#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "distribution/OutputPage.h"
#include "frame/platform/Sockets.h"
#include "site/ZOLServerSite.h"
#include "testing/ChildProcess.h"
#include "testing/ModuleFixture.h"
#include "testing/TempDir.h"

namespace {

namespace fs = std::filesystem;

const std::string kHost = std::string(ZOL_BINARY_DIR) + "/zolhost";
const std::string kClient = std::string(ZOL_BINARY_DIR) + "/zolclient";

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
}

// The example application directory, copied, with its TCP port moved to `port`.
void CopyExamples(const TempDir& appdir, std::uint16_t port) {
  fs::copy(fs::path(ZOL_SOURCE_DIR) / "examples" / "site", fs::path(appdir.Path()) / "site", fs::copy_options::recursive);
  std::string settings = ReadFile(std::string(ZOL_SOURCE_DIR) + "/examples/Config/ZOLServer.ini");
  const std::string line = "port=51000";
  const auto at = settings.find(line);
  ASSERT_NE(at, std::string::npos);
  settings.replace(at, line.size(), "port=" + std::to_string(port));
  appdir.Write("Config/ZOLServer.ini", settings);
}

std::map<std::string, std::string> ReadInformationFile(const std::string& path) {
  std::map<std::string, std::string> values;
  std::ifstream file(path);
  for (std::string text; std::getline(file, text);) {
    const auto equals = text.find('=');
    if (equals != std::string::npos) values[text.substr(0, equals)] = text.substr(equals + 1);
  }
  return values;
}

}  // namespace

TEST(SiteEndToEnd, LateClientReceivesTheWholeExampleSiteWithinTheLongestRepeatPlusFiveSeconds) {
  const std::uint16_t port = platform::FindFreeTcpPort();
  ASSERT_NE(port, 0);
  TempDir appdir;
  CopyExamples(appdir, port);

  // The same site built here tells what the client must receive: every page but the
  // information page, plain files as on disk and templates as their wire export.
  PackageScope scope;
  CZOLServerSite expected(1, nullptr);
  expected.Build(appdir.Path() + "/site/", -1, 1);
  DWORD longestRepeat = 0;
  std::map<std::string, const COutputPage*> pages;
  for (const auto& [number, page] : expected.GetPages()) {
    if (number == 0) continue;
    longestRepeat = std::max(longestRepeat, page->GetRepeat());
    const bool unique = pages.emplace(page->GetPath() + page->GetFilename(), page).second;
    ASSERT_TRUE(unique) << "two pages named " << page->GetPath() << page->GetFilename();
  }
  // The example holds templates reached from index.zol and the well-known pages.
  ASSERT_NE(expected.PageFind("", "index.zol"), nullptr);
  ASSERT_NE(expected.PageFind("pages/", "track.zol"), nullptr);
  ASSERT_NE(expected.PageFind("results/", "current.zol"), nullptr);
  ASSERT_EQ(expected.GetParameter("pagecount"), std::to_string(pages.size()));

  TempDir work;
  ChildProcess host(kHost, {"--appdir", appdir.Path(), "--no-web"}, work.Path());
  ASSERT_TRUE(host.WaitForStderr("Starting TCP/IP server (Port " + std::to_string(port) + ").", 20)) << host.Stderr();
  ASSERT_TRUE(host.WaitForStderr("Settings ", 20)) << host.Stderr();

  // A first client hears the first turn, where every page goes out; the second one joins
  // after it and depends on the carousel alone.
  const std::string timeout = std::to_string(longestRepeat + 5);
  auto receive = [&](const std::string& out, std::string& clientOut) {
    std::string clientErr;
    const auto status = RunToEnd(kClient,
                                 {"tcp://127.0.0.1:" + std::to_string(port), "--out", out, "--until-complete", "site",
                                  "--timeout", timeout, "--stats"},
                                 work.Path(), longestRepeat + 30.0, &clientOut, &clientErr);
    ASSERT_TRUE(status.has_value()) << "zolclient did not end";
    ASSERT_EQ(*status, 0) << "timeout " << timeout << " s\n" << clientErr << clientOut;
  };
  std::string firstOut;
  receive(work.Path() + "/first", firstOut);
  const std::string out = work.Path() + "/received";
  std::string clientOut;
  receive(out, clientOut);
  if (HasFatalFailure()) return;

  const auto information = ReadInformationFile(out + "/_site1.info");
  EXPECT_EQ(information.at("site.pagecount"), std::to_string(pages.size()));
  EXPECT_EQ(information.at("site.width"), "1024");
  EXPECT_EQ(information.at("site.height"), "768");

  for (const auto& [name, page] : pages) {
    const std::string received = out + "/" + name;
    ASSERT_TRUE(fs::exists(received)) << name << "\n" << clientOut;
    EXPECT_TRUE(ReadFile(received) == page->GetDataAsString()) << name << " differs from the page's data";
    if (page->GetIsTemplate() == 0) {
      EXPECT_TRUE(ReadFile(received) == ReadFile(appdir.Path() + "/site/" + name)) << name << " differs from disk";
    } else {
      EXPECT_EQ(ReadFile(received).rfind("<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n<zol", 0), 0u) << name;
    }
  }
  host.Signal(SIGTERM);
  const auto hostStatus = host.WaitForExit(10);
  ASSERT_TRUE(hostStatus.has_value());
  EXPECT_EQ(*hostStatus, 0) << host.Stderr();
}
