#include "web/ServerPages.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "distribution/ZOLServer.h"
#include "frame/KVTException.h"
#include "frame/Package.h"
#include "frame/platform/FileRead.h"
#include "frame/platform/Paths.h"
#include "distribution/OutputPort.h"
#include "site/ZOLServerSite.h"
#include "web/HTMLText.h"

// A submit button dressed as a link: no border, no background, underlined, link colour.
static const char* const kLinkButtonStyle =
    "style='border: none; background: none; padding: 0px; margin: 0px; color: #0000EE; text-decoration: underline; "
    "cursor: pointer; font: inherit;'";

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

std::string UrlPath(const std::string& path) {
  return Guarded("UrlPath()", [&] {
    std::string encoded;
    std::size_t start = 0;
    for (;;) {
      const std::size_t slash = path.find('/', start);
      encoded += UrlQueryValue(path.substr(start, slash == std::string::npos ? std::string::npos : slash - start));
      if (slash == std::string::npos) break;
      encoded += '/';
      start = slash + 1;
    }
    return encoded;
  });
}

std::string SitePageLink(const std::string& siteWebName, const std::string& webPath) {
  return "/zol/" + UrlPath(siteWebName) + "/" + UrlPath(webPath);
}

std::string DisplayPath(const std::string& path) {
  std::string shown = path;
  std::replace(shown.begin(), shown.end(), '\\', '/');
  return shown;
}

std::string PortActionForm(const std::string& action, DWORD id, const std::string& label, const std::string& question,
                           const CKVTHttpRequest& request) {
  return Guarded("PortActionForm()", [&] {
    return "<FORM method='post' action='" + HtmlAttribute(action) + "' style='display: inline; margin: 0px;'>" +
           FormTokenField(request) + HTMLFormat("<INPUT type='hidden' name='ID' value='%lu'>", static_cast<unsigned long>(id)) +
           "<INPUT type='submit' value='" + HtmlAttribute(label) + "' " + kLinkButtonStyle +
           " onclick=\"return confirm('" + HtmlAttribute(ScriptString(question)) + "');\"></FORM>";
  });
}

namespace {

const char* const kNotFound = "Invalid port ID: port not found.";

// The page a GET of a state-changing link answers: the question, the form that does it,
// and the way back.
void AskFirst(CKVTHttpResponse& response, const std::string& question, const std::string& form,
              const std::string& back) {
  response.SetBody("<P>" + HtmlText(question) + "</P>\n<P>" + form + "</P>\n<P><A HREF=\"" + HtmlAttribute(back) +
                   "\">Back</A></P>\n");
  response.Status = 200;
}

}  // namespace

CDeletePortPage::CDeletePortPage(CZOLServer* server)
    : CWebPage(server, "Delete a port", "_server/deleteport.html"), Server(server) {}

void CDeletePortPage::HandleRequest(CKVTHttpRequest& request, CKVTHttpResponse& response) {
  Guarded("CDeletePortPage::HandleRequest()", [&] {
    DWORD id = 0;
    if (request.Method != CKVTHttpRequest::kMethodPost) {
      const CZOLOutputPort* port = ParsePortID(request.AttributeGetValue("ID"), id) ? Server->GetPort(id) : nullptr;
      if (port == nullptr) {
        response.SetBody(kNotFound);
        response.Status = 200;
        return;
      }
      AskFirst(response, "Delete the port " + port->GetTypeName() + " (ID " + std::to_string(id) + ")?",
               PortActionForm("deleteport.html", id, "Delete", "Delete the port?", request), "index.html");
      return;
    }
    if (!ParsePortID(request.FormGetValue("ID"), id) || Server->PortDelete(id) == 0) {
      response.SetBody(kNotFound);
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
    // A symbolic link in the tree that leads out of it is not served.
    if (HasParentComponent(request.Path) || !platform::IsInsideFolder(directory + "/HTML/zol", file) ||
        !platform::ReadWholeFile(file, data)) {
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
    if (request.Method != CKVTHttpRequest::kMethodPost) {
      const CZOLOutputPort* port = nullptr;
      if (ParsePortID(request.AttributeGetValue("ID"), id)) {
        for (const CZOLOutputPort* listed : Site->GetPorts()) {
          if (listed != nullptr && listed->GetID() == id) port = listed;
        }
      }
      if (port == nullptr) {
        response.SetBody(kNotFound);
        response.Status = 200;
        return;
      }
      AskFirst(response,
               "Remove the port " + port->GetTypeName() + " (ID " + std::to_string(id) + ") from the site '" +
                   Site->GetParameter("name") + "'?",
               PortActionForm("removeport.html", id, "remove", "Remove the port from this site?", request),
               "content.html");
      return;
    }
    if (!ParsePortID(request.FormGetValue("ID"), id) || Site->PortRemove(id) == 0) {
      response.SetBody(kNotFound);
      response.Status = 200;
      return;
    }
    Redirect(response, "content.html");
  });
}
