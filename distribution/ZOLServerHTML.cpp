// The tables of the main administration page: the race day box, sites, ports with the
// form to add one, stream clients; and the port rows of a site's content page.
#include <algorithm>
#include <initializer_list>
#include <string>

#include "data/Data.h"
#include "data/RMData.h"
#include "data/Run.h"
#include "distribution/OutputPort.h"
#include "distribution/OutputStream.h"
#include "distribution/ZOLServer.h"
#include "frame/KVTException.h"
#include "frame/Package.h"
#include "frame/platform/Sockets.h"
#include "site/ZOLServerInfo.h"
#include "site/ZOLServerSite.h"
#include "web/HTMLText.h"
#include "web/ServerPages.h"
#include "web/WebPage.h"

namespace {

const char* const kTableStart = "<TABLE cellspacing=0 BORDER=0 WIDTH='700px'>\n";

std::string HeadRow(int columns, const std::string& title) {
  return HTMLFormat("<TR><TD COLSPAN='%d' class='TableHeader'>", columns) + title + "</TD></TR>\n";
}

std::string ColumnHeads(std::initializer_list<const char*> names) {
  std::string html = "<TR>";
  for (const char* name : names) html += std::string("<TH>") + name + "</TH>";
  return html + "</TR>\n";
}

std::string BoxRow(const std::string& label, const std::string& cellAttributes, const std::string& valueHtml) {
  return "<TR><TD width='160px'><B>" + label + "</B></TD><TD" + cellAttributes + ">" + valueHtml + "</TD></TR>\n";
}

std::string LinkStateText(EDataLinkState state) {
  switch (state) {
    case EDataLinkState::Waiting:
      return "not connected (waiting for a data manager)";
    case EDataLinkState::Connecting:
      return "connecting";
    case EDataLinkState::Loading:
      return "connected, loading the race data";
    case EDataLinkState::Live:
      return "connected";
  }
  return "unknown";
}

}  // namespace

std::string CZOLServer::GetRaceDayAsHTML() {
  return Guarded("CZOLServer::GetRaceDayAsHTML()", [&] {
    const CData* data = Comm != nullptr && Comm->GetData() != nullptr ? Comm->GetData()->GetData() : nullptr;
    const EDataLinkState state = data != nullptr ? data->GetState() : EDataLinkState::Waiting;
    const bool connected = state == EDataLinkState::Loading || state == EDataLinkState::Live;
    std::string link = LinkStateText(state);
    if (DataLinkChangedAt != 0) {
      link += " since " + CZOLServerSite::GetTimeString(DataLinkChangedAt, 1, 0);
    }
    if (state != EDataLinkState::Waiting && ConnectedComputer != kNoComputer) {
      const CPackage* package = GetPackage();
      const DWORD local = package != nullptr ? package->LocalAddress : 0;
      link += ConnectedComputer == local ? ", on this computer"
                                         : ", on the remote computer " + platform::DottedAddress(ConnectedComputer);
    }

    std::string html = kTableStart;
    html += HeadRow(2, "Race day");
    html += BoxRow("Data manager:", connected ? " bgcolor='#90EE90'" : " bgcolor='#FFB0B0'", HtmlText(link));

    const CRun* run = connected && Comm->GetData() != nullptr ? Comm->GetData()->GetActiveRun() : nullptr;
    if (run == nullptr) {
      html += BoxRow("Active run:", "", "none");
    } else {
      html += BoxRow("Active run:", "", HtmlText(run->Name));
      // The sites' information pages follow the active run's information view; the first
      // one that the view drives has its flag and clock.
      const CZOLServerInfo* info = nullptr;
      for (const CZOLServerSite* site : Sites) {
        const CZOLServerInfo* candidate = site->GetInfoPage();
        if (candidate != nullptr && candidate->GetRun() == run && candidate->IsDrivenByRun()) {
          info = candidate;
          break;
        }
      }
      if (info == nullptr) {
        html += BoxRow("Flag:", "", "unknown (no site follows the run's information yet)");
        html += BoxRow("Race time:", "", "unknown");
      } else {
        html += BoxRow("Flag:", "", HtmlText(info->GetClockParameters().GetString("flag")));
        html += BoxRow("Race time:", "", HtmlText(info->GetClockParameters().GetString("racetime")));
      }
    }
    html += "</TABLE>\n";
    return html;
  });
}

