#include "web/EditContentPage.h"

#include <string>
#include <vector>

#include "distribution/OutputPage.h"
#include "frame/KVTException.h"
#include "frame/Package.h"
#include "frame/platform/FileRead.h"
#include "frame/platform/FileWrite.h"
#include "frame/platform/Paths.h"
#include "site/ZOLServerPage.h"
#include "site/ZOLServerSite.h"
#include "views/RMComm.h"
#include "web/EditorText.h"
#include "web/HTMLText.h"
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

// A NUL byte would cut the name short at the file system ("style.css\0junk.zol").
bool HoldsNulByte(const std::string& path, const std::string& file) {
  return path.find('\0') != std::string::npos || file.find('\0') != std::string::npos;
}

void RefuseNulByte(CKVTHttpResponse& response) {
  response.SetBody("Bad request: a file name must not hold a NUL byte.");
  response.Status = 400;
}

std::string ContentLink(const std::string& path) {
  return path.empty() ? std::string("content.html") : "content.html?path=" + UrlQueryValue(path);
}

// The page of the site made from that folder and file; plain files keep "\\" between
// their folders where the browser's path has "/".
COutputPage* FindSitePage(const CZOLServerSite* site, const std::string& path, const std::string& file) {
  if (COutputPage* page = site->PageFind(path, file)) return page;
  return site->PageFind(COutputPage::ReplaceAll(path, "/", "\\"), file);
}

// Larger files are not put into a form: sent back, a file of this size stays below the
// web server's limit on a request body even when every byte comes back as %0D%0A.
constexpr std::size_t kMostEditableBytes = 128 * 1024;

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
    if (HoldsNulByte(path, file)) {
      RefuseNulByte(response);
      return;
    }
    const std::string root = Site->GetRootDir();
    const std::string name = root + path + file;
    // The file's own bytes, not a page made from them: the text area must show them all.
    std::vector<BYTE> bytes;
    const bool readable =
        IsEditable(path, file) && platform::IsInsideFolder(root, name) && platform::ReadWholeFile(name, bytes);
    if (!readable) {
      response.SetBody("File not found: " + HtmlText(file));
      response.Status = 404;
      return;
    }
    const std::string shownName = HtmlText(platform::ToNativePath(path + file));
    if (bytes.size() > kMostEditableBytes) {
      response.SetBody("The file " + shownName + " is too large to edit here (more than " +
                       std::to_string(kMostEditableBytes / 1024) + " KB).");
      response.Status = 200;
      return;
    }
    const std::string text(bytes.begin(), bytes.end());
    if (!IsUtf8Text(text)) {
      response.SetBody("The file " + shownName +
                       " cannot be edited here: it is not UTF-8 text, and a browser would change its bytes.");
      response.Status = 200;
      return;
    }
    const LineEnds lineEnds = CountLineEnds(text);
    std::string body = kInsertViewNameScript;
    body += "<p>Editing " + shownName + "</p>\n";
    if (!lineEnds.KeptBySave()) {
      body += std::string("<p>This file mixes line ends; Apply Changes gives every line ") +
              (std::string(lineEnds.SavedAs()) == "crlf" ? "CRLF" : "LF") + " line ends.</p>\n";
    }
    body += "<form name='edit' action='editcontent.html' method='post' accept-charset='UTF-8'>\n";
    body += FormTokenField(request) + "\n";
    body += "<input type='hidden' name='path' value='" + HtmlAttribute(path) + "'>\n";
    body += "<input type='hidden' name='file' value='" + HtmlAttribute(file) + "'>\n";
    // Browsers send every line end of a text area as CRLF; the save puts the file's back.
    body += std::string("<input type='hidden' name='lineends' value='") + lineEnds.SavedAs() + "'>\n";
    body += "<table>\n";
    // The newline after the opening tag is dropped by the browser, so that a first line
    // that is empty survives.
    body += "<tr><td colspan='2'><textarea cols='80' rows='25' wrap='off' onKeyDown='onKeyDown(this, event);' "
            "name='content' ID='content'>\n";
    body += HtmlTextArea(text);
    body += "</textarea></td></tr>\n";
    body += "<tr><td><SELECT name=viewname style='width:140px;'>\n";
    if (Comm != nullptr) {
      for (const std::string& view : Comm->GetViewNames()) {
        body += "<OPTION VALUE='" + HtmlAttribute(view) + "'" + (view == "lgView_Results" ? " SELECTED" : "") + ">" +
                HtmlText(GetTranslation(view.c_str())) + "\n";
      }
    }
    body += "</SELECT>\n";
    body += "<input type='button' value='Insert' onclick=\"insertViewName();\"></td>\n";
    body += "<td align='right'><input type='submit' value='Apply Changes' onclick=''>";
    body += "<input type='button' value='Cancel' onclick=\"location.href='" +
            HtmlAttribute(ScriptString(ContentLink(path))) + "'\">\n";
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
    if (HoldsNulByte(path, file)) {
      RefuseNulByte(response);
      return;
    }
    std::string content = request.FormGetValue("content");
    const std::string lineEnds = request.FormGetValue("lineends");
    if (lineEnds == "lf") content = WithLineEnds(content, "\n");
    if (lineEnds == "crlf") content = WithLineEnds(content, "\r\n");
    const std::string root = Site->GetRootDir();
    const std::string name = COutputPage::ReplaceAll(root + path + file, "/", "\\");
    // Only a file that exists below the site's root, links followed, is written; none is
    // ever made.
    const bool allowed = IsEditable(path, file) && platform::IsInsideFolder(root, name);
    COutputPage* page = allowed ? FindSitePage(Site, path, file) : nullptr;
    // A template takes its new text at the next build.
    auto* templatePage = page != nullptr && page->GetIsTemplate() != 0 ? dynamic_cast<CZOLServerPage*>(page) : nullptr;
    if (templatePage != nullptr) templatePage->SetFileChanged(1);
    if (!allowed || !platform::OverwriteExistingFile(name, content)) {
      response.SetBody("Failed to write file: " + HtmlText(platform::ToNativePath(name)));
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
