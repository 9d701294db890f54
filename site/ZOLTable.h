// A zol_table of a page template: the literal HTML around its header cells and row
// templates, read once from the template and written back with live rows.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "frame/Types.h"
#include "site/ZOLRow.h"

class CRMComm;

// The markers in a table's parts: a header cell (followed by its column name) and the
// place where the rows go.
inline constexpr const char* kZOLHeaderMarker = "#RH#";
inline constexpr const char* kZOLRowsMarker = "#RR#";

class CZOLTable {
 public:
  CZOLTable(long id, CRMComm* comm);
  CZOLTable(const CZOLTable&) = delete;
  CZOLTable& operator=(const CZOLTable&) = delete;
  virtual ~CZOLTable();

  // Deletes all rows; `full` also forgets the template (attributes, parts, both rows' cells).
  virtual void Clear(BOOL full);
  // Reads a zol_table element. 1, or 0 when there is no zol_table or it has no type.
  BOOL ZOLImport(const std::string& text);
  // The table as a browser sees it: no zol_ tags, the header cells' text, and one row
  // per row template, within the rows that the table shows.
  std::string HTMLExport();

  long GetId() const { return m_id; }
  const std::string& GetType() const { return m_type; }
  const std::string& GetShowHeader() const { return m_showHeader; }
  const std::string& GetStartRow() const { return m_startRow; }
  const std::string& GetMaxRows() const { return m_maxRows; }
  const std::vector<std::string>& GetParts() const { return m_parts; }
  // The row that each new row starts as a copy of, and the row of header cells.
  const CZOLRow& GetTemplateRow() const { return *m_templateRow; }
  const CZOLRow& GetHeaderRow() const { return *m_headerRow; }
  // The rows as they are now, brought up to date first.
  const std::vector<std::unique_ptr<CZOLRow>>& GetRows();

 protected:
  // Rebuilds rows that are out of date; the plain template's rows never are.
  virtual void BringRowsUpToDate() {}
  // The first row and the number of rows shown: 1 and `rows`, unless both startrow and
  // maxrows are given.
  void GetRowRange(std::size_t rows, long long& start, long long& count) const;

  std::unique_ptr<CZOLRow> m_templateRow;
  std::unique_ptr<CZOLRow> m_headerRow;
  std::vector<std::unique_ptr<CZOLRow>> m_rows;
  long m_id;
  CRMComm* m_comm;
  std::string m_type;
  std::string m_showHeader;
  std::string m_startRow;
  std::string m_maxRows;
  // Literal text, a header marker with its column name, or the rows marker.
  std::vector<std::string> m_parts;

 private:
  void ImportHeader(const std::string& type, const std::string& url, const std::string& data, std::string& rest);
  void ImportRowTemplate(const std::string& url, const std::string& flags, bool first, std::string& rest);
  void ImportCells(CZOLRow& row, std::string text);
};
