// The viewer's own markup around the rebuilt pages: the list of sites and pages, the
// document a rendered page is shown in, the status line, the event stream's messages, the
// script that keeps a page live, and the content type of a page by its web name.
#pragma once

#include <string>
#include <vector>

#include "client/ViewerPages.h"
#include "client/ZolRender.h"

namespace zolclient {

// Where a site's pages are served: "/site/N/".
std::string SiteFolder(DWORD site);

// The status line of a site: its clock from the information page and how long ago the
// last packet came, or that the stream is lost.
std::string StatusText(const CViewerPages::Status& status);

// "/": every site with its pages (web name, size, version, when it last changed).
std::string IndexDocument(const std::vector<ViewerPage>& pages, const std::vector<DWORD>& sites,
                          const std::vector<CViewerPages::Status>& statuses);

// A rendered page in its document: the page's head, the status line, the body in the
// live part, the script, and a refresh for browsers without scripts.
std::string PageDocument(const RenderedZolPage& page, DWORD site, DWORD number, const CViewerPages::Status& status);

// The body as the live part holds it, for the script to put in place.
std::string LivePart(const RenderedZolPage& page);

// Event stream messages (each ends with the blank line).
std::string PageEventMessage(const ViewerEvent& event);
std::string StatusEventMessage(DWORD site, const CViewerPages::Status& status);
// Some changes were dropped before this stream took them: every page should reload.
std::string MissedEventMessage();

// A page of another type than HTML (a feed): its text without the page wrapper and the
// trailing NUL bytes.
std::string UnwrappedZolText(const std::string& text);

// By the web name's extension; application/octet-stream when unknown.
std::string ContentTypeFor(const std::string& webName);

extern const char* const kViewerScript;
extern const char* const kViewerStyle;

}  // namespace zolclient
