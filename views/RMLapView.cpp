#include "views/RMLapView.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "data/Competitor.h"
#include "data/RMData.h"
#include "data/Run.h"
#include "data/SideRecords.h"
#include "frame/KVTException.h"
#include "frame/Package.h"
#include "frame/TimeText.h"
#include "frame/platform/Time.h"

namespace {

// Row ID, competitor ID, second ID, status, flags, words 4 and 5, four times, words 1 and
// 2, byte 3: the fewest bytes a lap row takes on the wire.
constexpr DWORD kLapRowWireSize = 4 + 4 + 4 + 1 + 4 + 2 + 2 + 4 * 8 + 2 + 2 + 1;

// The text key of a flag row, by flag class and colour; null for none.
const char* FlagKey(DWORD flagClass, DWORD colour) {
  switch (flagClass) {
    case 0:
      switch (colour) {
        case 0: return "lgLabel_Warmup_Flag";
        case 1: return "lgLabel_Green_Flag";
        case 2: return "lgLabel_Yellow_Flag";
        case 3: return "lgLabel_YellowNC_Flag";
        case 4: return "lgLabel_Red_Flag";
        default: return nullptr;
      }
    case 1: return "lglabel_White_Flag";
    case 2: return "lgLabel_Finish_Flag";
    case 3: return "lgLabel_Extra_Flag";
    default: return nullptr;
  }
}

template <class T>
void EraseValue(std::vector<T*>& values, T* value) {
  values.erase(std::remove(values.begin(), values.end(), value), values.end());
}

}  // namespace

// ---------------------------------------------------------------------------------------
// Observer side

CRMLapViewObserver::~CRMLapViewObserver() {
  while (!Subjects.empty()) Detach(Subjects.front());
}

void CRMLapViewObserver::Attach(CRMLapView* view) {
  if (view == nullptr) return;
  if (std::find(Subjects.begin(), Subjects.end(), view) == Subjects.end()) Subjects.push_back(view);
  auto& observers = view->Observers;
  if (std::find(observers.begin(), observers.end(), this) == observers.end()) observers.push_back(this);
}

void CRMLapViewObserver::Detach(CRMLapView* view) {
  if (view == nullptr) return;
  EraseValue(Subjects, view);
  auto& observers = view->Observers;
  auto found = std::find(observers.begin(), observers.end(), this);
  if (found == observers.end()) return;
  // A walk in progress keeps its place: an observer at or before the cursor leaving
  // moves the cursor back by one, so the next observer is not skipped.
  const std::ptrdiff_t index = found - observers.begin();
  if (view->ObserverCursor >= 0 && index <= view->ObserverCursor) --view->ObserverCursor;
  observers.erase(found);
}

// ---------------------------------------------------------------------------------------
// Lap view

CRMLapView::CRMLapView(CRun* run, CRMData* data) : Run(run), Data(data) {}

CRMLapView::~CRMLapView() {
  for (CRMLapViewObserver* observer : Observers) EraseValue(observer->Subjects, this);
  Observers.clear();
  for (auto& [id, row] : RowMap) delete row;
  for (CRMLapViewRow* row : OverwrittenRows) delete row;
}

void CRMLapView::Clear() {
  Guarded("CRMLapView::Clear()", [&] {
    Rows.clear();
    for (auto& [id, row] : RowMap) delete row;
    RowMap.clear();
    for (CRMLapViewRow* row : OverwrittenRows) delete row;
    OverwrittenRows.clear();
    ResetWord = 0;
  });
}

template <class Call>
void CRMLapView::NotifyEach(Call&& call) {
  for (ObserverCursor = 0; ObserverCursor < static_cast<std::ptrdiff_t>(Observers.size()); ++ObserverCursor) {
    call(Observers[static_cast<std::size_t>(ObserverCursor)]);
  }
  ObserverCursor = -1;
}

void CRMLapView::NotifyAll() {
  Guarded("CRMLapView::NotifyAll()", [&] {
    NotifyEach([&](CRMLapViewObserver* observer) { observer->OnAllRows(this); });
  });
}

