#include "web/FeedContentPage.h"

#include <algorithm>
#include <ctime>
#include <cstdlib>
#include <set>
#include <vector>

#include "data/Event.h"
#include "data/RMData.h"
#include "distribution/OutputPort.h"
#include "distribution/ZOLServer.h"
#include "frame/KVTException.h"
#include "site/ZOLServerSite.h"
#include "views/RMComm.h"
#include "web/HTMLText.h"
#include "web/ServerPages.h"

namespace {

const char* const kTableStart = "<TABLE cellspacing=0 BORDER=0 WIDTH='700px'>\n";
const char* const kFolderImage = "<TR><TD><IMG src='/images/folder.gif' width=16 alt=''></TD>";

// The name of the site's event, or empty when the site has none the replica knows.
std::string EventNameOf(CZOLServer* server, const CZOLServerSite* site) {
  if (site->GetEventId() == -1 || server->GetComm() == nullptr) return std::string();
  const Cevent* event = server->GetComm()->GetData()->GetEvent(static_cast<DWORD>(site->GetEventId()));
  return event != nullptr ? event->Name : std::string();
}

bool HasEvent(CZOLServer* server, const CZOLServerSite* site) {
  if (site->GetEventId() == -1 || server->GetComm() == nullptr) return false;
  return server->GetComm()->GetData()->GetEvent(static_cast<DWORD>(site->GetEventId())) != nullptr;
}

}  // namespace

CFeedContentPage::CFeedContentPage(CZOLServer* server, CZOLServerSite* site)
    : CWebPage(site, "Site: '" + site->GetParameter("name") + "'", site->GetWebName() + "/content.html", 1),
      Server(server),
      Site(site) {}

void CFeedContentPage::HandleRequest(CKVTHttpRequest& request, CKVTHttpResponse& response) {
  Guarded("CFeedContentPage::HandleRequest()", [&] {
    if (request.Method == CKVTHttpRequest::kMethodPost) {
      ProcessPost(request, response);
    } else {
      ProcessGet(request, response);
    }
  });
}

void CFeedContentPage::ProcessGet(CKVTHttpRequest& request, CKVTHttpResponse& response) {
  Guarded("CFeedContentPage::ProcessGet()", [&] {
    std::string path = request.AttributeGetValue("path");
    if (!path.empty() && path.back() == '/') path.pop_back();

    std::string body = kTableStart;
    body += "<TR><TD class='TableHeader'>Site Information</TD><TD class='TableHeader' style='text-align: right;'>";
    body += "<INPUT style='width: 90px;' type=button value='Settings' onclick=\"location.href='settings.html'\">";
    body += "</TD></TR>\n</TABLE>\n";

    body += kTableStart;
    body += "<TR><TD width='120px'><B>Name:</B></TD><TD>" + HtmlText(Site->GetParameter("name")) + "</TD></TR>\n";
    body += "<TR><TD><B>Current Event:</B></TD><TD";
    if (HasEvent(Server, Site)) {
      body += '>';
      body += HtmlText(EventNameOf(Server, Site));
    } else {
      body += " BGCOLOR=darkgrey><BLINK>No Event Selected!</BLINK>";
    }
    body += "</TD></TR>\n";
    body += "<TR><TD><B>Root path:</B></TD><TD>" + HtmlText(DisplayPath(Site->GetRootDir())) + "</TD></TR>\n";
    body += "<TR><TD><B>Dimensions:</B></TD><TD>" + HtmlText(Site->GetParameter("height")) + " x " +
            HtmlText(Site->GetParameter("width")) + "</TD></TR>\n";
    body += "<TR><TD><B>Available port(s):</B></TD><TD>";
    body += "<FORM name='addportform' method='post' action='content.html' style='margin: 0px;'>";
    body += FormTokenField(request);
    body += "<SELECT name='portid'>";
    const auto& streamPorts = Site->GetPorts();
    bool offered = false;
    for (const auto& [id, port] : Server->GetPorts()) {
      if (port == nullptr || std::find(streamPorts.begin(), streamPorts.end(), port) != streamPorts.end()) continue;
      body += HTMLFormat("<OPTION value='%ld'>", static_cast<long>(id)) + HtmlText(port->GetInfoLine2()) + " (" +
              HtmlText(port->GetInfoLine1()) + ", " + HtmlText(port->GetTypeName()) + ")\n";
      offered = true;
    }
    if (!offered) body += "<OPTION value='-1'>No more ports available\n";
    body += "</SELECT><INPUT type='submit' value='Add'>";
    body += "</FORM></TD></TR>\n";
    body += "</TABLE>\n";

    body += "<BR>\n";
    body += kTableStart;
    body += "<TR><TH>Type</TH><TH>Port</TH><TH>Information</TH><TH></TH></TR>\n";
    body += Site->GetPortsAsHTML(request);
    body += "</TABLE>\n";

    body += "<BR>\n";
    body += GetPagesAsHTML(path, request);

    body += "<BR>\n";
    body += kTableStart;
    body += HTMLFormat("<TR><TD width='120px'><B>Number of Pages</B></TD><TD>%d</TD></TR>\n",
                       std::atoi(Site->GetParameter("pagecount").c_str()));
    body += HTMLFormat("<TR><TD><B>Total Size</B></TD><TD>%0.1f kb</TD></TR>\n", Site->GetOriginalSize() / 1024.0);
    body += HTMLFormat("<TR><TD><B>Compressed Size</B></TD><TD>%0.1f kb</TD></TR>\n",
                       Site->GetCompressedSize() / 1024.0);
    body += "</TABLE>\n";

    if (request.AttributeGetValue("PrinterFriendly") == "yes") {
      response.PrinterFriendly = 1;
    } else {
      response.PrintLink += "?PrinterFriendly=yes";
    }
    if (request.AttributeGetValue("frame") == "no") response.Framed = 0;
    response.SetBody(body);
    response.Status = 200;
  });
}

