#include "web/ServerPages.h"

#include <cstdlib>
#include <sstream>
#include <vector>

#include "distribution/ZOLServer.h"
#include "frame/KVTException.h"
#include "frame/Package.h"
#include "frame/platform/FileRead.h"

namespace {

// A path is refused when any of its components is "..".
bool LeavesTheTree(const std::string& path) {
  std::stringstream components(path);
  std::string component;
  while (std::getline(components, component, '/')) {
    if (component == "..") return true;
  }
  return false;
}

}  // namespace

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
    const DWORD id = static_cast<DWORD>(std::atol(request.AttributeGetValue("ID").c_str()));
    if (Server->PortDelete(id) == 0) {
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
    if (LeavesTheTree(request.Path) || !platform::ReadWholeFile(file, data)) {
      response.SetBody("404: Page not found.");
      response.Status = 404;
      return;
    }
    response.SetBody(reinterpret_cast<const char*>(data.data()), static_cast<DWORD>(data.size()));
    response.Status = 200;
  });
}
