#include "site/ZOLServerTable.h"

#include <cstdlib>
#include <map>
#include <memory>

#include "data/Event.h"
#include "data/Merge.h"
#include "data/Run.h"
#include "frame/KVTException.h"
#include "frame/TimeText.h"
#include "site/xml/CodePageText.h"
#include "views/Column.h"
#include "views/RMCell.h"
#include "views/RMComm.h"
#include "views/RMView.h"
#include "views/RMViewRow.h"

namespace {

const char* const kResultsView = "lgView_Results";
const char* const kLapTimesView = "lgView_LapTimes";
const char* const kLapsColumn = "lgHeader_Laps";
const char* const kLapSeparator = "lapseparator";

// The view of each table type.
const std::map<std::string, std::string>& ViewNames() {
  static const std::map<std::string, std::string> names = {
      {"practice", kResultsView},
      {"qualify", kResultsView},
      {"race", kResultsView},
      {"results", kResultsView},
      {"schedule", "lgView_EventSchedule"},
      {"announcements", "lgView_Announcements"},
  };
  return names;
}

// The view column key of each column name of a template.
const std::map<std::string, std::string>& ColumnNames() {
  static const std::map<std::string, std::string> names = {
      {"position", "lgHeader_Pos"},
      {"positioninclass", "lgHeader_PosInClass"},
      {"no", "lgHeader_No"},
      {"class", "lgHeader_Class"},
      {"name", "lgHeader_Name"},
      {"firstname", "lgHeader_First_Name"},
      {"lastname", "lgHeader_Last_Name"},
      {"additional1", "lgHeader_CarAdditional1"},
      {"additional2", "lgHeader_CarAdditional2"},
      {"additional3", "lgHeader_CarAdditional3"},
      {"additional4", "lgHeader_CarAdditional4"},
      {"additional5", "lgHeader_CarAdditional5"},
      {"additional6", "lgHeader_CarAdditional6"},
      {"additional7", "lgHeader_CarAdditional7"},
      {"additional8", "lgHeader_CarAdditional8"},
      {"marker", "lgHeader_Marker"},
      {"averagetime", "lgHeader_AvgTm"},
      {"lasttime", "lgHeader_LastTm"},
      {"lastspeed", "lgHeader_LastSpd"},
      {"laps", kLapsColumn},
      {"totaltime", "lgHeader_TotalTm"},
      {"averagespeed", "lgHeader_AvgSpeed"},
      {"difference", "lgHeader_Diff"},
      {"gap", "lgHeader_Gap"},
      {"besttime", "lgHeader_BestTm"},
      {"inlap", "lgHeader_In_Lap"},
      {"bestspeed", "lgHeader_BestSpd"},
      {"2ndbesttime", "lgHeader_2nd_Best"},
      {"2ndinlap", "lgHeader_2nd_Lap"},
      {"2ndbestspeed", "lgHeader_2nd_Spd"},
      {"datetime", "lgHeader_DateTime"},
      {"groupname", "lgHeader_Group"},
      {"runname", "lgHeader_Name"},
      {"runtype", "lgHeader_Type"},
      {"racedistance", "lgHeader_RaceDistance"},
      {"racetime", "lgHeader_RaceTime"},
      {"minlaptime", "lgHeader_Minimum_Laptime"},
      {"uniqueid", "lgHeader_UniqueID"},
      {"time", "lgHeader_Time"},
      {"text", "lgHeader_Text"},
      {"transpondernr", "lgHeader_Car_Transponders"},
      {"regnumber", "lgHeader_Car_RegNumber"},
  };
  return names;
}

std::string Lookup(const std::map<std::string, std::string>& table, const std::string& key) {
  const auto found = table.find(key);
  return found == table.end() ? std::string() : found->second;
}

}  // namespace

CZOLServerTable::CZOLServerTable(long id, CRMComm* comm) : CZOLTable(id, comm) {}

// The view observer part leaves the view on its own.
CZOLServerTable::~CZOLServerTable() = default;

void CZOLServerTable::Clear(BOOL full) {
  Guarded("CZOLServerTable::Clear()", [&] {
    CZOLTable::Clear(full);
    // No rows is what the table holds until the next data notification.
    m_rowsOutOfDate = false;
  });
}

std::string CZOLServerTable::ZOLGetViewName(const std::string& type) {
  return Guarded("CZOLServerTable::ZOLGetViewName()", [&] { return Lookup(ViewNames(), type); });
}

