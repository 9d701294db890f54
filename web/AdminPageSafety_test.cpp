// The administration pages under hostile values and on race day: every value is escaped
// for the place it lands, nothing changes by GET, every POST form carries the token,
// paths read the Linux way, a port that cannot start says why, the port forms refuse
// what cannot be taken, and the home page shows the data manager link and the active run.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "data/DataEncoder.h"
#include "data/DataTestSupport.h"
#include "data/Run.h"
#include "distribution/MulticastServer.h"
#include "distribution/OutputPort.h"
#include "distribution/SerialPort.h"
#include "distribution/TCPIPServer.h"
#include "frame/platform/Sockets.h"
#include "site/ZOLServerSite.h"
#include "testing/LogCapture.h"
#include "testing/WaitUntil.h"
#include "web/AdminPageFixture.h"
#include "web/HTMLText.h"
#include "web/WebPage.h"

namespace {

const std::string kScript = "<script>alert(1)</script>";
const std::string kBreakOut = "\"'><img src=x onerror=alert(1)>";
const std::string kTextareaEnd = "</textarea>";
const std::string kToken = "f00dT0k3n";

int Count(const std::string& text, const std::string& part) {
  int n = 0;
  for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) ++n;
  return n;
}

// Neither the raw value nor any tag it could open is in the page.
void ExpectNoRawValue(const std::string& body, const std::string& value) {
  EXPECT_EQ(body.find(value), std::string::npos) << "raw value " << value << " in:\n" << body;
  EXPECT_EQ(body.find("<img"), std::string::npos) << body;
  EXPECT_EQ(body.find("<script"), std::string::npos) << body;
}

// Every form that posts carries the token field, and every form posts.
void ExpectEveryFormCarriesTheToken(const std::string& body, const std::string& token) {
  CKVTHttpRequest request;
  request.FormToken = token;
  const std::string field = FormTokenField(request);
  std::size_t at = 0;
  int forms = 0;
  while ((at = body.find("<FORM", at)) != std::string::npos) {
    const std::size_t end = body.find("</FORM>", at);
    ASSERT_NE(end, std::string::npos) << body;
    const std::string form = body.substr(at, end - at);
    EXPECT_NE(form.find("method='post'"), std::string::npos) << form;
    EXPECT_NE(form.find(field), std::string::npos) << "a form without the token:\n" << form;
    ++forms;
    at = end;
  }
  EXPECT_GT(forms, 0) << body;
}

// A server with one site "main" fed by the stopped multicast port 0; TCP port 1 runs and
// no site lists it. The module's log lines are kept.
struct AdminSafety : ::testing::Test {
  void SetUp() override { ASSERT_TRUE(admin.PtyOk); }

  void StartWith(const std::string& extraPorts = "", int extraCount = 0, const std::string& root = "") {
    Root = admin.Scope.Folder.Path() + "/site";
    admin.Scope.Folder.Write("site/a.css", "p { }");
    static_cast<CPackage&>(log) = admin.Scope.Package;
    SetModulePackage(&log);
    TcpPort = platform::FindFreeTcpPort();
    std::string ports = "[ports]\ncount=" + std::to_string(2 + extraCount) + "\nport0=3\nport1=2\n";
    for (int i = 0; i < extraCount; ++i) ports += "port" + std::to_string(2 + i) + "=" + extraPorts.substr(i, 1) + "\n";
    ports += "[port0]\nID=0\naddress=127.0.0.1\n[port1]\nID=1\nport=" + std::to_string(TcpPort) + "\n";
    admin.Start(ports + ExtraSections + "[sites]\ncount=1\nsite0=main\n[main]\nroot=" + (root.empty() ? Root : root) +
                "\nports=0\n");
    ASSERT_TRUE(WaitUntil([&] { return Server().GetPort(1)->IsRunning() != 0; }, 10));
  }

  CZOLServer& Server() { return *admin.Server; }
  CZOLServerSite& Site() { return *Server().GetSites()[0]; }

  CKVTHttpResponse GetWithToken(const std::string& path, const std::map<std::string, std::string>& attributes = {}) {
    CKVTHttpRequest request;
    request.Method = 1;
    request.Path = path;
    request.Attributes = attributes;
    request.FormToken = kToken;
    return admin.Handle(path, request);
  }

  std::string Home() { return GetWithToken("_server/index.html").BodyText(); }

  int LogLinesWith(const std::string& part) {
    const auto lines = log.GetLines();
    return static_cast<int>(std::count_if(lines.begin(), lines.end(),
                                          [&](const std::string& line) { return line.find(part) != std::string::npos; }));
  }

