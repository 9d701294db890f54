#include "data/Passing.h"

#include <memory>

#include "frame/KVTException.h"

void CBasePassing::MessageToPassing(CTTBuffer& message) {
  Guarded("CBasePassing::MessageToPassing()", [&] {
    message >> PassingType >> Transponder >> TimeOfDay >> Word1 >> Word2 >> Byte1 >> Byte2 >> Byte3 >> Dword1 >>
        Byte4 >> Dword2 >> Dword3 >> RawTime >> CorrectedTime >> DayOffset;
  });
}

void CBasePassing::CalculateTimeOfDay(BOOL secondBasis) {
  Guarded("CBasePassing::CalculateTimeOfDay()", [&] {
    if (secondBasis == FALSE) {
      TimeOfDay = static_cast<KVTTIME>(static_cast<std::uint64_t>(RawTime) + static_cast<std::uint64_t>(DayOffset));
    } else if (CorrectedTime == 0) {
      TimeOfDay = 0;
    } else {
      TimeOfDay =
          static_cast<KVTTIME>(static_cast<std::uint64_t>(CorrectedTime) + static_cast<std::uint64_t>(DayOffset));
    }
  });
}

CPassingList::~CPassingList() { Clear(); }

void CPassingList::Clear() {
  Guarded("CPassingList::Clear()", [&] {
    for (auto& [key, passing] : Passings) delete passing;
    Passings.clear();
    for (CBasePassing* passing : Overwritten) delete passing;
    Overwritten.clear();
  });
}

CBasePassing* CPassingList::Store(DWORD id, CBasePassing* passing) {
  auto& slot = Passings[id];
  if (slot != nullptr) Overwritten.push_back(slot);
  slot = passing;
  return passing;
}

void CPassingList::AddPassings(CModuleMessage& message) {
  Guarded("CPassingList::AddPassings()", [&] {
    if (Owner == nullptr) return;
    DWORD count = 0;
    message >> count;
    const bool all = message.ID == 112;
    const BOOL basis = Owner->TimeBasis;
    std::vector<CBasePassing*> added;
    for (DWORD i = 0; i < count; ++i) {
      DWORD id = 0;
      message >> id;
      auto fresh = std::make_unique<CBasePassing>(id);
      fresh->MessageToPassing(message);
      fresh->CalculateTimeOfDay(basis);
      CBasePassing* passing = Store(id, fresh.release());
      if (!all) added.push_back(passing);
    }
    if (all) {
      Owner->OnAllPassings();
    } else {
      Owner->OnAddPassings(added);
    }
  });
}

void CPassingList::ModifyPassings(CModuleMessage& message) {
  Guarded("CPassingList::ModifyPassings()", [&] {
    if (Owner == nullptr) return;
    int count = 0;
    message >> count;
    const BOOL basis = Owner->TimeBasis;
    std::vector<CBasePassing*> added;
    std::vector<CBasePassing*> modified;
    for (int i = 0; i < count; ++i) {
      DWORD id = 0;
      message >> id;
      auto found = Passings.find(id);
      if (found == Passings.end()) {
        auto fresh = std::make_unique<CBasePassing>(id);
        fresh->MessageToPassing(message);
        fresh->CalculateTimeOfDay(basis);
        added.push_back(Store(id, fresh.release()));
      } else {
        found->second->MessageToPassing(message);
        found->second->CalculateTimeOfDay(basis);
        modified.push_back(found->second);
      }
    }
    if (!added.empty()) Owner->OnAddPassings(added);
    if (!modified.empty()) Owner->OnModifyPassings(modified);
  });
}
