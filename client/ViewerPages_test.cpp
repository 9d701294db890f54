#include "client/ViewerPages.h"

#include <gtest/gtest.h>

namespace zolclient {
namespace {

ReceivedPage MakePage(DWORD site, DWORD number, const std::string& path, const std::string& name,
                      const std::string& text, BYTE low = 1) {
  ReceivedPage page;
  page.SiteNumber = site;
  page.PageNumber = number;
  page.SequenceHigh = 0;
  page.SequenceLow = low;
  page.Record.Path = path;
  page.Record.Name = name;
  page.Record.Data.assign(text.begin(), text.end());
  return page;
}

TEST(ViewerPages, KeepsTheNewestVersionOfEachPageUnderItsWebName) {
  CViewerPages pages;
  pages.OnPage(MakePage(1, 2, "results/", "current.zol", "first", 1));
  pages.OnPage(MakePage(1, 2, "results/", "current.zol", "second", 2));
  pages.OnPage(MakePage(1, 3, "", "style.css", "body{}"));
  const auto found = pages.FindByWebName(1, "results/current.html");
  ASSERT_TRUE(found.has_value());
  EXPECT_EQ(*found->Data, "second");
  EXPECT_EQ(found->Version, "0.2");
  EXPECT_TRUE(found->IsZolPage);
  EXPECT_FALSE(pages.FindByWebName(2, "results/current.html").has_value());
  EXPECT_FALSE(pages.FindByWebName(1, "style.css")->IsZolPage);
  EXPECT_EQ(pages.Pages().size(), 2u);
  EXPECT_EQ(pages.Sites(), std::vector<DWORD>{1});
}

TEST(ViewerPages, TellsEachChangeOnceInOrderAndWhenSomeWereDropped) {
  CViewerPages pages;
  int told = 0;
  pages.SetChangeListener([&] { ++told; });
  for (int i = 0; i < 3; ++i) pages.OnPage(MakePage(1, 2 + i, "", "p" + std::to_string(i) + ".zol", "x"));
  EXPECT_EQ(told, 3);
  bool missed = true;
  auto events = pages.EventsAfter(1, missed);
  EXPECT_FALSE(missed);
  ASSERT_EQ(events.size(), 2u);
  EXPECT_EQ(events[0].Number, 3u);
  EXPECT_EQ(events[1].Number, 4u);
  EXPECT_EQ(events[1].WebName, "p2.html");
  EXPECT_TRUE(pages.EventsAfter(3, missed).empty());

  for (std::size_t i = 0; i < CViewerPages::kKeptEvents + 10; ++i) pages.OnPage(MakePage(1, 9, "", "q.zol", "y"));
  events = pages.EventsAfter(1, missed);
  EXPECT_TRUE(missed);
  ASSERT_EQ(events.size(), CViewerPages::kKeptEvents);
  EXPECT_EQ(events.back().Sequence, pages.LastSequence());
  EXPECT_EQ(events.front().Sequence, pages.LastSequence() - CViewerPages::kKeptEvents + 1);
}

TEST(ViewerPages, TheContentGenerationMovesWithPagesNotWithTheClock) {
  CViewerPages pages;
  pages.OnPage(MakePage(1, 2, "", "a.zol", "x"));
  const auto generation = pages.ContentGeneration(1);
  pages.OnSiteClock(1, {{"racetime", "0:01:00"}});
  EXPECT_EQ(pages.ContentGeneration(1), generation);
  EXPECT_EQ(pages.SiteStatus(1).Clock.at("racetime"), "0:01:00");
  pages.OnPage(MakePage(1, 3, "", "b.zol", "x"));
  EXPECT_NE(pages.ContentGeneration(1), generation);
}

TEST(ViewerPages, TheStreamIsLostWithoutPacketsAndBackWithOne) {
  CViewerPages pages;
  EXPECT_TRUE(pages.SiteStatus(1).Lost());
  EXPECT_FALSE(pages.SiteStatus(1).SincePacket.has_value());
  pages.OnPacket();
  const auto status = pages.SiteStatus(1);
  ASSERT_TRUE(status.SincePacket.has_value());
  EXPECT_LT(*status.SincePacket, CViewerPages::kLostAfterSeconds);
  EXPECT_FALSE(status.Lost());
  CViewerPages::Status old;
  old.SincePacket = 10.5;
  EXPECT_TRUE(old.Lost());
}

}  // namespace
}  // namespace zolclient
