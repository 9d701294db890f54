#include "client/ViewerDocument.h"

#include <gtest/gtest.h>

namespace zolclient {
namespace {

CViewerPages::Status LiveStatus() {
  CViewerPages::Status status;
  status.Clock = {{"timeofday", "10:05:57"}, {"racetime", "0:05:57"}, {"timetogo", "0:02:03"}, {"flag", "green"}};
  status.SincePacket = 1.4;
  return status;
}

TEST(ViewerDocument, TheStatusLineShowsTheClockAndTheLastPacket) {
  EXPECT_EQ(StatusText(LiveStatus()),
            "Time of day 10:05:57 \xC2\xB7 Race time 0:05:57 \xC2\xB7 Time to go 0:02:03 \xC2\xB7 Flag green "
            "\xC2\xB7 Last packet 1 s ago");
  CViewerPages::Status lost = LiveStatus();
  lost.SincePacket = 12.7;
  EXPECT_EQ(StatusText(lost), "Stream lost: no packet for 12 s");
  EXPECT_EQ(StatusText(CViewerPages::Status{}), "Waiting for the first packet");
  CViewerPages::Status bare;
  bare.SincePacket = 0;
  EXPECT_EQ(StatusText(bare), "Time of day - \xC2\xB7 Race time - \xC2\xB7 Time to go - \xC2\xB7 Flag - "
                              "\xC2\xB7 Last packet 0 s ago");
}

TEST(ViewerDocument, APageDocumentHoldsTheStatusTheLivePartTheScriptAndARefreshWithoutScripts) {
  RenderedZolPage page;
  page.Title = "Results";
  page.HeadExtras = "<link rel=\"stylesheet\" href=\"../style.css\">";
  page.Body = "<h1>Race</h1>";
  page.RefreshSeconds = 5;
  EXPECT_EQ(PageDocument(page, 1, 2, LiveStatus()),
            "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>Results</title>"
            "<link rel=\"stylesheet\" href=\"../style.css\"><link rel=\"stylesheet\" href=\"/_viewer/viewer.css\">"
            "<noscript><meta http-equiv=\"refresh\" content=\"5\"></noscript>"
            "<script src=\"/_viewer/live.js\" defer></script></head>\n"
            "<body data-zol-site=\"1\" data-zol-page=\"2\">\n"
            "<div id=\"zol-status\" class=\"zol-status\">Time of day 10:05:57 \xC2\xB7 Race time 0:05:57 \xC2\xB7 "
            "Time to go 0:02:03 \xC2\xB7 Flag green \xC2\xB7 Last packet 1 s ago</div>\n"
            "<div id=\"zol-live\"><h1>Race</h1></div>\n</body></html>\n");
  page.RefreshSeconds = 0;
  CViewerPages::Status lost;
  const std::string document = PageDocument(page, 1, 2, lost);
  EXPECT_EQ(document.find("http-equiv"), std::string::npos);
  EXPECT_NE(document.find("class=\"zol-status zol-lost\">Waiting for the first packet</div>"), std::string::npos);
}

TEST(ViewerDocument, TheIndexListsEachSitesPagesWithEveryNameEscaped) {
  ViewerPage page;
  page.Site = 1;
  page.Number = 2;
  page.WebName = "results/<b>\"x\".html";
  page.Version = "0.3";
  page.Data = std::make_shared<const std::string>("12345");
  page.ChangedAtSeconds = 0;
  const std::string index = IndexDocument({page}, {1}, {LiveStatus()});
  EXPECT_NE(index.find("<h2>Site 1</h2>"), std::string::npos);
  EXPECT_NE(index.find("<tr><td><a href=\"/site/1/results/&lt;b&gt;&quot;x&quot;.html\">results/&lt;b&gt;&quot;x&quot;"
                       ".html</a></td><td>5 bytes</td><td>0.3</td><td>1970-01-01 00:00:00 UTC</td></tr>"),
            std::string::npos)
      << index;
  EXPECT_EQ(index.find("<b>"), std::string::npos);
  EXPECT_NE(IndexDocument({}, {}, {}).find("No page has come yet."), std::string::npos);
}

TEST(ViewerDocument, EventMessagesAreOneJsonObjectWithNothingThatReadsAsMarkup) {
  ViewerEvent event{7, 1, 2, "results/a\"b<c>.html", "0.12"};
  EXPECT_EQ(PageEventMessage(event),
            "event: page\ndata: {\"site\":1,\"page\":2,\"name\":\"results/a\\\"b\\u003cc\\u003e.html\","
            "\"version\":\"0.12\"}\n\n");
  CViewerPages::Status lost;
  lost.SincePacket = 11;
  EXPECT_EQ(StatusEventMessage(3, lost),
            "event: status\ndata: {\"site\":3,\"text\":\"Stream lost: no packet for 11 s\",\"lost\":true}\n\n");
  EXPECT_EQ(MissedEventMessage(), "event: missed\ndata: {}\n\n");
}

TEST(ViewerDocument, ContentTypesFollowTheExtension) {
  EXPECT_EQ(ContentTypeFor("results/current.html"), "text/html; charset=utf-8");
  EXPECT_EQ(ContentTypeFor("style.CSS"), "text/css; charset=utf-8");
  EXPECT_EQ(ContentTypeFor("clock.js"), "text/javascript; charset=utf-8");
  EXPECT_EQ(ContentTypeFor("images/track.png"), "image/png");
  EXPECT_EQ(ContentTypeFor("images/flag.gif"), "image/gif");
  EXPECT_EQ(ContentTypeFor("flash/ZOLFeed.xml"), "application/xml");
  EXPECT_EQ(ContentTypeFor("folder.d/noextension"), "application/octet-stream");
  EXPECT_EQ(ContentTypeFor("noextension"), "application/octet-stream");
}

TEST(ViewerDocument, AFeedLosesItsPageWrapperAndTrailingNul) {
  const std::string page = std::string("<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<zol version=\"1\" type=\"xml\">\n"
                                       "<feed><run>Race 1</run></feed>\n</zol>") +
                           '\0';
  EXPECT_EQ(UnwrappedZolText(page), "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<feed><run>Race 1</run></feed>\n");
  EXPECT_EQ(UnwrappedZolText(std::string("plain") + '\0' + '\0'), "plain");
  EXPECT_EQ(UnwrappedZolText(std::string(3, '\0')), "");
}

}  // namespace
}  // namespace zolclient
