#include "web/ServerPages.h"

#include <cstdlib>
#include <vector>

#include "distribution/ZOLServer.h"
#include "frame/KVTException.h"
#include "frame/Package.h"
#include "frame/platform/FileRead.h"
#include "site/ZOLServerSite.h"

void Redirect(CKVTHttpResponse& response, const std::string& target) {
  response.HeaderSetValue("location", target);
  response.Status = 301;
  response.SetBody("redirect");
}

std::string ContentTypeOf(const std::string& path) {
  const auto dot = path.rfind('.');
  const std::string extension = dot == std::string::npos ? std::string() : path.substr(dot + 1);
  if (extension == "jpg" || extension == "gif") return "image/" + extension;
  if (extension == "css") return "text/css";
  if (extension == "html") return "text/html";
  return "text/plain";
}

CDeletePortPage::CDeletePortPage(CZOLServer* server)
    : CWebPage(server, "Delete a port", "_server/deleteport.html"), Server(server) {}

void CDeletePortPage::HandleRequest(CKVTHttpRequest& request, CKVTHttpResponse& response) {
  Guarded("CDeletePortPage::HandleRequest()", [&] {
    DWORD id = 0;
    if (!ParsePortID(request.AttributeGetValue("ID"), id) || Server->PortDelete(id) == 0) {
      response.SetBody("Invalid port ID: port not found.");
      response.Status = 200;
      return;
    }
    Redirect(response, "index.html");
  });
}

CFilePage::CFilePage(CZOLServer* server) : CWebPage(server, "Get a file", "GET") {}

void CFilePage::HandleRequest(CKVTHttpRequest& request, CKVTHttpResponse& response) {
  Guarded("CFilePage::HandleRequest()", [&] {
    response.HeaderSetValue("content-type", ContentTypeOf(request.Path));
    response.Framed = 0;
    const CPackage* package = GetPackage();
    const std::string directory = package != nullptr ? package->ApplicationDirectory : std::string();
    // The application directory comes without a trailing separator; the tree brings one.
    const std::string file = directory + "/HTML/zol/" + request.Path;
    std::vector<BYTE> data;
    if (HasParentComponent(request.Path) || !platform::ReadWholeFile(file, data)) {
      response.SetBody("404: Page not found.");
      response.Status = 404;
      return;
    }
    response.SetBody(reinterpret_cast<const char*>(data.data()), static_cast<DWORD>(data.size()));
    response.Status = 200;
  });
}

CRemovePortPage::CRemovePortPage(CZOLServerSite* site)
    : CWebPage(site, "Remove a port", site->GetWebName() + "/removeport.html"), Site(site) {}

void CRemovePortPage::HandleRequest(CKVTHttpRequest& request, CKVTHttpResponse& response) {
  Guarded("CRemovePortPage::HandleRequest()", [&] {
    DWORD id = 0;
    if (!ParsePortID(request.AttributeGetValue("ID"), id) || Site->PortRemove(id) == 0) {
      response.SetBody("Invalid port ID: port not found.");
      response.Status = 200;
      return;
    }
    Redirect(response, "content.html");
  });
}
