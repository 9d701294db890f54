// What a view shows besides its sorted rows: group heads ahead of each group, the filter
// of a private view, and the look-ups and settings around them; and the clearing of
// everything the view holds.
#include <algorithm>
#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "frame/KVTException.h"
#include "views/RMView.h"

namespace {

// An upper-case copy, one byte at a time: only the letters a to z change.
std::string UpperCopy(const char* text) {
  std::string copy(text);
  for (char& c : copy) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - ('a' - 'A'));
  }
  return copy;
}

bool ContainsIgnoringCase(const char* text, const std::string& value) {
  return UpperCopy(text).find(UpperCopy(value.c_str())) != std::string::npos;
}

}  // namespace

void CRMView::SetSortColumn(const std::string& key, BOOL ascending) {
  Guarded("CRMView::SetSortColumn()", [&] {
    SortColumnName = key;
    Ascending = ascending;
    SortColumnIndex = ColumnFind(key);
    ClearGroupRows();
    Sort();
    UpdateGroupRows();
  });
}

void CRMView::SetFilter(BOOL on, BOOL contains, EFilterMode mode, const std::vector<std::string>& columnNames,
                        const std::vector<std::string>& values) {
  Guarded("CRMView::SetFilter()", [&] {
    FilterOn = on;
    FilterContains = contains;
    FilterMode = mode;
    FilterColumnNames = columnNames;
    FilterValues = values;
    // A view whose structure is known filters from the next message on; one without
    // resolves the names when its structure comes.
    SetFilterColumnIndexes();
  });
}

void CRMView::SetFilterColumnIndexes() {
  Guarded("CRMView::SetFilterColumnIndexes()", [&] {
    ResolvedFilterColumns.clear();
    ResolvedFilterValues.clear();
    for (std::size_t i = 0; i < FilterColumnNames.size(); ++i) {
      const int index = ColumnFind(FilterColumnNames[i]);
      if (index == -1) continue;  // the view has no such column
      ResolvedFilterColumns.push_back(index);
      ResolvedFilterValues.push_back(i < FilterValues.size() ? FilterValues[i] : std::string());
    }
  });
}

void CRMView::Filter() {
  Guarded("CRMView::Filter()", [&] {
    if (!Private || !FilterOn) return;
    // Rows are appended to the changed rows below, so the walk goes over a copy.
    const std::vector<CRMViewRow*> rows = ChangedRows;
    std::unordered_set<const CRMViewRow*> shown(SortedRows.begin(), SortedRows.end());
    std::unordered_set<const CRMViewRow*> changed(ChangedRows.begin(), ChangedRows.end());
    for (CRMViewRow* row : rows) {
      BOOL hidden = FALSE;
      switch (FilterMode) {
        case EFilterMode::ShowIfAnyMatches:
        case EFilterMode::ShowIfAnyDiffers:
          hidden = TRUE;
          break;
        case EFilterMode::ShowOnlyMatchingAll:
        case EFilterMode::HideIfAnyMatches:
          hidden = FALSE;
          break;
      }
      // Only the names that resolved to a column take part.
      for (std::size_t i = 0; i < ResolvedFilterColumns.size(); ++i) {
        const char* text = row->TextAt(static_cast<DWORD>(ResolvedFilterColumns[i]));
        const std::string& value = ResolvedFilterValues[i];
        const bool equal = value == text;
        switch (FilterMode) {
          case EFilterMode::ShowOnlyMatchingAll:
            if (!equal) hidden = TRUE;
            break;
          case EFilterMode::ShowIfAnyMatches:
            if (FilterContains ? ContainsIgnoringCase(text, value) : equal) hidden = FALSE;
            break;
          case EFilterMode::ShowIfAnyDiffers:
            if (FilterContains ? !ContainsIgnoringCase(text, value) : !equal) hidden = FALSE;
            break;
          case EFilterMode::HideIfAnyMatches:
            if (equal) hidden = TRUE;
            break;
        }
      }
      if (!hidden && shown.count(row) == 0) {
        SortedRows.push_back(row);
        shown.insert(row);
        if (changed.insert(row).second) ChangedRows.push_back(row);
      } else if (hidden && shown.count(row) != 0) {
        // Out of sight, but still in the row map: a later change can bring it back.
        SortedRows.erase(std::find(SortedRows.begin(), SortedRows.end(), row));
        shown.erase(row);
      }
    }
  });
}

