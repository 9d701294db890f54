// A site's content page: what the site is, its ports, its pages folder by folder, and
// the forms that add a port to the site and reload it.
#pragma once

#include <string>

#include "web/WebPage.h"

class CZOLServer;
class CZOLServerSite;

class CFeedContentPage : public CWebPage {
 public:
  CFeedContentPage(CZOLServer* server, CZOLServerSite* site);
  void HandleRequest(CKVTHttpRequest& request, CKVTHttpResponse& response) override;
  void ProcessGet(CKVTHttpRequest& request, CKVTHttpResponse& response);
  void ProcessPost(CKVTHttpRequest& request, CKVTHttpResponse& response);
  // The table of the pages in folder `path` ("" for the root, no trailing "/"); its
  // reload form carries the request's anti-forgery token.
  std::string GetPagesAsHTML(const std::string& path, const CKVTHttpRequest& request);

 private:
  CZOLServer* Server;
  CZOLServerSite* Site;
  std::string FileName = "content.html";
};
