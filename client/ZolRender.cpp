#include "client/ZolRender.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <vector>

#include "client/ZolRenderOutput.h"
#include "client/ZolRenderTree.h"
#include "frame/KVTException.h"
#include "site/xml/XmlText.h"

namespace zolclient {

namespace {

// The texts of all pages that one rendering includes, together.
constexpr std::size_t kMaxIncludedText = 16 * 1024 * 1024;
constexpr unsigned kLongestRefresh = 3600;
// Elements open at once across a page and the pages it includes, as deep as one page may
// nest: each is a step of the walk's recursion, which takes kilobytes of stack a step in
// a sanitizer build.
constexpr std::size_t kMostOpenElements = 256;

// What a page and the pages it includes share while they are rendered.
struct RenderState {
  const ZolIncludeLookup& Include;
  ZolRenderBudget Budget;
  std::size_t IncludedText = 0;
  // The page numbers being rendered around the current include, outermost first.
  std::vector<unsigned> IncludeChain;
  std::size_t OpenElements = 0;
};

char LowerAscii(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

std::string Lower(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(), LowerAscii);
  return out;
}

// A name HTML knows as it is: an ASCII letter, then letters, digits and "-".
bool IsPlainName(std::string_view name) {
  if (name.empty()) return false;
  const auto letter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
  if (!letter(name.front())) return false;
  return std::all_of(name.begin(), name.end(),
                     [&](char c) { return letter(c) || (c >= '0' && c <= '9') || c == '-'; });
}

bool IsOneOf(std::string_view name, std::initializer_list<std::string_view> names) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

// Elements left out with everything in them: they run or embed code, or change how
// the viewer's own page is read (base).
bool IsLeftOutElement(std::string_view lowerName) {
  return IsOneOf(lowerName, {"script", "iframe", "frame", "frameset", "object", "embed", "applet", "base",
                             "plaintext", "set", "animate", "animatemotion", "animatetransform", "use", "head",
                             "title"});
}

// Attributes whose value is a URL a browser follows.
bool IsUrlAttribute(std::string_view lowerName) {
  return IsOneOf(lowerName, {"href", "src", "action", "formaction", "poster", "background", "cite", "longdesc",
                             "lowsrc", "dynsrc", "ping", "data", "codebase"});
}

// A URL that runs script: "javascript:" or "vbscript:" in any case, after the blanks and
// control characters that browsers skip.
bool IsScriptUrl(std::string_view value) {
  std::string scheme;
  for (const char c : value) {
    if (static_cast<unsigned char>(c) <= ' ') continue;
    if (c == ':') return scheme == "javascript" || scheme == "vbscript";
    scheme += LowerAscii(c);
    if (scheme.size() > 16) return false;
  }
  return false;
}

// The part of a flag or type that may stand in a class name.
std::string ClassPart(std::string_view text) {
  std::string out;
  for (const char c : text) {
    const char lower = LowerAscii(c);
    if ((lower >= 'a' && lower <= 'z') || (lower >= '0' && lower <= '9') || lower == '-' || lower == '_') out += lower;
  }
  return out;
}

void AddClass(std::vector<std::string>& classes, std::string name) {
  if (std::find(classes.begin(), classes.end(), name) == classes.end()) classes.push_back(std::move(name));
}

// "zol-FLAG" for each flag of a flags attribute.
void AddFlagClasses(std::vector<std::string>& classes, std::string_view flags) {
  std::size_t start = 0;
  while (start <= flags.size()) {
    std::size_t end = flags.find_first_of("| \t\r\n", start);
    if (end == std::string_view::npos) end = flags.size();
    const std::string part = ClassPart(flags.substr(start, end - start));
    if (!part.empty()) AddClass(classes, "zol-" + part);
    start = end + 1;
  }
}

std::string Joined(const std::vector<std::string>& classes) {
  std::string out;
  for (const std::string& name : classes) {
    if (!out.empty()) out += ' ';
    out += name;
  }
  return out;
}

// A page number: digits only, at most 9 of them.
bool ReadPageNumber(std::string_view text, unsigned& number) {
  if (text.empty() || text.size() > 9) return false;
  number = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') return false;
    number = number * 10 + static_cast<unsigned>(c - '0');
  }
  return true;
}

unsigned ReadRefresh(std::string_view text) {
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  if (text.empty() || !std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; })) return 0;
  unsigned value = 0;
  for (const char c : text) {
    value = value * 10 + static_cast<unsigned>(c - '0');
    if (value > kLongestRefresh) return kLongestRefresh;
  }
  return value;
}

