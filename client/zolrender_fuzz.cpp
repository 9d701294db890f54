// Feeds arbitrary bytes to the page renderer, with every include answered by the same
// bytes, and checks that whatever comes out is markup of the renderer's own: tags with
// plain lower-case names, quoted attributes with no event handler, comments that cannot
// end early, no script element, and text with every "<" and ">" escaped (a style
// sheet keeps its ">").
#include <cstddef>
#include <cstdint>
#include <string>

#include "client/ZolRender.h"
#include "frame/KVTException.h"

namespace {

bool IsNameCharacter(char c) { return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-'; }

// Traps unless `html` is text and markup as the renderer writes them.
void CheckHtml(const std::string& html) {
  std::size_t p = 0;
  while (p < html.size()) {
    const char c = html[p];
    if (c == '>') __builtin_trap();
    if (c != '<') {
      ++p;
      continue;
    }
    if (html.compare(p, 5, "<!-- ") == 0) {
      const std::size_t end = html.find(" -->", p + 5);
      if (end == std::string::npos) __builtin_trap();
      const std::string inner = html.substr(p + 5, end - p - 5);
      if (inner.find("--") != std::string::npos || inner.find_first_of("<>") != std::string::npos) __builtin_trap();
      p = end + 4;
      continue;
    }
    const bool endTag = p + 1 < html.size() && html[p + 1] == '/';
    std::size_t q = p + (endTag ? 2 : 1);
    const std::size_t nameStart = q;
    if (q >= html.size() || html[q] < 'a' || html[q] > 'z') __builtin_trap();
    while (q < html.size() && IsNameCharacter(html[q])) ++q;
    const std::string name = html.substr(nameStart, q - nameStart);
    if (name == "script" || name == "iframe" || name == "object" || name == "embed" || name == "base") __builtin_trap();
    while (!endTag && q < html.size() && html[q] == ' ') {
      const std::size_t attributeStart = ++q;
      while (q < html.size() && IsNameCharacter(html[q])) ++q;
      const std::string attribute = html.substr(attributeStart, q - attributeStart);
      if (attribute.empty() || attribute.compare(0, 2, "on") == 0) __builtin_trap();
      if (html.compare(q, 2, "=\"") != 0) __builtin_trap();
      const std::size_t close = html.find('"', q + 2);
      if (close == std::string::npos) __builtin_trap();
      const std::string value = html.substr(q + 2, close - q - 2);
      if (value.find_first_of("<>") != std::string::npos) __builtin_trap();
      q = close + 1;
    }
    if (q >= html.size() || html[q] != '>') __builtin_trap();
    p = q + 1;
    if (!endTag && name == "style") {
      // A style sheet keeps its ">" but has no "<" up to its end tag.
      const std::size_t end = html.find('<', p);
      if (end == std::string::npos || html.compare(end, 8, "</style>") != 0) __builtin_trap();
      p = end;
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  try {
    const zolclient::RenderedZolPage page =
        zolclient::RenderZolPage(text, [&](unsigned) -> const std::string* { return &text; });
    CheckHtml(page.Body);
    CheckHtml(page.HeadExtras);
    if (page.Title.find_first_of("<>") != std::string::npos) __builtin_trap();
    if (page.RefreshSeconds > 3600) __builtin_trap();
    if (page.Body.size() > 17 * 1024 * 1024) __builtin_trap();
    if (!page.WellFormed && page.Body.compare(0, 20, "<p class=\"zol-note\">") != 0) __builtin_trap();
    (void)zolclient::PageWebName(text.substr(0, size / 2), text.substr(size / 2));
  } catch (CKVTException* e) {
    // Nothing a page holds may make the renderer fail.
    delete e;
    __builtin_trap();
  }
  return 0;
}
