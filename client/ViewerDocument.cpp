#include "client/ViewerDocument.h"

#include <cmath>
#include <cstdio>

#include "frame/platform/Time.h"
#include "web/HTMLText.h"

namespace zolclient {

namespace {

// A JSON string of any text: quotes, backslashes and control characters escaped; "<"
// too, so that the text can never be read as markup.
std::string JsonString(const std::string& text) {
  std::string out = "\"";
  for (unsigned char c : text) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c < 0x20 || c == '<' || c == '>' || c == '&' || c == 0x7F) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
      out += escaped;
    } else {
      out += static_cast<char>(c);
    }
  }
  out += '"';
  return out;
}

std::string ClockValue(const CViewerPages::Status& status, const char* key) {
  const auto found = status.Clock.find(key);
  return found == status.Clock.end() || found->second.empty() ? "-" : found->second;
}

std::string FormatWhen(std::int64_t seconds) {
  return platform::FormatTime(static_cast<std::time_t>(seconds), "%Y-%m-%d %H:%M:%S UTC", true);
}

}  // namespace

std::string SiteFolder(DWORD site) { return "/site/" + std::to_string(site) + "/"; }

std::string StatusText(const CViewerPages::Status& status) {
  if (!status.SincePacket) return "Waiting for the first packet";
  const long since = std::lround(std::floor(*status.SincePacket));
  if (status.Lost()) return "Stream lost: no packet for " + std::to_string(since) + " s";
  return "Time of day " + ClockValue(status, "timeofday") + " \xC2\xB7 Race time " + ClockValue(status, "racetime") +
         " \xC2\xB7 Time to go " + ClockValue(status, "timetogo") + " \xC2\xB7 Flag " + ClockValue(status, "flag") +
         " \xC2\xB7 Last packet " + std::to_string(since) + " s ago";
}

std::string IndexDocument(const std::vector<ViewerPage>& pages, const std::vector<DWORD>& sites,
                          const std::vector<CViewerPages::Status>& statuses) {
  std::string html =
      "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>Live pages</title>"
      "<link rel=\"stylesheet\" href=\"/_viewer/viewer.css\"></head>\n<body>\n<h1>Live pages</h1>\n";
  if (sites.empty()) html += "<p>No page has come yet.</p>\n";
  for (std::size_t i = 0; i < sites.size(); ++i) {
    const DWORD site = sites[i];
    html += "<h2>Site " + std::to_string(site) + "</h2>\n";
    if (i < statuses.size()) {
      html += "<p class=\"zol-status" + std::string(statuses[i].Lost() ? " zol-lost" : "") + "\">" +
              HtmlText(StatusText(statuses[i])) + "</p>\n";
    }
    html += "<table class=\"zol-index\">\n<tr><th>Page</th><th>Size</th><th>Version</th><th>Changed</th></tr>\n";
    for (const ViewerPage& page : pages) {
      if (page.Site != site) continue;
      html += "<tr><td><a href=\"" + HtmlAttribute(SiteFolder(site) + page.WebName) + "\">" + HtmlText(page.WebName) +
              "</a></td><td>" + std::to_string(page.Data ? page.Data->size() : 0) + " bytes</td><td>" +
              HtmlText(page.Version) + "</td><td>" + FormatWhen(page.ChangedAtSeconds) + "</td></tr>\n";
    }
    html += "</table>\n";
  }
  html += "</body></html>\n";
  return html;
}

std::string LivePart(const RenderedZolPage& page) { return page.Body; }

std::string PageDocument(const RenderedZolPage& page, DWORD site, DWORD number, const CViewerPages::Status& status) {
  std::string html = "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>" + page.Title + "</title>";
  html += page.HeadExtras;
  html += "<link rel=\"stylesheet\" href=\"/_viewer/viewer.css\">";
  if (page.RefreshSeconds > 0) {
    html += "<noscript><meta http-equiv=\"refresh\" content=\"" + std::to_string(page.RefreshSeconds) + "\"></noscript>";
  }
  html += "<script src=\"/_viewer/live.js\" defer></script></head>\n";
  html += "<body data-zol-site=\"" + std::to_string(site) + "\" data-zol-page=\"" + std::to_string(number) + "\">\n";
  html += "<div id=\"zol-status\" class=\"zol-status" + std::string(status.Lost() ? " zol-lost" : "") + "\">" +
          HtmlText(StatusText(status)) + "</div>\n";
  html += "<div id=\"zol-live\">" + LivePart(page) + "</div>\n</body></html>\n";
  return html;
}

