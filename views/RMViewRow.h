// One row of a view: its identity, its group, its status word and one typed cell per
// column, in column order.
#pragma once

#include <vector>

#include "frame/TTBuffer.h"
#include "frame/Types.h"
#include "views/RMCell.h"

inline constexpr DWORD kNoRowID = 0xFFFFFFFF;

class CRMViewRow {
 public:
  explicit CRMViewRow(DWORD rowID) : RowID(rowID) {}
  CRMViewRow(const CRMViewRow&) = delete;
  ~CRMViewRow();

  // Appends an empty clone of each of the other row's cells: how a new row gets the
  // cells of the view's structure row.
  CRMViewRow& operator=(const CRMViewRow& other);

  // Reads the row body: group ID, status word, then each cell's wire form.
  void MessageToViewRow(CTTBuffer& message);

  // The cell at index; null when the row has no cell there.
  CRMCell* CellGetAt(DWORD index) const;
  // The cell's text, or "" when there is no such cell.
  const char* TextAt(DWORD index) const;

  DWORD RowID;
  DWORD GroupID = 0;
  WORD Status = 0xFFFF;
  std::vector<CRMCell*> Cells;
};
