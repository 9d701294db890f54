// The tables of the main administration page: sites, ports with the form to add one,
// stream clients; and the port rows of a site's content page.
#include <initializer_list>
#include <string>

#include "distribution/OutputPort.h"
#include "distribution/OutputStream.h"
#include "distribution/ZOLServer.h"
#include "frame/KVTException.h"
#include "site/ZOLServerSite.h"
#include "web/HTMLText.h"

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

}  // namespace

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

std::string CZOLServer::GetPortsAsHTML() {
  return Guarded("CZOLServer::GetPortsAsHTML()", [&] {
    std::string html = kTableStart;
    html += HeadRow(4, "Port(s) overview");
    html += ColumnHeads({"Type", "Port", "Information", ""});
    for (auto& [id, port] : Ports) html += port->GetPortAsHTML();
    html += "<TR><TD COLSPAN='4' style='background-color: black; height: 1px;'></TD></TR>\n";
    html += "<TR><TD COLSPAN='4'><FORM name='addportform' method='post' action='index.html' style='margin: 0px;'>";
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

std::string CZOLOutputStream::GetPortsAsHTML() {
  return Guarded("CZOLOutputStream::GetPortsAsHTML()", [&] {
    std::string html;
    for (CZOLOutputPort* port : Ports) {
      html += "<TR><TD width='120px'>" + port->GetTypeName() + "</TD>";
      if (port->IsRunning() != 0) {
        html += "<TD width='100px' bgcolor='green'><FONT COLOR='white'>" + port->GetInfoLine1() + "</FONT></TD>";
        html += "<TD>" + port->GetInfoLine2() + "</TD>";
      } else {
        html += "<TD BGCOLOR='red'>None</TD><TD>N/A</TD>";
      }
      html += HTMLFormat(
          "<TD><A HREF=\"removeport.html?ID=%ld\" onclick=\"return confirm('Remove the port from this "
          "site?');\">remove</A></TD>\n",
          static_cast<long>(port->GetID()));
      html += "</TR>\n";
    }
    return html;
  });
}