std::string CZOLServerTable::ZOLGetViewColumnName(const std::string& column) {
  return Guarded("CZOLServerTable::ZOLGetViewColumnName()", [&] { return Lookup(ColumnNames(), column); });
}

std::string CZOLServerTable::GetDiffAsString(KVTTIME time) {
  return Guarded("CZOLServerTable::GetDiffAsString()", [&] { return FormatGap(time, 0, 1, 3); });
}

void CZOLServerTable::LeaveView() {
  Guarded("CZOLServerTable::LeaveView()", [&] {
    CRMView* old = m_view;
    m_view = nullptr;
    if (old != nullptr) CRMViewObserver::Detach(old, TRUE);
  });
}

void CZOLServerTable::BindView(const std::string& viewName, const CParameters& parameters, bool setSort) {
  Guarded("CZOLServerTable::BindView()", [&] {
    m_view = m_comm->CreateView(viewName, FALSE, parameters, FALSE);
    if (m_view == nullptr) return;
    if (setSort) {
      if (m_type == "announcements") {
        m_view->SetSortColumn("lgHeader_UniqueID", FALSE);
      } else if (m_type == "laptimes") {
        m_view->SetSortColumn("lgHeader_TimeOfDay", FALSE);
      } else {
        m_view->SetSortColumn("lgHeader_Pos", TRUE);
      }
    }
    // A view that is already filled answers at once with its structure and rows.
    CRMViewObserver::Attach(m_view);
  });
}

void CZOLServerTable::RunConnect(CRun* run, CParameters parameters) {
  Guarded("CZOLServerTable::RunConnect()", [&] {
    if (m_comm == nullptr || run == nullptr) return;
    Clear(FALSE);
    LeaveView();
    parameters.Add("UniqueID", static_cast<INT64>(run->UniqueID));
    const std::string viewName = ZOLGetViewName(m_type);
    if (viewName == kLapTimesView) parameters.Add("AddCompetitorInfo", 1);
    if (viewName == kResultsView) parameters.Add("SortType", run->RunType != 2 ? 1 : 0);
    BindView(viewName, parameters, true);
  });
}

void CZOLServerTable::MergeConnect(CMerge* merge, CParameters parameters) {
  Guarded("CZOLServerTable::MergeConnect()", [&] {
    if (m_comm == nullptr || merge == nullptr) return;
    Clear(FALSE);
    LeaveView();
    parameters.Add("UniqueID", static_cast<INT64>(merge->UniqueID));
    BindView(ZOLGetViewName(m_type), parameters, false);
  });
}

void CZOLServerTable::EventConnect(Cevent* event, CParameters parameters) {
  Guarded("CZOLServerTable::EventConnect()", [&] {
    if (m_comm == nullptr || event == nullptr) return;
    Clear(FALSE);
    LeaveView();
    parameters.Add("UniqueID", static_cast<INT64>(event->UniqueID));
    BindView(ZOLGetViewName(m_type), parameters, false);
  });
}

void CZOLServerTable::OnNotifyStructure(CRMView* view) {
  Guarded("CZOLServerTable::OnNotifyStructure()", [&] {
    Clear(FALSE);
    if (view == nullptr) return;
    for (std::size_t i = 0; i < m_templateRow->GetCellCount(); ++i) {
      CZOLCell* cell = m_templateRow->CellGetAt(i);
      const std::string key = ZOLGetViewColumnName(cell->m_type);
      cell->m_column = view->ColumnFind(key);
      if (cell->m_column == -1) {
        DebugTrace("Can't find column %s", key.c_str());
        continue;
      }
      const CColumn* column = view->ColumnGetAt(static_cast<DWORD>(cell->m_column));
      if (column == nullptr) continue;
      if (cell->m_text.empty()) cell->m_text = LocalToUtf8(column->Title);
      // An empty column heading shows the view's caption of the column.
      CZOLCell* heading = m_headerRow->CellGetAt(i);
      if (heading != nullptr && heading->m_text.empty()) heading->m_text = LocalToUtf8(column->Title);
    }
    m_markerColumn = view->ColumnFind("lgHeader_Marker");
    m_statusColumn = view->ColumnFind("lgHeader_Status");
  });
}

void CZOLServerTable::OnNotifyData(int type, CRMView* view) {
  Guarded("CZOLServerTable::OnNotifyData()", [&] {
    (void)type;
    (void)view;
    // The rows are rebuilt from the view when the table is next written; until then the
    // view holds exactly the rows that a rebuild now would read.
    m_rowsOutOfDate = true;
    NotifyDataAvailable();
  });
}