  // Connects the link to a local data manager with events named `eventName` and, when
  // `runName` is not empty, an active run of that name.
  void ConnectReplica(const std::string& eventName, const std::string& runName) {
    CRMComm& comm = *Server().GetComm();
    Server().Initialize();
    comm.OnModifyModule(kDataManagerClass, 1, LocalComputerForTests(), TRUE);
    Deliver(comm, DataEncoder::Connected());
    CBaseDataComm model;
    AddTrackAndEventGroup(model);
    model.Events[0x80000001]->Name = eventName;
    if (!runName.empty()) {
      auto* run = new CRun(nullptr);
      run->UniqueID = 0x00000011;
      run->EventID = 0x80000001;
      run->Name = runName;
      run->Flags = kRunActive;
      model.Runs[run->UniqueID] = run;
    }
    Deliver(comm, DataEncoder::Snapshot(model));
  }

  LogCapturePackage log;
  AdminPageFixture admin;
  std::string Root;
  std::string ExtraSections;
  std::uint16_t TcpPort = 0;
};

}  // namespace

// ---- escaping ------------------------------------------------------------------------

TEST_F(AdminSafety, ContentPagePathAttributeIsEscapedInTheHeadAndTheLinks) {
  StartWith();
  for (const std::string& value : {kScript, kBreakOut, kTextareaEnd}) {
    const std::string body = GetWithToken("main/content.html", {{"path", value}}).BodyText();
    ExpectNoRawValue(body, value);
    EXPECT_NE(body.find("Available Pages in '" + HtmlText(value) + "'"), std::string::npos) << body;
  }
}

TEST_F(AdminSafety, SiteNameIsEscapedOnTheHomeAndContentPages) {
  StartWith();
  Site().SetParameter("name", kBreakOut);
  const std::string home = Home();
  ExpectNoRawValue(home, kBreakOut);
  EXPECT_NE(home.find(">" + HtmlText(kBreakOut) + "</A></TD>"), std::string::npos) << home;
  const std::string content = GetWithToken("main/content.html").BodyText();
  ExpectNoRawValue(content, kBreakOut);
  EXPECT_NE(content.find("<TD>" + HtmlText(kBreakOut) + "</TD>"), std::string::npos) << content;
}

TEST_F(AdminSafety, FileAndFolderNamesAreEscapedAsTextAndAsLinks) {
  admin.Scope.Folder.Write("site/" + kBreakOut + ".css", "p { }");
  admin.Scope.Folder.Write("site/" + kBreakOut + "/b.css", "p { }");
  StartWith();
  const std::string root = GetWithToken("main/content.html").BodyText();
  ExpectNoRawValue(root, kBreakOut);
  EXPECT_NE(root.find("> " + HtmlText(kBreakOut + ".css") + "</A>"), std::string::npos) << root;
  EXPECT_NE(root.find("file=" + UrlQueryValue(kBreakOut + ".css") + "\">edit</A>"), std::string::npos) << root;
  EXPECT_NE(root.find("content.html?path=" + UrlQueryValue(kBreakOut) + "\">" + HtmlText(kBreakOut) + "</A>"),
            std::string::npos)
      << root;
  const std::string folder = GetWithToken("main/content.html", {{"path", kBreakOut}}).BodyText();
  ExpectNoRawValue(folder, kBreakOut);
  EXPECT_NE(folder.find("editcontent.html?path=" + UrlQueryValue(kBreakOut) + "/&file=b.css\">edit</A>"),
            std::string::npos)
      << folder;
}

TEST_F(AdminSafety, MulticastAddressIsEscapedInItsAttribute) {
  StartWith();
  auto* multicast = dynamic_cast<CZOLMulticastServer*>(Server().GetPort(0));
  ASSERT_NE(multicast, nullptr);
  multicast->SetAddress(kBreakOut);
  const std::string home = Home();
  ExpectNoRawValue(home, kBreakOut);
  EXPECT_NE(home.find("name='multicastaddress' style='width: 120px;' maxlength='16' value='" + HtmlAttribute(kBreakOut) +
                      "'>"),
            std::string::npos)
      << home;
}

TEST_F(AdminSafety, EventNameIsEscapedOnTheContentPage) {
  StartWith();
  ConnectReplica(kScript, "");
  Site().Build(Site().GetRootDir(), static_cast<int>(0x80000001), 0);
  const std::string body = GetWithToken("main/content.html").BodyText();
  ExpectNoRawValue(body, kScript);
  EXPECT_NE(body.find("<TR><TD><B>Current Event:</B></TD><TD>" + HtmlText(kScript) + "</TD>"), std::string::npos)
      << body;
}