RenderedZolPage RenderWithin(const std::string& text, RenderState& state);

// Where an element stands, as far as tables are concerned.
enum class Place { Flow, Table, Row, Cell };

Place PlaceInside(std::string_view lowerName) {
  if (IsOneOf(lowerName, {"table", "thead", "tbody", "tfoot"})) return Place::Table;
  if (lowerName == "tr") return Place::Row;
  if (lowerName == "td" || lowerName == "th") return Place::Cell;
  return Place::Flow;
}

class CZolPageRenderer {
 public:
  CZolPageRenderer(const CZolPageTree& tree, RenderState& state) : m_tree(tree), m_state(state) {}
  CZolPageRenderer(const CZolPageRenderer&) = delete;
  CZolPageRenderer& operator=(const CZolPageRenderer&) = delete;
  virtual ~CZolPageRenderer() = default;

  void Render(RenderedZolPage& page) {
    Guarded("CZolPageRenderer::Render()", [&] {
      const ZolNode& root = m_tree.Node(0);
      page.RefreshSeconds = ReadRefresh(m_tree.AttributeValue(root, "refresh"));
      const DWORD body = FindElement(0, "body", 0);
      const DWORD head = FindElement(0, "head", body);
      const DWORD title = FindElement(head, "title", body);
      if (title != 0) AppendEscapedText(page.Title, TextOf(title));
      if (head != 0) {
        CZolHtmlOutput out(page.HeadExtras, m_state.Budget);
        for (DWORD child = m_tree.Node(head).FirstChild; child != 0; child = m_tree.Node(child).NextSibling) {
          if (m_tree.Node(child).Kind == ZolNodeKind::Element) RenderNode(out, child, Place::Flow);
        }
      }
      CZolHtmlOutput out(page.Body, m_state.Budget);
      RenderChildren(out, body, Place::Flow);
    });
  }

 private:
  // The first element named `lowerName` (in any case) at or under `from` in document
  // order, not looking into `skip`; 0 when there is none.
  DWORD FindElement(DWORD from, std::string_view lowerName, DWORD skip) const {
    std::vector<DWORD> pending{from};
    while (!pending.empty()) {
      const DWORD index = pending.back();
      pending.pop_back();
      const ZolNode& node = m_tree.Node(index);
      if (node.Kind != ZolNodeKind::Element || (index == skip && skip != 0)) continue;
      if (index != 0 && Lower(m_tree.Name(node)) == lowerName) return index;
      const std::size_t at = pending.size();
      for (DWORD child = node.FirstChild; child != 0; child = m_tree.Node(child).NextSibling) pending.push_back(child);
      std::reverse(pending.begin() + static_cast<std::ptrdiff_t>(at), pending.end());
    }
    return 0;
  }

  // The decoded text of everything under an element.
  std::string TextOf(DWORD element) const {
    std::string text;
    std::vector<DWORD> pending{element};
    while (!pending.empty()) {
      const ZolNode& node = m_tree.Node(pending.back());
      pending.pop_back();
      if (node.Kind == ZolNodeKind::Text) {
        const std::string_view raw = m_tree.Content(node);
        text += XmlDecode(raw.data(), raw.size());
      } else if (node.Kind == ZolNodeKind::CData) {
        text += m_tree.Content(node);
      } else {
        const std::size_t at = pending.size();
        for (DWORD child = node.FirstChild; child != 0; child = m_tree.Node(child).NextSibling) pending.push_back(child);
        std::reverse(pending.begin() + static_cast<std::ptrdiff_t>(at), pending.end());
      }
    }
    return text;
  }

  void RenderChildren(CZolHtmlOutput& out, DWORD parent, Place place) {
    for (DWORD child = m_tree.Node(parent).FirstChild; child != 0 && out.Open(); child = m_tree.Node(child).NextSibling) {
      RenderNode(out, child, place);
    }
  }

  void RenderNode(CZolHtmlOutput& out, DWORD index, Place place) {
    const ZolNode& node = m_tree.Node(index);
    switch (node.Kind) {
      case ZolNodeKind::Text:
        out.PageText(m_tree.Content(node));
        return;
      case ZolNodeKind::CData:
        out.Text(m_tree.Content(node));
        return;
      case ZolNodeKind::Element:
        break;
    }
    if (m_state.OpenElements >= kMostOpenElements) {
      out.Comment("an element left out: elements nest deeper than " + std::to_string(kMostOpenElements) +
                  " with the included pages");
      return;
    }
    ++m_state.OpenElements;
    RenderElementNode(out, index, place);
    --m_state.OpenElements;
  }

