// The view's life with its observers and the messages that feed it: attach and detach,
// the requests to the data manager, the structure and the four row handlers, and the
// walks that tell the observers.
#include "views/RMView.h"

#include <algorithm>
#include <memory>
#include <string>

#include "frame/BaseModule.h"
#include "frame/KVTException.h"
#include "frame/ModuleMessage.h"

namespace {

// The guard label of a row handler: the handler's name with the view's name in it.
std::string HandlerLabel(const char* handler, const std::string& viewName) {
  std::string label = "CRMView::";
  label += handler;
  label += '(';
  label += viewName;
  label += ')';
  return label;
}

// Runs a row handler's body; when it fails, the changed rows of the message in work are
// forgotten, since nobody was told of them and the next message starts its own list.
// Rows it already stored or removed stay where they are.
template <class Body>
void ForgetChangedRowsOnFailure(std::vector<CRMViewRow*>& changedRows, Body&& body) {
  try {
    body();
  } catch (...) {
    changedRows.clear();
    throw;
  }
}

}  // namespace

CRMView::CRMView(const std::string& name, DWORD viewID, BOOL isPrivate, BOOL grouped, const CParameters& parameters,
                 CRMData* data, CBaseModule* module)
    : Name(name),
      ViewID(viewID),
      Private(isPrivate),
      Grouped(grouped),
      Module(module),
      Data(data),
      Parameters(parameters) {}

CRMView::~CRMView() {
  // A destructor cannot pass a failure on: it is dropped, and every observer is still
  // told. The walk keeps its cursor in the view, so an observer may leave meanwhile.
  try {
    Clear();
  } catch (CKVTException* e) {
    delete e;
  }
  Notifying = true;
  for (ObserverCursor = 0; ObserverCursor < static_cast<std::ptrdiff_t>(Observers.size()); ++ObserverCursor) {
    try {
      Observers[static_cast<std::size_t>(ObserverCursor)]->RemoveSubject(this);
    } catch (CKVTException* e) {
      delete e;
    }
  }
  Notifying = false;
  ObserverCursor = -1;
  Observers.clear();
}

void CRMView::Attach(CRMViewObserver* observer) {
  Guarded("CRMView::Attach()", [&] {
    if (observer == nullptr) return;
    if (std::find(Observers.begin(), Observers.end(), observer) == Observers.end()) Observers.push_back(observer);
    if (Observers.size() < 2) {
      // The view is asked for only when its first observer comes.
      SendViewRequest(kMsgViewConnect);
    } else if (!Columns.empty()) {
      // A late comer starts from the present state, alone.
      observer->OnNotifyStructure(this);
      observer->OnNotifyData(kNotifyAllRows, this);
    }
  });
}

void CRMView::Detach(CRMViewObserver* observer, BOOL tellDataManager) {
  Guarded("CRMView::Detach()", [&] {
    auto found = std::find(Observers.begin(), Observers.end(), observer);
    if (found != Observers.end()) {
      const std::ptrdiff_t index = found - Observers.begin();
      Observers.erase(found);
      // A walk in progress goes on with the observer that followed the one removed.
      if (index <= ObserverCursor) --ObserverCursor;
    }
    if (!Observers.empty()) return;
    // Clear empties the parameters, so the request below carries an empty parameter
    // block; it is built so on purpose, with the name the view still has.
    Clear();
    if (tellDataManager) SendViewRequest(kMsgViewDisconnect);
    Parameters.Clear();
    Name.clear();
    WaitingForAllRows = FALSE;
  });
}

void CRMView::SendViewRequest(WORD id) {
  Guarded("CRMView::SendViewRequest()", [&] {
    if (Module == nullptr) return;
    std::unique_ptr<CModuleMessage> message(new CModuleMessage(id, Module));
    ViewToMessage(*message);
    Module->Send(message.release());
  });
}

void CRMView::ViewToMessage(CTTBuffer& message) const {
  Guarded("CRMView::ViewToMessage()", [&] {
    message << Name << ViewID;
    Parameters.ParametersToBuffer(message);
  });
}