TEST_F(AdminSafety, SerialDeviceTextsAreEscapedWhereverAPortShowsThem) {
  admin.Scope.Package.ComPorts[3] = "/nonexistent/" + kScript;
  ExtraSections = "[port2]\nID=2\nport=3\nbaudrate=9600\n";
  StartWith("1", 1);
  const std::string home = Home();
  ExpectNoRawValue(home, kScript);
  EXPECT_NE(home.find(HtmlText("/nonexistent/" + kScript)), std::string::npos) << home;
  const std::string content = GetWithToken("main/content.html").BodyText();
  ExpectNoRawValue(content, kScript);
  EXPECT_NE(content.find(HtmlText("COM 3 (/nonexistent/" + kScript + ")")), std::string::npos) << content;
}

// ---- no state change by GET, the token in every form ------------------------------------

TEST_F(AdminSafety, GetOfDeleteportChangesNothingAndAsksWithThePostForm) {
  StartWith();
  const CKVTHttpResponse response = GetWithToken("_server/deleteport.html", {{"ID", "1"}});
  EXPECT_NE(Server().GetPort(1), nullptr) << "a GET deleted the port";
  EXPECT_EQ(response.Status, 200);
  const std::string body = response.BodyText();
  EXPECT_NE(body.find("action='deleteport.html'"), std::string::npos) << body;
  EXPECT_NE(body.find("<INPUT type='hidden' name='ID' value='1'>"), std::string::npos) << body;
  EXPECT_NE(body.find("confirm('Delete the port?')"), std::string::npos) << body;
  ExpectEveryFormCarriesTheToken(body, kToken);
}

TEST_F(AdminSafety, PostOfDeleteportWithTheIdDeletesThePort) {
  StartWith();
  const CKVTHttpResponse response = admin.Post("_server/deleteport.html", {{"ID", "1"}, {"formtoken", kToken}});
  EXPECT_EQ(response.Status, 301);
  EXPECT_EQ(Server().GetPort(1), nullptr);
}

TEST_F(AdminSafety, GetOfRemoveportChangesNothingAndPostRemoves) {
  StartWith();
  ASSERT_EQ(Site().GetPorts().size(), 1u);
  const CKVTHttpResponse asked = GetWithToken("main/removeport.html", {{"ID", "0"}});
  EXPECT_EQ(Site().GetPorts().size(), 1u) << "a GET took the port off the site";
  EXPECT_NE(asked.BodyText().find("action='removeport.html'"), std::string::npos) << asked.BodyText();
  ExpectEveryFormCarriesTheToken(asked.BodyText(), kToken);
  EXPECT_EQ(admin.Post("main/removeport.html", {{"ID", "0"}, {"formtoken", kToken}}).Status, 301);
  EXPECT_TRUE(Site().GetPorts().empty());
  EXPECT_NE(Server().GetPort(0), nullptr) << "the port stays known to the server";
}

TEST_F(AdminSafety, EveryFormOfTheHomeAndContentPagesCarriesTheToken) {
  StartWith();
  const std::string home = Home();
  ExpectEveryFormCarriesTheToken(home, kToken);
  EXPECT_EQ(home.find("HREF=\"deleteport.html"), std::string::npos) << "a delete link is still a GET";
  // The delete button looks like the link it replaces.
  EXPECT_NE(home.find("value='Delete' style='border: none; background: none;"), std::string::npos) << home;
  const std::string content = GetWithToken("main/content.html").BodyText();
  ExpectEveryFormCarriesTheToken(content, kToken);
  EXPECT_EQ(content.find("HREF=\"removeport.html"), std::string::npos) << "a remove link is still a GET";
}

// ---- Linux paths -------------------------------------------------------------------------

TEST_F(AdminSafety, RootKeptWithBackslashesIsShownWithSlashes) {
  admin.Scope.Folder.Write("site/a.css", "p { }");
  std::string stored = admin.Scope.Folder.Path() + "/site/";
  std::replace(stored.begin(), stored.end(), '/', '\\');
  StartWith("", 0, stored);
  ASSERT_NE(Site().GetRootDir().find('\\'), std::string::npos) << "the setting keeps its format";
  std::string shown = Site().GetRootDir();
  std::replace(shown.begin(), shown.end(), '\\', '/');
  const std::string home = Home();
  EXPECT_NE(home.find("<TD>" + HtmlText(shown) + "</TD>"), std::string::npos) << home;
  EXPECT_EQ(home.find('\\'), std::string::npos) << home;
  const std::string content = GetWithToken("main/content.html").BodyText();
  EXPECT_NE(content.find("<TR><TD><B>Root path:</B></TD><TD>" + HtmlText(shown) + "</TD></TR>"), std::string::npos)
      << content;
  EXPECT_EQ(content.find('\\'), std::string::npos) << content;
}

