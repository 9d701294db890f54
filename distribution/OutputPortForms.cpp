// What the ports show and take on the main administration page: the port row with its
// hidden editor, the statistics rows, and each port class's own settings fields.
#include <cstdlib>
#include <mutex>

#include "distribution/MulticastServer.h"
#include "distribution/OutputPort.h"
#include "distribution/SerialPort.h"
#include "distribution/TCPIPServer.h"
#include "frame/KVTException.h"
#include "frame/platform/Sockets.h"
#include "web/HTMLText.h"
#include "web/ServerPages.h"
#include "web/WebPage.h"

namespace {

constexpr DWORD kBaudRates[] = {9600, 19200, 38400, 57600, 115200, 230400};

// An unchecked box sends nothing; a checked one sends "on".
bool PostedActive(const CKVTHttpRequest& request) { return request.FormGetValue("portactive") == "on"; }

// Decimal digits only, at most `highest`; false for empty text, signs, blanks and letters.
bool ParseBoundedNumber(const std::string& text, DWORD lowest, DWORD highest, DWORD& number) {
  if (text.empty() || text.size() > 10) return false;
  unsigned long long value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
    value = value * 10 + static_cast<unsigned long long>(c - '0');
  }
  if (value < lowest || value > highest) return false;
  number = static_cast<DWORD>(value);
  return true;
}

DWORD PostedNumber(const CKVTHttpRequest& request, const char* field) {
  DWORD number = 0;
  ParseBoundedNumber(request.FormGetValue(field), 0, 0xFFFFFFFEu, number);
  return number;
}

// The message for a port number field that is not 1 to 65535; empty when it is.
std::string CheckPortNumber(const CKVTHttpRequest& request, const char* field) {
  const std::string text = request.FormGetValue(field);
  DWORD number = 0;
  if (ParseBoundedNumber(text, 1, 65535, number)) return std::string();
  return "The port number must be a whole number from 1 to 65535, not '" + text + "'.";
}

}  // namespace

std::string CZOLOutputPort::GetStatisticsAsHTML() {
  return Guarded("CZOLOutputPort::GetStatisticsAsHTML()", [&] {
    // Everything sent since the counters were cleared, this second's bytes included.
    const long long sent = TotalBytes + SentBytes.load();
    std::string html = "<TR><TD>" + HtmlText(GetConnectionName()) + "</TD>";
    html += HTMLFormat("<TD>%dk</TD>", QueuedBytes.load() / 1000);
    html += HTMLFormat("<TD>%dk</TD>", static_cast<int>(sent / 1000));
    html += HTMLFormat("<TD>%d (%0.2lf KB/sec)</TD>", static_cast<int>(DataRate), DataRate / 8.0 / 1024.0);
    html += Handle == -1 ? std::string("<TD>-</TD>") : HTMLFormat("<TD>0x%04X</TD>", static_cast<unsigned>(Handle));
    html += "</TR>\n";
    return html;
  });
}

std::string CZOLOutputPort::GetSettingsAsHTML() {
  return Guarded("CZOLOutputPort::GetSettingsAsHTML()", [&] { return std::string(); });
}

std::string CZOLOutputPort::CheckPost(const CKVTHttpRequest& request) {
  return Guarded("CZOLOutputPort::CheckPost()", [&] {
    (void)request;
    return std::string();
  });
}

BOOL CZOLOutputPort::ProcessPost(CKVTHttpRequest& request) {
  return Guarded("CZOLOutputPort::ProcessPost()", [&] {
    (void)request;
    return FALSE;
  });
}

std::string CZOLOutputPort::GetStateCellsAsHTML() {
  return Guarded("CZOLOutputPort::GetStateCellsAsHTML()", [&] {
    if (IsRunning() != 0) {
      return "<TD width='100px' bgcolor='green'><FONT COLOR='white'>" + HtmlText(InfoLine1) + "</FONT></TD><TD>" +
             HtmlText(InfoLine2) + "</TD>";
    }
    const std::string reason = GetFailureReason();
    return "<TD BGCOLOR='red'>None" + (reason.empty() ? std::string() : ": " + HtmlText(reason)) + "</TD><TD>N/A</TD>";
  });
}

