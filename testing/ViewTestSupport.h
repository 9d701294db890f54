// Test support for the live views: an observer that writes down what a view tells it,
// and columns and rows made up for tests.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

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
