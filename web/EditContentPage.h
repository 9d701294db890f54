// The editor of a page's source: the file's text in a text area with a list of view
// names to insert, and the post that writes the file back.
#pragma once

#include <string>

#include "web/WebPage.h"

class CRMComm;
class CZOLServerSite;

class CEditContentPage : public CWebPage {
 public:
  CEditContentPage(CZOLServerSite* site, CRMComm* comm);
  void HandleRequest(CKVTHttpRequest& request, CKVTHttpResponse& response) override;
  void ProcessGet(CKVTHttpRequest& request, CKVTHttpResponse& response);
  void ProcessPost(CKVTHttpRequest& request, CKVTHttpResponse& response);

 private:
  CZOLServerSite* Site;
  CRMComm* Comm;
};