void CRMView::MessageToViewStructure(CTTBuffer& message) {
  Guarded("CRMView::MessageToViewStructure()", [&] {
    // The columns are read whole before any is taken, so a message that ends early
    // leaves the view as it was. The count reserves nothing: columns are read until
    // the count is reached or the message ends.
    int count = 0;
    message >> count;
    std::vector<std::unique_ptr<CColumn>> read;
    for (int i = 0; i < count; ++i) {
      auto column = std::make_unique<CColumn>();
      column->MessageToColumn(message);
      read.push_back(std::move(column));
    }
    // A second structure for a live view appends to the columns it has.
    auto structure = std::make_unique<CRMViewRow>(kNoRowID);
    Columns.reserve(Columns.size() + read.size());
    for (auto& column : read) Columns.push_back(column.release());
    for (const CColumn* column : Columns) {
      std::unique_ptr<CRMCell> cell(NewCellOfType(column->Type, Data));
      if (cell) {
        structure->Cells.push_back(cell.get());
        cell.release();
      }
    }
    delete StructureRow;
    StructureRow = structure.release();
    SetFilterColumnIndexes();
    if (!SortColumnName.empty()) SortColumnIndex = ColumnFind(SortColumnName);
    NotifyStructure();
  });
}

void CRMView::ProcessGroupsMessage(CTTBuffer& message) {
  Guarded("CRMView::ProcessGroupsMessage()", [&] {
    GroupNames.clear();
    DWORD count = 0;
    message >> count;
    for (DWORD i = 0; i < count; ++i) {
      DWORD groupID = 0;
      std::string name;
      message >> groupID >> name;
      GroupNames[groupID] = std::move(name);
    }
  });
}

CRMViewRow* CRMView::NewRow(DWORD rowID) const {
  return Guarded("CRMView::NewRow()", [&] {
    auto row = std::make_unique<CRMViewRow>(rowID);
    if (StructureRow != nullptr) *row = *StructureRow;
    return row.release();
  });
}

void CRMView::ReadNewRows(CTTBuffer& message) {
  Guarded("CRMView::ReadNewRows()", [&] {
    DWORD count = 0;
    message >> count;
    for (DWORD i = 0; i < count; ++i) {
      DWORD rowID = 0;
      message >> rowID;
      std::unique_ptr<CRMViewRow> row(NewRow(rowID));
      row->MessageToViewRow(message);
      CRMViewRow* stored = row.get();
      auto [entry, inserted] = RowMap.try_emplace(rowID, stored);
      if (!inserted) {
        // The row that stood under this ID leaves the map; the sorted rows may still show
        // it, so it lives on until the view is cleared.
        OverwrittenRows.push_back(entry->second);
        entry->second = stored;
      }
      row.release();
      SortedRows.push_back(stored);
      ChangedRows.push_back(stored);
    }
  });
}

template <class Known>
void CRMView::ReadKnownRows(CTTBuffer& message, Known&& known) {
  Guarded("CRMView::ReadKnownRows()", [&] {
    DWORD count = 0;
    message >> count;
    for (DWORD i = 0; i < count; ++i) {
      DWORD rowID = 0;
      message >> rowID;
      auto found = RowMap.find(rowID);
      if (found == RowMap.end()) {
        // Read and dropped, so that the next row starts at the right place.
        std::unique_ptr<CRMViewRow> discarded(NewRow(rowID));
        discarded->MessageToViewRow(message);
        continue;
      }
      known(found);
    }
  });
}

void CRMView::OnAllRows(CTTBuffer& message) {
  const std::string label = HandlerLabel("OnAllRows", Name);
  Guarded(label.c_str(), [&] {
    WaitingForAllRows = FALSE;
    if (Observers.empty()) return;
    ForgetChangedRowsOnFailure(ChangedRows, [&] {
      ProcessGroupsMessage(message);
      ClearGroupRows();
      NotifyBeforeData(kNotifyAllRows);
      // The last observer may have left during the walk: the view was let go and
      // cleared, and the rest of the message is not read.
      if (Observers.empty()) return;
      ReadNewRows(message);
      Sort();
      Filter();
      UpdateGroupRows();
      NotifyData(kNotifyAllRows);
      ChangedRows.clear();
    });
  });
}

void CRMView::OnAddRows(CTTBuffer& message) {
  const std::string label = HandlerLabel("OnAddRows", Name);
  Guarded(label.c_str(), [&] {
    if (Observers.empty() || WaitingForAllRows) return;
    ForgetChangedRowsOnFailure(ChangedRows, [&] {
      NotifyBeforeData(kNotifyRowsAdded);
      if (Observers.empty()) return;
      ProcessGroupsMessage(message);
      ClearGroupRows();
      ReadNewRows(message);
      Sort();
      Filter();
      UpdateGroupRows();
      NotifyData(kNotifyRowsAdded);
      ChangedRows.clear();
    });
  });
}

