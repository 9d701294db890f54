#include "site/ZOLServerSite.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "site/ZOLServerInfo.h"
#include "site/ZOLServerPage.h"
#include "testing/ModuleFixture.h"
#include "testing/StreamRecordingPort.h"

namespace {

std::string Root(const TempDir& folder) { return folder.Path() + "/"; }

COutputPage* FindByName(const CZOLServerSite& site, const std::string& name) {
  for (const auto& [number, page] : site.GetPages()) {
    if (page->GetFilename() == name) return page;
  }
  return nullptr;
}

}  // namespace

TEST(SiteLinks, DoubleBarIndexGivesAnEmptyPathAndTheFile) {
  std::string link = "||index.zol";
  std::string path = "unchanged/";
  CZOLServerSite::ProcessLink(link, path);
  EXPECT_EQ(link, "index.zol");
  EXPECT_EQ(path, "");
}

TEST(SiteLinks, DotDotStepsBackOneFolder) {
  std::string link = "a/|../b/|x.zol";
  std::string path;
  CZOLServerSite::ProcessLink(link, path);
  EXPECT_EQ(link, "x.zol");
  EXPECT_EQ(path, "b/");
}

TEST(SiteLinks, DotDotBeyondTheRootLeavesAnEmptyPath) {
  std::string link = "a/|../../|x.zol";
  std::string path;
  CZOLServerSite::ProcessLink(link, path);
  EXPECT_EQ(link, "x.zol");
  EXPECT_EQ(path, "");
}

TEST(SiteLinks, LinkWithoutBarLeavesThePathAsItWas) {
  std::string link = "x.zol";
  std::string path = "kept/";
  CZOLServerSite::ProcessLink(link, path);
  EXPECT_EQ(link, "x.zol");
  EXPECT_EQ(path, "kept/");
}

TEST(SiteFiles, PlainFilesArePublishedByExtensionTableAndSubfoldersFirst) {
  PackageScope scope;
  TempDir folder;
  folder.Write("index.html", "<p>home</p>");
  folder.Write("style.css", "p{}");
  folder.Write("img/logo.gif", "GIF89a");
  folder.Write("notes.txt", "not published");
  folder.Write("orphan.zol", "<zol/>");
  CZOLServerSite site(1, nullptr);
  site.Build(Root(folder), -1, 1);

  // The information page, the schedule page and the three files. Number 8 went to the
  // missing index.zol, whose page could not be read.
  ASSERT_EQ(site.GetPages().size(), 5u);
  // The subfolder's files are numbered before the folder's own; css before html.
  EXPECT_EQ(site.GetPages().at(9)->GetFilename(), "logo.gif");
  EXPECT_EQ(site.GetPages().at(9)->GetPath(), "img/");
  EXPECT_EQ(site.GetPages().at(10)->GetFilename(), "style.css");
  EXPECT_EQ(site.GetPages().at(11)->GetFilename(), "index.html");
  EXPECT_EQ(site.GetPages().at(11)->GetDataAsString(), "<p>home</p>");
  EXPECT_EQ(site.GetParameter("pagecount"), "4");
}

TEST(SiteFiles, ZolFileThatNothingIncludesIsNotPublished) {
  PackageScope scope;
  TempDir folder;
  folder.Write("orphan.zol", "<zol/>");
  folder.Write("page.html", "x");
  CZOLServerSite site(1, nullptr);
  site.Build(Root(folder), -1, 1);
  EXPECT_EQ(FindByName(site, "orphan.zol"), nullptr);
  EXPECT_NE(FindByName(site, "page.html"), nullptr);
}

TEST(SiteFiles, LevelsAndRepeatsComeFromTheExtensionTable) {
  PackageScope scope;
  TempDir folder;
  folder.Write("a.css", "1");
  folder.Write("b.js", "2");
  folder.Write("c.html", "3");
  folder.Write("d.png", "4");
  CZOLServerSite site(2, nullptr);
  site.Build(Root(folder), -1, 1);
  const struct {
    const char* Name;
    DWORD Level;
    DWORD Repeat;
  } expected[] = {{"a.css", 1, 20}, {"b.js", 1, 20}, {"c.html", 2, 30}, {"d.png", 3, 60}};
  for (const auto& file : expected) {
    const COutputPage* page = FindByName(site, file.Name);
    ASSERT_NE(page, nullptr) << file.Name;
    EXPECT_EQ(page->GetPageKey() >> 30, file.Level) << file.Name;
    EXPECT_EQ(page->GetRepeat(), file.Repeat) << file.Name;
    EXPECT_EQ((page->GetPageKey() >> 18) & 7, 2u) << file.Name;
  }
}

TEST(SiteBuild, SameRootAndEventClearsTheStreamsPackets) {
  PackageScope scope;
  TempDir folder;
  folder.Write("a.html", "a");
  StreamRecordingPort port;
  CZOLServerSite site(3, nullptr);
  site.PortAdd(&port);
  site.Build(Root(folder), -1, 0);
  port.Clears.clear();
  site.Build(Root(folder), -1, 0);
  EXPECT_EQ(port.Clears, std::vector<DWORD>{3});
}

