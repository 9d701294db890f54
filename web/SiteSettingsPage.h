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
  // The settings form holding the given values; `message`, when not empty, is shown
  // above it.
  std::string SettingsForm(const CKVTHttpRequest& request, const std::string& message, const std::string& name,
                           const std::string& root, const std::string& width, const std::string& height);

  CZOLServerSite* Site;
  CRMComm* Comm;
  std::string FileName = "settings.html";
};
