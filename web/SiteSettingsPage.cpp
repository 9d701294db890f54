#include "web/SiteSettingsPage.h"

#include <cstdlib>

#include "data/Event.h"
#include "data/RMData.h"
#include "frame/KVTException.h"
#include "frame/platform/Paths.h"
#include "site/ZOLServerSite.h"
#include "views/RMComm.h"
#include "web/HTMLText.h"
#include "web/ServerPages.h"

CSiteSettingsPage::CSiteSettingsPage(CZOLServerSite* site, CRMComm* comm)
    : CWebPage(site, "Site Settings", site->GetWebName() + "/settings.html"), Site(site), Comm(comm) {}

void CSiteSettingsPage::HandleRequest(CKVTHttpRequest& request, CKVTHttpResponse& response) {
  Guarded("CSiteSettingsPage::HandleRequest()", [&] {
    if (request.Method == CKVTHttpRequest::kMethodPost) {
      ProcessPost(request, response);
    } else {
      ProcessGet(request, response);
    }
  });
}

std::string CSiteSettingsPage::AddEvents() {
  return Guarded("CSiteSettingsPage::AddEvents()", [&] {
    std::string html;
    if (Comm == nullptr) return html;
    CRMData* data = Comm->GetData();
    for (Cevent* event = data->EventGetHead(); event != nullptr; event = data->EventGetNext()) {
      const bool selected = static_cast<int>(event->UniqueID) == Site->GetEventId();
      html += HTMLFormat("<OPTION VALUE='%ld'%s>", static_cast<long>(event->UniqueID & 0x00FFFFFF),
                         selected ? " SELECTED" : "");
      html += HtmlText(event->Name) + "\n";
    }
    return html;
  });
}

std::string CSiteSettingsPage::SettingsForm(const CKVTHttpRequest& request, const std::string& message,
                                            const std::string& name, const std::string& root,
                                            const std::string& width, const std::string& height) {
  return Guarded("CSiteSettingsPage::SettingsForm()", [&] {
    std::string body;
    if (!message.empty()) body += "<P style='color: red;'>" + HtmlText(message) + "</P>\n";
    body += "<FORM name='settingsform' method='post' action='" + FileName + "'>\n";
    body += FormTokenField(request) + "\n";
    body += "<TABLE cellspacing=0 BORDER=0 WIDTH='500px'>\n";
    body += "<TR><TD COLSPAN='2' class='TableHeader'>ZOL Server Settings</TD></TR>\n";
    body += "<TR><TD width='120px'>Site Name:</TD><TD><INPUT type='text' name='sitename' style='width: 120px;' "
            "maxlength='15' value='" +
            HtmlAttribute(name) + "'></TD></TR>\n";
    body += "<TR><TD>Root Path:</TD><TD><INPUT type='text' name='rootpath' style='width: 250px;' maxlength='256' "
            "value='" +
            HtmlAttribute(root) + "'></TD></TR>\n";
    body += "<TR><TD>Current Event:</TD><TD><SELECT name='event'>\n" + AddEvents() + "</SELECT></TD></TR>\n";
    body += "<TR><TD>Screen Width:</TD><TD><INPUT type='text' name='screenwidth' style='width: 80px;' maxlength='5' "
            "value='" +
            HtmlAttribute(width) + "'></TD></TR>\n";
    body += "<TR><TD>Screen Height:</TD><TD><INPUT type='text' name='screenheight' style='width: 80px;' "
            "maxlength='5' value='" +
            HtmlAttribute(height) + "'></TD></TR>\n";
    body += "<TR><TD COLSPAN='2' style='text-align: right;'><INPUT type='submit' value='OK' onclick=''>\n";
    body += "<INPUT type='button' value='Cancel' onclick=\"location.href='content.html'\"></TD></TR>\n";
    body += "</TABLE>\n</FORM>\n";
    return body;
  });
}

void CSiteSettingsPage::ProcessGet(CKVTHttpRequest& request, CKVTHttpResponse& response) {
  Guarded("CSiteSettingsPage::ProcessGet()", [&] {
    // The root is shown as a Linux path; the site keeps it as its settings wrote it.
    response.SetBody(SettingsForm(request, "", Site->GetParameter("name"), platform::ToNativePath(Site->GetRootDir()),
                                  Site->GetParameter("width"), Site->GetParameter("height")));
    response.Status = 200;
  });
}

void CSiteSettingsPage::ProcessPost(CKVTHttpRequest& request, CKVTHttpResponse& response) {
  Guarded("CSiteSettingsPage::ProcessPost()", [&] {
    // An empty field keeps what the site has: a form sent without its fields changes
    // nothing. A root is made as the configuration makes it (with its separator, a
    // relative one below the application folder); another spelling of the present root
    // (as the form shows it, with "/") is the present root.
    const std::string rootField = request.FormGetValue("rootpath");
    std::string root = Site->GetRootDir();
    if (!rootField.empty()) {
      std::string typed = rootField;
      while (typed.size() > 1 && (typed.back() == '/' || typed.back() == '\\')) typed.pop_back();
      const std::string made = CZOLOutputStream::MakeRoot(typed);
      if (platform::LexicalPath(made) != platform::LexicalPath(root)) root = made;
    }
    const std::string name = request.FormGetValue("sitename");
    const std::string width = request.FormGetValue("screenwidth");
    const std::string height = request.FormGetValue("screenheight");
    // A root that is no folder would leave the site with no pages and every client
    // without them: it is refused, and nothing of the form is taken.
    if (root != Site->GetRootDir() && !platform::DirectoryExists(root)) {
      const std::string message = "The root path \"" + rootField + "\" is not an existing folder. The site keeps " +
                                  platform::ToNativePath(Site->GetRootDir()) + "; nothing was changed.";
      response.SetBody(SettingsForm(request, message, name.empty() ? Site->GetParameter("name") : name, rootField,
                                    width.empty() ? Site->GetParameter("width") : width,
                                    height.empty() ? Site->GetParameter("height") : height));
      response.Status = 400;
      return;
    }
    const std::string eventField = request.FormGetValue("event");
    const int event = eventField.empty()
                          ? Site->GetEventId()
                          : static_cast<int>(static_cast<DWORD>(std::atol(eventField.c_str())) | 0x80000000);
    if (!name.empty()) Site->SetParameter("name", name);
    if (!width.empty()) Site->SetParameter("width", std::to_string(std::atoi(width.c_str())));
    if (!height.empty()) Site->SetParameter("height", std::to_string(std::atoi(height.c_str())));
    if (event != Site->GetEventId() || root != Site->GetRootDir()) Site->Build(root, event, 0);
    Redirect(response, "content.html");
  });
}
