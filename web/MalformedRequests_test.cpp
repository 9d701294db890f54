// Requests that no browser form sends: broken escapes, missing fields, IDs that are no
// numbers, very long values. Each gets the designed answer or a plain error, and the
// module stays as it was.
#include <gtest/gtest.h>

#include <string>

#include "distribution/OutputPort.h"
#include "frame/platform/Sockets.h"
#include "site/ZOLServerPage.h"
#include "site/ZOLServerSite.h"
#include "testing/RecordingTarget.h"
#include "web/AdminPageFixture.h"

namespace {

struct Malformed : ::testing::Test {
  void SetUp() override {
    admin.Scope.Folder.Write("site/a.css", "a { }");
    admin.Start("[ports]\ncount=1\nport0=3\n[port0]\nID=0\naddress=127.0.0.1\n"
                "[sites]\ncount=1\nsite0=main\n[main]\nroot=" + admin.Scope.Folder.Path() + "/site\nports=0\n");
    ASSERT_EQ(admin.Server->GetSites().size(), 1u);
  }
  CZOLServerSite& Site() { return *admin.Server->GetSites()[0]; }
  AdminPageFixture admin;
};

}  // namespace

TEST_F(Malformed, BadPercentEscapesDecodeWithoutHarm) {
  EXPECT_EQ(DecodeFormValue("%zz"), std::string(1, '\0')) << "both characters are taken";
  EXPECT_EQ(DecodeFormValue("%4"), "\x04");
  EXPECT_EQ(DecodeFormValue("%%41"), std::string(1, '\0') + "1");
  // A port type that is no number adds nothing; the answer is the redirect.
  const CKVTHttpResponse response = admin.Post("_server/index.html", {{"porttype", "%zz%"}});
  EXPECT_EQ(response.Status, 301);
  EXPECT_EQ(admin.Server->GetPorts().size(), 1u);
}

TEST_F(Malformed, FormsWithoutFieldsGetTheDesignedAnswers) {
  EXPECT_EQ(admin.Post("_server/index.html", {}).Status, 301);
  const CKVTHttpResponse content = admin.Post("main/content.html", {});
  EXPECT_EQ(content.Status, 200);
  EXPECT_EQ(content.BodyText(), "Error: invalid post!");
  const CKVTHttpResponse edit = admin.Post("main/editcontent.html", {});
  EXPECT_EQ(edit.Status, 404);
  EXPECT_EQ(edit.BodyText().rfind("Failed to write file: ", 0), 0u);
  EXPECT_EQ(admin.Get("main/editcontent.html").Status, 404);
  EXPECT_EQ(admin.Server->GetPorts().size(), 1u);
  EXPECT_EQ(Site().GetPorts().size(), 1u);
}

TEST_F(Malformed, SettingsPostWithEmptyFieldsChangesNothing) {
  const std::string root = Site().GetRootDir();
  const BYTE sequence = Site().GetSchedulePage()->GetSequenceLow();
  const CKVTHttpResponse response = admin.Post(
      "main/settings.html",
      {{"sitename", ""}, {"rootpath", ""}, {"event", ""}, {"screenwidth", ""}, {"screenheight", ""}});
  EXPECT_EQ(response.Status, 301);
  EXPECT_EQ(response.Headers.at("location"), "content.html");
  EXPECT_EQ(Site().GetRootDir(), root);
  EXPECT_EQ(Site().GetParameter("name"), "main");
  EXPECT_EQ(Site().GetParameter("width"), "1024");
  EXPECT_EQ(Site().GetParameter("height"), "768");
  EXPECT_EQ(Site().GetEventId(), -1);
  EXPECT_EQ(Site().GetSchedulePage()->GetSequenceLow(), sequence) << "nothing was rebuilt";
}

TEST_F(Malformed, PortIdsThatAreNoNumbersFindNoPort) {
  for (const std::string id : {"abc", "", "1x", "0x0", " 0", "99999999999999999999", "-2"}) {
    const CKVTHttpResponse main = admin.Post("_server/index.html", {{"portid", id.empty() ? "+" : id}});
    EXPECT_EQ(main.Status, 200) << id;
    EXPECT_EQ(main.BodyText(), "Error: invalid ID") << id;
    const CKVTHttpResponse remove = admin.Get("main/removeport.html", {{"ID", id}});
    EXPECT_EQ(remove.BodyText(), "Invalid port ID: port not found.") << id;
    const CKVTHttpResponse drop = admin.Get("_server/deleteport.html", {{"ID", id}});
    EXPECT_EQ(drop.BodyText(), "Invalid port ID: port not found.") << id;
    EXPECT_EQ(admin.Post("main/content.html", {{"portid", id.empty() ? "+" : id}}).Status, 301) << id;
  }
  // Port 0 was never hit by a text that reads as 0 to atol.
  ASSERT_NE(admin.Server->GetPort(0), nullptr);
  EXPECT_EQ(Site().GetPorts().size(), 1u);
}

