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

// A path for a URL: each "/"-separated part %XX-encoded as a query value, the "/" kept,
// so that ordinary names read as before and no character can leave the URL.
std::string UrlPath(const std::string& path);
// The link to a page of a site: "/zol/<site>/<web path>", each part encoded.
std::string SitePageLink(const std::string& siteWebName, const std::string& webPath);
// A path as the pages show it: "/" where the settings keep "\\".
std::string DisplayPath(const std::string& path);

// A small form that posts the port ID (field "ID") and the request's anti-forgery token
// to `action`; its one button looks like a link with the text `label` and asks
// `question` first. It stands where a plain link would change state by a GET.
std::string PortActionForm(const std::string& action, DWORD id, const std::string& label, const std::string& question,
                           const CKVTHttpRequest& request);

// POST deletes the port of the form's ID; GET changes nothing and asks the question
// with the same form, so that an old link still works through a click.
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

// Takes a port out of one site's list by POST; the port stays known to the server. GET
// changes nothing and asks the question with the form that does it.
class CRemovePortPage : public CWebPage {
 public:
  explicit CRemovePortPage(CZOLServerSite* site);
  void HandleRequest(CKVTHttpRequest& request, CKVTHttpResponse& response) override;

 private:
  CZOLServerSite* Site;
};
