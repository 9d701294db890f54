#include "data/Merge.h"

#include <algorithm>
#include <memory>
#include <unordered_set>

#include "data/BaseDataComm.h"
#include "data/Event.h"
#include "frame/KVTException.h"

void CBaseMergeCell::MessageToMergeCell(CTTBuffer& message) {
  Guarded("CBaseMergeCell::MessageToMergeCell()", [&] {
    message >> CellID >> CellWord >> CellTime1 >> CellCount1 >> CellValue1 >> CellTime2 >> CellCount2 >>
        CellValue2 >> CellCount3 >> CellTime3 >> CellValue3 >> Number >> Text3 >> Text2 >> FirstName >> LastName >>
        Class >> Value1 >> Text1;
    DWORD count = 0;
    message >> count;
    Transponders.clear();
    for (DWORD i = 0; i < count; ++i) {
      DWORD transponder = 0;
      message >> transponder;
      Transponders.push_back(transponder);
    }
    message >> count;
    FieldValues.clear();
    for (DWORD i = 0; i < count; ++i) {
      std::string value;
      message >> value;
      FieldValues.push_back(std::move(value));
    }
    BuildFullName();
  });
}

void CBaseMergeCell::MergeCellToMessage(CTTBuffer& message) const {
  Guarded("CBaseMergeCell::MergeCellToMessage()", [&] {
    message << CellID << CellWord << CellTime1 << CellCount1 << CellValue1 << CellTime2 << CellCount2 << CellValue2
            << CellCount3 << CellTime3 << CellValue3 << Number << Text3 << Text2 << FirstName << LastName << Class
            << Value1 << Text1;
    message << static_cast<int>(Transponders.size());
    for (DWORD transponder : Transponders) message << transponder;
    message << static_cast<DWORD>(FieldValues.size());
    for (const std::string& value : FieldValues) message << value;
  });
}

CBaseMergeRow::~CBaseMergeRow() {
  delete MainCell;
  for (CBaseMergeCell* cell : Cells) delete cell;
}

void CBaseMergeRow::MessageToMergeRow(CTTBuffer& message) {
  Guarded("CBaseMergeRow::MessageToMergeRow()", [&] {
    message >> RowWord >> RowByte >> RowTime1 >> RowTime2;
    MainCell->MessageToMergeCell(message);
    for (CBaseMergeCell* cell : Cells) delete cell;
    Cells.clear();
    DWORD count = 0;
    message >> count;
    for (DWORD i = 0; i < count; ++i) {
      auto* cell = new CBaseMergeCell;
      Cells.push_back(cell);
      cell->MessageToMergeCell(message);
    }
  });
}

void CBaseMergeRow::MergeRowToMessage(CTTBuffer& message) const {
  Guarded("CBaseMergeRow::MergeRowToMessage()", [&] {
    message << UniqueID << RowWord << RowByte << RowTime1 << RowTime2;
    MainCell->MergeCellToMessage(message);
    message << static_cast<DWORD>(Cells.size());
    for (const CBaseMergeCell* cell : Cells) cell->MergeCellToMessage(message);
  });
}

void CBaseMerge::MessageToMerge(CTTBuffer& message) {
  Guarded("CBaseMerge::MessageToMerge()", [&] {
    message >> Tag >> Flags >> EventID >> Name >> MergeType;
    DWORD count = 0;
    message >> count;
    IDs.clear();
    for (DWORD i = 0; i < count; ++i) {
      DWORD id = 0;
      message >> id;
      IDs.push_back(id);
    }
    Parameters.BufferToParameters(message);
    MergeNotify();
  });
}

DWORD CBaseMerge::IDGetHead() {
  return Guarded("CBaseMerge::IDGetHead()", [&] {
    IDCursor = 0;
    return IDs.empty() ? 0xFFFFFFFF : IDs[0];
  });
}

DWORD CBaseMerge::IDGetNext() {
  return Guarded("CBaseMerge::IDGetNext()", [&] {
    if (IDCursor < IDs.size()) ++IDCursor;
    return IDCursor < IDs.size() ? IDs[IDCursor] : 0xFFFFFFFF;
  });
}

CMerge::CMerge(CBaseModule* module) : Module(module) { Announcements = new CAnnouncementContainer(module, this); }

CMerge::~CMerge() {
  Clear();
  delete Announcements;
}

void CMerge::AddAnnouncement() {
  Guarded("CMerge::AddAnnouncement()", [&] {
    OnAddAnnouncement();
    AnnouncementsNotify(1);
  });
}

void CMerge::ModifyAnnouncement() {
  Guarded("CMerge::ModifyAnnouncement()", [&] {
    OnModifyAnnouncement();
    AnnouncementsNotify(2);
  });
}

void CMerge::RemoveAnnouncement() {
  Guarded("CMerge::RemoveAnnouncement()", [&] {
    OnRemoveAnnouncement();
    AnnouncementsNotify(3);
  });
}