std::string CZOLOutputPort::GetPortAsHTML(const CKVTHttpRequest& request) {
  return Guarded("CZOLOutputPort::GetPortAsHTML()", [&] {
    const long id = static_cast<long>(ID);
    const bool active = IsRunning() != 0;
    std::string html = "<TR><TD width='250px'>" + HtmlText(TypeName);
    html += HTMLFormat(
        " (<A HREF=\"#\" onclick=\"theDiv=document.getElementById('settings%ld');if (theDiv != null) "
        "theDiv.style.display='block'; return false;\">edit</A>)",
        id);
    html += "</TD>";
    html += GetStateCellsAsHTML();
    html += "<TD>" + PortActionForm("deleteport.html", ID, "Delete", "Delete the port?", request) + "</TD>\n";
    html += "</TR>\n";
    html += "<TR><TD COLSPAN='3'>";
    html += HTMLFormat(
        "<DIV id=settings%ld style='width: 220px; margin: 3px;display: none; background-color: white; "
        "border-style: solid; border-width: 1px;'>",
        id);
    html += "<FORM name='settingsform' method='post' action='index.html' style='margin: 0px;'>\n";
    html += FormTokenField(request);
    html += "<TABLE width='100%'><TR><TD COLSPAN='2'>";
    html += HTMLFormat("<INPUT type='hidden' name='portid' value='%ld'>\n", id);
    html += GetSettingsAsHTML();
    html += "</TD></TR>";
    html += "<TR><TD COLSPAN='2' style='background-color: gray; height: 1px;'></TD></TR>";
    html += "<TR><TD>";
    html += "<INPUT type='checkbox' name='portactive'";
    if (active) html += " CHECKED";
    html += ">Active</TD><TD style='text-align: right;'>\n";
    html += "<INPUT type='submit' style='width: 60px;' value='Apply' onclick=\"return confirm('Apply the new settings?');\">\n";
    html += HTMLFormat(
        "<INPUT type='button' style='width: 60px;' value='Cancel' onclick=\"theDiv=document.getElementById('settings%ld'); "
        "if (theDiv != null) theDiv.style.display='none'; return false;\">\n",
        id);
    html += "</TD></TR></TABLE></FORM>\n";
    html += "</DIV></TD></TR>\n";
    return html;
  });
}

// ---- TCP ----------------------------------------------------------------------------

std::string CZOLTCPIPServer::GetStatisticsAsHTML() {
  return Guarded("CZOLTCPIPServer::GetStatisticsAsHTML()", [&] {
    std::string html;
    std::lock_guard<std::mutex> lock(ClientsMutex);
    for (CZOLTCPIPSocket* client : Clients) html += client->GetStatisticsAsHTML();
    return html;
  });
}

std::string CZOLTCPIPServer::GetSettingsAsHTML() {
  return Guarded("CZOLTCPIPServer::GetSettingsAsHTML()", [&] {
    return HTMLFormat(
        "<TABLE><TR><TD>Port Number:</TD><TD><INPUT type='text' name='tcpipport' style='width: 60px;' maxlength='5' "
        "value='%lu'></TD></TR></TABLE>\n",
        static_cast<unsigned long>(Port));
  });
}

std::string CZOLTCPIPServer::CheckPost(const CKVTHttpRequest& request) {
  return Guarded("CZOLTCPIPServer::CheckPost()", [&] { return CheckPortNumber(request, "tcpipport"); });
}

BOOL CZOLTCPIPServer::ProcessPost(CKVTHttpRequest& request) {
  return Guarded("CZOLTCPIPServer::ProcessPost()", [&]() -> BOOL {
    if (!CheckPost(request).empty()) return FALSE;
    const bool active = PostedActive(request);
    const DWORD port = PostedNumber(request, "tcpipport");
    if (port == Port && active == (IsRunning() != 0)) return FALSE;
    Stop();
    SetFailureReason("");
    Port = port;
    if (active) Start();
    return TRUE;
  });
}

// ---- Multicast ----------------------------------------------------------------------

