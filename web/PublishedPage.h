// A page of a site as a browser sees it: plain files as they are, templates filled in
// for reading (or, with raw=yes, as the markup that goes on the wire).
#pragma once

#include <string>

#include "web/WebPage.h"

class COutputPage;
class CZOLServerSite;

// The content type of a site page by the extension of its web name.
std::string SitePageContentType(const std::string& webName);

class CPublishedPage : public CWebPage {
 public:
  CPublishedPage(CZOLServerSite* site, COutputPage* page, const std::string& path);
  void HandleRequest(CKVTHttpRequest& request, CKVTHttpResponse& response) override;

  COutputPage* GetPage() const { return Page; }

 private:
  CZOLServerSite* Site;
  COutputPage* Page;
};
