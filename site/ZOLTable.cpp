#include "site/ZOLTable.h"

#include <cstdlib>
#include <cstring>

#include "frame/KVTException.h"
#include "frame/TimeText.h"
#include "site/xml/XmlDocument.h"

namespace {

// How much of a template that does not parse goes into the trace line.
constexpr std::size_t kTracedTextLength = 128;

// Removes blanks (only " ") from both ends.
std::string Trim(const std::string& text) {
  const std::size_t first = text.find_first_not_of(' ');
  if (first == std::string::npos) return std::string();
  const std::size_t last = text.find_last_not_of(' ');
  return text.substr(first, last - first + 1);
}

// Where one element stands in a text, found by its opening text and its end tag: the
// start, the offset behind the start tag's ">", and the offset behind the element.
struct ElementSpan {
  std::size_t Start = 0;
  std::size_t StartTagEnd = 0;
  std::size_t End = 0;
  bool Empty = false;  // written with "/>"
};

// False when the opening text or the ">" after it is missing. An element whose end tag
// is missing runs to the end of the text.
bool FindElementSpan(const std::string& text, const char* open, const char* endTag, ElementSpan& span) {
  span.Start = text.find(open);
  if (span.Start == std::string::npos) return false;
  const std::size_t close = text.find('>', span.Start);
  if (close == std::string::npos) return false;
  span.StartTagEnd = close + 1;
  span.Empty = text.substr(span.Start, span.StartTagEnd - span.Start).find("/>") != std::string::npos;
  if (span.Empty) {
    span.End = span.StartTagEnd;
    return true;
  }
  const std::size_t end = text.find(endTag, close);
  span.End = end == std::string::npos ? text.size() : end + std::strlen(endTag);
  return true;
}

}  // namespace

CZOLTable::CZOLTable(long id, CRMComm* comm)
    : m_templateRow(std::make_unique<CZOLRow>()), m_headerRow(std::make_unique<CZOLRow>()), m_id(id), m_comm(comm) {}

CZOLTable::~CZOLTable() = default;

void CZOLTable::Clear(BOOL full) {
  Guarded("CZOLTable::Clear()", [&] {
    m_rows.clear();
    if (!full) return;
    m_type.clear();
    m_showHeader.clear();
    m_startRow.clear();
    m_maxRows.clear();
    m_parts.clear();
    m_templateRow->Clear();
    m_headerRow->Clear();
  });
}

BOOL CZOLTable::ZOLImport(const std::string& text) {
  return Guarded("CZOLTable::ZOLImport()", [&]() -> BOOL {
    Clear(TRUE);
    CXmlDocument document;
    if (!document.Parse(text)) {
      DebugTrace("ZOL Input not wellformed %s", text.substr(0, kTracedTextLength).c_str());
    }
    if (!document.FindElement("zol_table")) return FALSE;
    m_type = document.GetAttribute("type");
    if (m_type.empty()) return FALSE;
    m_showHeader = document.GetAttribute("showheader");
    m_startRow = document.GetAttribute("startrow");
    m_maxRows = document.GetAttribute("maxrows");

    // The inner text: the start tag cut away, and, unless the element is empty, the
    // end tag with everything behind it.
    std::string rest = text;
    const std::size_t open = rest.find("<zol_table");
    if (open != std::string::npos) {
      const std::size_t close = rest.find('>', open);
      const std::size_t tagEnd = close == std::string::npos ? rest.size() : close + 1;
      const bool empty = rest.substr(open, tagEnd - open).find("/>") != std::string::npos;
      rest.erase(0, tagEnd);
      if (!empty) {
        const std::size_t end = rest.find("</zol_table>");
        if (end != std::string::npos) rest.erase(end);
      }
    }

    // The parser names the children; the text around them comes from `rest`.
    bool firstRow = true;
    while (document.FindChildElement()) {
      if (!document.IntoElement()) break;
      const std::string name = document.GetTagName();
      if (name == "zol_rh") {
        ImportHeader(document.GetAttribute("type"), document.GetAttribute("url"), document.GetData(), rest);
      } else if (name == "zol_rr") {
        ImportRowTemplate(document.GetAttribute("url"), document.GetAttribute("flags"), firstRow, rest);
        firstRow = false;
      }
      if (!document.OutOfElement()) break;
    }
    m_parts.push_back(Trim(rest));
    return TRUE;
  });
}

