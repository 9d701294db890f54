// A data link with a track, an event group and runs, and the data manager's side of the
// views that tables and labels ask for: find a view by name and feed it structure and rows.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "data/DataEncoder.h"
#include "data/DataTestSupport.h"
#include "data/Run.h"
#include "testing/ViewTestSupport.h"
#include "views/RMComm.h"
#include "views/RMView.h"
#include "views/ViewEncoder.h"

inline constexpr DWORD kLiveEventID = 0x80000002;

inline void FillLiveRun(CRun& run, DWORD id, BYTE type, WORD flags, DWORD eventId = kLiveEventID) {
  run.UniqueID = id;
  run.EventID = eventId;
  run.RunType = type;
  run.Flags = flags;
  run.Name = "Run " + std::to_string(id & 0xFF);
}

inline std::unique_ptr<CRun> MakeLiveRun(DWORD id, BYTE type, WORD flags, DWORD eventId = kLiveEventID) {
  auto run = std::make_unique<CRun>(nullptr);
  FillLiveRun(*run, id, type, flags, eventId);
  return run;
}

// A run in a model store, which owns it.
inline CRun* AddLiveRun(CBaseDataComm& model, DWORD id, BYTE type, WORD flags) {
  auto* run = new CRun(nullptr);
  FillLiveRun(*run, id, type, flags);
  model.Runs[id] = run;
  return run;
}

// The results view's columns that the tests use, in this order.
inline std::vector<CColumn> ResultsColumns() {
  return {MakeColumn(kColumnInteger, "lgHeader_Pos", "Pos"), MakeColumn(kColumnString, "lgHeader_No", "No"),
          MakeColumn(kColumnString, "lgHeader_Name", "Name"), MakeColumn(kColumnInteger, "lgHeader_Laps", "Laps")};
}

inline ViewRowValues ResultRow(DWORD rowID, int position, const std::string& number, const std::string& name,
                               int laps) {
  return MakeRowValues(rowID, {IntegerValue(position), TextValue(number), TextValue(name), IntegerValue(laps)});
}

struct CLiveData {
  CLiveData() {
    CBaseDataComm model;
    AddTrackAndEventGroup(model);
    link.Apply(DataEncoder::Snapshot(model));
  }
  // The data manager adds a run, and makes it the active one when asked.
  void AddRun(DWORD runId, BYTE type, bool active) {
    link.Apply(DataEncoder::AddRun(*MakeLiveRun(runId, type, 0)));
    if (active) link.Apply(DataEncoder::ModifyRun(*MakeLiveRun(runId, type, kRunActive)));
  }
  // The views of that name, in order of their IDs.
  std::vector<CRMView*> Views(const std::string& name) const {
    std::vector<CRMView*> views;
    for (const auto& [id, view] : link.comm.GetViews()) {
      if (view->GetName() == name) views.push_back(view);
    }
    return views;
  }
  CRMView* View(const std::string& name) const {
    const auto views = Views(name);
    return views.empty() ? nullptr : views.front();
  }
  // The data manager answers a view: structure, then all rows.
  void Serve(CRMView* view, const std::vector<CColumn>& columns, const std::vector<ViewRowValues>& rows) {
    link.Apply(ViewEncoder::ViewStructure(view->GetViewID(), columns));
    ViewRowBlock block;
    block.Rows = rows;
    link.Apply(ViewEncoder::AllRows(view->GetViewID(), ViewEncoder::ColumnTypes(columns), block));
  }
  void Modify(DWORD viewID, const std::vector<CColumn>& columns, const std::vector<ViewRowValues>& rows) {
    ViewRowBlock block;
    block.Rows = rows;
    link.Apply(ViewEncoder::ModifyRows(viewID, ViewEncoder::ColumnTypes(columns), block));
  }

  CLiveLink link;
};
