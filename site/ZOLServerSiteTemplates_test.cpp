// The template half of a site: the well-known pages, links followed from index.zol,
// includes resolved to page numbers, the active run, and the site's pages in the
// module's web page map.
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>

#include "data/DataEncoder.h"
#include "data/DataTestSupport.h"
#include "site/ZOLServerInclude.h"
#include "site/ZOLServerInfo.h"
#include "site/ZOLServerPage.h"
#include "site/ZOLServerSite.h"
#include "testing/LogCapture.h"
#include "testing/ModuleFixture.h"
#include "web/WebPage.h"

namespace {

std::string Template(const std::string& body) { return "<zol version=\"1.0\">" + body + "</zol>"; }

std::string Include(const std::string& path, const std::string& file) {
  return "<zol_include path=\"" + path + "\" file=\"" + file + "\"/>";
}

std::string Root(const TempDir& folder) { return folder.Path() + "/"; }

CZOLServerPage* FindTemplate(const CZOLServerSite& site, const std::string& path, const std::string& file) {
  return dynamic_cast<CZOLServerPage*>(site.PageFind(path, file));
}

DWORD NumberOf(const COutputPage* page) { return (page->GetPageKey() >> 21) & 0x1FF; }

std::string IncludeTag(const COutputPage* target) {
  return "<zol_include pageid='" + std::to_string(NumberOf(target)) + "'/>";
}

std::size_t Occurrences(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

// index.zol includes a.zol; a.zol and b.zol include each other.
void WriteIncludeCycle(const TempDir& folder) {
  folder.Write("index.zol", Template(Include("", "a.zol")));
  folder.Write("a.zol", Template("A" + Include("", "b.zol")));
  folder.Write("b.zol", Template("B" + Include("", "a.zol")));
}

std::unique_ptr<CRun> MakeRun(DWORD id, DWORD eventId, BYTE type, WORD flags) {
  auto run = std::make_unique<CRun>(nullptr);
  run->UniqueID = id;
  run->EventID = eventId;
  run->RunType = type;
  run->Flags = flags;
  return run;
}

}  // namespace

TEST(SiteTemplates, EmptyDirectoryHoldsTheInformationPageAndAnEmptySchedulePage) {
  PackageScope scope;
  TempDir folder;
  CZOLServerSite site(1, nullptr);
  site.Build(Root(folder), -1, 1);
  ASSERT_EQ(site.GetPages().size(), 2u);
  EXPECT_EQ(site.GetPages().at(0), static_cast<COutputPage*>(site.GetInfoPage()));
  EXPECT_EQ(site.GetPages().at(1), static_cast<COutputPage*>(site.GetSchedulePage()));
  EXPECT_TRUE(site.GetSchedulePage()->GetData().empty());
  EXPECT_EQ(site.GetParameter("pagecount"), "1");
}

TEST(SiteTemplates, WellKnownPagesKeepTheirNumbersLevelsAndRepeats) {
  PackageScope scope;
  TempDir folder;
  const struct {
    const char* Path;
    const char* File;
    DWORD Number;
    DWORD Repeat;
  } known[] = {{"results/", "schedule.zol", 1, 30},      {"results/", "current.zol", 2, 20},
               {"results/", "attheline.zol", 3, 30},     {"results/", "pitstops.zol", 4, 30},
               {"flash/", "ZOLFeed.zol", 5, 30},         {"results/", "announcements.zol", 6, 20},
               {"results/", "runinformation.zol", 7, 20}};
  for (const auto& page : known) folder.Write(std::string(page.Path) + page.File, Template(page.File));
  CZOLServerSite site(1, nullptr);
  site.Build(Root(folder), -1, 1);
  EXPECT_EQ(site.GetParameter("pagecount"), "7");
  for (const auto& expected : known) {
    const COutputPage* page = site.PageFind(expected.Path, expected.File);
    ASSERT_NE(page, nullptr) << expected.File;
    EXPECT_EQ(NumberOf(page), expected.Number) << expected.File;
    EXPECT_EQ(page->GetPageKey() >> 30, 1u) << expected.File;
    EXPECT_EQ(page->GetRepeat(), expected.Repeat) << expected.File;
    EXPECT_NE(page->GetDataAsString().find(expected.File), std::string::npos) << expected.File;
  }
  EXPECT_EQ(site.PageFind("flash/", "ZOLFeed.zol")->GetExportName(), "flash/ZOLFeed.xml");
}

TEST(SiteTemplates, RunBoundPageWhoseFileIsMissingStaysOutOfTheSite) {
  PackageScope scope;
  TempDir folder;
  folder.Write("results/current.zol", Template("now"));
  CZOLServerSite site(1, nullptr);
  site.Build(Root(folder), -1, 1);
  EXPECT_NE(site.PageFind("results/", "current.zol"), nullptr);
  EXPECT_EQ(site.PageFind("results/", "pitstops.zol"), nullptr);
  EXPECT_EQ(site.GetPages().count(4), 0u);
  EXPECT_EQ(site.GetParameter("pagecount"), "2");
}

TEST(SiteTemplates, IndexIncludesAreFollowedThroughSubfoldersAndDotDot) {
  PackageScope scope;
  TempDir folder;
  folder.Write("index.zol", Template("<h1>Home</h1>" + Include("pages/", "track.zol")));
  folder.Write("pages/track.zol", Template("<p>Track</p>" + Include("../info/", "facts.zol")));
  folder.Write("info/facts.zol", Template("<p>Facts</p>"));
  CZOLServerSite site(1, nullptr);
  site.Build(Root(folder), -1, 1);

  CZOLServerPage* index = FindTemplate(site, "", "index.zol");
  CZOLServerPage* track = FindTemplate(site, "pages/", "track.zol");
  CZOLServerPage* facts = FindTemplate(site, "info/", "facts.zol");
  ASSERT_NE(index, nullptr);
  ASSERT_NE(track, nullptr);
  ASSERT_NE(facts, nullptr);
  // Linked pages are numbered from 8 in the order the queue reaches them.
  EXPECT_EQ(NumberOf(index), 8u);
  EXPECT_EQ(NumberOf(track), 9u);
  EXPECT_EQ(NumberOf(facts), 10u);
  for (const COutputPage* page : {index, track, facts}) {
    EXPECT_EQ(page->GetPageKey() >> 30, 2u);
    EXPECT_EQ(page->GetRepeat(), 40u);
  }
  EXPECT_NE(index->GetDataAsString().find("<h1>Home</h1>" + IncludeTag(track)), std::string::npos);
  EXPECT_NE(track->GetDataAsString().find(IncludeTag(facts)), std::string::npos);
  EXPECT_EQ(site.GetParameter("pagecount"), "4");
  // For a browser, includes are expanded in place.
  EXPECT_EQ(index->HTMLExport(site.GetClockParameters()), "<h1>Home</h1><p>Track</p><p>Facts</p>");
  EXPECT_TRUE(site.GetLinkQueue().empty());
}

TEST(SiteTemplates, IncludeCycleDoesNotHangBuildAndEachPageIsMadeOnce) {
  PackageScope scope;
  TempDir folder;
  WriteIncludeCycle(folder);
  CZOLServerSite site(1, nullptr);
  site.Build(Root(folder), -1, 1);
  const CZOLServerPage* a = FindTemplate(site, "", "a.zol");
  const CZOLServerPage* b = FindTemplate(site, "", "b.zol");
  ASSERT_NE(a, nullptr);
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(site.GetParameter("pagecount"), "4");
  // On the wire a cycle is harmless: only page numbers are sent.
  EXPECT_NE(a->GetDataAsString().find(IncludeTag(b)), std::string::npos);
  EXPECT_NE(b->GetDataAsString().find(IncludeTag(a)), std::string::npos);
}

TEST(SiteTemplates, IncludeCycleInTheBrowserStopsAtDepthThirtyTwoWithTheFailureText) {
  PackageScope scope;
  TempDir folder;
  WriteIncludeCycle(folder);
  CZOLServerSite site(1, nullptr);
  site.Build(Root(folder), -1, 1);
  CZOLServerPage* a = FindTemplate(site, "", "a.zol");
  ASSERT_NE(a, nullptr);
  const std::string html = a->HTMLExport(site.GetClockParameters());
  // a's own text, then 32 expanded includes, then the failure text where the 33rd would be.
  EXPECT_EQ(Occurrences(html, "A") + Occurrences(html, "B"), 33u);
  EXPECT_EQ(Occurrences(html, "Failed to include page ("), 1u);
  EXPECT_EQ(html.substr(html.size() - std::string("Failed to include page (b.zol).").size()),
            "Failed to include page (b.zol).");
}

TEST(SiteTemplates, ChainDeeperThanThirtyTwoIsCutInTheBrowserOnly) {
  PackageScope scope;
  TempDir folder;
  folder.Write("index.zol", Template("0" + Include("", "p1.zol")));
  for (int i = 1; i <= 40; ++i) {
    const std::string next = i < 40 ? Include("", "p" + std::to_string(i + 1) + ".zol") : "";
    folder.Write("p" + std::to_string(i) + ".zol", Template("|" + next));
  }
  CZOLServerSite site(1, nullptr);
  site.Build(Root(folder), -1, 1);
  EXPECT_EQ(site.GetParameter("pagecount"), "42");
  // Every link of the chain resolves on the wire.
  EXPECT_NE(FindTemplate(site, "", "p39.zol")->GetDataAsString().find(IncludeTag(site.PageFind("", "p40.zol"))),
            std::string::npos);
  const std::string html = FindTemplate(site, "", "index.zol")->HTMLExport(site.GetClockParameters());
  EXPECT_EQ(Occurrences(html, "|"), 32u);
  EXPECT_NE(html.find("Failed to include page (p33.zol)."), std::string::npos);
}

TEST(SiteTemplates, TemplateThatIsNotWellFormedGivesAnEmptyPageAndTheSiteGoesOn) {
  PackageScope scope;
  TempDir folder;
  folder.Write("index.zol", Template(Include("", "broken.zol") + Include("", "fine.zol")));
  folder.Write("broken.zol", "<zol><p></zol>");
  folder.Write("fine.zol", Template("fine"));
  folder.Write("style.css", "p{}");
  CZOLServerSite site(1, nullptr);
  site.Build(Root(folder), -1, 1);
  const COutputPage* broken = site.PageFind("", "broken.zol");
  ASSERT_NE(broken, nullptr);
  EXPECT_TRUE(broken->GetData().empty());
  ASSERT_NE(site.PageFind("", "fine.zol"), nullptr);
  EXPECT_NE(site.PageFind("", "fine.zol")->GetDataAsString().find("fine"), std::string::npos);
  EXPECT_NE(site.PageFind("", "style.css"), nullptr);
}

TEST(SiteTemplates, IncludeOfAMissingFileSendsNothingAndKeepsItsNumberUsed) {
  PackageScope scope;
  TempDir folder;
  folder.Write("index.zol", Template("[" + Include("", "gone.zol") + "]" + Include("", "here.zol")));
  folder.Write("here.zol", Template("here"));
  CZOLServerSite site(1, nullptr);
  site.Build(Root(folder), -1, 1);
  const CZOLServerPage* index = FindTemplate(site, "", "index.zol");
  ASSERT_NE(index, nullptr);
  EXPECT_NE(index->GetDataAsString().find("[]"), std::string::npos);
  // gone.zol took number 9 and gave it not back.
  EXPECT_EQ(NumberOf(site.PageFind("", "here.zol")), 10u);
  EXPECT_EQ(site.GetPages().count(9), 0u);
  EXPECT_NE(const_cast<CZOLServerPage*>(index)->HTMLExport(site.GetClockParameters()).find(
                "[Failed to include page (gone.zol).]"),
            std::string::npos);
}

TEST(SiteTemplates, HtmlFileThatIsAlsoAnIncludeTargetIsFoundTwice) {
  PackageScope scope;
  TempDir folder;
  folder.Write("index.zol", Template(Include("", "x.html")));
  folder.Write("x.html", "<p>x</p>");
  CZOLServerSite site(1, nullptr);
  site.Build(Root(folder), -1, 1);
  int named = 0;
  for (const auto& [number, page] : site.GetPages()) named += page->GetFilename() == "x.html" ? 1 : 0;
  EXPECT_EQ(named, 2);
  // The plain file of that name carries the file's bytes.
  bool plainFound = false;
  for (const auto& [number, page] : site.GetPages()) {
    if (page->GetFilename() == "x.html" && page->GetDataAsString() == "<p>x</p>") plainFound = true;
  }
  EXPECT_TRUE(plainFound);
}

TEST(SiteTemplates, IncludeWhoseTargetIsNotFoundKeepsWhatItHad) {
  PackageScope scope;
  TempDir folder;
  folder.Write("index.zol", Template(Include("", "a.zol")));
  folder.Write("a.zol", Template("A"));
  CZOLServerSite site(1, nullptr);
  site.Build(Root(folder), -1, 1);
  CZOLServerPage* index = FindTemplate(site, "", "index.zol");
  ASSERT_NE(index, nullptr);
  CZOLServerInclude* include = index->GetIncludes().begin()->second;
  CZOLServerPage* target = include->GetTarget();
  ASSERT_NE(target, nullptr);
  CZOLServerPage stranger(1, 50, 2, 40, "", "other.zol");
  index->Initialize(nullptr, -1, Root(folder), -1, Template(Include("", "nowhere.zol")));
  index->GetIncludes().begin()->second->SetTarget(&stranger);
  site.UpdatePageIncludes(index);
  EXPECT_EQ(index->GetIncludes().begin()->second->GetTarget(), &stranger);
  EXPECT_NE(index->GetDataAsString().find(IncludeTag(&stranger)), std::string::npos);
  index->GetIncludes().begin()->second->SetTarget(nullptr);
}

// With a live link to the data manager: the active run and the web page map.
struct SiteWithData : ::testing::Test {
  void SetUp() override {
    CBaseDataComm model;
    AddTrackAndEventGroup(model);
    link.Apply(DataEncoder::Snapshot(model));
    site = std::make_unique<CZOLServerSite>(1, &link.comm);
    site->SetParameter("name", "demo");
  }
  void TearDown() override { site.reset(); }
  // The data manager adds a run, then makes it the active one.
  void Activate(DWORD runId, BYTE type) {
    link.Apply(DataEncoder::AddRun(*MakeRun(runId, 0x80000002, type, 0)));
    link.Apply(DataEncoder::ModifyRun(*MakeRun(runId, 0x80000002, type, kRunActive)));
  }
  PackageScope scope;
  CLiveLink link;
  TempDir folder;
  std::unique_ptr<CZOLServerSite> site;
};

TEST_F(SiteWithData, EveryPageButTheInformationPageIsOfferedToTheBrowser) {
  folder.Write("index.zol", Template(Include("sub/", "a.zol")));
  folder.Write("sub/a.zol", Template("A"));
  folder.Write("img/logo.gif", "GIF89a");
  folder.Write("results/ZOLFeed.zol", "not the feed's folder");
  folder.Write("flash/ZOLFeed.zol", Template("feed"));
  site->Build(Root(folder), -1, 1);
  const auto& pages = link.module.GetWebPages();
  for (const char* path : {"demo/index.html", "demo/sub/a.html", "demo/img/logo.gif", "demo/flash/ZOLFeed.xml",
                           "demo/results/schedule.html"}) {
    EXPECT_EQ(pages.count(path), 1u) << path;
  }
  EXPECT_EQ(pages.count("demo/"), 0u);
  EXPECT_EQ(pages.at("demo/sub/a.html")->Title, "a.zol");
  EXPECT_EQ(pages.at("demo/sub/a.html")->Owner, site.get());
}

TEST_F(SiteWithData, RebuildTakesTheOldPagesOutOfTheWebPageMap) {
  folder.Write("old.html", "old");
  site->Build(Root(folder), -1, 1);
  ASSERT_EQ(link.module.GetWebPages().count("demo/old.html"), 1u);
  std::remove(folder.File("old.html").c_str());
  folder.Write("new.html", "new");
  site->Build(Root(folder), -1, 1);
  EXPECT_EQ(link.module.GetWebPages().count("demo/old.html"), 0u);
  EXPECT_EQ(link.module.GetWebPages().count("demo/new.html"), 1u);
  site.reset();
  EXPECT_EQ(link.module.GetWebPages().count("demo/new.html"), 0u);
}

TEST_F(SiteWithData, ActiveRunOfAnotherEventRebuildsTheSiteForThatEvent) {
  folder.Write("results/current.zol", Template("current"));
  site->Build(Root(folder), -1, 1);
  Activate(0x40000001, 2);
  EXPECT_EQ(site->GetEventId(), static_cast<int>(0x80000002));
  ASSERT_NE(site->GetActiveRun(), nullptr);
  EXPECT_EQ(site->GetActiveRun()->UniqueID, 0x40000001u);
  EXPECT_EQ(site->GetActiveRunType(), 2);
  EXPECT_EQ(site->GetInfoPage()->GetRun(), site->GetActiveRun());
  EXPECT_EQ(site->GetCurrentPage()->GetRunId(), static_cast<int>(0x40000001));
  EXPECT_EQ(site->GetCurrentPage()->GetEventId(), static_cast<int>(0x80000002));
  EXPECT_NE(site->PageFind("results/", "current.zol"), nullptr);
}

TEST_F(SiteWithData, SameRunOfTheSameTypeChangesNothingButANewTypeReimports) {
  folder.Write("results/current.zol", Template("first"));
  site->Build(Root(folder), -1, 1);
  Activate(0x40000001, 0);
  CRun* run = site->GetActiveRun();
  ASSERT_NE(run, nullptr);
  folder.Write("results/current.zol", Template("second"));
  site->OnActiveRunChanged(run);
  EXPECT_NE(site->GetCurrentPage()->GetDataAsString().find("first"), std::string::npos);
  run->RunType = 2;
  site->OnActiveRunChanged(run);
  EXPECT_NE(site->GetCurrentPage()->GetDataAsString().find("second"), std::string::npos);
  EXPECT_EQ(site->GetActiveRunType(), 2);
}

TEST_F(SiteWithData, NoActiveRunDetachesTheInformationPageButLeavesRunPagesAlone) {
  folder.Write("results/current.zol", Template("bound"));
  site->Build(Root(folder), -1, 1);
  Activate(0x40000001, 2);
  ASSERT_NE(site->GetActiveRun(), nullptr);
  const std::string before = site->GetCurrentPage()->GetDataAsString();
  folder.Write("results/current.zol", Template("changed on disk"));
  site->OnActiveRunChanged(nullptr);
  EXPECT_EQ(site->GetActiveRun(), nullptr);
  EXPECT_EQ(site->GetInfoPage()->GetRun(), nullptr);
  EXPECT_EQ(site->GetCurrentPage()->GetDataAsString(), before);
  EXPECT_EQ(site->GetCurrentPage()->GetRunId(), static_cast<int>(0x40000001));
}

TEST_F(SiteWithData, TimerKeepsTheClockGoingWhileNoViewOfTheRunDrivesIt) {
  site->Build(Root(folder), -1, 1);
  site->OnTimerEvent();
  const BYTE version = site->GetInfoPage()->GetSequenceLow();
  site->OnTimerEvent();
  EXPECT_NE(site->GetInfoPage()->GetSequenceLow(), version);
  Activate(0x40000001, 2);
  ASSERT_NE(site->GetActiveRun(), nullptr);
  ASSERT_FALSE(site->GetInfoPage()->IsDrivenByRun());
  const BYTE bound = site->GetInfoPage()->GetSequenceLow();
  site->OnTimerEvent();
  EXPECT_NE(site->GetInfoPage()->GetSequenceLow(), bound);
}

TEST_F(SiteWithData, PageWhoseRootIsNotZolIsPresentWithAWebPageAndZeroLengthData) {
  folder.Write("index.zol", Template(Include("", "other.zol")));
  folder.Write("other.zol", "<html><p>not a template root</p></html>");
  site->Build(Root(folder), -1, 1);
  const COutputPage* other = site->PageFind("", "other.zol");
  ASSERT_NE(other, nullptr);
  EXPECT_TRUE(other->GetData().empty());
  EXPECT_EQ(link.module.GetWebPages().count("demo/other.html"), 1u);
  // The including page still points at it on the wire.
  EXPECT_NE(site->PageFind("", "index.zol")->GetDataAsString().find(IncludeTag(other)), std::string::npos);
}

// Page numbers have nine bits. Files beyond page 511 are left out with a log line, so no
// page takes another's number and every page the browser is offered still exists.
TEST_F(SiteWithData, FilesBeyondTheLastPageNumberAreLeftOutWithALogLine) {
  LogCapturePackage log;
  log.ApplicationDirectory = folder.Path();
  InstalledPackage installed(&log);
  folder.Write("index.zol", Template(Include("", "linked.zol")));
  folder.Write("linked.zol", Template("linked"));
  for (int i = 0; i < 520; ++i) folder.Write("f" + std::to_string(1000 + i) + ".html", "file " + std::to_string(i));
  site->Build(Root(folder), -1, 1);

  // Pages 0 and 1, the two linked templates at 8 and 9, then files at 10 to 511.
  const auto& pages = site->GetPages();
  EXPECT_EQ(pages.size(), 2u + 2u + 502u);
  EXPECT_EQ(site->GetParameter("pagecount"), std::to_string(pages.size() - 1));
  EXPECT_EQ(pages.at(0), site->GetInfoPage());
  EXPECT_EQ(pages.rbegin()->first, 511u);
  for (const auto& [number, page] : pages) EXPECT_EQ(NumberOf(page), number);
  EXPECT_EQ(site->PageFind("", "f1502.html"), nullptr);
  EXPECT_NE(site->PageFind("", "f1501.html"), nullptr);
  EXPECT_TRUE(log.HasLine("Site demo: 18 file(s) left out; a site has page numbers up to 511"));

  // Every file page offered to the browser answers with that file's own content.
  int answered = 0;
  for (const auto& [path, webPage] : link.module.GetWebPages()) {
    if (path.rfind("demo/f", 0) != 0) continue;
    CKVTHttpRequest request;
    request.Path = path;
    CKVTHttpResponse response;
    webPage->HandleRequest(request, response);
    EXPECT_EQ(response.Status, 200) << path;
    const int index = std::stoi(path.substr(std::string("demo/f").size())) - 1000;
    EXPECT_EQ(response.BodyText(), "file " + std::to_string(index)) << path;
    ++answered;
  }
  EXPECT_EQ(answered, 502);
  EXPECT_EQ(link.module.GetWebPages().count("demo/f1501.html"), 1u);
  EXPECT_EQ(link.module.GetWebPages().count("demo/f1502.html"), 0u);
}

TEST_F(SiteWithData, PageAddedUnderATakenNumberReplacesTheOldPageAndItsWebPage) {
  folder.Write("a.html", "a");
  site->Build(Root(folder), -1, 1);
  ASSERT_NE(site->PageFind("", "a.html"), nullptr);
  const DWORD number = NumberOf(site->PageFind("", "a.html"));
  auto* replacement = new COutputPage(1, number, 2, 30, "", "b.html");
  site->AddPageToSite(replacement);
  EXPECT_EQ(site->GetPages().at(number), replacement);
  EXPECT_EQ(link.module.GetWebPages().count("demo/a.html"), 0u);
  EXPECT_EQ(link.module.GetWebPages().count("demo/b.html"), 1u);
}