void CZOLTable::ImportHeader(const std::string& type, const std::string& url, const std::string& data,
                             std::string& rest) {
  Guarded("CZOLTable::ImportHeader()", [&] {
    CZOLCell* header = m_headerRow->AddCell(type);
    header->m_url = url;
    header->m_text = data;
    m_templateRow->AddCell(type)->m_text = data;
    ElementSpan span;
    if (!FindElementSpan(rest, "<zol_rh", "</zol_rh>", span)) return;
    m_parts.push_back(Trim(rest.substr(0, span.Start)));
    m_parts.push_back(kZOLHeaderMarker + type);
    rest.erase(0, span.End);
  });
}

void CZOLTable::ImportRowTemplate(const std::string& url, const std::string& flags, bool first, std::string& rest) {
  Guarded("CZOLTable::ImportRowTemplate()", [&] {
    auto row = std::make_unique<CZOLRow>(*m_templateRow);
    if (!first) row->ClearRowData();
    row->m_url = url;
    row->m_flags = flags;
    ElementSpan span;
    const bool found = FindElementSpan(rest, "<zol_rr", "</zol_rr>", span);
    if (found) {
      // The row's text without its start and end tags.
      std::string inner = rest.substr(span.StartTagEnd, span.End - span.StartTagEnd);
      static const std::string endTag = "</zol_rr>";
      if (!span.Empty && inner.size() >= endTag.size() &&
          inner.compare(inner.size() - endTag.size(), endTag.size(), endTag) == 0) {
        inner.erase(inner.size() - endTag.size());
      }
      ImportCells(*row, inner);
    }
    if (first) *m_templateRow = *row;
    m_rows.push_back(std::move(row));
    if (!found) return;
    m_parts.push_back(Trim(rest.substr(0, span.Start)));
    m_parts.push_back(kZOLRowsMarker);
    rest.erase(0, span.End);
  });
}

void CZOLTable::ImportCells(CZOLRow& row, std::string text) {
  Guarded("CZOLTable::ImportCells()", [&] {
    std::size_t index = 0;
    ElementSpan span;
    while (FindElementSpan(text, "<zol_rd", "</zol_rd>", span)) {
      CXmlDocument fragment;
      fragment.Parse(text.substr(span.Start, span.End - span.Start));
      if (fragment.FindElement("zol_rd")) {
        if (CZOLCell* cell = row.CellGetAt(index)) {
          cell->m_text = fragment.GetData();
          cell->m_url = fragment.GetAttribute("url");
          cell->m_format = fragment.GetAttribute("format");
          cell->m_flags = fragment.GetAttribute("flags");
        }
        ++index;
      }
      row.m_parts.push_back(Trim(text.substr(0, span.Start)));
      row.m_parts.push_back(kZOLCellMarker);
      text.erase(0, span.End);
    }
    row.m_parts.push_back(Trim(text));
  });
}

void CZOLTable::GetRowRange(std::size_t rows, long long& start, long long& count) const {
  Guarded("CZOLTable::GetRowRange()", [&] {
    start = 1;
    count = static_cast<long long>(rows);
    if (m_startRow.empty() || m_maxRows.empty()) return;
    start = std::atoi(m_startRow.c_str());
    count = std::atoi(m_maxRows.c_str());
  });
}

const std::vector<std::unique_ptr<CZOLRow>>& CZOLTable::GetRows() {
  return Guarded("CZOLTable::GetRows()", [&]() -> const std::vector<std::unique_ptr<CZOLRow>>& {
    BringRowsUpToDate();
    return m_rows;
  });
}

std::string CZOLTable::HTMLExport() {
  return Guarded("CZOLTable::HTMLExport()", [&]() -> std::string {
    BringRowsUpToDate();
    long long start = 1;
    long long count = 0;
    GetRowRange(m_rows.size(), start, count);
    const bool showHeader = m_showHeader != "false";
    std::string out;
    std::size_t nextHeader = 0;
    long long number = 0;
    for (const std::string& part : m_parts) {
      if (part.find(kZOLHeaderMarker) != std::string::npos) {
        if (!showHeader) continue;
        if (const CZOLCell* cell = m_headerRow->CellGetAt(nextHeader++)) out += cell->m_text;
      } else if (part.find(kZOLRowsMarker) != std::string::npos) {
        // One row per row template: the number goes up whether or not the row is shown.
        ++number;
        if (number >= start && number < start + count && number <= static_cast<long long>(m_rows.size())) {
          out += m_rows[static_cast<std::size_t>(number - 1)]->HTMLExport();
        }
      } else {
        out += part;
      }
    }
    return out;
  });
}