std::string CFeedContentPage::GetPagesAsHTML(const std::string& path, const CKVTHttpRequest& request) {
  return Guarded("CFeedContentPage::GetPagesAsHTML()", [&] {
    std::string html = kTableStart;
    html += "<TR><TD COLSPAN='9' class='TableHeader'>";
    html += "<FORM style='margin: 0px;' name='reloadform' method='post' action='" + HtmlAttribute(FileName) + "'>";
    html += FormTokenField(request);
    html += "<TABLE cellspacing=0 BORDER=0 WIDTH='100%'><TR><TD class='TableHeader'>";
    html += "Available Pages";
    if (!path.empty()) html += " in '" + HtmlText(path) + "'";
    html += " (" + CZOLServerSite::GetTimeString(static_cast<std::time_t>(Site->GetBuildTime()), 1, 1) + ")";
    html += "</TD><TD class='TableHeader' style='text-align: right;'>";
    html += "<INPUT style='width: 90px;' type='submit' value='Reload Site' onclick=\"return confirm('Do you really "
            "want to reload the ZOL Site?');\">\n";
    html += "<INPUT type='hidden' name='reload' value='yes'></TD></TR></TABLE></FORM></TD></TR>\n";
    html += "<TR><TD COLSPAN='9' class='TableSubHeader'>This is an overview of the available pages in the ZOL feed. "
            "Click on a page to show the details</TD></TR>\n";
    html += "<TR><TH COLSPAN='2'>Filename</TH><TH>Size</TH><TH>Compr.</TH><TH>Ratio</TH><TH>Packets</TH><TH>Level</TH>"
            "<TH>Repeat</TH><TH>Seq.</TH></TR>\n";

    std::vector<const COutputPage*> here;
    std::set<std::string> folders;
    for (const auto& [number, page] : Site->GetPages()) {
      std::string directory = page->GetWebDirectory();
      if (!path.empty()) {
        if (directory.compare(0, path.size(), path) != 0) continue;
        directory.erase(0, path.size());
        if (!directory.empty() && directory.front() == '/') {
          directory.erase(0, 1);
        } else if (!directory.empty()) {
          continue;  // a folder whose name only begins like this one
        }
      }
      if (!directory.empty() && directory.back() == '/') directory.pop_back();
      if (directory.find('/') != std::string::npos) continue;
      if (directory.empty()) {
        here.push_back(page);
      } else {
        folders.insert(directory);
      }
    }

    if (!path.empty()) {
      html += kFolderImage;
      html += "<TD><A HREF=\"" + FileName;
      const auto slash = path.rfind('/');
      if (slash != std::string::npos && slash > 0) html += "?path=" + UrlPath(path.substr(0, slash));
      html += "\">..</A></TD></TR>\n";
    }
    for (const std::string& folder : folders) {
      html += kFolderImage;
      html += "<TD><A HREF=\"" + FileName + "?path=" + UrlPath((path.empty() ? std::string() : path + "/") + folder) +
              "\">" + HtmlText(folder) + "</A></TD></TR>\n";
    }
    int row = 0;
    for (const COutputPage* page : here) {
      const std::string style = row % 2 == 1 ? " style='background-color: #CDCDCD;'" : "";
      html += page->GetPageAsHTMLRow(Site->GetWebName(), style);
      ++row;
    }
    html += "</TABLE>\n";
    return html;
  });
}

void CFeedContentPage::ProcessPost(CKVTHttpRequest& request, CKVTHttpResponse& response) {
  Guarded("CFeedContentPage::ProcessPost()", [&] {
    if (request.FormGetValue("reload") == "yes") {
      Site->Build(Site->GetRootDir(), Site->GetEventId(), 0);
      Redirect(response, "content.html");
      return;
    }
    const std::string portId = request.FormGetValue("portid");
    if (portId.empty()) {
      response.SetBody("Error: invalid post!");
      response.Status = 200;
      return;
    }
    // An unknown ID, the -1 of the empty list among them, adds nothing.
    DWORD id = 0;
    if (ParsePortID(portId, id)) {
      if (CZOLOutputPort* port = Server->GetPort(id)) Site->PortAdd(port);
    }
    Redirect(response, "content.html");
  });
}