std::string CZOLServer::GetSitesAsHTML() {
  return Guarded("CZOLServer::GetSitesAsHTML()", [&] {
    std::string html = kTableStart;
    html += HeadRow(8, "Available Sites");
    html += ColumnHeads({"Name", "Root", "Pages", "Dimensions", "Size", "Compr.", "Ratio", "Bandwidth"});
    for (CZOLServerSite* site : Sites) html += site->GetSiteAsHTMLRow();
    html += "</TABLE>\n";
    return html;
  });
}

std::string CZOLServer::GetPortsAsHTML(const CKVTHttpRequest& request) {
  return Guarded("CZOLServer::GetPortsAsHTML()", [&] {
    std::string html = kTableStart;
    html += HeadRow(4, "Port(s) overview");
    html += ColumnHeads({"Type", "Port", "Information", ""});
    for (auto& [id, port] : Ports) {
      html += port->GetPortAsHTML(request);
      const bool listed = std::any_of(Sites.begin(), Sites.end(), [&, port = port](const CZOLServerSite* site) {
        const auto& ports = site->GetPorts();
        return std::find(ports.begin(), ports.end(), port) != ports.end();
      });
      if (listed) continue;
      // A port sends a site's pages only once the site lists it.
      html += "<TR><TD COLSPAN='4' class='PortNotListed'>No site lists this port, so it sends nothing.";
      if (!Sites.empty()) {
        html += " Add it on the content page of the site:";
        for (const CZOLServerSite* site : Sites) {
          html += " <A HREF=\"" + HtmlAttribute(SitePageLink(site->GetWebName(), "content.html")) + "\">" +
                  HtmlText(site->GetParameter("name")) + "</A>";
        }
      }
      html += "</TD></TR>\n";
    }
    html += "<TR><TD COLSPAN='4' style='background-color: black; height: 1px;'></TD></TR>\n";
    html += "<TR><TD COLSPAN='4'><FORM name='addportform' method='post' action='index.html' style='margin: 0px;'>";
    html += FormTokenField(request);
    html += "Add a port of type: <SELECT name='porttype'>";
    html += "<OPTION value='1'>Serial\n";
    html += "<OPTION value='2' SELECTED>Network (unicast)\n";
    html += "<OPTION value='3'>Network (multicast)\n";
    html += "</SELECT><INPUT type='submit' value='Add'>";
    html += "</FORM>\n";
    html += "</TD></TR>\n";
    html += "</TABLE>\n";
    return html;
  });
}

std::string CZOLServer::GetStatisticsAsHTML() {
  return Guarded("CZOLServer::GetStatisticsAsHTML()", [&] {
    std::string html = kTableStart;
    html += HeadRow(5, "Stream client(s) overview");
    html += ColumnHeads({"Connection", "In Queue", "Sent", "Data Baudrate", "Handle"});
    for (auto& [id, port] : Ports) html += port->GetStatisticsAsHTML();
    html += "</TABLE>\n";
    return html;
  });
}

std::string CZOLServer::GetDebugInfoAsHTML() {
  return Guarded("CZOLServer::GetDebugInfoAsHTML()", [&] { return std::string(); });
}

std::string CZOLOutputStream::GetPortsAsHTML(const CKVTHttpRequest& request) {
  return Guarded("CZOLOutputStream::GetPortsAsHTML()", [&] {
    std::string html;
    for (CZOLOutputPort* port : Ports) {
      html += "<TR><TD width='120px'>" + HtmlText(port->GetTypeName()) + "</TD>";
      html += port->GetStateCellsAsHTML();
      html += "<TD>" +
              PortActionForm("removeport.html", port->GetID(), "remove", "Remove the port from this site?", request) +
              "</TD>\n";
      html += "</TR>\n";
    }
    return html;
  });
}
