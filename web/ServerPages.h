// The server's administration pages that need no view of their own: deleting a port,
// removing a port from a site, and the plain file server for the HTML/zol/ tree.
#pragma once

#include "web/WebPage.h"

class CZOLServer;
class CZOLServerSite;

// Answers with status 301, the header "location" and the body "redirect".
void Redirect(CKVTHttpResponse& response, const std::string& target);

// The content type of a requested name, by its extension (case counts).
std::string ContentTypeOf(const std::string& path);

class CDeletePortPage : public CWebPage {
 public:
  explicit CDeletePortPage(CZOLServer* server);
  void HandleRequest(CKVTHttpRequest& request, CKVTHttpResponse& response) override;

 private:
  CZOLServer* Server;
};

class CFilePage : public CWebPage {
 public:
  explicit CFilePage(CZOLServer* server);
  void HandleRequest(CKVTHttpRequest& request, CKVTHttpResponse& response) override;
};

// Takes a port out of one site's list; the port stays known to the server.
class CRemovePortPage : public CWebPage {
 public:
  explicit CRemovePortPage(CZOLServerSite* site);
  void HandleRequest(CKVTHttpRequest& request, CKVTHttpResponse& response) override;

 private:
  CZOLServerSite* Site;
};
