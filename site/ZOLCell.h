// One cell of a table: a column header (zol_rh) or a data cell (zol_rd), with the view
// column it is bound to.
#pragma once

#include <string>

// The five markup characters "&", "<", ">", "'" and '"' replaced, one kind after the
// other in that order, by their entities. The ampersand goes first, so the entities
// written by the later kinds are not escaped again.
std::string ZOLEscape(const std::string& text);

class CZOLCell {
 public:
  explicit CZOLCell(std::string type = std::string());

  // The header form: <zol_rh type='..' url='..'>text</zol_rh>.
  std::string ZOLExportColumn() const;
  // The data form: <zol_rd url='..' flags='..' format='..'>text</zol_rd>.
  std::string ZOLExportData() const;

  // The content, in UTF-8.
  std::string m_text;
  // The column name (attribute type of zol_rh).
  std::string m_type;
  // Attribute format of zol_rd, passed through.
  std::string m_format;
  // Attribute flags of zol_rd, values separated by "|".
  std::string m_flags;
  // Attribute url, passed through.
  std::string m_url;
  // Index of the view's column; -1 when the cell is bound to none.
  int m_column = -1;
};