void CZOLServerTable::OnSubjectRemoved(CRMView* view) {
  Guarded("CZOLServerTable::OnSubjectRemoved()", [&] {
    if (view == m_view) m_view = nullptr;
    // The view has emptied itself before telling: there is nothing left to rebuild
    // from, so the rows stay as they were last built.
    m_rowsOutOfDate = false;
  });
}

void CZOLServerTable::BringRowsUpToDate() {
  Guarded("CZOLServerTable::BringRowsUpToDate()", [&] {
    if (!m_rowsOutOfDate) return;
    Clear(FALSE);
    try {
      ImportRows();
    } catch (...) {
      // Tried again at the next export.
      m_rowsOutOfDate = true;
      throw;
    }
  });
}

void CZOLServerTable::ImportRows() {
  Guarded("CZOLServerTable::ImportRows()", [&] {
    if (m_view == nullptr) return;
    const std::vector<CRMViewRow*>& viewRows = m_view->GetSortedRows();
    const auto available = static_cast<long long>(viewRows.size());
    long long start = 1;
    long long count = 0;
    GetRowRange(viewRows.size(), start, count);
    long long next = 0;
    if (start != 1) {
      if (available <= start) return;
      if (start > 1) next = start - 1;
    }
    int previousLaps = 0;
    for (long long number = 1; next < available && (number <= count || count == 0); ++number, ++next) {
      const CRMViewRow* viewRow = viewRows[static_cast<std::size_t>(next)];
      auto row = std::make_unique<CZOLRow>(*m_templateRow);
      for (std::size_t i = 0; i < m_templateRow->GetCellCount(); ++i) {
        const int columnIndex = m_templateRow->CellGetAt(i)->m_column;
        if (columnIndex < 0) continue;
        const auto index = static_cast<DWORD>(columnIndex);
        const CRMCell* viewCell = viewRow != nullptr ? viewRow->CellGetAt(index) : nullptr;
        const CColumn* column = m_view->ColumnGetAt(index);
        std::string text;
        if (viewCell != nullptr) {
          text = column != nullptr && column->Type == kColumnKVTDiff
                     ? GetDiffAsString(static_cast<KVTTIME>(*viewCell))
                     : std::string(static_cast<const char*>(*viewCell));
        }
        CZOLCell* cell = row->CellGetAt(i);
        cell->m_text = LocalToUtf8(text);
        if (column != nullptr && column->Key == kLapsColumn) {
          // The first row of each new lap count is marked, except the very first.
          const int laps = std::atoi(viewCell != nullptr ? viewCell->GetText() : "");
          if (laps != previousLaps) {
            if (previousLaps != 0) {
              if (!cell->m_flags.empty()) cell->m_flags += "|";
              cell->m_flags += kLapSeparator;
            }
            previousLaps = laps;
          }
        }
      }
      m_rows.push_back(std::move(row));
    }
  });
}

std::string CZOLServerTable::ZOLExport() {
  return Guarded("CZOLServerTable::ZOLExport()", [&]() -> std::string {
    BringRowsUpToDate();
    std::string out = "<zol_table";
    if (!m_type.empty()) out += " type=\"" + m_type + "\" ";
    out += '>';
    const bool showHeader = m_showHeader != "false";
    std::size_t nextHeader = 0;
    for (const std::string& part : m_parts) {
      if (part.find(kZOLHeaderMarker) != std::string::npos) {
        if (!showHeader) continue;
        if (const CZOLCell* cell = m_headerRow->CellGetAt(nextHeader++)) out += cell->ZOLExportColumn();
      } else if (part.find(kZOLRowsMarker) != std::string::npos) {
        out += ZOLExportRows();
      } else {
        out += part;
      }
    }
    out += "</zol_table>";
    return out;
  });
}

std::string CZOLServerTable::ZOLExportRows() {
  return Guarded("CZOLServerTable::ZOLExportRows()", [&]() -> std::string {
    BringRowsUpToDate();
    long long start = 1;
    long long count = 0;
    GetRowRange(m_rows.size(), start, count);
    std::string out;
    long long number = 0;
    for (const auto& row : m_rows) {
      ++number;
      if (number >= start && number < start + count) out += row->ZOLExport();
    }
    return out;
  });
}
