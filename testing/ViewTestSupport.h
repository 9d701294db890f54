// Test support for the live views: an observer that writes down what a view tells it,
// and columns and rows made up for tests.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "data/DataTestSupport.h"
#include "data/Run.h"
#include "frame/ModuleMessage.h"
#include "views/Column.h"
#include "views/RMView.h"
#include "views/ViewEncoder.h"

// Writes one line per notification into a shared log: "name:structure",
// "name:before:T", "name:data:T:changed=1,2:removed=3:sorted=1,2", "name:removed".
// Row IDs of group rows (0xFFFFFFFF) show as "g".
class CLoggingViewObserver : public CRMViewObserver {
 public:
  explicit CLoggingViewObserver(std::vector<std::string>* log, std::string name = "o")
      : Log(log), Name(std::move(name)) {}

  static std::string Ids(const std::vector<CRMViewRow*>& rows) {
    std::string text;
    for (const CRMViewRow* row : rows) {
      if (!text.empty()) text += ",";
      text += row->RowID == 0xFFFFFFFF ? std::string("g") : std::to_string(row->RowID);
    }
    return text;
  }

  void OnNotifyStructure(CRMView* view) override {
    (void)view;
    Log->push_back(Name + ":structure");
  }
  void OnNotifyBeforeData(int type, CRMView* view) override {
    (void)view;
    Log->push_back(Name + ":before:" + std::to_string(type));
  }
  void OnNotifyData(int type, CRMView* view) override {
    Log->push_back(Name + ":data:" + std::to_string(type) + ":changed=" + Ids(view->GetChangedRows()) +
                   ":removed=" + Ids(view->GetRemovedRows()) + ":sorted=" + Ids(view->GetSortedRows()));
    if (AfterData) AfterData(type, view);
  }
  void OnSubjectRemoved(CRMView* view) override {
    (void)view;
    Log->push_back(Name + ":removed");
  }

  std::vector<std::string>* Log;
  std::string Name;
  // Runs inside OnNotifyData, after the line is written: lets a test act mid-walk.
  std::function<void(int, CRMView*)> AfterData;
};

// Adds to a model store a run of this computer whose passing list is open.
inline CRun* AddOpenRun(CBaseDataComm& model, DWORD id) {
  auto* run = new CRun(nullptr);
  run->UniqueID = id;
  run->Flags = kRunLocal | kRunHasPassings;
  model.Runs[id] = run;
  return run;
}

inline CColumn MakeColumn(BYTE type, const std::string& key, const std::string& title = "") {
  CColumn column;
  column.Type = type;
  column.Key = key;
  column.Title = title.empty() ? key : title;
  return column;
}

// Hands a message (owned) to a view handler, from behind the view ID, as CRMComm does.
template <class Handler>
void FeedView(CRMView& view, Handler handler, CModuleMessage* message) {
  std::unique_ptr<CModuleMessage> owned(message);
  owned->Reset();
  DWORD viewID = 0;
  *owned >> viewID;
  (view.*handler)(*owned);
}

// Cell values for the row writers, one per kind of value.
inline ViewCellValue DwordValue(DWORD value) {
  ViewCellValue cell;
  cell.Dword = value;
  return cell;
}
inline ViewCellValue IntegerValue(int value) {
  ViewCellValue cell;
  cell.Integer = value;
  return cell;
}
inline ViewCellValue RealValue(double value) {
  ViewCellValue cell;
  cell.Real = value;
  return cell;
}
inline ViewCellValue TextValue(std::string value) {
  ViewCellValue cell;
  cell.Text = std::move(value);
  return cell;
}
inline ViewCellValue TimeValue(KVTTIME value) {
  ViewCellValue cell;
  cell.Time = value;
  return cell;
}
inline ViewCellValue TranspondersValue(std::vector<DWORD> values) {
  ViewCellValue cell;
  cell.Transponders = std::move(values);
  return cell;
}

inline ViewRowValues MakeRowValues(DWORD rowID, std::vector<ViewCellValue> cells, DWORD groupID = 0) {
  ViewRowValues row;
  row.RowID = rowID;
  row.GroupID = groupID;
  row.Cells = std::move(cells);
  return row;
}

// The row IDs of a list of rows, in its order.
inline std::vector<DWORD> RowIDsOf(const std::vector<CRMViewRow*>& rows) {
  std::vector<DWORD> ids;
  ids.reserve(rows.size());
  for (const CRMViewRow* row : rows) ids.push_back(row->RowID);
  return ids;
}

// A view as the link makes it, with a module that collects what the view sends, fed
// with the data manager's messages from behind the view ID.
class CViewHarness {
 public:
  explicit CViewHarness(const std::string& name = "lgView_Test", BOOL isPrivate = FALSE, BOOL grouped = FALSE,
                        const CParameters& parameters = CParameters(), CRMData* data = nullptr)
      : View(std::make_unique<CRMView>(name, kViewID, isPrivate, grouped, parameters, data, &Module)) {}

  static constexpr DWORD kViewID = 7;

  // Hands the message (owned) to a handler; gives the bytes the handler left unread.
  DWORD Feed(void (CRMView::*handler)(CTTBuffer&), CModuleMessage* message) {
    std::unique_ptr<CModuleMessage> owned(message);
    owned->Reset();
    DWORD viewID = 0;
    *owned >> viewID;
    ((*View).*handler)(*owned);
    return owned->GetRemaining();
  }
  void Structure(const std::vector<CColumn>& columns) {
    Columns = columns;
    Types = ViewEncoder::ColumnTypes(columns);
    Feed(&CRMView::MessageToViewStructure, ViewEncoder::ViewStructure(kViewID, columns));
  }
  DWORD AllRows(const ViewRowBlock& block) {
    return Feed(&CRMView::OnAllRows, ViewEncoder::AllRows(kViewID, Types, block));
  }
  DWORD AddRows(const ViewRowBlock& block) {
    return Feed(&CRMView::OnAddRows, ViewEncoder::AddRows(kViewID, Types, block));
  }
  DWORD ModifyRows(const ViewRowBlock& block) {
    return Feed(&CRMView::OnModifyRows, ViewEncoder::ModifyRows(kViewID, Types, block));
  }
  DWORD RemoveRows(const ViewRowBlock& block) {
    return Feed(&CRMView::OnRemoveRows, ViewEncoder::RemoveRows(kViewID, Types, block));
  }
  // The rows of the row map by ID, in the order of the IDs given.
  std::vector<CRMViewRow*> RowsByID(const std::vector<DWORD>& ids) const {
    std::vector<CRMViewRow*> rows;
    for (DWORD id : ids) rows.push_back(View->GetRowMap().at(id));
    return rows;
  }
  std::vector<DWORD> SortedIDs() const { return RowIDsOf(View->GetSortedRows()); }
  // The IDs of the messages the view sent, in order.
  std::vector<WORD> SentIDs() const {
    std::vector<WORD> ids;
    for (const auto& message : Module.Target.Sent) ids.push_back(message->ID);
    return ids;
  }

  CTestModule Module;
  std::unique_ptr<CRMView> View;
  std::vector<CColumn> Columns;
  std::vector<BYTE> Types;
};
