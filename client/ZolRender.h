// A received .zol page turned into HTML that a browser may show safely: every element
// of the page is written again from its parsed form, scripts and script URLs left out,
// and the page's live tags (tables, labels, includes, errors) made into plain HTML.
//
// The mapping of the live tags:
//   zol_table     its content; a header row <tr> of <th class="TYPE">caption</th>, one
//                 per zol_rh, where the first zol_rh stood; wrapped in
//                 <table class="zol-table"> unless it stands directly in a table
//                 (table, thead, tbody or tfoot)
//   zol_rr        the row: its <tr> when it holds one, else a <tr> made for it; the tr
//                 gets a class "zol-FLAG" for each flag of the row and of its cells
//   zol_rd        its text; a cell's flags become classes "zol-FLAG" of the <td> or <th>
//                 around it; a zol_rd directly in a row becomes a <td>, one elsewhere
//                 with flags a <span>
//   zol_label     <span class="zol-label zol-label-TYPE">text</span>
//   zol_include   <div class="zol-include" data-zol-include="N">the included page's
//                 body</div>, empty while page N has not come; a cycle or includes
//                 nested deeper than 8 give a comment instead
//   zol_error     a comment "<!-- zol_error: TEXT -->"
//   other zol_*   their content, without the tag
// Flags are the values of the flags attribute apart at "|"; a class name keeps only
// ASCII letters (lower-cased), digits, "-" and "_".
#pragma once

#include <functional>
#include <string>

namespace zolclient {

// The web name of a received page: the same mapping the server's own web pages use.
// A page named *.zol is reached as *.html, except ZOLFeed.zol, the scoreboard feed,
// which is reached as ZOLFeed.xml; other files keep their name. Backslashes become "/".
std::string PageWebName(const std::string& path, const std::string& name);

struct RenderedZolPage {
  // Text of <title>, escaped for element text.
  std::string Title;
  // The page's own <head> children (meta, link, style...), written again safely;
  // <title> and scripts left out.
  std::string HeadExtras;
  // Inner HTML of <body> (or the whole content for a fragment page without <body>).
  std::string Body;
  // The zol root's refresh attribute (0 when absent or bad), at most 3600.
  unsigned RefreshSeconds = 0;
  bool WellFormed = true;
};

// Looks up the text of an included page of the same site by its page number; null when
// it has not come.
using ZolIncludeLookup = std::function<const std::string*(unsigned pageNumber)>;

// Includes nest at most this deep.
inline constexpr unsigned kMaxZolIncludeDepth = 8;

// Renders a received page. A page that is not well-formed is shown as escaped text
// below a note, with WellFormed false. The rendering as a whole (the page and all it
// includes) writes at most about 16 MB; what does not fit is left out with a comment.
RenderedZolPage RenderZolPage(const std::string& pageText, const ZolIncludeLookup& include);

}  // namespace zolclient