void CRMLapView::NotifyAdd(CRMLapViewRow* row) {
  Guarded("CRMLapView::NotifyAdd()", [&] {
    NotifyEach([&](CRMLapViewObserver* observer) { observer->OnRowAdded(this, row); });
  });
}

void CRMLapView::NotifyModify(const std::vector<CRMLapViewRow*>& rows) {
  Guarded("CRMLapView::NotifyModify()", [&] {
    NotifyEach([&](CRMLapViewObserver* observer) { observer->OnRowsModified(this, rows); });
  });
}

void CRMLapView::NotifyRemove(CRMLapViewRow* row) {
  Guarded("CRMLapView::NotifyRemove()", [&] {
    NotifyEach([&](CRMLapViewObserver* observer) { observer->OnRowRemoved(this, row); });
  });
}

void CRMLapView::NotifyClear() {
  Guarded("CRMLapView::NotifyClear()", [&] {
    NotifyEach([&](CRMLapViewObserver* observer) { observer->OnCleared(this); });
  });
}

void CRMLapView::CheckCompetitor(CRMLapViewRow* row, int kind) {
  Guarded("CRMLapView::CheckCompetitor()", [&] {
    if (row->CompetitorID == kUnassignedCompetitor) {
      row->SetAlternative(GetTranslation(kind == kLapRowManual ? "lgLabel_Unassigned_Manual"
                                                                : "lgLabel_Unassigned_Photocell"));
      row->SetCompetitor(nullptr);
      return;
    }
    CBaseCompetitor* competitor = nullptr;
    if (Run != nullptr && Run->Competitors != nullptr) {
      auto found = Run->Competitors->Competitors.find(row->CompetitorID);
      if (found != Run->Competitors->Competitors.end()) competitor = found->second;
    }
    row->SetCompetitor(competitor);
    if (competitor == nullptr) {
      row->SetAlternative("");
    } else if (competitor->FullName.empty()) {
      // The first transponder as entered; a competitor without one shows code 0.
      const DWORD transponder = competitor->GetTransponder(0, TRUE);
      const CBaseTxTranslation* translation = Data != nullptr ? Data->GetTxTranslation(transponder) : nullptr;
      const std::string name = translation != nullptr ? translation->Text : TransponderToString(transponder);
      row->SetAlternative("--- " + name + " ---");
      row->SetCompetitor(nullptr);
    }
  });
}

CRMLapViewRow* CRMLapView::CreateLapRow(CTTBuffer& message) {
  return Guarded("CRMLapView::CreateLapRow()", [&] {
    auto row = std::make_unique<CRMLapViewRow>();
    message >> row->RowID;
    row->MessageToViewRow(message);
    const int kind = row->GetKind();
    if (kind == kLapRowFlag) {
      const char* key = FlagKey(row->GetFlagClass(), row->GetFlagColour());
      row->SetAlternative(key != nullptr ? GetTranslation(key) : std::string());
    } else if (kind == kLapRowPassing || kind == kLapRowPhotocell || kind == kLapRowManual) {
      CheckCompetitor(row.get(), kind);
    }
    return row.release();
  });
}

BOOL CRMLapView::AddLapRowToMap(CRMLapViewRow* row) {
  return Guarded("CRMLapView::AddLapRowToMap()", [&] {
    auto [place, inserted] = RowMap.emplace(row->RowID, row);
    if (!inserted) {
      // The list may still show the row pushed out; it lives until the view is cleared.
      OverwrittenRows.push_back(place->second);
      place->second = row;
    }
    return row->PassingTime == KVTTIME_NULL ? FALSE : TRUE;
  });
}

