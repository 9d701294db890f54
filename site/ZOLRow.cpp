#include "site/ZOLRow.h"

#include "frame/KVTException.h"

CZOLRow::CZOLRow(const CZOLRow& other) { *this = other; }

CZOLRow& CZOLRow::operator=(const CZOLRow& other) {
  return Guarded("CZOLRow::operator=()", [&]() -> CZOLRow& {
    if (this == &other) return *this;
    m_flags = other.m_flags;
    m_url = other.m_url;
    m_parts = other.m_parts;
    std::vector<std::unique_ptr<CZOLCell>> cells;
    cells.reserve(other.m_cells.size());
    for (const auto& cell : other.m_cells) cells.push_back(std::make_unique<CZOLCell>(*cell));
    m_cells.swap(cells);
    return *this;
  });
}

CZOLRow::~CZOLRow() = default;

CZOLCell* CZOLRow::AddCell(const std::string& name) {
  return Guarded("CZOLRow::AddCell()", [&]() -> CZOLCell* {
    m_cells.push_back(std::make_unique<CZOLCell>(name));
    return m_cells.back().get();
  });
}

CZOLCell* CZOLRow::CellGetAt(std::size_t index) const {
  return Guarded("CZOLRow::CellGetAt()",
                 [&]() -> CZOLCell* { return index < m_cells.size() ? m_cells[index].get() : nullptr; });
}

void CZOLRow::Clear() {
  Guarded("CZOLRow::Clear()", [&] {
    m_flags.clear();
    m_url.clear();
    m_parts.clear();
    m_cells.clear();
  });
}

void CZOLRow::ClearRowData() {
  Guarded("CZOLRow::ClearRowData()", [&] { m_parts.clear(); });
}

std::string CZOLRow::ZOLExport() const {
  return Guarded("CZOLRow::ZOLExport()", [&]() -> std::string {
    std::string out = "<zol_rr";
    // Attribute values are written as they stand.
    if (!m_url.empty()) out += " url='" + m_url + "'";
    if (!m_flags.empty()) out += " flags='" + m_flags + "'";
    out += '>';
    std::size_t next = 0;
    for (const std::string& part : m_parts) {
      if (part.find(kZOLCellMarker) != std::string::npos) {
        if (next < m_cells.size()) out += m_cells[next++]->ZOLExportData();
      } else {
        out += part;
      }
    }
    out += "</zol_rr>";
    return out;
  });
}

std::string CZOLRow::HTMLExport() const {
  return Guarded("CZOLRow::HTMLExport()", [&]() -> std::string {
    std::string out;
    std::size_t next = 0;
    for (const std::string& part : m_parts) {
      if (part.find(kZOLCellMarker) != std::string::npos) {
        if (next < m_cells.size()) out += m_cells[next++]->m_text;
      } else {
        out += part;
      }
    }
    return out;
  });
}