std::string PageEventMessage(const ViewerEvent& event) {
  return "event: page\ndata: {\"site\":" + std::to_string(event.Site) + ",\"page\":" + std::to_string(event.Number) +
         ",\"name\":" + JsonString(event.WebName) + ",\"version\":" + JsonString(event.Version) + "}\n\n";
}

std::string StatusEventMessage(DWORD site, const CViewerPages::Status& status) {
  return "event: status\ndata: {\"site\":" + std::to_string(site) + ",\"text\":" + JsonString(StatusText(status)) +
         ",\"lost\":" + (status.Lost() ? "true" : "false") + "}\n\n";
}

std::string MissedEventMessage() { return "event: missed\ndata: {}\n\n"; }

std::string UnwrappedZolText(const std::string& text) {
  std::string trimmed = text.substr(0, text.find_last_not_of('\0') + 1);
  if (text.find_last_not_of('\0') == std::string::npos) return "";
  const std::size_t root = trimmed.find("<zol");
  const std::size_t rootEnd = root == std::string::npos ? root : trimmed.find('>', root);
  const std::size_t close = trimmed.rfind("</zol>");
  if (rootEnd == std::string::npos || close == std::string::npos || close < rootEnd) return trimmed;
  std::string inner = trimmed.substr(rootEnd + 1, close - rootEnd - 1);
  const std::size_t first = inner.find_first_not_of(" \t\r\n");
  inner = first == std::string::npos ? "" : inner.substr(first);
  if (trimmed.rfind("<?xml", 0) == 0) inner = trimmed.substr(0, trimmed.find("?>") + 2) + "\n" + inner;
  return inner;
}

std::string ContentTypeFor(const std::string& webName) {
  static const std::pair<const char*, const char*> kTypes[] = {
      {".html", "text/html; charset=utf-8"}, {".htm", "text/html; charset=utf-8"},
      {".css", "text/css; charset=utf-8"},   {".js", "text/javascript; charset=utf-8"},
      {".xml", "application/xml"},           {".json", "application/json"},
      {".txt", "text/plain; charset=utf-8"}, {".png", "image/png"},
      {".gif", "image/gif"},                 {".jpg", "image/jpeg"},
      {".jpeg", "image/jpeg"},               {".svg", "image/svg+xml"},
      {".ico", "image/x-icon"},              {".swf", "application/x-shockwave-flash"},
  };
  const auto dot = webName.rfind('.');
  if (dot != std::string::npos && webName.find('/', dot) == std::string::npos) {
    std::string extension = webName.substr(dot);
    for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    for (const auto& [ending, type] : kTypes) {
      if (extension == ending) return type;
    }
  }
  return "application/octet-stream";
}

const char* const kViewerScript = R"JS((function () {
  'use strict';
  var body = document.body;
  var live = document.getElementById('zol-live');
  var status = document.getElementById('zol-status');
  if (!body || !live || !window.EventSource || !window.fetch) return;
  var site = body.getAttribute('data-zol-site');
  var page = body.getAttribute('data-zol-page');
  var loading = false;
  var again = false;
  function dependsOn(number) {
    return number === page || live.querySelector('[data-zol-include="' + number + '"]') !== null;
  }
  function reload() {
    if (loading) { again = true; return; }
    loading = true;
    fetch(location.pathname + '?part=live', { cache: 'no-store' })
      .then(function (response) { return response.ok ? response.text() : null; })
      .then(function (text) {
        if (text !== null) {
          var x = window.scrollX, y = window.scrollY;
          live.innerHTML = text;
          window.scrollTo(x, y);
        }
      })
      .catch(function () {})
      .then(function () {
        loading = false;
        if (again) { again = false; reload(); }
      });
  }
  var events = new EventSource('/events');
  events.addEventListener('page', function (event) {
    var change = JSON.parse(event.data);
    if (String(change.site) === site && dependsOn(String(change.page))) reload();
  });
  events.addEventListener('status', function (event) {
    var state = JSON.parse(event.data);
    if (String(state.site) !== site || !status) return;
    status.textContent = state.text;
    status.className = state.lost ? 'zol-status zol-lost' : 'zol-status';
  });
  events.addEventListener('missed', reload);
})();
)JS";

const char* const kViewerStyle = R"CSS(.zol-status { font: 14px sans-serif; padding: 4px 8px; color: #1b2a1b; background: #e3efe3; border-bottom: 1px solid #9b9; }
.zol-status.zol-lost { color: #6b0000; background: #fbe3e3; border-bottom-color: #c66; font-weight: bold; }
.zol-note { font: 14px sans-serif; color: #a00; }
table.zol-index td, table.zol-index th { padding: 2px 10px; text-align: left; }
)CSS";

}  // namespace zolclient
