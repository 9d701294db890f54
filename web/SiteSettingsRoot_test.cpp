// The site settings page: a root path that is not an existing folder is refused with a
// message and changes nothing; every value the page shows is escaped; its form carries
// the anti-forgery token.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "data/DataEncoder.h"
#include "data/DataTestSupport.h"
#include "site/ZOLServerPage.h"
#include "site/ZOLServerSite.h"
#include "views/ViewEncoder.h"
#include "web/AdminPageFixture.h"

namespace {

struct Settings : ::testing::Test {
  void SetUp() override {
    ASSERT_TRUE(admin.PtyOk);
    Root = admin.StartWithOneSite("a.css", "a");
    ASSERT_EQ(admin.Server->GetSites().size(), 1u);
  }
  CZOLServerSite& Site() { return *admin.Server->GetSites()[0]; }

  CKVTHttpResponse Show(const std::string& token = "") {
    CKVTHttpRequest request;
    request.Method = 1;
    request.Path = "main/settings.html";
    request.FormToken = token;
    return admin.Handle(request.Path, request);
  }

  AdminPageFixture admin;
  std::string Root;
};

}  // namespace

TEST_F(Settings, ARootThatIsNoExistingFolderIsRefusedAndTheOldRootStays) {
  admin.Scope.Folder.Write("plainfile", "x");
  const std::string oldRoot = Site().GetRootDir();
  const COutputPage* schedule = Site().GetSchedulePage();
  const BYTE sequence = schedule->GetSequenceLow();
  const std::size_t pages = Site().GetPages().size();
  for (const std::string& root : {admin.Scope.Folder.Path() + "/absent", admin.Scope.Folder.Path() + "/plainfile",
                                  std::string("no-such-folder-below-the-application")}) {
    const CKVTHttpResponse response =
        admin.Post("main/settings.html", {{"rootpath", root}, {"sitename", "renamed"}, {"screenwidth", "640"}});
    EXPECT_EQ(response.Status, 400) << root;
    EXPECT_NE(response.BodyText().find("is not an existing folder"), std::string::npos) << response.BodyText();
    EXPECT_NE(response.BodyText().find("nothing was changed"), std::string::npos);
    // The form comes again with what was typed, to be mended.
    EXPECT_NE(response.BodyText().find("name='rootpath' style='width: 250px;' maxlength='256' value='" + root + "'"),
              std::string::npos);
    EXPECT_EQ(Site().GetRootDir(), oldRoot);
    EXPECT_EQ(Site().GetParameter("name"), "main");
    EXPECT_EQ(Site().GetParameter("width"), "1024");
    EXPECT_EQ(Site().GetPages().size(), pages);
    EXPECT_EQ(schedule->GetSequenceLow(), sequence) << "a build would have made a new version of the schedule page";
  }
  // A NUL byte would cut the path to an existing folder at the system call.
  const CKVTHttpResponse nul = admin.Post("main/settings.html", {{"rootpath", admin.Scope.Folder.Path() + "%00junk"}});
  EXPECT_EQ(nul.Status, 400);
  EXPECT_EQ(Site().GetRootDir(), oldRoot);
}

TEST_F(Settings, TheRootAsThePageShowsItIsThePresentRootAndRebuildsNothing) {
  const std::string shown = Root + "/";
  EXPECT_NE(Show().BodyText().find("value='" + shown + "'"), std::string::npos) << Show().BodyText();
  const BYTE sequence = Site().GetSchedulePage()->GetSequenceLow();
  EXPECT_EQ(admin.Post("main/settings.html", {{"rootpath", shown}}).Status, 301);
  EXPECT_EQ(admin.Post("main/settings.html", {{"rootpath", Root}}).Status, 301);
  EXPECT_EQ(Site().GetSchedulePage()->GetSequenceLow(), sequence);
  // A real new folder is taken, typed with a trailing "/".
  admin.Scope.Folder.Write("other/b.css", "b");
  EXPECT_EQ(admin.Post("main/settings.html", {{"rootpath", admin.Scope.Folder.Path() + "/other/"}}).Status, 301);
  EXPECT_EQ(Site().GetRootDir(), admin.Scope.Folder.Path() + "/other\\");
}

TEST_F(Settings, EveryValueShownIsEscapedAndTheFormCarriesTheToken) {
  const std::string hostile = "x'\"><script>alert(1)</script>";
  const std::string escaped = "x&#39;&quot;&gt;&lt;script&gt;alert(1)&lt;/script&gt;";
  const std::string folder = admin.Scope.Folder.Path() + "/r'o\"ot<b>";
  std::filesystem::create_directories(folder);
  ASSERT_EQ(admin.Post("main/settings.html", {{"rootpath", "%2F" + folder.substr(1)}}).Status, 301);
  Site().SetParameter("name", hostile);
  Site().SetParameter("width", hostile);
  Site().SetParameter("height", hostile);
  CRMComm& comm = *admin.Server->GetComm();
  comm.Initialize(0);
  comm.OnModifyModule(kDataManagerClass, 1, LocalComputerForTests(), TRUE);
  Deliver(comm, DataEncoder::Connected());
  CBaseDataComm model;
  AddTrackAndEventGroup(model);
  model.Events[0x80000001]->Name = "Cup </SELECT><img src=x onerror=alert(2)>";
  Deliver(comm, DataEncoder::Snapshot(model));

  const std::string body = Show("tok'en").BodyText();
  EXPECT_EQ(body.find("<script>"), std::string::npos) << body;
  EXPECT_EQ(body.find("<img"), std::string::npos) << body;
  EXPECT_EQ(body.find("<b>"), std::string::npos) << body;
  EXPECT_NE(body.find("name='sitename' style='width: 120px;' maxlength='15' value='" + escaped + "'"),
            std::string::npos);
  EXPECT_NE(body.find("name='screenwidth' style='width: 80px;' maxlength='5' value='" + escaped + "'"),
            std::string::npos);
  EXPECT_NE(body.find("maxlength='5' value='" + escaped + "'></TD></TR>\n<TR><TD COLSPAN"), std::string::npos);
  EXPECT_NE(body.find("value='" + admin.Scope.Folder.Path() + "/r&#39;o&quot;ot&lt;b&gt;/'"), std::string::npos)
      << body;
  EXPECT_NE(body.find("<OPTION VALUE='1'>Cup &lt;/SELECT&gt;&lt;img src=x onerror=alert(2)&gt;\n"), std::string::npos)
      << body;
  EXPECT_NE(body.find("<FORM name='settingsform' method='post' action='settings.html'>\n"
                      "<INPUT type='hidden' name='formtoken' value='tok&#39;en'>\n"),
            std::string::npos);
  // The refusal's message escapes what was typed.
  const CKVTHttpResponse refused = admin.Post("main/settings.html", {{"rootpath", "%3Cscript%3Ex"}});
  EXPECT_EQ(refused.Status, 400);
  EXPECT_EQ(refused.BodyText().find("<script>"), std::string::npos);
}
