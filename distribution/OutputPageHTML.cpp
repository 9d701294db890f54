// A page's row in the table of pages on a site's content page.
#include "distribution/OutputPage.h"
#include "distribution/PacketFormat.h"
#include "frame/KVTException.h"
#include "web/HTMLText.h"
#include "web/ServerPages.h"

std::string COutputPage::GetWebDirectory() const {
  // Plain files keep "\\" between their folders; a browser path has "/".
  return ReplaceAll(Path, "\\", "/");
}

std::string COutputPage::GetPageAsHTMLRow(const std::string& siteName, const std::string& style) const {
  return Guarded("COutputPage::GetPageAsHTMLRow()", [&] {
    // A template tag that failed left its error text in the page.
    const bool hasError = IsTemplate != 0 && GetDataAsString().find("<zol_error>") != std::string::npos;
    const std::string directory = GetWebDirectory();
    const std::string webPath = ReplaceAll(ExportName, "\\", "/");
    const long number = static_cast<long>(wire::PageNumber(PageKey));
    std::string html = "<TR";
    html += hasError ? std::string(" style='background-color: red;'") : style;
    html += ">";
    html += HTMLFormat("<TD><input type=checkbox name='page%ld'%s></TD>", number, Repeat != 0 ? " CHECKED" : "");
    if (number == 0) {
      html += "<TD><B>Site Information</B></TD>";
    } else {
      const std::string link = HtmlAttribute(SitePageLink(siteName, webPath));
      html += "<TD><A HREF=\"" + link + "\"> " + HtmlText(Filename) + "</A>";
      std::string query;
      if (!directory.empty()) query += "path=" + UrlPath(directory) + "&";
      query += "file=" + UrlQueryValue(Filename);
      // Every part is %XX-encoded, so the query holds nothing that an attribute must escape.
      const std::string editLink = "<A HREF=\"editcontent.html?" + query + "\">edit</A>)";
      if (IsTemplate != 0) {
        html += " (<A HREF=\"" + link + "?raw=yes\">raw</A>,";
        html += " " + editLink;
      } else if (Extension == "css") {
        html += " (" + editLink;
      }
      html += "</TD>";
    }
    html += HTMLFormat("<TD align=right>%ld</TD>", static_cast<long>(PlainSize));
    html += HTMLFormat("<TD align=right>%ld</TD>", static_cast<long>(CompressedSize));
    html += HTMLFormat("<TD align=right>%0.1f%%</TD>", GetCompressionRatio());
    html += HTMLFormat("<TD align=right>%d</TD>", static_cast<int>(Packets.size()));
    html += HTMLFormat("<TD align=right>%d</TD>", static_cast<int>(PageKey >> 30));
    html += HTMLFormat("<TD align=right>%d</TD>", static_cast<int>(Repeat));
    html += HTMLFormat("<TD align=right>%d</TD>", static_cast<int>(SequenceLow));
    html += "</TR>\n";
    return html;
  });
}
