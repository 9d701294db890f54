#include "web/ServerHomePage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "distribution/OutputPort.h"
#include "distribution/TCPIPServer.h"
#include "frame/platform/Sockets.h"
#include "site/ZOLServerSite.h"
#include "testing/WaitUntil.h"
#include "web/AdminPageFixture.h"
#include "web/ServerPages.h"

namespace {

std::string Printf(const char* format, double value) {
  char text[64];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

std::string Hex4(int value) {
  char text[32];
  std::snprintf(text, sizeof text, "0x%04X", static_cast<unsigned>(value));
  return text;
}

// The port row and its hidden editor, written out from the page's design.
std::string ExpectedPortRow(const std::string& id, const std::string& name, const std::string& stateCells,
                            const std::string& settings, bool active) {
  return "<TR><TD width='250px'>" + name +
         " (<A HREF=\"#\" onclick=\"theDiv=document.getElementById('settings" + id +
         "');if (theDiv != null) theDiv.style.display='block'; return false;\">edit</A>)</TD>" + stateCells +
         "<TD>" +
         PortActionForm("deleteport.html", static_cast<DWORD>(std::stoul(id)), "Delete", "Delete the port?",
                        CKVTHttpRequest()) +
         "</TD>\n"
         "</TR>\n"
         "<TR><TD COLSPAN='3'><DIV id=settings" + id +
         " style='width: 220px; margin: 3px;display: none; background-color: white; border-style: solid; "
         "border-width: 1px;'><FORM name='settingsform' method='post' action='index.html' style='margin: 0px;'>\n"
         "<INPUT type='hidden' name='formtoken' value=''><TABLE width='100%'><TR><TD COLSPAN='2'><INPUT type='hidden' name='portid' value='" + id + "'>\n" +
         settings +
         "</TD></TR><TR><TD COLSPAN='2' style='background-color: gray; height: 1px;'></TD></TR>"
         "<TR><TD><INPUT type='checkbox' name='portactive'" + (active ? " CHECKED" : "") +
         ">Active</TD><TD style='text-align: right;'>\n"
         "<INPUT type='submit' style='width: 60px;' value='Apply' onclick=\"return confirm('Apply the new "
         "settings?');\">\n"
         "<INPUT type='button' style='width: 60px;' value='Cancel' onclick=\"theDiv=document.getElementById('settings" +
         id + "'); if (theDiv != null) theDiv.style.display='none'; return false;\">\n"
         "</TD></TR></TABLE></FORM>\n"
         "</DIV></TD></TR>\n";
}

// A site's row; the sizes come from the site, the text around them from the design.
std::string ExpectedSiteRow(CZOLServerSite& site, const std::string& name, const std::string& pages,
                            const std::string& dimensions) {
  const double original = site.GetOriginalSize();
  const double compressed = site.GetCompressedSize();
  double quotient = compressed > 0 ? compressed / original : 1.0;
  if (quotient > 1.0) quotient = 1.0;
  std::string root = site.GetRootDir();
  std::replace(root.begin(), root.end(), '\\', '/');
  return "<TR><TD><A HREF=\"/zol/" + name + "/content.html\">" + name + "</A></TD><TD>" + root +
         "</TD><TD>" + pages + "</TD><TD>" + dimensions + "</TD><TD>" + Printf("%0.1f kb", original / 1024.0) + "</TD><TD>" +
         Printf("%0.1f kb", compressed / 1024.0) + "</TD><TD>" + Printf("%0.1f %%", (1.0 - quotient) * 100.0) +
         "</TD><TD>" + Printf("%0.2f KB/sec", site.GetBandwidth() / 1024.0) + "</TD></TR>\n";
}

std::string ThreePortsAndTwoSites(std::uint16_t tcpPort, const std::string& folder) {
  return "[ports]\ncount=3\nport0=1\nport1=2\nport2=3\n"
         "[port0]\nID=1\nport=7\nbaudrate=115200\n"
         "[port1]\nID=2\nport=" +
         std::to_string(tcpPort) +
         "\n"
         // Not a group address: the join fails and the port stays stopped, sending nothing.
         "[port2]\nID=3\naddress=127.0.0.1\nport=7125\n"
         "[sites]\ncount=2\nsite0=alpha\nsite1=beta\n"
         "[alpha]\nroot=" +
         folder + "/alpha\nports=3\n[beta]\nroot=" + folder + "/beta\nwidth=640\nheight=480\n";
}

}  // namespace

TEST(ServerHomePage, MainPageWithTwoSitesAndAPortOfEachTypeIsExactlyAsDesigned) {
  AdminPageFixture admin;
  ASSERT_TRUE(admin.PtyOk);
  const std::uint16_t tcpPort = platform::FindFreeTcpPort();
  admin.Scope.Folder.Write("beta/style.css", std::string(3000, 'x'));
  CZOLServer& server = admin.Start(ThreePortsAndTwoSites(tcpPort, admin.Scope.Folder.Path()));
  ASSERT_TRUE(WaitUntil([&] { return server.GetPort(2)->IsRunning() != 0; }, 10));
  ASSERT_NE(server.GetPort(1)->IsRunning(), 0);
  ASSERT_EQ(server.GetPort(3)->IsRunning(), 0);
  ASSERT_EQ(server.GetSites().size(), 2u);
  ASSERT_GT(server.GetSites()[1]->GetCompressedSize(), 0u);

  const CKVTHttpResponse response = admin.Get("_server/index.html");
  ASSERT_EQ(response.Status, 200);
  // The page reloads itself by a script that spares a form being edited.
  EXPECT_NE(response.HeadText.find("setInterval("), std::string::npos) << response.HeadText;
  EXPECT_EQ(response.Framed, 1) << "the main page comes in the web server's frame";

  const std::string tcp = std::to_string(tcpPort);
  const std::string serialSettings =
      "<TABLE><TR><TD>Connect using:</TD><TD><SELECT name='comport'><OPTION VALUE='7'>COM7 (" + admin.DeviceName + ")</SELECT></TD></TR>\n"
      "<TR><TD>Baudrate:</TD><TD><SELECT name='baudrate'><OPTION VALUE='9600'>9600<OPTION VALUE='19200'>19200"
      "<OPTION VALUE='38400'>38400<OPTION VALUE='57600'>57600<OPTION VALUE='115200' SELECTED>115200"
      "<OPTION VALUE='230400'>230400</SELECT></TD></TR></TABLE>\n";
  const std::string tcpSettings =
      "<TABLE><TR><TD>Port Number:</TD><TD><INPUT type='text' name='tcpipport' style='width: 60px;' maxlength='5' "
      "value='" + tcp + "'></TD></TR></TABLE>\n";
  const std::string multicastSettings =
      "<TABLE><TR><TD>Address:</TD><TD><INPUT type='text' name='multicastaddress' style='width: 120px;' "
      "maxlength='16' value='127.0.0.1'></TD></TR>\n"
      "<TR><TD>Port Number:</TD><TD><INPUT type='text' name='multicastport' style='width: 60px;' maxlength='5' "
      "value='7125'></TD></TR></TABLE>\n";
  const std::string active = "<TD width='100px' bgcolor='green'><FONT COLOR='white'>";
  // Only alpha lists a port (the multicast one), so the other two say so.
  const std::string notListed =
      "<TR><TD COLSPAN='4' class='PortNotListed'>No site lists this port, so it sends nothing. Add it on the content "
      "page of the site: <A HREF=\"/zol/alpha/content.html\">alpha</A> <A HREF=\"/zol/beta/content.html\">beta</A>"
      "</TD></TR>\n";

  const std::string expected =
      "<H1>Welcome to the ZOL server (version 1.0)</H1>\n"
      "This is the 'Zolan Relay Network'. Please choose something from the menu on the left.<BR><BR>\n" +
      server.GetRaceDayAsHTML() + "<BR>\n"
      // Sites
      "<TABLE cellspacing=0 BORDER=0 WIDTH='700px'>\n"
      "<TR><TD COLSPAN='8' class='TableHeader'>Available Sites</TD></TR>\n"
      "<TR><TH>Name</TH><TH>Root</TH><TH>Pages</TH><TH>Dimensions</TH><TH>Size</TH><TH>Compr.</TH><TH>Ratio</TH>"
      "<TH>Bandwidth</TH></TR>\n" +
      ExpectedSiteRow(*server.GetSites()[0], "alpha", "1", "768 x 1024") +
      ExpectedSiteRow(*server.GetSites()[1], "beta", "2", "480 x 640") +
      "</TABLE>\n"
      "<BR><BR>\n"
      // Ports
      "<TABLE cellspacing=0 BORDER=0 WIDTH='700px'>\n"
      "<TR><TD COLSPAN='4' class='TableHeader'>Port(s) overview</TD></TR>\n"
      "<TR><TH>Type</TH><TH>Port</TH><TH>Information</TH><TH></TH></TR>\n" +
      ExpectedPortRow("1", "Serial", active + "COM 7 (" + admin.DeviceName + ")</FONT></TD><TD>Baudrate: 115200</TD>",
                      serialSettings, true) +
      notListed +
      ExpectedPortRow("2", "Network [unicast]", active + "Port: " + tcp + "</FONT></TD><TD>IP: 127.0.0.1</TD>",
                      tcpSettings, true) +
      notListed +
      ExpectedPortRow("3", "Network (multicast)", "<TD BGCOLOR='red'>None: cannot send to multicast group 127.0.0.1 port 7125: 127.0.0.1 is not an IPv4 "
      "multicast address</TD><TD>N/A</TD>", multicastSettings,
                      false) +
      "<TR><TD COLSPAN='4' style='background-color: black; height: 1px;'></TD></TR>\n"
      "<TR><TD COLSPAN='4'><FORM name='addportform' method='post' action='index.html' style='margin: 0px;'>"
      "<INPUT type='hidden' name='formtoken' value=''>Add a port of type: <SELECT name='porttype'><OPTION value='1'>Serial\n"
      "<OPTION value='2' SELECTED>Network (unicast)\n"
      "<OPTION value='3'>Network (multicast)\n"
      "</SELECT><INPUT type='submit' value='Add'></FORM>\n"
      "</TD></TR>\n"
      "</TABLE>\n"
      "<BR><BR>\n"
      // Stream clients: the TCP server has no client, so no row.
      "<TABLE cellspacing=0 BORDER=0 WIDTH='700px'>\n"
      "<TR><TD COLSPAN='5' class='TableHeader'>Stream client(s) overview</TD></TR>\n"
      "<TR><TH>Connection</TH><TH>In Queue</TH><TH>Sent</TH><TH>Data Baudrate</TH><TH>Handle</TH></TR>\n"
      "<TR><TD>Serial</TD><TD>0k</TD><TD>0k</TD><TD>0 (0.00 KB/sec)</TD><TD>" +
      Hex4(server.GetPort(1)->GetPortHandle()) +
      "</TD></TR>\n" +
      "<TR><TD>Network (multicast)</TD><TD>0k</TD><TD>0k</TD><TD>0 (0.00 KB/sec)</TD><TD>" +
      (server.GetPort(3)->GetPortHandle() == -1 ? std::string("-") : Hex4(server.GetPort(3)->GetPortHandle())) +
      "</TD></TR>\n"
      "</TABLE>\n"
      "<BR><BR>\n";
  EXPECT_EQ(response.BodyText(), expected);
}

TEST(ServerHomePage, PostWithNeitherPortidNorPorttypeAddsNoPortAndStillRedirects) {
  AdminPageFixture admin;
  CZOLServer& server = admin.Start("");
  const CKVTHttpResponse response = admin.Post("_server/index.html", {});
  EXPECT_EQ(response.Status, 301);
  EXPECT_EQ(response.Headers.at("location"), "index.html");
  EXPECT_EQ(response.BodyText(), "redirect");
  EXPECT_TRUE(server.GetPorts().empty());
}

TEST(ServerHomePage, PorttypeTwoAddsAStoppedUnicastPortWithTheNextFreeId) {
  AdminPageFixture admin;
  CZOLServer& server = admin.Start("[ports]\ncount=1\nport0=3\n[port0]\nID=4\naddress=127.0.0.1\n");
  const CKVTHttpResponse response = admin.Post("_server/index.html", {{"porttype", "2"}});
  EXPECT_EQ(response.Status, 301);
  ASSERT_NE(server.GetPort(5), nullptr);
  EXPECT_EQ(server.GetPort(5)->GetType(), 2u);
  EXPECT_EQ(server.GetPort(5)->IsRunning(), 0) << "a port added from the form waits for its settings";
}

TEST(ServerHomePage, PostForADeletedPortShowsInvalidId) {
  AdminPageFixture admin;
  CZOLServer& server = admin.Start("");
  server.PortAdd(2, 0xFFFFFFFF);
  ASSERT_EQ(admin.Post("_server/deleteport.html", {{"ID", "0"}}).Status, 301);
  const CKVTHttpResponse response =
      admin.Post("_server/index.html", {{"portid", "0"}, {"tcpipport", "51000"}, {"portactive", "on"}});
  EXPECT_EQ(response.Status, 200);
  EXPECT_EQ(response.BodyText(), "Error: invalid ID");
  EXPECT_EQ(response.Headers.count("location"), 0u);
  EXPECT_TRUE(server.GetPorts().empty());
}

TEST(ServerHomePage, TestPageSizeIsHandedToTheServerAndRedirects) {
  AdminPageFixture admin;
  CZOLServer& server = admin.Start("");
  const CKVTHttpResponse response = admin.Post("_server/index.html", {{"testpagesize", "4096"}, {"porttype", "2"}});
  EXPECT_EQ(response.Status, 301);
  EXPECT_EQ(server.GetTestPageSize(), 4096u);
  EXPECT_TRUE(server.GetPorts().empty()) << "the test page size is all that post does";
}

TEST(ServerHomePage, ApplyWithoutAChangeLeavesTheRunningPortUndisturbed) {
  AdminPageFixture admin;
  const std::uint16_t tcpPort = platform::FindFreeTcpPort();
  CZOLServer& server = admin.Start("[ports]\ncount=1\nport0=2\n[port0]\nID=0\nport=" + std::to_string(tcpPort) + "\n");
  auto* port = static_cast<CZOLTCPIPServer*>(server.GetPort(0));
  ASSERT_TRUE(WaitUntil([&] { return port->IsRunning() != 0; }, 10));
  const int client = platform::TcpConnect("127.0.0.1", tcpPort);
  ASSERT_GE(client, 0);
  ASSERT_TRUE(WaitUntil([&] { return port->GetClientCount() == 1; }, 10));

  const CKVTHttpResponse response = admin.Post(
      "_server/index.html", {{"portid", "0"}, {"tcpipport", std::to_string(tcpPort)}, {"portactive", "on"}});
  EXPECT_EQ(response.Status, 301);
  EXPECT_EQ(response.Headers.at("location"), "index.html");
  EXPECT_NE(port->IsRunning(), 0);
  EXPECT_EQ(port->GetClientCount(), 1u) << "a restart would have dropped the connected client";
  platform::CloseSocket(client);
}

TEST(ServerHomePage, UncheckingActiveStopsThePortAndCheckingItAgainStartsIt) {
  AdminPageFixture admin;
  const std::uint16_t tcpPort = platform::FindFreeTcpPort();
  const std::string portText = std::to_string(tcpPort);
  CZOLServer& server = admin.Start("[ports]\ncount=1\nport0=2\n[port0]\nID=0\nport=" + portText + "\n");
  CZOLOutputPort* port = server.GetPort(0);
  ASSERT_TRUE(WaitUntil([&] { return port->IsRunning() != 0; }, 10));

  EXPECT_EQ(admin.Post("_server/index.html", {{"portid", "0"}, {"tcpipport", portText}}).Status, 301);
  EXPECT_EQ(port->IsRunning(), 0);
  // Applying the same unchecked form again leaves it stopped.
  EXPECT_EQ(admin.Post("_server/index.html", {{"portid", "0"}, {"tcpipport", portText}}).Status, 301);
  EXPECT_EQ(port->IsRunning(), 0);
  EXPECT_EQ(admin.Post("_server/index.html", {{"portid", "0"}, {"tcpipport", portText}, {"portactive", "on"}}).Status,
            301);
  EXPECT_TRUE(WaitUntil([&] { return port->IsRunning() != 0; }, 10));
}