void CMerge::Clear() {
  Guarded("CMerge::Clear()", [&] {
    // The row list may hold rows that an add under a known key pushed out of the map:
    // it is the one list that knows them all.
    for (CBaseMergeRow* row : RowList) delete row;
    RowList.clear();
    Rows.clear();
    UpdatedRows.clear();
    RemovedRows.clear();
  });
}

void CMerge::UpdateTrackEvent() {
  Guarded("CMerge::UpdateTrackEvent()", [&] {
    Event = nullptr;
    Track = nullptr;
    if (Data == nullptr) return;
    Event = Data->FindEvent(EventID);
    if (Event != nullptr) Track = Data->FindTrack(Event->TrackID);
  });
}

void CMerge::ProcessMessage(CModuleMessage& message) {
  Guarded("CMerge::ProcessMessage()", [&] {
    switch (message.ID) {
      case 70:
      case 71:
      case 72: ProcessAnnouncementMessage(message); break;
      case 82: OnModifyMerge(message); break;
      case 83: OnAddMergeRows(message); break;
      case 84: OnModifyMergeRows(message); break;
      case 85: OnRemoveMergeRows(message); break;
      default: break;
    }
  });
}

void CMerge::ProcessAnnouncementMessage(CModuleMessage& message) {
  Guarded("CMerge::ProcessAnnouncementMessage()", [&] { Announcements->ProcessMessage(message); });
}

BOOL CMerge::OnAddMerge(CModuleMessage& message) {
  return Guarded("CMerge::OnAddMerge()", [&] {
    MessageToMerge(message);
    UpdateTrackEvent();
    if (message.ID == 2) return FALSE;
    OnAddMerge();
    if (Data != nullptr) Data->MergesNotify(1, this);
    return TRUE;
  });
}

void CMerge::OnModifyMerge(CModuleMessage& message) {
  Guarded("CMerge::OnModifyMerge()", [&] {
    OnBeforeModifyMerge();
    const BYTE old = Flags;
    MessageToMerge(message);
    UpdateTrackEvent();
    OnAfterModifyMerge();
    if (Data != nullptr) Data->MergesNotify(KindOfDeleteChange(old, Flags), this);
  });
}

CBaseMergeRow* CMerge::StoreRow(DWORD key, CBaseMergeRow* row) {
  Rows[key] = row;
  RowList.push_back(row);
  return row;
}

void CMerge::MergeRowsToMessage(CTTBuffer& message) {
  Guarded("CMerge::MergeRowsToMessage()", [&] {
    int count = 0;
    message >> count;
    for (int i = 0; i < count; ++i) {
      DWORD key = 0;
      message >> key;
      auto row = std::make_unique<CBaseMergeRow>();
      row->MessageToMergeRow(message);
      row->UniqueID = key;
      StoreRow(key, row.release());
    }
  });
}

void CMerge::OnAddMergeRows(CModuleMessage& message) {
  Guarded("CMerge::OnAddMergeRows()", [&] {
    int count = 0;
    message >> count;
    for (int i = 0; i < count; ++i) {
      DWORD key = 0;
      message >> key;
      auto fresh = std::make_unique<CBaseMergeRow>();
      fresh->MessageToMergeRow(message);
      fresh->UniqueID = key;
      CBaseMergeRow* row = StoreRow(key, fresh.release());
      if (message.ID != 2) UpdatedRows.push_back(row);
    }
    if (message.ID != 2) {
      OnAddMergeRows();
      MergeRowsNotify(1);
      UpdatedRows.clear();
    }
  });
}

void CMerge::OnModifyMergeRows(CModuleMessage& message) {
  Guarded("CMerge::OnModifyMergeRows()", [&] {
    int count = 0;
    message >> count;
    if (count == 0) return;
    for (int i = 0; i < count; ++i) {
      DWORD key = 0;
      message >> key;
      auto found = Rows.find(key);
      if (found == Rows.end()) return;
      found->second->MessageToMergeRow(message);
      UpdatedRows.push_back(found->second);
    }
    OnModifyMergeRows();
    MergeRowsNotify(2);
    UpdatedRows.clear();
  });
}

void CMerge::OnRemoveMergeRows(CModuleMessage& message) {
  Guarded("CMerge::OnRemoveMergeRows()", [&] {
    int count = 0;
    message >> count;
    // A key named twice is removed once; the check stays cheap however long the list.
    std::unordered_set<DWORD> named;
    for (int i = 0; i < count; ++i) {
      DWORD key = 0;
      message >> key;
      auto found = Rows.find(key);
      if (found != Rows.end() && named.insert(key).second) RemovedRows.push_back(found->second);
    }
    try {
      OnRemoveMergeRows();
      MergeRowsNotify(3);
    } catch (...) {
      // The removal did not happen: the rows stay, and the list must not carry them into
      // the next removal.
      RemovedRows.clear();
      throw;
    }
    const std::unordered_set<const CBaseMergeRow*> removed(RemovedRows.begin(), RemovedRows.end());
    std::erase_if(RowList, [&](const CBaseMergeRow* row) { return removed.count(row) != 0; });
    for (CBaseMergeRow* row : RemovedRows) {
      Rows.erase(row->UniqueID);
      delete row;
    }
    RemovedRows.clear();
  });
}