void CRMLapView::OnAllPassings(CTTBuffer& message) {
  Guarded("CRMLapView::OnAllPassings()", [&] {
    const std::uint64_t start = platform::MonotonicMilliseconds();
    AllPassingsReceived = TRUE;
    int count = 0;
    message >> count;
    // The rows of the list go; map entries that point at them go with them, so that the
    // map never holds a freed row. Rows kept only in the map stay.
    for (CRMLapViewRow* row : Rows) {
      auto found = RowMap.find(row->RowID);
      if (found != RowMap.end() && found->second == row) {
        RowMap.erase(found);
      } else {
        EraseValue(OverwrittenRows, row);
      }
      delete row;
    }
    Rows.clear();
    // The count is not trusted for sizing: no more rows than the message can hold.
    if (count > 0) Rows.reserve(std::min<std::size_t>(static_cast<std::size_t>(count),
                                                      message.GetRemaining() / kLapRowWireSize));
    for (int i = 0; i < count; ++i) {
      std::unique_ptr<CRMLapViewRow> row(CreateLapRow(message));
      const BOOL timed = AddLapRowToMap(row.get());
      CRMLapViewRow* stored = row.release();
      if (timed != FALSE) Rows.push_back(stored);
    }
    std::sort(Rows.begin(), Rows.end(), LapRowViewSort);
    const std::uint64_t spent = platform::MonotonicMilliseconds() - start;
    char line[96];
    std::snprintf(line, sizeof line, "All passigns in RMComm took %d msec.\r\n", static_cast<int>(spent));
    ModuleLog(line);
    NotifyAll();
  });
}

void CRMLapView::OnAddLapRow(CTTBuffer& message) {
  Guarded("CRMLapView::OnAddLapRow()", [&] {
    std::unique_ptr<CRMLapViewRow> owned(CreateLapRow(message));
    const BOOL timed = AddLapRowToMap(owned.get());
    CRMLapViewRow* row = owned.release();
    if (timed == FALSE) return;
    if (row->PassingTime >= LastPassingTime) {
      Rows.push_back(row);
      LastPassingTime = row->PassingTime;
      NotifyAdd(row);
    } else {
      AddOutOfSequenceLapRow(row);
    }
  });
}

void CRMLapView::AddOutOfSequenceLapRow(CRMLapViewRow* row) {
  Guarded("CRMLapView::AddOutOfSequenceLapRow()", [&] {
    // Walk from the end; rows at or after the new row's time are passed and count as
    // changed, since their place in the list moves.
    std::vector<CRMLapViewRow*> displaced;
    std::size_t place = Rows.size();
    while (place > 0 && Rows[place - 1]->PassingTime >= row->PassingTime) {
      displaced.push_back(Rows[place - 1]);
      --place;
    }
    Rows.insert(Rows.begin() + static_cast<std::ptrdiff_t>(place), row);
    NotifyAdd(row);
    NotifyModify(displaced);
  });
}

void CRMLapView::OnModifyLapRows(CTTBuffer& message) {
  Guarded("CRMLapView::OnModifyLapRows()", [&] {
    int count = 0;
    message >> count;
    std::vector<CRMLapViewRow*> modified;
    for (int i = 0; i < count; ++i) {
      DWORD rowID = 0;
      message >> rowID;
      auto found = RowMap.find(rowID);
      if (found == RowMap.end()) {
        CRMLapViewRow discarded;
        discarded.MessageToViewRow(message);
        continue;
      }
      CRMLapViewRow* row = found->second;
      row->MessageToViewRow(message);
      const int kind = row->GetKind();
      if (kind != kLapRowFlag) CheckCompetitor(row, kind);
      if (row->IsPhotoCell() != FALSE) {
        auto listed = std::find(Rows.begin(), Rows.end(), row);
        if (row->PassingTime == KVTTIME_NULL) {
          if (listed != Rows.end()) {
            Rows.erase(listed);
            NotifyRemove(row);
          }
          continue;
        }
        if (listed == Rows.end()) {
          Rows.push_back(row);
          std::sort(Rows.begin(), Rows.end(), LapRowViewSort);
          NotifyAdd(row);
        }
      }
      modified.push_back(row);
    }
    if (!modified.empty()) {
      std::sort(Rows.begin(), Rows.end(), LapRowViewSort);
      NotifyModify(modified);
    }
  });
}

void CRMLapView::OnClearAllPassings() {
  Guarded("CRMLapView::OnClearAllPassings()", [&] {
    Clear();
    NotifyClear();
  });
}

bool CRMLapView::LapRowViewSort(const CRMLapViewRow* a, const CRMLapViewRow* b) {
  return Guarded("CRMLapView::LapRowViewSort()", [&] {
    if (a->PassingTime != b->PassingTime) return a->PassingTime < b->PassingTime;
    return a->RowID < b->RowID;
  });
}