std::string CZOLMulticastServer::GetSettingsAsHTML() {
  return Guarded("CZOLMulticastServer::GetSettingsAsHTML()", [&] {
    std::string html = "<TABLE><TR><TD>Address:</TD><TD><INPUT type='text' name='multicastaddress' "
                       "style='width: 120px;' maxlength='16' value='" +
                       HtmlAttribute(Address) + "'></TD></TR>\n";
    html += HTMLFormat(
        "<TR><TD>Port Number:</TD><TD><INPUT type='text' name='multicastport' style='width: 60px;' maxlength='5' "
        "value='%lu'></TD></TR></TABLE>\n",
        static_cast<unsigned long>(Port));
    return html;
  });
}

std::string CZOLMulticastServer::CheckPost(const CKVTHttpRequest& request) {
  return Guarded("CZOLMulticastServer::CheckPost()", [&]() -> std::string {
    const std::string address = request.FormGetValue("multicastaddress");
    if (!platform::IsMulticastAddress(address)) {
      return "The address must be an IPv4 multicast address from 224.0.0.0 to 239.255.255.255, not '" + address +
             "'.";
    }
    return CheckPortNumber(request, "multicastport");
  });
}

BOOL CZOLMulticastServer::ProcessPost(CKVTHttpRequest& request) {
  return Guarded("CZOLMulticastServer::ProcessPost()", [&]() -> BOOL {
    if (!CheckPost(request).empty()) return FALSE;
    const bool active = PostedActive(request);
    const std::string address = request.FormGetValue("multicastaddress");
    const DWORD port = PostedNumber(request, "multicastport");
    if (address == Address && port == Port && active == (IsRunning() != 0)) return FALSE;
    Stop();
    SetFailureReason("");
    Address = address;
    Port = port;
    if (active) Start();
    return TRUE;
  });
}

// ---- Serial -------------------------------------------------------------------------

std::string CZOLSerialPort::GetSettingsAsHTML() {
  return Guarded("CZOLSerialPort::GetSettingsAsHTML()", [&] {
    std::string html = "<TABLE><TR><TD>Connect using:</TD><TD><SELECT name='comport'>" + ComPortOptions +
                       "</SELECT></TD></TR>\n";
    html += "<TR><TD>Baudrate:</TD><TD><SELECT name='baudrate'>";
    for (DWORD rate : kBaudRates) {
      html += HTMLFormat("<OPTION VALUE='%d'%s>%d", static_cast<int>(rate), rate == BaudRate ? " SELECTED" : "",
                         static_cast<int>(rate));
    }
    html += "</SELECT></TD></TR></TABLE>\n";
    return html;
  });
}

std::string CZOLSerialPort::CheckPost(const CKVTHttpRequest& request) {
  return Guarded("CZOLSerialPort::CheckPost()", [&]() -> std::string {
    const std::string comPort = request.FormGetValue("comport");
    DWORD number = 0;
    if (!ParseBoundedNumber(comPort, 0, kHighestComPort, number)) {
      return "The serial line must be one of COM1 to COM" + std::to_string(kHighestComPort) + ", not '" + comPort +
             "'.";
    }
    const std::string rate = request.FormGetValue("baudrate");
    DWORD baudRate = 0;
    if (ParseBoundedNumber(rate, 1, 0xFFFFFFFEu, baudRate)) {
      for (DWORD listed : kBaudRates) {
        if (listed == baudRate) return std::string();
      }
    }
    return "The baud rate must be one of 9600, 19200, 38400, 57600, 115200 and 230400, not '" + rate + "'.";
  });
}

BOOL CZOLSerialPort::ProcessPost(CKVTHttpRequest& request) {
  return Guarded("CZOLSerialPort::ProcessPost()", [&]() -> BOOL {
    if (!CheckPost(request).empty()) return FALSE;
    const bool active = PostedActive(request);
    const DWORD comPort = PostedNumber(request, "comport");
    const DWORD baudRate = PostedNumber(request, "baudrate");
    if (comPort == ComPort && baudRate == BaudRate && active == (IsRunning() != 0)) return FALSE;
    Stop();
    SetFailureReason("");
    ComPort = comPort;
    BaudRate = baudRate;
    GetCOMPorts();
    if (active) Start();
    return TRUE;
  });
}
