#include "web/ServerHomePage.h"

#include <cstdlib>

#include "distribution/OutputPort.h"
#include "distribution/ZOLServer.h"
#include "frame/KVTException.h"
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

void CServerHomePage::ProcessGet(CKVTHttpRequest& request, CKVTHttpResponse& response) {
  Guarded("CServerHomePage::ProcessGet()", [&] {
    (void)request;
    std::string body = "<H1>Welcome to the ZOL server (version 1.0)</H1>\n";
    body += "This is the 'Zolan Relay Network'. Please choose something from the menu on the left.<BR><BR>\n";
    body += Server->GetSitesAsHTML();
    body += "<BR><BR>\n";
    body += Server->GetPortsAsHTML();
    body += "<BR><BR>\n";
    body += Server->GetStatisticsAsHTML();
    body += "<BR><BR>\n";
    body += Server->GetDebugInfoAsHTML();
    response.SetBody(body);
    response.Status = 200;
    // The page reloads itself every minute.
    response.HeadText = "\t<META HTTP-EQUIV=\"refresh\" CONTENT=\"60\">";
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
    port->ProcessPost(request);
    Redirect(response, "index.html");
  });
}