void CRMView::OnModifyRows(CTTBuffer& message) {
  const std::string label = HandlerLabel("OnModifyRows", Name);
  Guarded(label.c_str(), [&] {
    if (Observers.empty() || WaitingForAllRows) return;
    ForgetChangedRowsOnFailure(ChangedRows, [&] {
      NotifyBeforeData(kNotifyRowsChanged);
      if (Observers.empty()) return;
      ProcessGroupsMessage(message);
      ClearGroupRows();
      ReadKnownRows(message, [&](std::map<DWORD, CRMViewRow*>::iterator found) {
        CRMViewRow* row = found->second;
        row->MessageToViewRow(message);
        ChangedRows.push_back(row);
      });
      Sort();
      Filter();
      UpdateGroupRows();
      NotifyChangedAndRemoved();
    });
  });
}

void CRMView::OnRemoveRows(CTTBuffer& message) {
  const std::string label = HandlerLabel("OnRemoveRows", Name);
  Guarded(label.c_str(), [&] {
    // Unlike add and modify, a remove is carried out while the view still waits for
    // its first rows.
    if (Observers.empty()) return;
    ForgetChangedRowsOnFailure(ChangedRows, [&] {
      NotifyBeforeData(kNotifyRowsRemoved);
      if (Observers.empty()) return;
      ProcessGroupsMessage(message);
      ClearGroupRows();
      ReadKnownRows(message, [&](std::map<DWORD, CRMViewRow*>::iterator found) {
        CRMViewRow* row = found->second;
        row->MessageToViewRow(message);
        RowMap.erase(found);
        auto shown = std::find(SortedRows.begin(), SortedRows.end(), row);
        if (shown != SortedRows.end()) SortedRows.erase(shown);
        RemovedRows.push_back(row);
      });
      UpdateGroupRows();
      NotifyChangedAndRemoved();
    });
  });
}

void CRMView::NotifyChangedAndRemoved() {
  Guarded("CRMView::NotifyChangedAndRemoved()", [&] {
    // The lists are read again after each walk: an observer that was the last to leave
    // may have cleared the view meanwhile.
    if (!ChangedRows.empty()) {
      NotifyData(kNotifyRowsChanged);
      ChangedRows.clear();
    }
    if (!RemovedRows.empty()) {
      NotifyData(kNotifyRowsRemoved);
      DestroyRemovedRows();
    }
  });
}

void CRMView::DestroyRemovedRows() {
  Guarded("CRMView::DestroyRemovedRows()", [&] {
    std::vector<CRMViewRow*> rows;
    rows.swap(RemovedRows);
    for (CRMViewRow* row : rows) delete row;
  });
}

template <class Call>
void CRMView::NotifyEach(Call&& call) {
  // The cursor lives in the view: Detach moves it back when it removes the observer
  // being told or one before it, so nobody is skipped or told twice. The next observer
  // is taken only by advancing the cursor and testing it against the end.
  struct Walk {
    CRMView& View;
    std::ptrdiff_t OuterCursor;
    bool OuterNotifying;
    ~Walk() {
      View.ObserverCursor = OuterCursor;
      View.Notifying = OuterNotifying;
    }
  };
  Guarded("CRMView::NotifyEach()", [&] {
    Walk walk{*this, ObserverCursor, Notifying};
    Notifying = true;
    for (ObserverCursor = 0; ObserverCursor < static_cast<std::ptrdiff_t>(Observers.size()); ++ObserverCursor) {
      call(Observers[static_cast<std::size_t>(ObserverCursor)]);
    }
  });
}

void CRMView::NotifyStructure() {
  Guarded("CRMView::NotifyStructure()",
          [&] { NotifyEach([&](CRMViewObserver* observer) { observer->OnNotifyStructure(this); }); });
}

void CRMView::NotifyBeforeData(int type) {
  Guarded("CRMView::NotifyBeforeData()",
          [&] { NotifyEach([&](CRMViewObserver* observer) { observer->OnNotifyBeforeData(type, this); }); });
}

void CRMView::NotifyData(int type) {
  Guarded("CRMView::NotifyData()",
          [&] { NotifyEach([&](CRMViewObserver* observer) { observer->OnNotifyData(type, this); }); });
}
