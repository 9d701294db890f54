#include "data/Competitor.h"

#include <cstdio>
#include <memory>
#include <set>

#include "data/SideRecords.h"
#include "frame/KVTException.h"

DWORD CBaseCompetitor::GetTransponder(int index, BOOL raw) const {
  return Guarded("CBaseCompetitor::GetTransponder()", [&] {
    // The count test is unsigned, as the sender never gives a negative index.
    DWORD value = static_cast<DWORD>(index) < Transponders.size() ? Transponders[static_cast<std::size_t>(index)] : 0;
    if (raw == FALSE) value &= kTransponderNumberMask;
    return value;
  });
}

void CBaseCompetitor::BuildFullName() {
  if (FirstName.empty()) {
    FullName = LastName;
  } else {
    FullName = FirstName;
    if (!LastName.empty()) FullName += " " + LastName;
  }
}

void CBaseCompetitor::MessageToCompetitor(CTTBuffer& message) {
  Guarded("CBaseCompetitor::MessageToCompetitor()", [&] {
    message >> Number >> Text1;
    int count = 0;
    message >> count;
    Transponders.clear();
    TransponderLabels.clear();
    for (int i = 0; i < count; ++i) {
      DWORD transponder = 0;
      std::string label;
      message >> transponder >> label;
      Transponders.push_back(transponder);
      if (!label.empty()) TransponderLabels[transponder] = label;
    }
    ReadStringList(message, FieldValues);
    message >> Status >> Text2 >> Class >> Word1 >> Byte1 >> Text3 >> FirstName >> LastName >> Value1 >> Time1 >>
        Count1 >> Time2 >> Value2 >> Count2 >> Time3 >> Count3 >> Time4;
    BuildFullName();
  });
}

std::string CBaseCompetitor::ToString() const {
  return Guarded("CBaseCompetitor::ToString()", [&] {
    std::string text = Number + "\t" + Text3 + "\t" + Text2 + "\t" + Class + "\t";
    char numbers[48];
    std::snprintf(numbers, sizeof numbers, "%ld\t%ld\t", static_cast<long>(GetTransponder(0, TRUE)),
                  static_cast<long>(GetTransponder(1, TRUE)));
    text += numbers;
    text += FirstName + "\t" + LastName + "\t";
    for (std::size_t i = 0; i < FieldValues.size(); ++i) {
      if (i > 0) text += "\t";
      text += FieldValues[i];
    }
    text += "\r\n";
    return text;
  });
}

CBaseCompetitorContainer::~CBaseCompetitorContainer() {
  for (auto& [key, competitor] : Competitors) delete competitor;
  for (CBaseCompetitor* competitor : Overwritten) delete competitor;
}

BOOL CBaseCompetitorContainer::CompetitorToTransponderMap(const CBaseCompetitor* competitor) {
  return Guarded("CBaseCompetitorContainer::CompetitorToTransponderMap()", [&] {
    BOOL entered = FALSE;
    for (std::size_t i = 0; i < competitor->Transponders.size(); ++i) {
      const DWORD number = competitor->GetTransponder(static_cast<int>(i), FALSE);
      // "No transponder" is all ones on the wire: tested before the type bits are masked
      // off, as the masked value would otherwise enter as number 0x1FFFFFFF.
      if (number == 0 || number == 0xFFFFFFFF || competitor->GetTransponder(static_cast<int>(i), TRUE) == 0xFFFFFFFF) {
        continue;
      }
      if (Transponders.emplace(number, competitor->UniqueID).second) entered = TRUE;
    }
    return entered;
  });
}

void CBaseCompetitorContainer::UpdateTransponderMap() {
  Guarded("CBaseCompetitorContainer::UpdateTransponderMap()", [&] {
    Transponders.clear();
    for (auto& [key, competitor] : Competitors) CompetitorToTransponderMap(competitor);
  });
}

DWORD CBaseCompetitorContainer::FindTransponder(DWORD number) const {
  auto found = Transponders.find(number);
  return found == Transponders.end() ? 0xFFFFFFFF : found->second;
}

void CCompetitorContainer::ProcessMessage(CModuleMessage& message) {
  Guarded("CCompetitorContainer::ProcessMessage()", [&] {
    switch (message.ID) {
      case 2:
      case 96: OnAddCompetitors(message); break;
      case 97: OnModifyCompetitors(message); break;
      case 98: OnRemoveCompetitors(message); break;
      default: break;
    }
  });
}

void CCompetitorContainer::OnAddCompetitors(CModuleMessage& message) {
  Guarded("CCompetitorContainer::OnAddCompetitors()", [&] {
    int count = 0;
    message >> count;
    for (int i = 0; i < count; ++i) {
      DWORD id = 0;
      message >> id;
      auto fresh = std::make_unique<CBaseCompetitor>();
      fresh->MessageToCompetitor(message);
      fresh->UniqueID = id;
      CBaseCompetitor* competitor = fresh.release();
      auto& slot = Competitors[id];
      if (slot != nullptr) Overwritten.push_back(slot);
      slot = competitor;
      if (message.ID != 2) Updated.push_back(competitor);
    }
    UpdateTransponderMap();
    if (message.ID != 2) {
      Owner->AddCompetitors();
      Updated.clear();
    }
  });
}

void CCompetitorContainer::OnModifyCompetitors(CModuleMessage& message) {
  Guarded("CCompetitorContainer::OnModifyCompetitors()", [&] {
    int count = 0;
    message >> count;
    if (count == 0) return;
    for (int i = 0; i < count; ++i) {
      DWORD id = 0;
      message >> id;
      auto found = Competitors.find(id);
      if (found == Competitors.end()) return;
      found->second->MessageToCompetitor(message);
      Updated.push_back(found->second);
    }
    UpdateTransponderMap();
    Owner->ModifyCompetitors();
    Updated.clear();
  });
}

void CCompetitorContainer::OnRemoveCompetitors(CModuleMessage& message) {
  Guarded("CCompetitorContainer::OnRemoveCompetitors()", [&] {
    int count = 0;
    message >> count;
    // An ID named twice is removed once: the list is told to the observers, then freed
    // entry by entry.
    std::set<DWORD> named;
    for (int i = 0; i < count; ++i) {
      DWORD id = 0;
      message >> id;
      auto found = Competitors.find(id);
      if (found != Competitors.end() && named.insert(id).second) Removed.push_back(found->second);
    }
    UpdateTransponderMap();
    try {
      Owner->RemoveCompetitors();
    } catch (...) {
      // The removal did not happen: the competitors stay, and the list must not carry
      // them into the next removal, which would take them a second time.
      Removed.clear();
      throw;
    }
    for (CBaseCompetitor* competitor : Removed) {
      auto found = Competitors.find(competitor->UniqueID);
      if (found != Competitors.end() && found->second == competitor) {
        Competitors.erase(found);
        delete competitor;
      }
    }
    Removed.clear();
  });
}
