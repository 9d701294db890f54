#include "web/PublishedPage.h"

#include "frame/KVTException.h"
#include "site/ZOLServerPage.h"
#include "site/ZOLServerSite.h"

std::string SitePageContentType(const std::string& webName) {
  return Guarded("SitePageContentType()", [&]() -> std::string {
    const auto dot = webName.rfind('.');
    const std::string extension = dot == std::string::npos ? std::string() : webName.substr(dot + 1);
    if (extension == "jpg" || extension == "gif") return "image/" + extension;
    if (extension == "css") return "text/css";
    if (extension == "html") return "text/html";
    return "text/plain";
  });
}

CPublishedPage::CPublishedPage(CZOLServerSite* site, COutputPage* page, const std::string& path)
    : CWebPage(site, page->GetFilename(), path), Site(site), Page(page) {}

void CPublishedPage::HandleRequest(CKVTHttpRequest& request, CKVTHttpResponse& response) {
  Guarded("CPublishedPage::HandleRequest()", [&] {
    response.Framed = 0;
    response.HeaderSetValue("content-type", SitePageContentType(request.Path.empty() ? Path : request.Path));
    const std::vector<BYTE>& data = Page->GetData();
    if (data.empty()) {
      response.SetBody("Page not found.");
      response.Status = 404;
      return;
    }
    response.Status = 200;
    auto* templatePage = Page->GetIsTemplate() != 0 ? dynamic_cast<CZOLServerPage*>(Page) : nullptr;
    if (templatePage == nullptr) {
      response.SetBody(reinterpret_cast<const char*>(data.data()), static_cast<DWORD>(data.size()));
      return;
    }
    if (request.AttributeGetValue("raw") == "yes") {
      response.HeaderSetValue("content-type", "text/plain");
      response.SetBody(reinterpret_cast<const char*>(data.data()), static_cast<DWORD>(data.size()));
      return;
    }
    response.SetBody(templatePage->HTMLExport(Site->GetClockParameters()));
  });
}
