#include "client/ClientSession.h"

#include <gtest/gtest.h>

#include <sstream>

#include "client/InformationRecords.h"
#include "client/TestFolders.h"

namespace {

using handbuilt::Bytes;
using testfolders::ListTree;
using testfolders::ReadWholeFile;
using testfolders::ScopedTempFolder;

void Feed(zolclient::CClientSession& session, const std::vector<Bytes>& packets) {
  const Bytes all = handbuilt::Join(packets);
  session.OnStreamBytes(all.data(), all.size());
}

std::size_t Count(const std::string& text, const std::string& part) {
  std::size_t n = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
  return n;
}

TEST(ClientSessionSites, InformationPageIsWrittenAsTextBesideThePagesAndNeverUnderAnEmptyName) {
  ScopedTempFolder temp;
  std::ostringstream out, err;
  zolclient::CClientSession session(128, (temp.Path() / "out").string(), out, err);
  std::string error;
  ASSERT_TRUE(session.Prepare(error)) << error;
  const CParameters site = inforecords::SiteParameters("board", 2);
  Feed(session, inforecords::Packets(1, 1, inforecords::Record(100, inforecords::Clock(), &site)));
  EXPECT_FALSE(session.AllSitesComplete());
  Feed(session, handbuilt::PagePackets(1, 1, 0, 1, "results/", "schedule.html", handbuilt::TextBytes("s")));
  EXPECT_FALSE(session.AllSitesComplete());
  Feed(session, handbuilt::PagePackets(1, 9, 0, 1, "", "a.css", handbuilt::TextBytes("p{}")));
  EXPECT_TRUE(session.AllSitesComplete());

  EXPECT_NE(out.str().find("site 1 page 0 (information) "), std::string::npos) << out.str();
  EXPECT_EQ(ListTree(temp.Path() / "out"),
            (std::vector<std::string>{"_site1.info", "a.css", "results", "results/schedule.html"}));
  EXPECT_NE(ReadWholeFile(temp.Path() / "out" / "_site1.info").find("site.pagecount=2\n"), std::string::npos);
  EXPECT_EQ(err.str(), "");
  const std::string stats = session.StatsText();
  EXPECT_NE(stats.find("information files written 1\n"), std::string::npos) << stats;
  EXPECT_NE(stats.find("site 1: name board, pagecount 2, pages complete 2,"), std::string::npos) << stats;
}

TEST(ClientSessionSites, RebuiltSiteIsTakenAgainEvenWhereItsVersionsRepeat) {
  ScopedTempFolder temp;
  std::ostringstream out, err;
  zolclient::CClientSession session(128, (temp.Path() / "out").string(), out, err);
  std::string error;
  ASSERT_TRUE(session.Prepare(error)) << error;
  const CParameters site = inforecords::SiteParameters("board", 1);
  Feed(session, inforecords::Packets(1, 1, inforecords::Record(100, inforecords::Clock(), &site)));
  Feed(session, handbuilt::PagePackets(1, 8, 0, 1, "", "a.html", handbuilt::TextBytes("old")));
  ASSERT_TRUE(session.AllSitesComplete());

  // The rebuilt site numbers its pages afresh and its new page objects count their
  // versions from the start: page 8 comes as version 0.1 again, with other content.
  Feed(session, inforecords::Packets(1, 2, inforecords::Record(200, inforecords::Clock(), nullptr)));
  EXPECT_NE(out.str().find("site 1 rebuilt: build time 200\n"), std::string::npos) << out.str();
  EXPECT_FALSE(session.AllSitesComplete());
  Feed(session, handbuilt::PagePackets(1, 8, 0, 1, "", "b.html", handbuilt::TextBytes("new")));
  EXPECT_EQ(ReadWholeFile(temp.Path() / "out" / "b.html"), "new");
  EXPECT_FALSE(session.AllSitesComplete()) << "the page count of the new build is not known yet";
  Feed(session, inforecords::Packets(1, 3, inforecords::Record(200, inforecords::Clock(), &site)));
  EXPECT_TRUE(session.AllSitesComplete());
  // Without a rebuild the same version is only a repeat.
  Feed(session, handbuilt::PagePackets(1, 8, 0, 1, "", "b.html", handbuilt::TextBytes("new")));
  EXPECT_EQ(Count(out.str(), "site 1 page 8 "), 2u) << out.str();
}

TEST(ClientSessionSites, PageZeroThatDoesNotDecodeIsCountedToldOnceAndNotWritten) {
  ScopedTempFolder temp;
  std::ostringstream out, err;
  zolclient::CClientSession session(128, (temp.Path() / "out").string(), out, err);
  std::string error;
  ASSERT_TRUE(session.Prepare(error)) << error;
  Feed(session, handbuilt::PagePackets(2, 0, 0, 1, "", "", handbuilt::TextBytes("hello")));
  Feed(session, handbuilt::PagePackets(2, 0, 0, 2, "", "", handbuilt::TextBytes("hello again")));
  EXPECT_EQ(err.str(), "zolclient: site 2 page 0 is not an information page (the count of the clock parameters "
                       "is cut off)\n");
  EXPECT_EQ(Count(out.str(), "site 2 page 0 (not an information page) "), 2u) << out.str();
  EXPECT_TRUE(ListTree(temp.Path() / "out").empty());
  EXPECT_FALSE(session.AllSitesComplete());
  EXPECT_NE(session.StatsText().find("site 2: no information page, pages complete 0, bad information pages 2\n"),
            std::string::npos)
      << session.StatsText();
}

TEST(ClientSessionSites, InformationFileThatCannotBeWrittenIsToldOnceAndCounted) {
  ScopedTempFolder temp;
  std::ostringstream out, err;
  zolclient::CClientSession session(128, (temp.Path() / "out").string(), out, err);
  std::string error;
  ASSERT_TRUE(session.Prepare(error)) << error;
  std::filesystem::create_directory(temp.Path() / "out" / "_site1.info");  // in the way
  Feed(session, inforecords::Packets(1, 1, inforecords::Record(1, inforecords::Clock(), nullptr)));
  Feed(session, inforecords::Packets(1, 2, inforecords::Record(1, inforecords::Clock(), nullptr)));
  EXPECT_EQ(err.str(), "zolclient: could not write _site1.info\n");
  EXPECT_EQ(Count(out.str(), "site 1 page 0 (information) "), 2u) << out.str();
  EXPECT_NE(session.StatsText().find("write failed 2, information files written 0\n"), std::string::npos)
      << session.StatsText();
}

TEST(ClientSessionSites, WithoutAnOutputFolderTheInformationPageIsOnlyListed) {
  std::ostringstream out, err;
  zolclient::CClientSession session(128, "", out, err);
  Feed(session, inforecords::Packets(3, 5, inforecords::Record(1, inforecords::Clock(), nullptr)));
  EXPECT_NE(out.str().find("site 3 page 0 (information) "), std::string::npos) << out.str();
  EXPECT_NE(out.str().find(" version 0.5\n"), std::string::npos) << out.str();
  EXPECT_EQ(err.str(), "");
}

TEST(ClientSessionSites, OutputPastItsByteLimitIsToldOnceAndCounted) {
  ScopedTempFolder temp;
  std::ostringstream out, err;
  zolclient::CClientSession session(128, (temp.Path() / "out").string(), out, err, 100);
  std::string error;
  ASSERT_TRUE(session.Prepare(error)) << error;
  Feed(session, handbuilt::PagePackets(1, 1, 0, 1, "", "a.html", Bytes(60, 'a')));
  Feed(session, handbuilt::PagePackets(1, 2, 0, 1, "", "b.html", Bytes(60, 'b')));
  Feed(session, handbuilt::PagePackets(1, 3, 0, 1, "", "c.html", Bytes(1, 'c')));
  EXPECT_EQ(ListTree(temp.Path() / "out"), std::vector<std::string>{"a.html"});
  EXPECT_EQ(Count(err.str(), "\n"), 1u) << err.str();
  EXPECT_NE(err.str().find("reached the limit of 100 bytes (--max-bytes); nothing more is written"),
            std::string::npos)
      << err.str();
  // The pages were received all the same.
  EXPECT_NE(out.str().find("site 1 page 3 c.html 1 bytes version 0.1\n"), std::string::npos) << out.str();
  EXPECT_NE(session.StatsText().find("files: bytes kept 60 of 100, old files removed 0, not written for the byte limit 2\n"),
            std::string::npos)
      << session.StatsText();
}

TEST(ClientSessionSites, PageThatMovesKeepsOneFile) {
  ScopedTempFolder temp;
  std::ostringstream out, err;
  zolclient::CClientSession session(128, (temp.Path() / "out").string(), out, err);
  std::string error;
  ASSERT_TRUE(session.Prepare(error)) << error;
  for (int version = 1; version <= 20; ++version) {
    Feed(session, handbuilt::PagePackets(1, 4, 0, static_cast<BYTE>(version), "v" + std::to_string(version) + "/",
                                         "p" + std::to_string(version) + ".html", handbuilt::TextBytes("x")));
  }
  EXPECT_EQ(ListTree(temp.Path() / "out"), (std::vector<std::string>{"v20", "v20/p20.html"}));
  EXPECT_NE(session.StatsText().find("old files removed 19,"), std::string::npos) << session.StatsText();
}

TEST(ClientSessionSites, ControlCharactersInPageLocationsAreShownEscaped) {
  ScopedTempFolder temp;
  std::ostringstream out, err;
  zolclient::CClientSession session(128, (temp.Path() / "out").string(), out, err);
  std::string error;
  ASSERT_TRUE(session.Prepare(error)) << error;
  Feed(session, handbuilt::PagePackets(1, 5, 0, 1, "d\x9b" "2J/", "n\x1b\x85.html", handbuilt::TextBytes("x")));
  Feed(session, handbuilt::PagePackets(1, 6, 0, 1, "../", "\xc2\x9bx", handbuilt::TextBytes("x")));
  EXPECT_NE(out.str().find("site 1 page 5 d\\x9b2J/n\\x1b\\x85.html 1 bytes"), std::string::npos) << out.str();
  EXPECT_NE(err.str().find("'../\\xc2\\x9bx'"), std::string::npos) << err.str();
  for (const std::string& text : {out.str(), err.str()}) {
    for (char c : text) {
      const unsigned char u = static_cast<unsigned char>(c);
      EXPECT_FALSE((u < 0x20 && c != '\n') || (u >= 0x7F && u <= 0x9F)) << static_cast<unsigned>(u);
    }
  }
}

}  // namespace
