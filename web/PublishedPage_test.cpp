#include "web/PublishedPage.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "distribution/OutputPage.h"
#include "distribution/ZOLServer.h"
#include "testing/ModuleFixture.h"

namespace {

CKVTHttpResponse Get(CWebPage& page, const std::string& path, const std::string& raw = "") {
  CKVTHttpRequest request;
  request.Path = path;
  if (!raw.empty()) request.Attributes["raw"] = raw;
  CKVTHttpResponse response;
  page.HandleRequest(request, response);
  return response;
}

// A server with one site "demo" on the folder site/ of the package.
struct PublishedPages : ::testing::Test {
  void SetUp() override {
    scope.WriteSettings("[sites]\ncount=1\nsite0=demo\n[demo]\nroot=\\site\\\n");
    scope.Folder.Write("site/index.zol",
                       "<zol version=\"1.0\"><h1>Home &amp; away</h1><zol_include path=\"sub/\" file=\"part.zol\"/>"
                       "<zol_include file=\"missing.zol\"/></zol>");
    scope.Folder.Write("site/sub/part.zol", "<zol><p>part</p></zol>");
    scope.Folder.Write("site/style.css", "h1 { color: red; }");
    scope.Folder.Write("site/images/flag.gif", std::string("GIF89a\0\1", 8));
    scope.Folder.Write("site/photo.jpg", "jpeg");
    scope.Folder.Write("site/clock.js", "tick();");
    scope.Folder.Write("site/about.html", "<p>about</p>");
    server = std::make_unique<CZOLServer>();
  }
  CWebPage& Page(const std::string& path) {
    CWebPage* page = server->WebServerFindPage(path);
    EXPECT_NE(page, nullptr) << path;
    if (page == nullptr) throw std::runtime_error("no page " + path);
    return *page;
  }
  PackageScope scope;
  std::unique_ptr<CZOLServer> server;
};

}  // namespace

TEST(PublishedPageType, ContentTypeFollowsTheWebName) {
  EXPECT_EQ(SitePageContentType("demo/a.jpg"), "image/jpg");
  EXPECT_EQ(SitePageContentType("demo/a.gif"), "image/gif");
  EXPECT_EQ(SitePageContentType("demo/a.css"), "text/css");
  EXPECT_EQ(SitePageContentType("demo/a.html"), "text/html");
  EXPECT_EQ(SitePageContentType("demo/a.png"), "text/plain");
  EXPECT_EQ(SitePageContentType("demo/a.js"), "text/plain");
  EXPECT_EQ(SitePageContentType("demo/flash/ZOLFeed.xml"), "text/plain");
  EXPECT_EQ(SitePageContentType("demo/noextension"), "text/plain");
}

TEST_F(PublishedPages, PlainFilesAreServedAsTheyStandWithTheirType) {
  const CKVTHttpResponse css = Get(Page("demo/style.css"), "demo/style.css");
  EXPECT_EQ(css.Status, 200);
  EXPECT_EQ(css.Framed, 0);
  EXPECT_EQ(css.Headers.at("content-type"), "text/css");
  EXPECT_EQ(css.BodyText(), "h1 { color: red; }");
  const CKVTHttpResponse gif = Get(Page("demo/images/flag.gif"), "demo/images/flag.gif");
  EXPECT_EQ(gif.Headers.at("content-type"), "image/gif");
  EXPECT_EQ(gif.BodyText(), std::string("GIF89a\0\1", 8));
  EXPECT_EQ(Get(Page("demo/photo.jpg"), "demo/photo.jpg").Headers.at("content-type"), "image/jpg");
  EXPECT_EQ(Get(Page("demo/clock.js"), "demo/clock.js").Headers.at("content-type"), "text/plain");
  EXPECT_EQ(Get(Page("demo/about.html"), "demo/about.html").BodyText(), "<p>about</p>");
}

TEST_F(PublishedPages, TemplateIsFilledInForTheBrowserWithIncludesExpanded) {
  const CKVTHttpResponse response = Get(Page("demo/index.html"), "demo/index.html");
  EXPECT_EQ(response.Status, 200);
  EXPECT_EQ(response.Headers.at("content-type"), "text/html");
  EXPECT_EQ(response.BodyText(), "<h1>Home &amp; away</h1><p>part</p>Failed to include page (missing.zol).");
}

TEST_F(PublishedPages, RawYesGivesTheWireMarkupAsPlainText) {
  CWebPage& page = Page("demo/index.html");
  const CKVTHttpResponse response = Get(page, "demo/index.html", "yes");
  EXPECT_EQ(response.Status, 200);
  EXPECT_EQ(response.Headers.at("content-type"), "text/plain");
  const auto* published = dynamic_cast<CPublishedPage*>(&page);
  ASSERT_NE(published, nullptr);
  const std::vector<BYTE>& wire = published->GetPage()->GetData();
  EXPECT_EQ(response.Body, std::vector<char>(wire.begin(), wire.end()));
  EXPECT_NE(response.BodyText().find("<zol_include pageid='"), std::string::npos);
  // Any other value of raw reads the page filled in.
  EXPECT_EQ(Get(page, "demo/index.html", "no").Headers.at("content-type"), "text/html");
}

TEST_F(PublishedPages, PageWithoutDataAnswersPageNotFound) {
  // The schedule page exists in every site even without its file.
  const CKVTHttpResponse response = Get(Page("demo/results/schedule.html"), "demo/results/schedule.html");
  EXPECT_EQ(response.Status, 404);
  EXPECT_EQ(response.BodyText(), "Page not found.");
  EXPECT_EQ(response.Headers.at("content-type"), "text/html");
}

TEST_F(PublishedPages, InformationPageIsNotOfferedToTheBrowser) {
  EXPECT_EQ(server->WebServerFindPage("demo/"), nullptr);
}