  void RenderElementNode(CZolHtmlOutput& out, DWORD index, Place place) {
    const ZolNode& node = m_tree.Node(index);
    const std::string_view name = m_tree.Name(node);
    if (name == "zol_table") return RenderTable(out, index, place);
    if (name == "zol_rr") return RenderRow(out, index);
    if (name == "zol_rd") return RenderCell(out, index, place);
    if (name == "zol_label") return RenderLabel(out, index);
    if (name == "zol_include") return RenderInclude(out, index);
    if (name == "zol_error") {
      out.Comment("zol_error: " + TextOf(index));
      return;
    }
    if (!IsPlainName(name)) return RenderChildren(out, index, place);
    const std::string lowerName = Lower(name);
    if (IsLeftOutElement(lowerName)) return;
    if (lowerName == "html" || lowerName == "body" || lowerName == "zol") return RenderChildren(out, index, place);
    RenderElement(out, index, lowerName, {});
  }

  // An element of the page's own markup, with `classes` added to its own.
  void RenderElement(CZolHtmlOutput& out, DWORD index, const std::string& lowerName, std::vector<std::string> classes) {
    const ZolNode& node = m_tree.Node(index);
    if (lowerName == "td" || lowerName == "th") {
      for (DWORD child = node.FirstChild; child != 0; child = m_tree.Node(child).NextSibling) {
        const ZolNode& cell = m_tree.Node(child);
        if (cell.Kind == ZolNodeKind::Element && m_tree.Name(cell) == "zol_rd") {
          AddFlagClasses(classes, m_tree.AttributeValue(cell, "flags"));
        }
      }
    }
    if (!out.StartTag(lowerName, Attributes(node, classes))) return;
    if (CZolPageTree::IsVoidElement(lowerName)) return;
    if (lowerName == "style") {
      // A style sheet holds text only.
      for (DWORD child = node.FirstChild; child != 0; child = m_tree.Node(child).NextSibling) {
        const ZolNode& part = m_tree.Node(child);
        if (part.Kind == ZolNodeKind::Text) {
          const std::string_view raw = m_tree.Content(part);
          out.StyleText(XmlDecode(raw.data(), raw.size()));
        } else if (part.Kind == ZolNodeKind::CData) {
          out.StyleText(m_tree.Content(part));
        }
      }
    } else {
      RenderChildren(out, index, PlaceInside(lowerName));
    }
    out.EndTag(lowerName);
  }

  // The element's attributes as they may be written: plain names in lower case, the
  // first of each name, no event handlers, no script URLs; `classes` joined to its class.
  ZolHtmlAttributes Attributes(const ZolNode& node, const std::vector<std::string>& classes) const {
    ZolHtmlAttributes attributes;
    for (DWORD i = 0; i < node.AttributeCount; ++i) {
      const ZolAttribute& attribute = m_tree.Attribute(node.FirstAttribute + i);
      const std::string_view rawName = m_tree.AttributeName(attribute);
      if (!IsPlainName(rawName)) continue;
      std::string name = Lower(rawName);
      if (name.compare(0, 2, "on") == 0 || name == "srcdoc" || name == "http-equiv") continue;
      if (std::any_of(attributes.begin(), attributes.end(), [&](const auto& kept) { return kept.first == name; })) {
        continue;
      }
      const std::string_view raw = m_tree.AttributeRawValue(attribute);
      std::string value = XmlDecode(raw.data(), raw.size());
      if (IsUrlAttribute(name) && IsScriptUrl(value)) continue;
      attributes.emplace_back(std::move(name), std::move(value));
    }
    if (!classes.empty()) {
      const auto own = std::find_if(attributes.begin(), attributes.end(), [](const auto& kept) { return kept.first == "class"; });
      if (own == attributes.end()) {
        attributes.emplace_back("class", Joined(classes));
      } else {
        if (!own->second.empty()) own->second += ' ';
        own->second += Joined(classes);
      }
    }
    return attributes;
  }