// ---- why a port is down --------------------------------------------------------------------

TEST_F(AdminSafety, TcpPortOnATakenNumberShowsAndLogsWhyOnce) {
  const int holder = platform::OpenTcpSocket();
  ASSERT_GE(holder, 0);
  ASSERT_TRUE(platform::BindAnyAddress(holder, 0));
  ASSERT_TRUE(platform::Listen(holder, 1));
  const std::uint16_t taken = platform::LocalPort(holder);
  ExtraSections = "[port2]\nID=2\nport=" + std::to_string(taken) + "\n";
  StartWith("2", 1);
  const std::string reason = "cannot listen on TCP port " + std::to_string(taken) + ": address in use";
  EXPECT_TRUE(WaitUntil([&] { return LogLinesWith(reason) > 0; }, 10));
  EXPECT_EQ(Server().GetPort(2)->IsRunning(), 0);
  EXPECT_NE(Home().find("<TD BGCOLOR='red'>None: " + reason + "</TD>"), std::string::npos) << Home();
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  Home();
  EXPECT_EQ(LogLinesWith(reason), 1) << "logged once per failed start";
  platform::CloseSocket(holder);
}

TEST_F(AdminSafety, SerialPortWithoutItsDeviceShowsAndLogsWhyOnce) {
  ExtraSections = "[port2]\nID=2\nport=3\nbaudrate=9600\n";
  StartWith("1", 1);
  const std::string reason = "cannot open /nonexistent/zol-tty3 (COM3): no such device";
  EXPECT_EQ(Server().GetPort(2)->IsRunning(), 0);
  EXPECT_NE(Home().find("<TD BGCOLOR='red'>None: " + reason + "</TD>"), std::string::npos) << Home();
  Home();
  EXPECT_EQ(LogLinesWith(reason), 1) << "logged once per failed start";
}

TEST_F(AdminSafety, TcpPortNumberAboveSixteenBitsIsNeverTakenModulo) {
  ExtraSections = "[port2]\nID=2\nport=99999\n";
  StartWith("2", 1);
  EXPECT_TRUE(WaitUntil([&] { return LogLinesWith("TCP port number 99999 is not from 1 to 65535") > 0; }, 10));
  EXPECT_EQ(Server().GetPort(2)->IsRunning(), 0) << "it listened on 99999 - 65536";
  EXPECT_NE(Home().find("None: TCP port number 99999 is not from 1 to 65535"), std::string::npos) << Home();
}

// ---- form validation ------------------------------------------------------------------------

TEST_F(AdminSafety, TcpFormRefusesNumbersOutsideTheRangeAndChangesNothing) {
  StartWith();
  for (const std::string value : {"0", "65536", "99999", "abc", ""}) {
    const CKVTHttpResponse response =
        admin.Post("_server/index.html", {{"portid", "1"}, {"tcpipport", value}, {"portactive", "on"}});
    EXPECT_EQ(response.Status, 200) << value;
    const std::string body = response.BodyText();
    EXPECT_NE(body.find(HtmlText("The port number must be a whole number from 1 to 65535, not '" + value + "'.")),
              std::string::npos)
        << value << body;
    EXPECT_NE(body.find("Nothing was changed."), std::string::npos);
    EXPECT_EQ(dynamic_cast<CZOLTCPIPServer*>(Server().GetPort(1))->GetPort(), TcpPort) << value;
    EXPECT_NE(Server().GetPort(1)->IsRunning(), 0) << value;
  }
  // A valid change behaves as before.
  const std::uint16_t other = platform::FindFreeTcpPort();
  EXPECT_EQ(admin.Post("_server/index.html", {{"portid", "1"}, {"tcpipport", std::to_string(other)}, {"portactive", "on"}})
                .Status,
            301);
  EXPECT_EQ(dynamic_cast<CZOLTCPIPServer*>(Server().GetPort(1))->GetPort(), other);
}

TEST_F(AdminSafety, SerialFormRefusesARateNotInTheList) {
  ExtraSections = "[port2]\nID=2\nport=7\nbaudrate=9600\n";
  StartWith("1", 1);
  const CKVTHttpResponse response =
      admin.Post("_server/index.html", {{"portid", "2"}, {"comport", "7"}, {"baudrate", "12345"}, {"portactive", "on"}});
  EXPECT_EQ(response.Status, 200);
  EXPECT_NE(response.BodyText().find(HtmlText("not '12345'")), std::string::npos) << response.BodyText();
  EXPECT_EQ(dynamic_cast<CZOLSerialPort*>(Server().GetPort(2))->GetBaudRate(), 9600u);
}