TEST(SiteBuild, DifferentRootWithoutForceHandsThePagesOnInsteadOfClearing) {
  PackageScope scope;
  TempDir first;
  TempDir second;
  second.Write("a.html", "a");
  second.Write("b.css", "b");
  StreamRecordingPort port;
  CZOLServerSite site(1, nullptr);
  site.PortAdd(&port);
  site.Build(Root(first), -1, 1);
  port.Clears.clear();
  port.Updates.clear();
  site.Build(Root(second), -1, 0);
  EXPECT_TRUE(port.Clears.empty());
  // The schedule page and the two files.
  EXPECT_EQ(port.Updates.size(), 3u);
  EXPECT_TRUE(site.GetUpdatedPages().empty());
}

TEST(SiteCarousel, TwoUpdatesOfAPageWithinOneSecondGiveOneBuildAndOneUpdate) {
  PackageScope scope;
  TempDir folder;
  folder.Write("a.html", "a");
  StreamRecordingPort port;
  CZOLServerSite site(1, nullptr);
  site.PortAdd(&port);
  site.Build(Root(folder), -1, 1);
  COutputPage* page = FindByName(site, "a.html");
  ASSERT_NE(page, nullptr);
  // The first tick hands on what the build made.
  site.OnTimerEvent();
  ASSERT_TRUE(site.GetUpdatedPages().empty());
  // Keep the carousel's own repeat out of the count.
  while (page->GetRepeatCountdown() == 0) page->ShouldRepeat();
  const BYTE version = page->GetSequenceLow();
  port.Updates.clear();

  page->NotifyPageUpdated();
  page->NotifyPageUpdated();
  EXPECT_EQ(site.GetUpdatedPages().size(), 1u);
  site.OnTimerEvent();
  EXPECT_EQ(page->GetSequenceLow(), static_cast<BYTE>(version + 1));
  EXPECT_EQ(std::count(port.Updates.begin(), port.Updates.end(), page->GetPageKey()), 1);
}

TEST(SiteCarousel, APageGoesOutAgainEveryRepeatSeconds) {
  PackageScope scope;
  TempDir folder;
  folder.Write("a.css", "a");  // repeat 20
  StreamRecordingPort port;
  CZOLServerSite site(1, nullptr);
  site.PortAdd(&port);
  site.Build(Root(folder), -1, 1);
  const COutputPage* page = FindByName(site, "a.css");
  ASSERT_NE(page, nullptr);
  ASSERT_EQ(page->GetPageKey() >> 21 & 0x1FF, 9u);
  port.Updates.clear();
  for (int second = 0; second < 60; ++second) site.OnTimerEvent();
  // The first tick sends the version the build made; page 9 with repeat 20 then falls
  // due at seconds 9, 29 and 49.
  EXPECT_EQ(std::count(port.Updates.begin(), port.Updates.end(), page->GetPageKey()), 4);
}

TEST(SiteBuild, MissingDirectoryGivesNoPagesAndNoError) {
  PackageScope scope;
  CZOLServerSite site(1, nullptr);
  EXPECT_NO_THROW(site.Build("/nonexistent-zol-site/", -1, 1));
  // Only the information page and the (empty) schedule page.
  ASSERT_EQ(site.GetPages().size(), 2u);
  EXPECT_EQ(site.GetPages().at(0), static_cast<COutputPage*>(site.GetInfoPage()));
  EXPECT_EQ(site.GetPages().at(1), static_cast<COutputPage*>(site.GetSchedulePage()));
  EXPECT_EQ(site.GetParameter("pagecount"), "1");
}

TEST(SiteSizes, BandwidthSumsCompressedSizeOverRepeat) {
  PackageScope scope;
  TempDir folder;
  folder.Write("a.html", std::string(5000, 'x'));
  CZOLServerSite site(1, nullptr);
  site.Build(Root(folder), -1, 1);
  const COutputPage* page = FindByName(site, "a.html");
  ASSERT_NE(page, nullptr);
  const COutputPage* schedule = site.GetSchedulePage();
  // The information page has no content before the first tick.
  EXPECT_EQ(site.GetInfoPage()->GetCompressedSize(), 0u);
  EXPECT_EQ(site.GetOriginalSize(), page->GetPlainSize() + schedule->GetPlainSize());
  EXPECT_EQ(site.GetCompressedSize(), page->GetCompressedSize() + schedule->GetCompressedSize());
  EXPECT_DOUBLE_EQ(site.GetBandwidth(),
                   (static_cast<double>(page->GetCompressedSize() / 30) + schedule->GetCompressedSize() / 30) * 10.0 /
                       8.0);
  EXPECT_DOUBLE_EQ(site.GetMaxDataRate(), 0.0);
}

TEST(SiteTime, TimeStringHasThreeBlanksBetweenDateAndTime) {
  const std::string text = CZOLServerSite::GetTimeString(0, 1, 1);
  EXPECT_EQ(text, "01-01-1970   00:00");
  EXPECT_EQ(CZOLServerSite::GetTimeString(3600 * 13 + 60 * 5, 0, 1), "13:05");
}
