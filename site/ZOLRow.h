// One row of a table: the literal text of its row template with a marker where each
// data cell goes, and the cells themselves.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "site/ZOLCell.h"

// The marker in a row's parts where the next cell goes.
inline constexpr const char* kZOLCellMarker = "#RD#";

class CZOLRow {
 public:
  CZOLRow() = default;
  CZOLRow(const CZOLRow& other);
  // A deep copy of flags, url, parts and cells.
  CZOLRow& operator=(const CZOLRow& other);
  ~CZOLRow();

  // Appends a cell of that column name; the row owns it.
  CZOLCell* AddCell(const std::string& name);
  // Null when out of range.
  CZOLCell* CellGetAt(std::size_t index) const;
  std::size_t GetCellCount() const { return m_cells.size(); }
  // Forgets everything: flags, url, parts and cells.
  void Clear();
  // Empties the parts only; the cells stay.
  void ClearRowData();

  // The row as clients receive it: <zol_rr url='..' flags='..'> with its parts and cells.
  std::string ZOLExport() const;
  // The row for a browser: its parts with each cell's bare text.
  std::string HTMLExport() const;

  // Attribute flags of zol_rr.
  std::string m_flags;
  // Attribute url of zol_rr.
  std::string m_url;
  // Literal text or the cell marker, in template order.
  std::vector<std::string> m_parts;

 private:
  std::vector<std::unique_ptr<CZOLCell>> m_cells;
};
