#include "web/ServerPages.h"

#include <gtest/gtest.h>

#include "distribution/ZOLServer.h"
#include "testing/ModuleFixture.h"

namespace {

CKVTHttpResponse Get(CWebPage& page, const std::string& path, const std::string& id = "") {
  CKVTHttpRequest request;
  request.Path = path;
  if (!id.empty()) request.Attributes["ID"] = id;
  CKVTHttpResponse response;
  page.HandleRequest(request, response);
  return response;
}

CKVTHttpResponse PostId(CWebPage& page, const std::string& id) {
  CKVTHttpRequest request;
  request.Method = CKVTHttpRequest::kMethodPost;
  request.Form["ID"] = id;
  CKVTHttpResponse response;
  page.HandleRequest(request, response);
  return response;
}

}  // namespace

TEST(ServerPages, TheServerRegistersTheDeleteAndFilePagesUnderTheirPaths) {
  PackageScope scope;
  CZOLServer server;
  ASSERT_NE(server.WebServerFindPage("_server/deleteport.html"), nullptr);
  ASSERT_NE(server.WebServerFindPage("GET"), nullptr);
  EXPECT_EQ(server.WebServerFindPage("_server/deleteport.html")->Title, "Delete a port");
  EXPECT_EQ(server.WebServerFindPage("GET")->Title, "Get a file");
}

TEST(FilePage, ServesAFileOfTheTreeUnframed) {
  PackageScope scope;
  scope.Folder.Write("HTML/zol/css/admin.css", "td { color: red; }");
  CZOLServer server;
  const CKVTHttpResponse response = Get(*server.WebServerFindPage("GET"), "css/admin.css");
  EXPECT_EQ(response.Status, 200);
  EXPECT_EQ(response.Framed, 0);
  EXPECT_EQ(response.BodyText(), "td { color: red; }");
  EXPECT_EQ(response.Headers.at("content-type"), "text/css");
}

TEST(FilePage, MissingFileAnswers404Unframed) {
  PackageScope scope;
  CZOLServer server;
  const CKVTHttpResponse response = Get(*server.WebServerFindPage("GET"), "absent.html");
  EXPECT_EQ(response.Status, 404);
  EXPECT_EQ(response.Framed, 0);
  EXPECT_EQ(response.BodyText(), "404: Page not found.");
}

TEST(FilePage, ContentTypeFollowsTheExtensionAndCaseCounts) {
  EXPECT_EQ(ContentTypeOf("a/logo.gif"), "image/gif");
  EXPECT_EQ(ContentTypeOf("photo.jpg"), "image/jpg");
  EXPECT_EQ(ContentTypeOf("index.html"), "text/html");
  EXPECT_EQ(ContentTypeOf("INDEX.HTML"), "text/plain");
  EXPECT_EQ(ContentTypeOf("README"), "text/plain");
}

TEST(FilePage, PathWithADotDotComponentIsRefused) {
  PackageScope scope;
  scope.Folder.Write("secret.txt", "not for the web");
  scope.Folder.Write("HTML/zol/ok.txt", "ok");
  CZOLServer server;
  const CKVTHttpResponse response = Get(*server.WebServerFindPage("GET"), "../../secret.txt");
  EXPECT_EQ(response.Status, 404);
  EXPECT_EQ(response.BodyText(), "404: Page not found.");
}

TEST(DeletePortPage, UnknownIdAnswersWithTheTextAndStatus200) {
  PackageScope scope;
  CZOLServer server;
  const CKVTHttpResponse response = PostId(*server.WebServerFindPage("_server/deleteport.html"), "42");
  EXPECT_EQ(response.Status, 200);
  EXPECT_EQ(response.BodyText(), "Invalid port ID: port not found.");
  EXPECT_EQ(Get(*server.WebServerFindPage("_server/deleteport.html"), "", "42").BodyText(),
            "Invalid port ID: port not found.");
  EXPECT_EQ(response.BodyText(), "Invalid port ID: port not found.");
}

TEST(DeletePortPage, KnownIdDeletesThePortAndRedirects) {
  PackageScope scope;
  scope.Package.ComPorts[1] = "/dev/null";
  scope.WriteSettings("[ports]\ncount=1\nport0=1\n[port0]\nID=3\n");
  CZOLServer server;
  ASSERT_NE(server.GetPort(3), nullptr);
  // A GET only asks; the POST of its form deletes.
  EXPECT_EQ(Get(*server.WebServerFindPage("_server/deleteport.html"), "", "3").Status, 200);
  ASSERT_NE(server.GetPort(3), nullptr);
  const CKVTHttpResponse response = PostId(*server.WebServerFindPage("_server/deleteport.html"), "3");
  EXPECT_EQ(response.Status, 301);
  EXPECT_EQ(response.Headers.at("location"), "index.html");
  EXPECT_EQ(response.BodyText(), "redirect");
  EXPECT_EQ(server.GetPort(3), nullptr);
}
