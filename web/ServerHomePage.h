// The main administration page: the tables of sites, ports and stream clients, the form
// that adds a port and the editor forms of the ports.
#pragma once

#include "web/WebPage.h"

class CZOLServer;

class CServerHomePage : public CWebPage {
 public:
  explicit CServerHomePage(CZOLServer* server);
  void HandleRequest(CKVTHttpRequest& request, CKVTHttpResponse& response) override;
  void ProcessGet(CKVTHttpRequest& request, CKVTHttpResponse& response);
  void ProcessPost(CKVTHttpRequest& request, CKVTHttpResponse& response);

 private:
  // The page, with `message` (a refused form) above everything when it is not empty.
  void ShowPage(CKVTHttpRequest& request, CKVTHttpResponse& response, const std::string& message);

  CZOLServer* Server;
};