  void RenderTable(CZolHtmlOutput& out, DWORD table, Place place) {
    const bool wrapped = place != Place::Table;
    if (wrapped && !out.StartTag("table", {{"class", "zol-table"}})) return;
    bool headerWritten = false;
    for (DWORD child = m_tree.Node(table).FirstChild; child != 0 && out.Open(); child = m_tree.Node(child).NextSibling) {
      const ZolNode& node = m_tree.Node(child);
      if (node.Kind != ZolNodeKind::Element || m_tree.Name(node) != "zol_rh") {
        RenderNode(out, child, Place::Table);
        continue;
      }
      if (headerWritten) continue;
      headerWritten = true;
      RenderHeaderRow(out, table);
    }
    if (wrapped) out.EndTag("table");
  }

  // One <tr> with a <th> for each zol_rh of the table.
  void RenderHeaderRow(CZolHtmlOutput& out, DWORD table) {
    if (!out.StartTag("tr", {})) return;
    for (DWORD child = m_tree.Node(table).FirstChild; child != 0 && out.Open(); child = m_tree.Node(child).NextSibling) {
      const ZolNode& node = m_tree.Node(child);
      if (node.Kind != ZolNodeKind::Element || m_tree.Name(node) != "zol_rh") continue;
      const std::string type = ClassPart(m_tree.AttributeValue(node, "type"));
      ZolHtmlAttributes attributes;
      if (!type.empty()) attributes.emplace_back("class", type);
      if (!out.StartTag("th", attributes)) break;
      RenderChildren(out, child, Place::Cell);
      out.EndTag("th");
    }
    out.EndTag("tr");
  }

  // The flags of a row and of the cells in it, not looking into rows or tables within.
  void AddRowFlagClasses(std::vector<std::string>& classes, DWORD row) const {
    AddFlagClasses(classes, m_tree.AttributeValue(m_tree.Node(row), "flags"));
    std::vector<DWORD> pending;
    for (DWORD child = m_tree.Node(row).FirstChild; child != 0; child = m_tree.Node(child).NextSibling) {
      pending.push_back(child);
    }
    std::reverse(pending.begin(), pending.end());
    while (!pending.empty()) {
      const ZolNode& node = m_tree.Node(pending.back());
      pending.pop_back();
      if (node.Kind != ZolNodeKind::Element) continue;
      const std::string_view name = m_tree.Name(node);
      if (name == "zol_rr" || name == "zol_table") continue;
      if (name == "zol_rd") AddFlagClasses(classes, m_tree.AttributeValue(node, "flags"));
      const std::size_t at = pending.size();
      for (DWORD child = node.FirstChild; child != 0; child = m_tree.Node(child).NextSibling) pending.push_back(child);
      std::reverse(pending.begin() + static_cast<std::ptrdiff_t>(at), pending.end());
    }
  }

  void RenderRow(CZolHtmlOutput& out, DWORD row) {
    std::vector<std::string> classes;
    AddRowFlagClasses(classes, row);
    bool holdsRow = false;
    for (DWORD child = m_tree.Node(row).FirstChild; child != 0; child = m_tree.Node(child).NextSibling) {
      const ZolNode& node = m_tree.Node(child);
      if (node.Kind == ZolNodeKind::Element && Lower(m_tree.Name(node)) == "tr") holdsRow = true;
    }
    if (!holdsRow) {
      ZolHtmlAttributes attributes;
      if (!classes.empty()) attributes.emplace_back("class", Joined(classes));
      if (!out.StartTag("tr", attributes)) return;
      RenderChildren(out, row, Place::Row);
      out.EndTag("tr");
      return;
    }
    for (DWORD child = m_tree.Node(row).FirstChild; child != 0 && out.Open(); child = m_tree.Node(child).NextSibling) {
      const ZolNode& node = m_tree.Node(child);
      if (node.Kind == ZolNodeKind::Element && Lower(m_tree.Name(node)) == "tr") {
        RenderElement(out, child, "tr", classes);
      } else {
        RenderNode(out, child, Place::Table);
      }
    }
  }

  void RenderCell(CZolHtmlOutput& out, DWORD cell, Place place) {
    std::vector<std::string> classes;
    AddFlagClasses(classes, m_tree.AttributeValue(m_tree.Node(cell), "flags"));
    ZolHtmlAttributes attributes;
    if (!classes.empty()) attributes.emplace_back("class", Joined(classes));
    // In a cell the classes went to the <td> or <th> already.
    const char* wrapper = place == Place::Row ? "td" : place == Place::Cell || classes.empty() ? nullptr : "span";
    if (wrapper != nullptr && !out.StartTag(wrapper, attributes)) return;
    RenderChildren(out, cell, wrapper != nullptr && place == Place::Row ? Place::Cell : Place::Flow);
    if (wrapper != nullptr) out.EndTag(wrapper);
  }