void CRMView::ClearGroupRows() {
  Guarded("CRMView::ClearGroupRows()", [&] {
    if (!Grouped || GroupRows.empty()) return;
    const std::unordered_set<const CRMViewRow*> groupRows(GroupRows.begin(), GroupRows.end());
    // The group rows stay in their own list.
    std::erase_if(SortedRows, [&](const CRMViewRow* row) { return groupRows.count(row) != 0; });
  });
}

void CRMView::UpdateGroupRows() {
  Guarded("CRMView::UpdateGroupRows()", [&] {
    if (!Grouped || GroupNames.empty()) return;
    // Two rows per group: a spacer and a head.
    const long long needed = 2 * static_cast<long long>(GroupNames.size()) - static_cast<long long>(GroupRows.size());
    if (needed < 1) {
      for (long long i = 0; i < -needed; ++i) {
        RemovedRows.push_back(GroupRows.front());
        GroupRows.erase(GroupRows.begin());
      }
    } else {
      for (long long i = 0; i < needed; ++i) {
        std::unique_ptr<CRMViewRow> row(NewRow(kNoRowID));
        GroupRows.push_back(row.get());
        row.release();
      }
    }
    ChangedRows.insert(ChangedRows.end(), GroupRows.begin(), GroupRows.end());

    // Each row whose group differs from the row before it gets a spacer and a head in
    // front, while the group's name is known and group rows are left.
    std::vector<CRMViewRow*> rows;
    rows.reserve(SortedRows.size() + GroupRows.size());
    DWORD lastGroup = kNoRowID;
    std::size_t cursor = 0;
    for (CRMViewRow* row : SortedRows) {
      if (row->GroupID != lastGroup) {
        lastGroup = row->GroupID;
        if (GroupNames.count(lastGroup) != 0 && cursor < GroupRows.size()) {
          CRMViewRow* spacer = GroupRows[cursor++];
          spacer->GroupID = kNoRowID;
          rows.push_back(spacer);
          if (cursor < GroupRows.size()) {
            CRMViewRow* head = GroupRows[cursor++];
            head->GroupID = lastGroup;
            rows.push_back(head);
          }
        }
      }
      rows.push_back(row);
    }
    SortedRows.swap(rows);
  });
}

BOOL CRMView::CompareParameters(const CParameters& parameters) const {
  return Guarded("CRMView::CompareParameters()", [&]() -> BOOL { return Parameters == parameters ? TRUE : FALSE; });
}

CColumn* CRMView::ColumnGetAt(DWORD index) const {
  return Guarded("CRMView::ColumnGetAt()", [&]() -> CColumn* {
    if (index == 0xFFFFFFFF || index >= Columns.size()) return nullptr;
    return Columns[index];
  });
}

int CRMView::ColumnFind(const std::string& key) const {
  return Guarded("CRMView::ColumnFind()", [&]() -> int {
    for (std::size_t i = 0; i < Columns.size(); ++i) {
      if (Columns[i]->Key == key) return static_cast<int>(i);
    }
    return -1;
  });
}

void CRMView::Clear() {
  Guarded("CRMView::Clear()", [&] {
    Parameters.Clear();
    for (CColumn* column : Columns) delete column;
    Columns.clear();
    for (auto& entry : RowMap) delete entry.second;
    RowMap.clear();
    for (CRMViewRow* row : GroupRows) delete row;
    GroupRows.clear();
    GroupNames.clear();
    SortedRows.clear();
    ChangedRows.clear();
    // Rows still waiting for their removal to be told, and rows that a second add under
    // the same ID pushed out of the map, go now too.
    for (CRMViewRow* row : RemovedRows) delete row;
    RemovedRows.clear();
    for (CRMViewRow* row : OverwrittenRows) delete row;
    OverwrittenRows.clear();
    delete StructureRow;
    StructureRow = nullptr;
    // The sort column's name stays, for the structure that may come again.
  });
}
