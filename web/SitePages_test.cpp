// The administration pages of a site: content, settings and the page editor, on a
// running server with a site folder of plain files and a replica with two events.
#include <gtest/gtest.h>

#include <cstdio>
#include <ctime>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "data/DataEncoder.h"
#include "data/DataTestSupport.h"
#include "distribution/OutputPort.h"
#include "distribution/PacketFormat.h"
#include "frame/platform/Sockets.h"
#include "site/ZOLServerPage.h"
#include "site/ZOLServerSite.h"
#include "testing/WaitUntil.h"
#include "views/ViewEncoder.h"
#include "web/AdminPageFixture.h"
#include "web/FeedContentPage.h"
#include "web/ServerPages.h"
#include "web/SiteSettingsPage.h"

namespace {

std::string Printf(const char* format, double value) {
  char text[64];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

std::string Number(long value) { return std::to_string(value); }

// A server with one site "main" fed by the stopped multicast port 0; TCP port 1 runs and
// is not on the site. The site's folder holds css/a.css, css/z.html and css/deep/b.css.
struct SiteAdmin : ::testing::Test {
  void SetUp() override {
    ASSERT_TRUE(admin.PtyOk);
    Root = admin.Scope.Folder.Path() + "/site";
    admin.Scope.Folder.Write("site/css/a.css", "body { color: <b>red</b>; }");
    admin.Scope.Folder.Write("site/css/z.html", "<html>" + std::string(2000, 'z') + "</html>");
    admin.Scope.Folder.Write("site/css/deep/b.css", "p { margin: 0; }");
    admin.Scope.Package.Translations["lgView_Results"] = "Results";
    admin.Scope.Package.Translations["lgView_LapTimes"] = "Lap times";
    TcpPort = platform::FindFreeTcpPort();
    admin.Start("[ports]\ncount=2\nport0=3\nport1=2\n[port0]\nID=0\naddress=127.0.0.1\n[port1]\nID=1\nport=" +
                std::to_string(TcpPort) + "\n[sites]\ncount=1\nsite0=main\n[main]\nroot=" + Root + "\nports=0\n");
    ASSERT_TRUE(WaitUntil([&] { return Server().GetPort(1)->IsRunning() != 0; }, 10));
    ASSERT_EQ(Server().GetSites().size(), 1u);
  }

  CZOLServer& Server() { return *admin.Server; }
  CZOLServerSite& Site() { return *Server().GetSites()[0]; }

  // Connects the server's link to a data manager that knows two events and two views.
  void ConnectReplica() {
    CRMComm& comm = *Server().GetComm();
    comm.Initialize(0);
    comm.OnModifyModule(kDataManagerClass, 1, LocalComputerForTests(), TRUE);
    Deliver(comm, DataEncoder::Connected());
    CBaseDataComm model;
    AddTrackAndEventGroup(model);
    model.Events[0x80000001]->Name = "Spring Cup";
    model.Events[0x80000002]->Name = "Heat A";
    Deliver(comm, DataEncoder::Snapshot(model));
    Deliver(comm, ViewEncoder::AllViews({"lgView_Results", "lgView_LapTimes"}));
  }

  const COutputPage* PageNamed(const std::string& file) {
    for (const auto& [number, page] : Site().GetPages()) {
      if (page->GetFilename() == file) return page;
    }
    return nullptr;
  }

  // The number cells of a page row; the numbers are the page's, the cells the design's.
  std::string NumberCells(const COutputPage& page) {
    double ratio = page.GetPlainSize() == 0 ? 0.0 : static_cast<double>(page.GetCompressedSize()) / page.GetPlainSize();
    if (ratio > 1.0) ratio = 1.0;
    return "<TD align=right>" + Number(page.GetPlainSize()) + "</TD><TD align=right>" +
           Number(page.GetCompressedSize()) + "</TD><TD align=right>" +
           Printf("%0.1f%%", page.GetPlainSize() == 0 ? 0.0 : (1.0 - ratio) * 100.0) + "</TD><TD align=right>" +
           Number(static_cast<long>(page.GetPackets().size())) + "</TD><TD align=right>" +
           Number(page.GetPageKey() >> 30) + "</TD><TD align=right>" + Number(page.GetRepeat()) +
           "</TD><TD align=right>" + Number(page.GetSequenceLow()) + "</TD>";
  }

  AdminPageFixture admin;
  std::string Root;
  std::uint16_t TcpPort = 0;
};

}  // namespace

TEST_F(SiteAdmin, TheSitePagesAreRegisteredInTheDesignedWay) {
  const auto& pages = Server().GetWebPages();
  ASSERT_TRUE(pages.count("_server/index.html"));
  EXPECT_EQ(pages.at("_server/index.html")->Title, "ZOL Server Home");
  EXPECT_EQ(pages.at("main/content.html")->Title, "Site: 'main'");
  EXPECT_EQ(pages.at("main/content.html")->InMenu, 1);
  EXPECT_EQ(pages.at("main/settings.html")->Title, "Site Settings");
  EXPECT_EQ(pages.at("main/settings.html")->InMenu, 0);
  EXPECT_EQ(pages.at("main/editcontent.html")->Title, "Edit Page Content");
  EXPECT_EQ(pages.at("main/editcontent.html")->InMenu, 0);
  EXPECT_EQ(pages.at("main/removeport.html")->Title, "Remove a port");
  int inMenu = 0;
  for (const auto& [path, page] : pages) inMenu += page->InMenu;
  EXPECT_EQ(inMenu, 1) << "the content page is the one kind of page in the menu";
  EXPECT_NE(pages.count("main/css/a.css"), 0u) << "the site's own pages come with the build";
}

TEST_F(SiteAdmin, ContentPageOfASubfolderIsExactlyAsDesigned) {
  const COutputPage* a = PageNamed("a.css");
  const COutputPage* z = PageNamed("z.html");
  ASSERT_NE(a, nullptr);
  ASSERT_NE(z, nullptr);
  const std::string table = "<TABLE cellspacing=0 BORDER=0 WIDTH='700px'>\n";
  const std::string folderCell = "<TR><TD><IMG src='/images/folder.gif' width=16 alt=''></TD>";
  const std::string time = CZOLServerSite::GetTimeString(static_cast<std::time_t>(Site().GetBuildTime()), 1, 1);
  const std::string expected =
      table +
      "<TR><TD class='TableHeader'>Site Information</TD><TD class='TableHeader' style='text-align: right;'>"
      "<INPUT style='width: 90px;' type=button value='Settings' onclick=\"location.href='settings.html'\">"
      "</TD></TR>\n</TABLE>\n" +
      table +
      "<TR><TD width='120px'><B>Name:</B></TD><TD>main</TD></TR>\n"
      "<TR><TD><B>Current Event:</B></TD><TD BGCOLOR=darkgrey><BLINK>No Event Selected!</BLINK></TD></TR>\n"
      "<TR><TD><B>Root path:</B></TD><TD>" + Root + "/</TD></TR>\n"
      "<TR><TD><B>Dimensions:</B></TD><TD>768 x 1024</TD></TR>\n"
      "<TR><TD><B>Available port(s):</B></TD><TD>"
      "<FORM name='addportform' method='post' action='content.html' style='margin: 0px;'>"
      "<INPUT type='hidden' name='formtoken' value=''><SELECT name='portid'>"
      "<OPTION value='1'>IP: 127.0.0.1 (Port: " + std::to_string(TcpPort) + ", Network [unicast])\n"
      "</SELECT><INPUT type='submit' value='Add'></FORM></TD></TR>\n"
      "</TABLE>\n"
      "<BR>\n" +
      table +
      "<TR><TH>Type</TH><TH>Port</TH><TH>Information</TH><TH></TH></TR>\n"
      "<TR><TD width='120px'>Network (multicast)</TD><TD BGCOLOR='red'>None: cannot send to multicast group 127.0.0.1 port 7125: 127.0.0.1 is not an IPv4 "
      "multicast address</TD><TD>N/A</TD>"
      "<TD>" + PortActionForm("removeport.html", 0, "remove", "Remove the port from this site?", CKVTHttpRequest()) +
      "</TD>\n</TR>\n"
      "</TABLE>\n"
      "<BR>\n" +
      table +
      "<TR><TD COLSPAN='9' class='TableHeader'><FORM style='margin: 0px;' name='reloadform' method='post' "
      "action='content.html'><INPUT type='hidden' name='formtoken' value=''><TABLE cellspacing=0 BORDER=0 WIDTH='100%'><TR><TD class='TableHeader'>"
      "Available Pages in 'css' (" + time + ")</TD><TD class='TableHeader' style='text-align: right;'>"
      "<INPUT style='width: 90px;' type='submit' value='Reload Site' onclick=\"return confirm('Do you really want to "
      "reload the ZOL Site?');\">\n"
      "<INPUT type='hidden' name='reload' value='yes'></TD></TR></TABLE></FORM></TD></TR>\n"
      "<TR><TD COLSPAN='9' class='TableSubHeader'>This is an overview of the available pages in the ZOL feed. Click "
      "on a page to show the details</TD></TR>\n"
      "<TR><TH COLSPAN='2'>Filename</TH><TH>Size</TH><TH>Compr.</TH><TH>Ratio</TH><TH>Packets</TH><TH>Level</TH>"
      "<TH>Repeat</TH><TH>Seq.</TH></TR>\n" +
      folderCell + "<TD><A HREF=\"content.html\">..</A></TD></TR>\n" + folderCell +
      "<TD><A HREF=\"content.html?path=css/deep\">deep</A></TD></TR>\n"
      "<TR><TD><input type=checkbox name='page" + Number(wire::PageNumber(a->GetPageKey())) +
      "' CHECKED></TD><TD><A HREF=\"/zol/main/css/a.css\"> a.css</A> "
      "(<A HREF=\"editcontent.html?path=css/&file=a.css\">edit</A>)</TD>" + NumberCells(*a) + "</TR>\n"
      "<TR style='background-color: #CDCDCD;'><TD><input type=checkbox name='page" +
      Number(wire::PageNumber(z->GetPageKey())) + "' CHECKED></TD><TD><A HREF=\"/zol/main/css/z.html\"> z.html</A>"
      "</TD>" + NumberCells(*z) + "</TR>\n"
      "</TABLE>\n"
      "<BR>\n" +
      table + "<TR><TD width='120px'><B>Number of Pages</B></TD><TD>4</TD></TR>\n" +
      "<TR><TD><B>Total Size</B></TD><TD>" + Printf("%0.1f kb", Site().GetOriginalSize() / 1024.0) + "</TD></TR>\n" +
      "<TR><TD><B>Compressed Size</B></TD><TD>" + Printf("%0.1f kb", Site().GetCompressedSize() / 1024.0) +
      "</TD></TR>\n" + "</TABLE>\n";

  const CKVTHttpResponse response = admin.Get("main/content.html", {{"path", "css"}});
  EXPECT_EQ(response.Status, 200);
  EXPECT_EQ(response.BodyText(), expected);
  EXPECT_EQ(response.PrintLink, "/zol/main/content.html?PrinterFriendly=yes");
  EXPECT_EQ(response.PrinterFriendly, 0);
  EXPECT_EQ(response.Framed, 1);
}

TEST_F(SiteAdmin, RootListingShowsFoldersOnceAndTheSiteInformationRow) {
  const std::string body = admin.Get("main/content.html").BodyText();
  EXPECT_EQ(body.find("..</A>"), std::string::npos) << "no parent row at the root";
  EXPECT_NE(body.find("<TD><A HREF=\"content.html?path=css\">css</A></TD>"), std::string::npos);
  EXPECT_NE(body.find("<TD><A HREF=\"content.html?path=results\">results</A></TD>"), std::string::npos);
  EXPECT_NE(body.find("<TR><TD><input type=checkbox name='page0' CHECKED></TD><TD><B>Site Information</B></TD>"),
            std::string::npos);
  EXPECT_EQ(body.find("a.css"), std::string::npos) << "pages of subfolders are not listed at the root";
  EXPECT_EQ(body.find("Available Pages in"), std::string::npos);
  // Two levels down the parent row leads one level up.
  const std::string deep = admin.Get("main/content.html", {{"path", "css/deep"}}).BodyText();
  EXPECT_NE(deep.find("<TD><A HREF=\"content.html?path=css\">..</A></TD>"), std::string::npos);
  EXPECT_NE(deep.find("> b.css</A>"), std::string::npos);
}

TEST_F(SiteAdmin, PathWithATrailingSlashShowsTheSamePagesAsOneWithout) {
  const CKVTHttpResponse with = admin.Get("main/content.html", {{"path", "css/"}});
  const CKVTHttpResponse without = admin.Get("main/content.html", {{"path", "css"}});
  EXPECT_EQ(with.Status, 200);
  EXPECT_NE(with.BodyText().find("> a.css</A>"), std::string::npos);
  EXPECT_EQ(with.BodyText(), without.BodyText());
}

TEST_F(SiteAdmin, FrameNoComesWithoutTheFrameAndPrinterFriendlySetsNoPrintLink) {
  const CKVTHttpResponse unframed = admin.Get("main/content.html", {{"frame", "no"}});
  EXPECT_EQ(unframed.Framed, 0);
  const CKVTHttpResponse printable = admin.Get("main/content.html", {{"PrinterFriendly", "yes"}});
  EXPECT_EQ(printable.PrinterFriendly, 1);
  EXPECT_EQ(printable.PrintLink, "/zol/main/content.html") << "no print link is added";
  EXPECT_EQ(printable.Framed, 1);
}

TEST_F(SiteAdmin, PortidMinusOneFromTheEmptyListRedirectsAndAddsNothing) {
  const CKVTHttpResponse response = admin.Post("main/content.html", {{"portid", "-1"}});
  EXPECT_EQ(response.Status, 301);
  EXPECT_EQ(response.Headers.at("location"), "content.html");
  ASSERT_EQ(Site().GetPorts().size(), 1u);
  EXPECT_EQ(Site().GetPorts()[0]->GetID(), 0u);
}

TEST_F(SiteAdmin, AddingAServerPortPutsItOnTheSiteAndTheListRunsEmpty) {
  const COutputPage* page = Site().GetSchedulePage();
  const BYTE sequence = page->GetSequenceLow();
  EXPECT_EQ(admin.Post("main/content.html", {{"portid", "1"}}).Status, 301);
  ASSERT_EQ(Site().GetPorts().size(), 2u);
  EXPECT_EQ(page->GetSequenceLow(), sequence) << "the port is added to the list alone: no build";
  const std::string body = admin.Get("main/content.html").BodyText();
  EXPECT_NE(body.find("<SELECT name='portid'><OPTION value='-1'>No more ports available\n</SELECT>"),
            std::string::npos);
  // And taken out again by the remove link; the server keeps the port.
  EXPECT_EQ(admin.Get("main/removeport.html", {{"ID", "1"}}).Status, 200) << "a GET only asks";
  EXPECT_EQ(Site().GetPorts().size(), 2u);
  EXPECT_EQ(admin.Post("main/removeport.html", {{"ID", "1"}}).Headers.at("location"), "content.html");
  EXPECT_EQ(Site().GetPorts().size(), 1u);
  EXPECT_NE(Server().GetPort(1), nullptr);
  const CKVTHttpResponse again = admin.Post("main/removeport.html", {{"ID", "1"}});
  EXPECT_EQ(again.Status, 200);
  EXPECT_EQ(again.BodyText(), "Invalid port ID: port not found.");
}

TEST_F(SiteAdmin, ContentPostWithoutPortidOrReloadIsAnInvalidPost) {
  const CKVTHttpResponse response = admin.Post("main/content.html", {{"reload", "no"}});
  EXPECT_EQ(response.Status, 200);
  EXPECT_EQ(response.BodyText(), "Error: invalid post!");
}

TEST_F(SiteAdmin, ReloadRebuildsTheSiteAndRedirects) {
  admin.Scope.Folder.Write("site/css/new.css", "i { }");
  ASSERT_EQ(PageNamed("new.css"), nullptr);
  const BYTE sequence = Site().GetSchedulePage()->GetSequenceLow();
  const CKVTHttpResponse response = admin.Post("main/content.html", {{"reload", "yes"}});
  EXPECT_NE(Site().GetSchedulePage()->GetSequenceLow(), sequence) << "a build makes a new version of the schedule page";
  EXPECT_EQ(response.Status, 301);
  EXPECT_EQ(response.Headers.at("location"), "content.html");
  EXPECT_NE(PageNamed("new.css"), nullptr);
}

TEST_F(SiteAdmin, CurrentEventShowsTheEventsName) {
  ConnectReplica();
  ASSERT_EQ(admin.Post("main/settings.html", {{"event", "1"}}).Status, 301);
  EXPECT_EQ(Site().GetEventId(), static_cast<int>(0x80000001));
  EXPECT_NE(admin.Get("main/content.html").BodyText().find("<TR><TD><B>Current Event:</B></TD><TD>Spring Cup</TD>"),
            std::string::npos);
}

TEST_F(SiteAdmin, SettingsPageIsExactlyAsDesigned) {
  ConnectReplica();
  ASSERT_EQ(admin.Post("main/settings.html", {{"event", "2"}}).Status, 301);
  const CKVTHttpResponse response = admin.Get("main/settings.html");
  EXPECT_EQ(response.Status, 200);
  const std::string expected =
      "<FORM name='settingsform' method='post' action='settings.html'>\n"
      "<INPUT type='hidden' name='formtoken' value=''>\n"
      "<TABLE cellspacing=0 BORDER=0 WIDTH='500px'>\n"
      "<TR><TD COLSPAN='2' class='TableHeader'>ZOL Server Settings</TD></TR>\n"
      "<TR><TD width='120px'>Site Name:</TD><TD><INPUT type='text' name='sitename' style='width: 120px;' "
      "maxlength='15' value='main'></TD></TR>\n"
      "<TR><TD>Root Path:</TD><TD><INPUT type='text' name='rootpath' style='width: 250px;' maxlength='256' value='" +
      Root +
      "/'></TD></TR>\n"
      "<TR><TD>Current Event:</TD><TD><SELECT name='event'>\n"
      "<OPTION VALUE='1'>Spring Cup\n"
      "<OPTION VALUE='2' SELECTED>Heat A\n"
      "</SELECT></TD></TR>\n"
      "<TR><TD>Screen Width:</TD><TD><INPUT type='text' name='screenwidth' style='width: 80px;' maxlength='5' "
      "value='1024'></TD></TR>\n"
      "<TR><TD>Screen Height:</TD><TD><INPUT type='text' name='screenheight' style='width: 80px;' maxlength='5' "
      "value='768'></TD></TR>\n"
      "<TR><TD COLSPAN='2' style='text-align: right;'><INPUT type='submit' value='OK' onclick=''>\n"
      "<INPUT type='button' value='Cancel' onclick=\"location.href='content.html'\"></TD></TR>\n"
      "</TABLE>\n</FORM>\n";
  EXPECT_EQ(response.BodyText(), expected);
}

TEST_F(SiteAdmin, SettingsPostWithUnchangedValuesRebuildsNothingAndStillRedirects) {
  const COutputPage* schedule = Site().GetSchedulePage();
  const BYTE sequence = schedule->GetSequenceLow();
  const CKVTHttpResponse response = admin.Post("main/settings.html", {{"sitename", "main"},
                                                                      {"rootpath", Site().GetRootDir()},
                                                                      {"screenwidth", "1024"},
                                                                      {"screenheight", "768"}});
  EXPECT_EQ(response.Status, 301);
  EXPECT_EQ(response.Headers.at("location"), "content.html");
  EXPECT_EQ(schedule->GetSequenceLow(), sequence) << "a build would have made a new version of the schedule page";
  // A new size only is stored and shown, and rebuilds nothing either.
  EXPECT_EQ(admin.Post("main/settings.html", {{"screenwidth", "800"}, {"screenheight", "600"}}).Status, 301);
  EXPECT_EQ(Site().GetParameter("width"), "800");
  EXPECT_EQ(Site().GetParameter("height"), "600");
  EXPECT_EQ(schedule->GetSequenceLow(), sequence);
}

TEST_F(SiteAdmin, SettingsPostWithANewRootRebuildsTheSiteThere) {
  admin.Scope.Folder.Write("other/only.css", "x");
  const CKVTHttpResponse response =
      admin.Post("main/settings.html", {{"rootpath", admin.Scope.Folder.Path() + "/other"}, {"sitename", "renamed"}});
  EXPECT_EQ(response.Status, 301);
  EXPECT_EQ(Site().GetRootDir(), admin.Scope.Folder.Path() + "/other\\");
  EXPECT_NE(PageNamed("only.css"), nullptr);
  EXPECT_EQ(PageNamed("a.css"), nullptr);
  EXPECT_EQ(Site().GetParameter("name"), "renamed");
  // The web paths stay those made at start-up: old pages are gone, new ones under "main".
  EXPECT_EQ(Server().WebServerFindPage("main/css/a.css"), nullptr);
  EXPECT_NE(Server().WebServerFindPage("main/only.css"), nullptr);
  EXPECT_EQ(Server().WebServerFindPage("renamed/only.css"), nullptr);
  EXPECT_EQ(admin.Get("main/only.css").Status, 200);
}

// The file's text is escaped in the text area (the browser gives the characters back),
// behind a newline that the browser drops; the form carries the token and the line ends.
TEST_F(SiteAdmin, EditPageIsAsDesignedWithTheTextEscapedForTheTextArea) {
  ConnectReplica();
  const CKVTHttpResponse response = admin.Get("main/editcontent.html", {{"path", "css/"}, {"file", "a.css"}});
  ASSERT_EQ(response.Status, 200);
  EXPECT_EQ(response.HeadText,
            "\t<SCRIPT language=JavaScript src='/includes/textarea.js' type='text/javascript'></SCRIPT>");
  const std::string body = response.BodyText();
  const auto form = body.find("<form name='edit'");
  ASSERT_NE(form, std::string::npos);
  const std::string script = body.substr(0, form);
  EXPECT_EQ(script.rfind("<SCRIPT", 0), 0u);
  EXPECT_NE(script.find("function insertViewName()"), std::string::npos);
  EXPECT_NE(script.find("<p>Editing css/a.css</p>\n"), std::string::npos);
  EXPECT_EQ(body.substr(form),
            "<form name='edit' action='editcontent.html' method='post' accept-charset='UTF-8'>\n"
            "<INPUT type='hidden' name='formtoken' value=''>\n"
            "<input type='hidden' name='path' value='css/'>\n"
            "<input type='hidden' name='file' value='a.css'>\n"
            "<input type='hidden' name='lineends' value='lf'>\n"
            "<table>\n"
            "<tr><td colspan='2'><textarea cols='80' rows='25' wrap='off' onKeyDown='onKeyDown(this, event);' "
            "name='content' ID='content'>\nbody { color: &lt;b&gt;red&lt;/b&gt;; }</textarea></td></tr>\n"
            "<tr><td><SELECT name=viewname style='width:140px;'>\n"
            "<OPTION VALUE='lgView_Results' SELECTED>Results\n"
            "<OPTION VALUE='lgView_LapTimes'>Lap times\n"
            "</SELECT>\n"
            "<input type='button' value='Insert' onclick=\"insertViewName();\"></td>\n"
            "<td align='right'><input type='submit' value='Apply Changes' onclick=''>"
            "<input type='button' value='Cancel' onclick=\"location.href='content.html?path=css%2F'\">\n"
            "</td></tr>\n</table>\n</form>\n");
}

TEST_F(SiteAdmin, EditOfAMissingFileSaysFileNotFound) {
  const CKVTHttpResponse response = admin.Get("main/editcontent.html", {{"file", "absent.css"}});
  EXPECT_EQ(response.Status, 404);
  EXPECT_EQ(response.BodyText(), "File not found: absent.css");
}

TEST_F(SiteAdmin, SavingAPlainFileWritesItAndTheSiteSendsTheNewText) {
  const CKVTHttpResponse response =
      admin.Post("main/editcontent.html", {{"path", "css/"}, {"file", "a.css"}, {"content", "b+%7B+%7D"}});
  EXPECT_EQ(response.Status, 301);
  EXPECT_EQ(response.Headers.at("location"), "content.html?path=css%2F");
  std::FILE* file = std::fopen((Root + "/css/a.css").c_str(), "rb");
  ASSERT_NE(file, nullptr);
  char text[64] = {};
  const std::size_t n = std::fread(text, 1, sizeof text - 1, file);
  std::fclose(file);
  EXPECT_EQ(std::string(text, n), "b { }");
  ASSERT_NE(PageNamed("a.css"), nullptr);
  EXPECT_EQ(PageNamed("a.css")->GetDataAsString(), "b { }");
}

TEST_F(SiteAdmin, SavingAFileThatWasDeletedGives404AndDoesNotMakeItAgain) {
  std::filesystem::remove(Root + "/css/a.css");
  const CKVTHttpResponse response =
      admin.Post("main/editcontent.html", {{"path", "css/"}, {"file", "a.css"}, {"content", "x"}});
  EXPECT_EQ(response.Status, 404);
  EXPECT_EQ(response.BodyText().rfind("Failed to write file: ", 0), 0u);
  EXPECT_FALSE(std::filesystem::exists(Root + "/css/a.css"));
}

TEST_F(SiteAdmin, EditRefusesParentAndAbsolutePaths) {
  admin.Scope.Folder.Write("outside.css", "keep");
  const std::string outside = admin.Scope.Folder.Path() + "/outside.css";
  for (const auto& [path, file] : std::vector<std::pair<std::string, std::string>>{
           {"../", "outside.css"}, {"", "../outside.css"}, {"css/../../", "outside.css"},
           {"", outside}, {admin.Scope.Folder.Path() + "/", "outside.css"}, {"css\\..\\..\\", "outside.css"}}) {
    const CKVTHttpResponse get = admin.Get("main/editcontent.html", {{"path", path}, {"file", file}});
    EXPECT_EQ(get.Status, 404) << path << file;
    EXPECT_EQ(get.BodyText(), "File not found: " + file);
    const CKVTHttpResponse post =
        admin.Post("main/editcontent.html", {{"path", path}, {"file", file}, {"content", "gone"}});
    EXPECT_EQ(post.Status, 404) << path << file;
    EXPECT_EQ(post.BodyText().rfind("Failed to write file: ", 0), 0u);
  }
  std::FILE* kept = std::fopen(outside.c_str(), "rb");
  ASSERT_NE(kept, nullptr);
  char text[8] = {};
  const std::size_t n = std::fread(text, 1, sizeof text - 1, kept);
  std::fclose(kept);
  EXPECT_EQ(std::string(text, n), "keep");
}

TEST_F(SiteAdmin, EditRefusesALinkThatLeadsOutOfTheRoot) {
  admin.Scope.Folder.Write("outside.css", "keep");
  std::filesystem::create_symlink(admin.Scope.Folder.Path() + "/outside.css", Root + "/css/link.css");
  EXPECT_EQ(admin.Get("main/editcontent.html", {{"path", "css/"}, {"file", "link.css"}}).Status, 404);
  EXPECT_EQ(
      admin.Post("main/editcontent.html", {{"path", "css/"}, {"file", "link.css"}, {"content", "gone"}}).Status,
      404);
}

TEST(SiteRow, WithACompressedSizeOfZeroTheSavingShowsZero) {
  PackageScope scope;
  CZOLServerSite site(1, nullptr);
  site.SetParameter("name", "empty");
  site.SetParameter("width", "1024");
  site.SetParameter("height", "768");
  ASSERT_EQ(site.GetCompressedSize(), 0u);
  EXPECT_EQ(site.GetSiteAsHTMLRow(),
            "<TR><TD><A HREF=\"/zol/empty/content.html\">empty</A></TD><TD></TD><TD>0</TD><TD>768 x 1024</TD>"
            "<TD>0.0 kb</TD><TD>0.0 kb</TD><TD>0.0 %</TD><TD>0.00 KB/sec</TD></TR>\n");
}