  void RenderLabel(CZolHtmlOutput& out, DWORD label) {
    std::string classes = "zol-label";
    const std::string type = ClassPart(m_tree.AttributeValue(m_tree.Node(label), "type"));
    if (!type.empty()) classes += " zol-label-" + type;
    if (!out.StartTag("span", {{"class", classes}})) return;
    RenderChildren(out, label, Place::Flow);
    out.EndTag("span");
  }

  void RenderInclude(CZolHtmlOutput& out, DWORD include) {
    unsigned number = 0;
    if (!ReadPageNumber(m_tree.AttributeValue(m_tree.Node(include), "pageid"), number)) {
      out.Comment("include without a page number left out");
      return;
    }
    const std::string page = "page " + std::to_string(number);
    std::vector<unsigned>& chain = m_state.IncludeChain;
    if (std::find(chain.begin(), chain.end(), number) != chain.end()) {
      out.Comment("include of " + page + " left out: it includes itself");
      return;
    }
    if (chain.size() >= kMaxZolIncludeDepth) {
      out.Comment("include of " + page + " left out: includes nest deeper than " +
                  std::to_string(kMaxZolIncludeDepth));
      return;
    }
    const ZolHtmlAttributes attributes{{"class", "zol-include"}, {"data-zol-include", std::to_string(number)}};
    const std::string* text = m_state.Include ? m_state.Include(number) : nullptr;
    if (text == nullptr) {
      if (out.StartTag("div", attributes)) out.EndTag("div");
      return;
    }
    if (text->size() > kMaxIncludedText - m_state.IncludedText) {
      out.Comment("include of " + page + " left out: the included pages are longer than " +
                  std::to_string(kMaxIncludedText) + " bytes together");
      return;
    }
    m_state.IncludedText += text->size();
    chain.push_back(number);
    const RenderedZolPage included = RenderWithin(*text, m_state);
    chain.pop_back();
    if (!out.StartTag("div", attributes)) {
      // What the included page wrote before the budget ran out still shows, in its div.
      if (included.Body.empty()) return;
      std::string openTag = "<div class=\"zol-include\" data-zol-include=\"";
      openTag += std::to_string(number);
      openTag += "\">";
      out.ClosingMarkup(openTag);
    }
    out.Rendered(included.Body);
    out.EndTag("div");
  }

  const CZolPageTree& m_tree;
  RenderState& m_state;
};

RenderedZolPage RenderWithin(const std::string& text, RenderState& state) {
  RenderedZolPage page;
  CZolPageTree tree;
  if (tree.Parse(text)) {
    CZolPageRenderer(tree, state).Render(page);
    return page;
  }
  page.WellFormed = false;
  std::string_view source(text);
  // The NUL byte behind every page on the wire is no part of its text.
  while (!source.empty() && source.back() == '\0') source.remove_suffix(1);
  CZolHtmlOutput out(page.Body, state.Budget);
  if (out.Markup("<p class=\"zol-note\">This page is not well-formed (") && out.Text(tree.Error()) &&
      out.Markup("); it is shown as text.</p><pre class=\"zol-source\">")) {
    out.Text(source);
    out.EndTag("pre");
  }
  return page;
}

}  // namespace

std::string PageWebName(const std::string& path, const std::string& name) {
  return Guarded("PageWebName()", [&] {
    std::string webName = path;
    const std::size_t dot = name.rfind('.');
    if (dot != std::string::npos && name == "ZOLFeed.zol") {
      webName.append(name, 0, dot);
      webName += ".xml";
    } else if (dot != std::string::npos && name.compare(dot + 1, std::string::npos, "zol") == 0) {
      webName.append(name, 0, dot);
      webName += ".html";
    } else {
      webName += name;
    }
    std::replace(webName.begin(), webName.end(), '\\', '/');
    return webName;
  });
}

RenderedZolPage RenderZolPage(const std::string& pageText, const ZolIncludeLookup& include) {
  return Guarded("RenderZolPage()", [&] {
    RenderState state{include, {}, 0, {}};
    return RenderWithin(pageText, state);
  });
}

}  // namespace zolclient
