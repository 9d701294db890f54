#include "web/EditContentPage.h"

#include <memory>

#include "distribution/OutputPage.h"
#include "frame/KVTException.h"
#include "frame/Package.h"
#include "frame/platform/FileWrite.h"
#include "site/ZOLServerPage.h"
#include "site/ZOLServerSite.h"
#include "views/RMComm.h"
#include "web/ServerPages.h"

namespace {

const char* const kInsertViewNameScript =
    "<SCRIPT language=JavaScript type='text/javascript'>\n"
    "function insertViewName() {\n"
    "  var list = document.edit.viewname;\n"
    "  var area = document.getElementById('content');\n"
    "  if (list.selectedIndex < 0) return;\n"
    "  var name = list.options[list.selectedIndex].value;\n"
    "  if (area.selectionStart != null) {\n"
    "    var start = area.selectionStart;\n"
    "    area.value = area.value.substring(0, start) + name + area.value.substring(area.selectionEnd);\n"
    "    area.selectionStart = area.selectionEnd = start + name.length;\n"
    "  } else {\n"
    "    area.value += name;\n"
    "  }\n"
    "  area.focus();\n"
    "}\n"
    "</SCRIPT>\n";

// Only files below the site's root are edited: no ".." and no absolute part.
bool IsEditable(const std::string& path, const std::string& file) {
  return !file.empty() && !LeavesItsFolder(path) && !LeavesItsFolder(file);
}

std::string ContentLink(const std::string& path) {
  return path.empty() ? std::string("content.html") : "content.html?path=" + path;
}

// The page of the site made from that folder and file; plain files keep "\\" between
// their folders where the browser's path has "/".
COutputPage* FindSitePage(const CZOLServerSite* site, const std::string& path, const std::string& file) {
  if (COutputPage* page = site->PageFind(path, file)) return page;
  return site->PageFind(COutputPage::ReplaceAll(path, "/", "\\"), file);
}

}  // namespace

CEditContentPage::CEditContentPage(CZOLServerSite* site, CRMComm* comm)
    : CWebPage(site, "Edit Page Content", site->GetWebName() + "/editcontent.html"), Site(site), Comm(comm) {}

void CEditContentPage::HandleRequest(CKVTHttpRequest& request, CKVTHttpResponse& response) {
  Guarded("CEditContentPage::HandleRequest()", [&] {
    if (request.Method == CKVTHttpRequest::kMethodPost) {
      ProcessPost(request, response);
    } else {
      ProcessGet(request, response);
    }
  });
}

void CEditContentPage::ProcessGet(CKVTHttpRequest& request, CKVTHttpResponse& response) {
  Guarded("CEditContentPage::ProcessGet()", [&] {
    const std::string path = request.AttributeGetValue("path");
    const std::string file = request.AttributeGetValue("file");
    const std::string root = Site->GetRootDir();
    // The work page that reads the file; dropped when the answer is made.
    auto work = std::make_unique<COutputPage>(Site->GetSiteId(), 0, 0, 0, path, file);
    const bool readable = IsEditable(path, file) &&
                          platform::IsInsideFolder(root, COutputPage::ReplaceAll(root + path + file, "/", "\\")) &&
                          work->FileImport(root) != 0;
    if (!readable) {
      response.SetBody("File not found: " + file);
      response.Status = 404;
      return;
    }
    std::string body = kInsertViewNameScript;
    body += "<form name='edit' action='editcontent.html' method='post'>\n";
    body += "<input type='hidden' name='path' value='" + path + "'>\n";
    body += "<input type='hidden' name='file' value='" + file + "'>\n";
    body += "<table>\n";
    body += "<tr><td colspan='2'><textarea cols='80' rows='25' wrap='off' onKeyDown='onKeyDown(this, event);' "
            "name='content' ID='content'>";
    body += work->GetDataAsString();
    body += "</textarea></td></tr>\n";
    body += "<tr><td><SELECT name=viewname style='width:140px;'>\n";
    if (Comm != nullptr) {
      for (const std::string& name : Comm->GetViewNames()) {
        body += "<OPTION VALUE='" + name + "'" + (name == "lgView_Results" ? " SELECTED" : "") + ">" +
                GetTranslation(name.c_str()) + "\n";
      }
    }
    body += "</SELECT>\n";
    body += "<input type='button' value='Insert' onclick=\"insertViewName();\"></td>\n";
    body += "<td align='right'><input type='submit' value='Apply Changes' onclick=''>";
    body += "<input type='button' value='Cancel' onclick=\"location.href='" + ContentLink(path) + "'\">\n";
    body += "</td></tr>\n</table>\n</form>\n";
    response.SetBody(body);
    response.Status = 200;
    response.HeadText = "\t<SCRIPT language=JavaScript src='/includes/textarea.js' type='text/javascript'></SCRIPT>";
  });
}

void CEditContentPage::ProcessPost(CKVTHttpRequest& request, CKVTHttpResponse& response) {
  Guarded("CEditContentPage::ProcessPost()", [&] {
    const std::string path = request.FormGetValue("path");
    const std::string file = request.FormGetValue("file");
    const std::string content = request.FormGetValue("content");
    const std::string root = Site->GetRootDir();
    const std::string name = COutputPage::ReplaceAll(root + path + file, "/", "\\");
    // Only a file that exists below the site's root is written; none is ever made.
    const bool allowed = IsEditable(path, file) && platform::IsInsideFolder(root, name);
    COutputPage* page = allowed ? FindSitePage(Site, path, file) : nullptr;
    // A template takes its new text at the next build.
    auto* templatePage = page != nullptr && page->GetIsTemplate() != 0 ? dynamic_cast<CZOLServerPage*>(page) : nullptr;
    if (templatePage != nullptr) templatePage->SetFileChanged(1);
    if (!allowed || !platform::OverwriteExistingFile(name, content)) {
      response.SetBody("Failed to write file: " + name);
      response.Status = 404;
      return;
    }
    // A plain file is read again at once, so that its new text goes out.
    if (page != nullptr && templatePage == nullptr) page->SetData({});
    if (page != nullptr && templatePage == nullptr && page->FileImport(page->GetSourceRoot()) != 0) {
      page->BuildPackets();
      page->NotifyPageUpdated();
    }
    Redirect(response, ContentLink(path));
  });
}
