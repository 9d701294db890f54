#include "client/PageWriter.h"

#include <gtest/gtest.h>

#include <fstream>
#include <random>

#include "client/TestFolders.h"

namespace {

namespace fs = std::filesystem;
using testfolders::ListTree;
using testfolders::ReadWholeFile;
using testfolders::ScopedTempFolder;
using zolclient::CPageWriter;
using zolclient::ReceivedPage;
using zolclient::SafeRelativeLocation;
using zolclient::WriteResult;

// A page of site 1; pages with different numbers keep files of their own.
ReceivedPage MakePage(const std::string& path, const std::string& name, const std::string& text,
                      DWORD pageNumber = 1) {
  ReceivedPage page;
  page.SiteNumber = 1;
  page.PageNumber = pageNumber;
  page.Record.Path = path;
  page.Record.Name = name;
  page.Record.Data.assign(text.begin(), text.end());
  return page;
}

std::string Relative(const std::string& path, const std::string& name) {
  std::string relative;
  if (!SafeRelativeLocation(path, name, relative)) return "<refused>";
  return relative;
}

TEST(PageWriterLocation, OrdinaryPathsAndNamesAreKept) {
  EXPECT_EQ(Relative("", "index.html"), "index.html");
  EXPECT_EQ(Relative("results/", "list.html"), "results/list.html");
  EXPECT_EQ(Relative("results", "list.html"), "results/list.html");
  EXPECT_EQ(Relative("a//b/./c/", "x.gif"), "a/b/c/x.gif");
  EXPECT_EQ(Relative("a..b/", "..x"), "a..b/..x");
}

TEST(PageWriterLocation, TraversalAbsoluteAndBackslashAreRefused) {
  EXPECT_EQ(Relative("../", "x"), "<refused>");
  EXPECT_EQ(Relative("a/../../b", "x"), "<refused>");
  EXPECT_EQ(Relative("a/..", "x"), "<refused>");
  EXPECT_EQ(Relative("..", "x"), "<refused>");
  EXPECT_EQ(Relative("/etc/", "passwd"), "<refused>");
  EXPECT_EQ(Relative("a\\..\\b", "x"), "<refused>");
  EXPECT_EQ(Relative("a", "..\\x"), "<refused>");
  EXPECT_EQ(Relative("", ".."), "<refused>");
  EXPECT_EQ(Relative("", "."), "<refused>");
  EXPECT_EQ(Relative("", ""), "<refused>");
  EXPECT_EQ(Relative("", "a/b"), "<refused>");
  EXPECT_EQ(Relative("", "/x"), "<refused>");
  EXPECT_EQ(Relative(std::string("a\0b", 3), "x"), "<refused>");
  EXPECT_EQ(Relative("a", std::string("x\0y", 3)), "<refused>");
}

TEST(PageWriter, WritesPagesAtTheirPathAndReplacesThemWithNewVersions) {
  ScopedTempFolder temp;
  CPageWriter writer((temp.Path() / "out").string());
  std::string error;
  ASSERT_TRUE(writer.Prepare(error));
  EXPECT_EQ(writer.Write(MakePage("results/heat 1/", "list.html", "one")), WriteResult::Written);
  EXPECT_EQ(ReadWholeFile(temp.Path() / "out/results/heat 1/list.html"), "one");
  EXPECT_EQ(writer.Write(MakePage("results/heat 1/", "list.html", "two!")), WriteResult::Written);
  EXPECT_EQ(ReadWholeFile(temp.Path() / "out/results/heat 1/list.html"), "two!");
  EXPECT_EQ(writer.Write(MakePage("", "empty.txt", "", 2)), WriteResult::Written);
  EXPECT_TRUE(fs::is_regular_file(temp.Path() / "out/empty.txt"));
  EXPECT_EQ(fs::file_size(temp.Path() / "out/empty.txt"), 0u);
  EXPECT_EQ(writer.Counters().Written, 3u);
  // No part files are left behind.
  EXPECT_EQ(ListTree(temp.Path() / "out"),
            (std::vector<std::string>{"empty.txt", "results", "results/heat 1", "results/heat 1/list.html"}));
}

TEST(PageWriter, RefusedLocationsWriteNothingAndAreCounted) {
  ScopedTempFolder temp;
  fs::create_directories(temp.Path() / "out");
  CPageWriter writer((temp.Path() / "out").string());
  EXPECT_EQ(writer.Write(MakePage("../", "escaped.html", "x")), WriteResult::Refused);
  EXPECT_EQ(writer.Write(MakePage("/tmp/", "abs.html", "x")), WriteResult::Refused);
  EXPECT_EQ(writer.Write(MakePage("a\\b", "c", "x")), WriteResult::Refused);
  EXPECT_EQ(writer.Counters().Refused, 3u);
  EXPECT_EQ(ListTree(temp.Path()), std::vector<std::string>{"out"});
}

TEST(PageWriter, SymbolicLinkOnTheWayIsRefused) {
  ScopedTempFolder temp;
  fs::create_directories(temp.Path() / "out");
  fs::create_directories(temp.Path() / "elsewhere");
  fs::create_directory_symlink(temp.Path() / "elsewhere", temp.Path() / "out/link");
  { std::ofstream(temp.Path() / "elsewhere/target.html") << "keep"; }
  fs::create_symlink(temp.Path() / "elsewhere/target.html", temp.Path() / "out/file.html");
  CPageWriter writer((temp.Path() / "out").string());
  EXPECT_EQ(writer.Write(MakePage("link/", "new.html", "x")), WriteResult::Refused);
  EXPECT_EQ(writer.Write(MakePage("", "file.html", "x")), WriteResult::Refused);
  EXPECT_EQ(ListTree(temp.Path() / "elsewhere"), std::vector<std::string>{"target.html"});
  EXPECT_EQ(ReadWholeFile(temp.Path() / "elsewhere/target.html"), "keep");
}

TEST(PageWriter, FileInPlaceOfAFolderFailsAndIsCounted) {
  ScopedTempFolder temp;
  fs::create_directories(temp.Path() / "out");
  CPageWriter writer((temp.Path() / "out").string());
  EXPECT_EQ(writer.Write(MakePage("", "a", "file")), WriteResult::Written);
  EXPECT_EQ(writer.Write(MakePage("a/", "b", "x")), WriteResult::Failed);
  EXPECT_EQ(writer.Write(MakePage("", "a", "again")), WriteResult::Written);
  fs::create_directories(temp.Path() / "out/dir");
  EXPECT_EQ(writer.Write(MakePage("", "dir", "x")), WriteResult::Failed);
  EXPECT_EQ(writer.Counters().Failed, 2u);
}

TEST(PageWriter, RandomLocationsNeverLeaveTheOutputFolder) {
  ScopedTempFolder temp;
  fs::create_directories(temp.Path() / "out");
  fs::create_directories(temp.Path() / "sibling");
  CPageWriter writer((temp.Path() / "out").string());
  const std::vector<std::string> pieces = {"..", ".", "", "a", "b..", "/", "\\", "..\\", "c", "...", "~", "%2e%2e"};
  std::mt19937 random(20261122);
  std::size_t written = 0;
  for (int i = 0; i < 3000; ++i) {
    std::string path, name;
    const int pathParts = static_cast<int>(random() % 5);
    for (int p = 0; p < pathParts; ++p) {
      path += pieces[random() % pieces.size()];
      if (random() % 3 != 0) path += "/";
    }
    const int nameParts = 1 + static_cast<int>(random() % 2);
    for (int p = 0; p < nameParts; ++p) name += pieces[random() % pieces.size()];
    if (writer.Write(MakePage(path, name, "p")) == WriteResult::Written) ++written;
  }
  EXPECT_GT(written, 100u);
  EXPECT_GT(writer.Counters().Refused, 100u);
  EXPECT_EQ(writer.Counters().Written + writer.Counters().Refused + writer.Counters().Failed, 3000u);
  const std::vector<std::string> top = ListTree(temp.Path());
  for (const std::string& entry : top) {
    EXPECT_TRUE(entry == "out" || entry == "sibling" || entry.rfind("out/", 0) == 0) << entry;
  }
  EXPECT_TRUE(ListTree(temp.Path() / "sibling").empty());
}

TEST(PageWriter, PageUnderANewPathOrNameLeavesOnlyItsNewFile) {
  ScopedTempFolder temp;
  const fs::path out = temp.Path() / "out";
  CPageWriter writer(out.string());
  std::string error;
  ASSERT_TRUE(writer.Prepare(error));
  ASSERT_EQ(writer.Write(MakePage("v1/deep/", "list.html", "one")), WriteResult::Written);
  ASSERT_EQ(writer.Write(MakePage("v2/", "list.html", "two")), WriteResult::Written);
  // The old file goes, and so do the folders it leaves empty.
  EXPECT_EQ(ListTree(out), (std::vector<std::string>{"v2", "v2/list.html"}));
  ASSERT_EQ(writer.Write(MakePage("v2/", "renamed.html", "three")), WriteResult::Written);
  EXPECT_EQ(ListTree(out), (std::vector<std::string>{"v2", "v2/renamed.html"}));
  EXPECT_EQ(ReadWholeFile(out / "v2/renamed.html"), "three");
  EXPECT_EQ(writer.Counters().Removed, 2u);
  EXPECT_EQ(writer.BytesHeld(), 5u);
  // Many versions under ever new names still leave one file.
  for (int i = 0; i < 50; ++i) {
    ASSERT_EQ(writer.Write(MakePage("n" + std::to_string(i) + "/", "p" + std::to_string(i), "x")),
              WriteResult::Written);
  }
  EXPECT_EQ(ListTree(out), (std::vector<std::string>{"n49", "n49/p49"}));
  EXPECT_EQ(writer.BytesHeld(), 1u);
}

TEST(PageWriter, OldLocationStaysWhileAnotherPageOrSomeoneElseHoldsIt) {
  ScopedTempFolder temp;
  const fs::path out = temp.Path() / "out";
  CPageWriter writer(out.string());
  std::string error;
  ASSERT_TRUE(writer.Prepare(error));
  ASSERT_EQ(writer.Write(MakePage("", "shared.html", "a", 1)), WriteResult::Written);
  ASSERT_EQ(writer.Write(MakePage("", "shared.html", "b", 2)), WriteResult::Written);
  ASSERT_EQ(writer.Write(MakePage("", "moved.html", "c", 1)), WriteResult::Written);
  EXPECT_EQ(ReadWholeFile(out / "shared.html"), "b");
  // A folder that still holds a file of someone else stays when a page leaves it.
  ASSERT_EQ(writer.Write(MakePage("keep/", "p.html", "d", 3)), WriteResult::Written);
  { std::ofstream(out / "keep/mine.txt") << "not the client's"; }
  ASSERT_EQ(writer.Write(MakePage("", "p.html", "e", 3)), WriteResult::Written);
  EXPECT_EQ(ListTree(out),
            (std::vector<std::string>{"keep", "keep/mine.txt", "moved.html", "p.html", "shared.html"}));
  // The same page number in another site is another page.
  ReceivedPage other = MakePage("", "other.html", "f", 3);
  other.SiteNumber = 2;
  ASSERT_EQ(writer.Write(other), WriteResult::Written);
  EXPECT_TRUE(fs::exists(out / "p.html"));
}

TEST(PageWriter, ByteLimitStopsAllWritingAndIsCounted) {
  ScopedTempFolder temp;
  const fs::path out = temp.Path() / "out";
  CPageWriter writer(out.string(), 10);
  std::string error;
  ASSERT_TRUE(writer.Prepare(error));
  EXPECT_EQ(writer.Write(MakePage("", "a", "123456", 1)), WriteResult::Written);
  // A new version of a page gives back the bytes of the one it replaces.
  EXPECT_EQ(writer.Write(MakePage("", "a", "1234567", 1)), WriteResult::Written);
  EXPECT_EQ(writer.BytesHeld(), 7u);
  EXPECT_FALSE(writer.LimitReached());
  EXPECT_EQ(writer.Write(MakePage("", "b", "1234", 2)), WriteResult::OverLimit);
  EXPECT_TRUE(writer.LimitReached());
  // From then on nothing is written, even what would fit.
  EXPECT_EQ(writer.Write(MakePage("", "c", "1", 3)), WriteResult::OverLimit);
  EXPECT_EQ(writer.WriteInformation(1, "x"), WriteResult::OverLimit);
  EXPECT_EQ(writer.Counters().OverLimit, 3u);
  EXPECT_EQ(writer.Counters().Written, 2u);
  EXPECT_EQ(ListTree(out), std::vector<std::string>{"a"});
  EXPECT_EQ(ReadWholeFile(out / "a"), "1234567");
}

TEST(PageWriter, InformationFilesCountTowardsTheLimit) {
  ScopedTempFolder temp;
  const fs::path out = temp.Path() / "out";
  CPageWriter writer(out.string(), 8);
  std::string error;
  ASSERT_TRUE(writer.Prepare(error));
  EXPECT_EQ(writer.WriteInformation(1, "12345"), WriteResult::Written);
  EXPECT_EQ(writer.WriteInformation(1, "1234"), WriteResult::Written);
  EXPECT_EQ(writer.BytesHeld(), 4u);
  EXPECT_EQ(writer.Write(MakePage("", "a", "12345")), WriteResult::OverLimit);
}

}  // namespace