TEST_F(AdminSafety, MulticastFormRefusesAnAddressThatIsNoGroupAndABadPort) {
  StartWith();
  auto* multicast = dynamic_cast<CZOLMulticastServer*>(Server().GetPort(0));
  for (const auto& [address, port] : std::vector<std::pair<std::string, std::string>>{
           {"10.0.0.1", "7125"}, {kBreakOut, "7125"}, {"239.1.1.1", "0"}, {"239.1.1.1", "70000"}}) {
    const CKVTHttpResponse response =
        admin.Post("_server/index.html", {{"portid", "0"}, {"multicastaddress", address}, {"multicastport", port}});
    EXPECT_EQ(response.Status, 200) << address << " " << port;
    ExpectNoRawValue(response.BodyText(), kBreakOut);
    EXPECT_NE(response.BodyText().find("Nothing was changed."), std::string::npos) << response.BodyText();
    EXPECT_EQ(multicast->GetAddress(), "127.0.0.1");
    EXPECT_EQ(multicast->GetPort(), 7125u);
  }
}

// ---- race day -------------------------------------------------------------------------------

TEST_F(AdminSafety, RaceBoxWithoutADataManagerSaysNotConnected) {
  StartWith();
  const std::string home = Home();
  EXPECT_NE(home.find("Race day"), std::string::npos) << home;
  EXPECT_NE(home.find("not connected"), std::string::npos) << home;
  EXPECT_NE(home.find("<TD width='160px'><B>Active run:</B></TD><TD>none</TD>"), std::string::npos) << home;
}

TEST_F(AdminSafety, RaceBoxShowsTheLinkAndTheActiveRunEscaped) {
  StartWith();
  ConnectReplica("Spring Cup", kScript);
  const std::string home = Home();
  ExpectNoRawValue(home, kScript);
  EXPECT_NE(home.find("connected since "), std::string::npos) << home;
  EXPECT_NE(home.find("on this computer"), std::string::npos) << home;
  EXPECT_NE(home.find("<TD width='160px'><B>Active run:</B></TD><TD>" + HtmlText(kScript) + "</TD>"),
            std::string::npos)
      << home;
  EXPECT_NE(home.find("<B>Flag:</B>"), std::string::npos) << home;
  EXPECT_NE(home.find("<B>Race time:</B>"), std::string::npos) << home;
}

TEST_F(AdminSafety, TcpClientsShowTheirAddressAndPort) {
  StartWith();
  const int client = platform::TcpConnect("127.0.0.1", TcpPort);
  ASSERT_GE(client, 0);
  auto* tcp = dynamic_cast<CZOLTCPIPServer*>(Server().GetPort(1));
  ASSERT_TRUE(WaitUntil([&] { return tcp->GetClientCount() == 1; }, 10));
  const std::string home = Home();
  EXPECT_NE(home.find("<TR><TD>Client 127.0.0.1:" + std::to_string(platform::LocalPort(client)) + "</TD>"),
            std::string::npos)
      << home;
  platform::CloseSocket(client);
}

TEST_F(AdminSafety, APortNoSiteListsSaysSoWithALinkToTheContentPage) {
  StartWith();
  const std::string home = Home();
  EXPECT_EQ(Count(home, "No site lists this port"), 1) << "only TCP port 1 is on no site:\n" << home;
  EXPECT_NE(home.find("<A HREF=\"/zol/main/content.html\">main</A>"), std::string::npos) << home;
}

TEST_F(AdminSafety, HomePageReloadsByScriptThatSparesAFormBeingEdited) {
  StartWith();
  const CKVTHttpResponse response = GetWithToken("_server/index.html");
  EXPECT_EQ(response.HeadText.find("refresh"), std::string::npos) << response.HeadText;
  EXPECT_NE(response.HeadText.find("setInterval"), std::string::npos) << response.HeadText;
  EXPECT_NE(response.HeadText.find("document.activeElement"), std::string::npos);
  EXPECT_NE(response.HeadText.find("60000"), std::string::npos);
}

TEST_F(AdminSafety, SerialLinesShowTheirDeviceBesideTheComNumber) {
  ExtraSections = "[port2]\nID=2\nport=7\nbaudrate=9600\n";
  StartWith("1", 1);
  EXPECT_NE(Home().find(">" + HtmlText("COM7 (" + admin.DeviceName + ")")), std::string::npos) << Home();
}