TEST_F(Malformed, PortidMinusOneOnTheMainPageIsAnInvalidId) {
  const CKVTHttpResponse response = admin.Post("_server/index.html", {{"portid", "-1"}});
  EXPECT_EQ(response.Status, 200);
  EXPECT_EQ(response.BodyText(), "Error: invalid ID");
  EXPECT_EQ(admin.Server->GetPorts().size(), 1u);
}

TEST_F(Malformed, VeryLongValuesAreAnsweredPlainly) {
  const std::string longText(200000, 'a');
  const CKVTHttpResponse content = admin.Get("main/content.html", {{"path", longText}});
  EXPECT_EQ(content.Status, 200);
  EXPECT_NE(content.BodyText().find("Available Pages in '" + longText + "'"), std::string::npos);
  EXPECT_EQ(admin.Get("main/editcontent.html", {{"path", longText + "/"}, {"file", longText}}).Status, 404);
  EXPECT_EQ(admin.Post("main/editcontent.html", {{"path", longText}, {"file", longText}, {"content", longText}}).Status,
            404);
  EXPECT_EQ(admin.Get("GET", {}).Status, 404);
  CKVTHttpRequest file;
  file.Path = longText + ".html";
  EXPECT_EQ(admin.Handle("GET", file).Status, 404);
  EXPECT_EQ(admin.Post("_server/index.html", {{"portid", longText}}).BodyText(), "Error: invalid ID");
  EXPECT_EQ(admin.Post("main/settings.html", {{"screenwidth", longText}}).Status, 301);
  EXPECT_EQ(admin.Get("main/settings.html").Status, 200);
}

TEST(AdminPages, AServerWithoutSitesRegistersItsHomePageAndNoMenuPage) {
  AdminPageFixture admin;
  CZOLServer& server = admin.Start("");
  RecordingTarget target;
  server.SendTarget = &target;
  server.WebServerRegisterModule(3, 4);
  const auto sent = target.WithID(1);
  ASSERT_EQ(sent.size(), 1u);
  CModuleMessage& message = *sent[0];
  message.Reset();
  std::string title, prefix, home;
  int count = -1;
  message >> title >> prefix >> home >> count;
  EXPECT_EQ(title, "ZOL Server");
  EXPECT_EQ(prefix, "zol");
  EXPECT_EQ(home, "_server/index.html");
  EXPECT_EQ(count, 0);
  server.SendTarget = nullptr;
}

TEST(AdminPages, EachSiteNamesItsContentPageToTheWebServer) {
  AdminPageFixture admin;
  CZOLServer& server = admin.Start("[sites]\ncount=2\nsite0=b\nsite1=a\n[a]\nroot=" + admin.Scope.Folder.Path() +
                                   "/a\n[b]\nroot=" + admin.Scope.Folder.Path() + "/b\n");
  RecordingTarget target;
  server.SendTarget = &target;
  server.WebServerRegisterModule(3, 4);
  ASSERT_EQ(target.WithID(1).size(), 1u);
  CModuleMessage& message = *target.WithID(1)[0];
  message.Reset();
  std::string title, prefix, home, path1, title1, path2, title2;
  int count = -1;
  message >> title >> prefix >> home >> count >> path1 >> title1 >> path2 >> title2;
  EXPECT_EQ(count, 2);
  EXPECT_EQ(path1, "a/content.html");
  EXPECT_EQ(title1, "Site: 'a'");
  EXPECT_EQ(path2, "b/content.html");
  EXPECT_EQ(title2, "Site: 'b'");
  server.SendTarget = nullptr;
}

TEST(AdminPages, AHtmlFileInCapitalsIsServedAsPlainText) {
  AdminPageFixture admin;
  admin.Scope.Folder.Write("HTML/zol/PAGE.HTML", "<p>x</p>");
  admin.Scope.Folder.Write("HTML/zol/README", "plain");
  admin.Start("");
  CKVTHttpRequest upper;
  upper.Path = "PAGE.HTML";
  const CKVTHttpResponse response = admin.Handle("GET", upper);
  EXPECT_EQ(response.Status, 200);
  EXPECT_EQ(response.Headers.at("content-type"), "text/plain");
  CKVTHttpRequest bare;
  bare.Path = "README";
  const CKVTHttpResponse plain = admin.Handle("GET", bare);
  EXPECT_EQ(plain.Status, 200);
  EXPECT_EQ(plain.Headers.at("content-type"), "text/plain");
  EXPECT_EQ(plain.BodyText(), "plain");
}
