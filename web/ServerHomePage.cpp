#include "web/ServerHomePage.h"

#include <cstdlib>

#include "distribution/OutputPort.h"
#include "distribution/ZOLServer.h"
#include "frame/KVTException.h"
#include "web/HTMLText.h"
#include "web/ServerPages.h"

CServerHomePage::CServerHomePage(CZOLServer* server)
    : CWebPage(server, "ZOL Server Home", "_server/index.html"), Server(server) {}

void CServerHomePage::HandleRequest(CKVTHttpRequest& request, CKVTHttpResponse& response) {
  Guarded("CServerHomePage::HandleRequest()", [&] {
    if (request.Method == CKVTHttpRequest::kMethodPost) {
      ProcessPost(request, response);
    } else {
      ProcessGet(request, response);
    }
  });
}

namespace {

// Reloads the page every minute, but not while the operator is at a form: a port editor
// open, a field with the focus, or a field changed since the page came.
const char* const kReloadScript =
    "\t<SCRIPT type='text/javascript'>\n"
    "(function () {\n"
    "  var changed = false;\n"
    "  document.addEventListener('input', function () { changed = true; }, true);\n"
    "  document.addEventListener('change', function () { changed = true; }, true);\n"
    "  function editing() {\n"
    "    if (changed) return true;\n"
    "    var active = document.activeElement;\n"
    "    if (active && active.form) return true;\n"
    "    var editors = document.querySelectorAll(\"div[id^='settings']\");\n"
    "    for (var i = 0; i < editors.length; ++i) {\n"
    "      if (editors[i].style.display == 'block') return true;\n"
    "    }\n"
    "    return false;\n"
    "  }\n"
    "  setInterval(function () { if (!editing()) location.replace('index.html'); }, 60000);\n"
    "})();\n"
    "\t</SCRIPT>";

}  // namespace

void CServerHomePage::ProcessGet(CKVTHttpRequest& request, CKVTHttpResponse& response) {
  Guarded("CServerHomePage::ProcessGet()", [&] { ShowPage(request, response, std::string()); });
}

void CServerHomePage::ShowPage(CKVTHttpRequest& request, CKVTHttpResponse& response, const std::string& message) {
  Guarded("CServerHomePage::ShowPage()", [&] {
    std::string body = "<H1>Welcome to the ZOL server (version 1.0)</H1>\n";
    if (!message.empty()) {
      body += "<P class='FormError' style='color: white; background-color: red; padding: 4px;'>" + HtmlText(message) +
              " Nothing was changed.</P>\n";
    }
    body += "This is the 'Zolan Relay Network'. Please choose something from the menu on the left.<BR><BR>\n";
    body += Server->GetRaceDayAsHTML();
    body += "<BR>\n";
    body += Server->GetSitesAsHTML();
    body += "<BR><BR>\n";
    body += Server->GetPortsAsHTML(request);
    body += "<BR><BR>\n";
    body += Server->GetStatisticsAsHTML();
    body += "<BR><BR>\n";
    body += Server->GetDebugInfoAsHTML();
    response.SetBody(body);
    response.Status = 200;
    response.HeadText = kReloadScript;
  });
}

void CServerHomePage::ProcessPost(CKVTHttpRequest& request, CKVTHttpResponse& response) {
  Guarded("CServerHomePage::ProcessPost()", [&] {
    const std::string testPageSize = request.FormGetValue("testpagesize");
    if (!testPageSize.empty()) {
      Server->SetTestPageSize(static_cast<DWORD>(std::atoi(testPageSize.c_str())));
      Redirect(response, "index.html");
      return;
    }
    const std::string portId = request.FormGetValue("portid");
    if (portId.empty()) {
      // The form that adds a port; a type that names no port adds nothing.
      Server->PortAdd(std::atoi(request.FormGetValue("porttype").c_str()), 0xFFFFFFFF);
      Redirect(response, "index.html");
      return;
    }
    DWORD id = 0;
    CZOLOutputPort* port = ParsePortID(portId, id) ? Server->GetPort(id) : nullptr;
    if (port == nullptr) {
      response.SetBody("Error: invalid ID");
      response.Status = 200;
      return;
    }
    const std::string refusal = port->CheckPost(request);
    if (!refusal.empty()) {
      ShowPage(request, response, refusal);
      return;
    }
    port->ProcessPost(request);
    Redirect(response, "index.html");
  });
}
