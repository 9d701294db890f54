// The site's row in the table of sites on the main administration page.
#include <cstdlib>

#include "frame/KVTException.h"
#include "site/ZOLServerSite.h"
#include "web/HTMLText.h"
#include "web/ServerPages.h"

std::string CZOLServerSite::GetSiteAsHTMLRow() {
  return Guarded("CZOLServerSite::GetSiteAsHTMLRow()", [&] {
    const std::string name = GetParameter("name");
    const double original = GetOriginalSize();
    const double compressed = GetCompressedSize();
    // The share of the original that compression saves; nothing saved without a
    // compressed size, and never less than nothing.
    double quotient = compressed > 0 ? compressed / original : 1.0;
    if (quotient > 1.0) quotient = 1.0;
    const double bandwidth = GetBandwidth() / 1024.0;
    const double maxDataRate = GetMaxDataRate();
    std::string html = "<TR>";
    html += "<TD><A HREF=\"" + HtmlAttribute(SitePageLink(GetWebName(), "content.html")) + "\">" + HtmlText(name) +
            "</A></TD>";
    html += "<TD>" + HtmlText(DisplayPath(Root)) + "</TD>";
    html += HTMLFormat("<TD>%ld</TD>", std::atol(GetParameter("pagecount").c_str()));
    html += "<TD>" + HtmlText(GetParameter("height")) + " x " + HtmlText(GetParameter("width")) + "</TD>";
    html += HTMLFormat("<TD>%0.1f kb</TD>", original / 1024.0);
    html += HTMLFormat("<TD>%0.1f kb</TD>", compressed / 1024.0);
    html += HTMLFormat("<TD>%0.1f %%</TD>", (1.0 - quotient) * 100.0);
    html += HTMLFormat("<TD%s>%0.2f KB/sec</TD>", maxDataRate != 0.0 && bandwidth > maxDataRate ? " bgcolor='red'" : "",
                       bandwidth);
    html += "</TR>\n";
    return html;
  });
}
