// A site's settings page: name, root folder, event and screen size of the site.
#pragma once

#include <string>

#include "web/WebPage.h"

class CRMComm;
class CZOLServerSite;

class CSiteSettingsPage : public CWebPage {
 public:
  CSiteSettingsPage(CZOLServerSite* site, CRMComm* comm);
  void HandleRequest(CKVTHttpRequest& request, CKVTHttpResponse& response) override;
  void ProcessGet(CKVTHttpRequest& request, CKVTHttpResponse& response);
  void ProcessPost(CKVTHttpRequest& request, CKVTHttpResponse& response);
  // The options of the event list: every event of the replica, the site's own selected.
  std::string AddEvents();

 private:
  CZOLServerSite* Site;
  CRMComm* Comm;
  std::string FileName = "settings.html";
};
