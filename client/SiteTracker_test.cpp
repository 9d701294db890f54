#include "client/SiteTracker.h"

#include <gtest/gtest.h>

#include "client/InformationRecords.h"

namespace {

using handbuilt::Bytes;
using zolclient::CSiteTracker;
using zolclient::InformationOutcome;

Bytes WithSite(DWORD buildTime, int pageCount, const std::string& name = "board") {
  const CParameters site = inforecords::SiteParameters(name, pageCount);
  return inforecords::Record(buildTime, inforecords::Clock(), &site);
}

Bytes WithoutSite(DWORD buildTime, const std::string& timeOfDay = "10:15:22") {
  return inforecords::Record(buildTime, inforecords::Clock("green", timeOfDay), nullptr);
}

TEST(SiteTracker, NoSiteIsNeverComplete) {
  CSiteTracker tracker;
  EXPECT_FALSE(tracker.AllSitesComplete());
  EXPECT_EQ(tracker.Shortfalls(), std::vector<std::string>{"no site seen"});
}

TEST(SiteTracker, PageCountIsReachedByDistinctPagesWhateverTheirNumbers) {
  CSiteTracker tracker;
  EXPECT_EQ(tracker.OnInformationPage(1, WithSite(100, 3)), InformationOutcome::FirstSeen);
  tracker.OnContentPage(1, 1);
  tracker.OnContentPage(1, 8);
  tracker.OnContentPage(1, 8);  // the same page again counts once
  EXPECT_FALSE(tracker.IsComplete(1));
  EXPECT_EQ(tracker.Shortfalls(), std::vector<std::string>{"site 1: 2 of 3 pages complete"});
  tracker.OnContentPage(1, 10);  // 9 is a gap left by a failed import
  EXPECT_TRUE(tracker.IsComplete(1));
  EXPECT_TRUE(tracker.AllSitesComplete());
  EXPECT_TRUE(tracker.Shortfalls().empty());
}

TEST(SiteTracker, PageZeroIsNotOneOfTheCountedPages) {
  CSiteTracker tracker;
  tracker.OnInformationPage(2, WithSite(100, 1));
  tracker.OnContentPage(2, 0);
  EXPECT_FALSE(tracker.IsComplete(2));
  tracker.OnContentPage(2, 1);
  EXPECT_TRUE(tracker.IsComplete(2));
}

TEST(SiteTracker, SiteWithAPageCountOfZeroIsCompleteWithItsInformationPage) {
  CSiteTracker tracker;
  tracker.NoteSite(3);
  EXPECT_FALSE(tracker.IsComplete(3));
  EXPECT_EQ(tracker.Shortfalls(), std::vector<std::string>{"site 3: no information page"});
  tracker.OnInformationPage(3, WithSite(100, 0));
  EXPECT_TRUE(tracker.AllSitesComplete());
}

TEST(SiteTracker, WithoutSiteParametersTheSiteWaits) {
  CSiteTracker tracker;
  tracker.OnInformationPage(1, WithoutSite(100));
  tracker.OnContentPage(1, 1);
  EXPECT_FALSE(tracker.IsComplete(1));
  EXPECT_EQ(tracker.Shortfalls(), std::vector<std::string>{"site 1: no site parameters since its build time"});
  EXPECT_EQ(tracker.OnInformationPage(1, WithSite(100, 1)), InformationOutcome::SameBuild);
  EXPECT_TRUE(tracker.IsComplete(1));
  // Later exports without the site's parameters keep what the earlier one brought.
  tracker.OnInformationPage(1, WithoutSite(100, "10:15:23"));
  EXPECT_TRUE(tracker.IsComplete(1));
  EXPECT_EQ(tracker.Sites().at(1).SiteParameters.at("name"), "board");
  EXPECT_EQ(tracker.Sites().at(1).Clock.at("timeofday"), "10:15:23");
}

TEST(SiteTracker, PageCountThatIsNoNumberNeverCompletes) {
  CSiteTracker tracker;
  CParameters site = inforecords::SiteParameters("odd", 1);
  site.Add("pagecount", "many");
  tracker.OnInformationPage(1, inforecords::Record(1, inforecords::Clock(), &site));
  tracker.OnContentPage(1, 1);
  EXPECT_FALSE(tracker.IsComplete(1));
  EXPECT_EQ(tracker.Shortfalls(), std::vector<std::string>{"site 1: no page count in its site parameters"});
}

TEST(SiteTracker, PagesBeforeTheFirstInformationPageCountForTheFirstBuild) {
  CSiteTracker tracker;
  tracker.NoteSite(1);
  tracker.OnContentPage(1, 1);
  tracker.OnContentPage(1, 8);
  tracker.OnInformationPage(1, WithSite(100, 2));
  EXPECT_TRUE(tracker.IsComplete(1));
}

TEST(SiteTracker, NewBuildTimeStartsTheSiteAfresh) {
  CSiteTracker tracker;
  tracker.OnInformationPage(1, WithSite(100, 1));
  tracker.OnContentPage(1, 8);
  ASSERT_TRUE(tracker.IsComplete(1));
  EXPECT_EQ(tracker.OnInformationPage(1, WithoutSite(200)), InformationOutcome::Rebuilt);
  EXPECT_FALSE(tracker.IsComplete(1));
  EXPECT_TRUE(tracker.Sites().at(1).CompletePages.empty());
  EXPECT_FALSE(tracker.Sites().at(1).HasSiteParameters);
  tracker.OnContentPage(1, 8);
  EXPECT_FALSE(tracker.IsComplete(1)) << "the new build's page count is not known yet";
  tracker.OnInformationPage(1, WithSite(200, 2));
  EXPECT_FALSE(tracker.IsComplete(1));
  tracker.OnContentPage(1, 9);
  EXPECT_TRUE(tracker.IsComplete(1));
  EXPECT_EQ(tracker.Sites().at(1).Rebuilds, 1u);
}

TEST(SiteTracker, EverySiteHeardMustBeComplete) {
  CSiteTracker tracker;
  tracker.OnInformationPage(1, WithSite(100, 0));
  tracker.NoteSite(4);  // packets of site 4 came, nothing of it is complete yet
  EXPECT_FALSE(tracker.AllSitesComplete());
  tracker.OnInformationPage(4, WithSite(300, 1, "second"));
  EXPECT_FALSE(tracker.AllSitesComplete());
  EXPECT_EQ(tracker.Shortfalls(), std::vector<std::string>{"site 4: 0 of 1 pages complete"});
  tracker.OnContentPage(4, 1);
  EXPECT_TRUE(tracker.AllSitesComplete());
}

TEST(SiteTracker, BadInformationPageIsCountedAndChangesNothing) {
  CSiteTracker tracker;
  tracker.OnInformationPage(1, WithSite(100, 0));
  std::string reason;
  EXPECT_EQ(tracker.OnInformationPage(1, handbuilt::TextBytes("not binary"), &reason),
            InformationOutcome::NotInformation);
  EXPECT_FALSE(reason.empty());
  EXPECT_EQ(tracker.Sites().at(1).BadInformationPages, 1u);
  EXPECT_EQ(tracker.Sites().at(1).BuildTime, 100u);
  EXPECT_TRUE(tracker.IsComplete(1));
}

TEST(SiteTracker, StatsLineShowsNamePageCountAndClock) {
  CSiteTracker tracker;
  tracker.OnInformationPage(1, WithSite(100, 2, "Main\nboard"));
  tracker.OnContentPage(1, 8);
  tracker.NoteSite(5);
  EXPECT_EQ(tracker.StatsLines(),
            "site 1: name Main\\x0aboard, pagecount 2, pages complete 1, build time 100, information pages 1, bad 0, "
            "rebuilds 0, flag green, racetime 0:12:03.400, timeofday 10:15:22, timetogo -\n"
            "site 5: no information page, pages complete 0, bad information pages 0\n");
}

TEST(SiteTracker, InformationFileHoldsKeyValueLines) {
  CSiteTracker tracker;
  EXPECT_EQ(tracker.InformationFileText(1), "");
  tracker.OnInformationPage(1, WithSite(100, 2));
  tracker.OnContentPage(1, 3);
  EXPECT_EQ(tracker.InformationFileText(1),
            "site=1\nbuildtime=100\nclock.flag=green\nclock.racetime=0:12:03.400\nclock.timeofday=10:15:22\n"
            "clock.timetogo=-\nsite.height=600\nsite.name=board\nsite.pagecount=2\nsite.width=800\n"
            "pagescomplete=1\n");
}

TEST(SiteTracker, PrintableTextEscapesC0AndC1ControlsAndKeepsOtherUtf8) {
  using zolclient::PrintableText;
  EXPECT_EQ(PrintableText("a\x1b[2Jb\x7f"), "a\\x1b[2Jb\\x7f");
  // C1 as single bytes, which an eight-bit terminal obeys (0x9B is CSI) ...
  EXPECT_EQ(PrintableText("x\x9b" "31mred\x80\x9f"), "x\\x9b31mred\\x80\\x9f");
  // ... and as UTF-8 (U+009B), which a UTF-8 terminal may obey.
  EXPECT_EQ(PrintableText("x\xc2\x9b" "31m"), "x\\xc2\\x9b31m");
  // Characters whose UTF-8 holds bytes from 0x80 to 0x9F are no controls.
  EXPECT_EQ(PrintableText("Rennstrecke \xc4\x9b \xe2\x82\xac \xc3\x84"), "Rennstrecke \xc4\x9b \xe2\x82\xac \xc3\x84");
  // A sequence that is not UTF-8 (cut off, overlong, a stray continuation byte).
  EXPECT_EQ(PrintableText("\xe2\x82"), "\xe2\\x82");
  EXPECT_EQ(PrintableText("\xc0\x9b"), "\xc0\\x9b");
  EXPECT_EQ(PrintableText("\xe9t\xe9"), "\xe9t\xe9");  // Latin-1 letters stay
}

}  // namespace
