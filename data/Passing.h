// Passings and the list that a run keeps them in.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "frame/ModuleMessage.h"
#include "frame/Types.h"

class CBaseModule;

class CBasePassing {
 public:
  explicit CBasePassing(DWORD id) : UniqueID(id) {}
  virtual ~CBasePassing() = default;

  void MessageToPassing(CTTBuffer& message);
  void CalculateTimeOfDay(BOOL secondBasis);

  DWORD UniqueID;
  BYTE PassingType = 0;
  DWORD Transponder = 0;
  KVTTIME TimeOfDay = 0;
  WORD Word1 = 0;
  WORD Word2 = 0;
  BYTE Byte1 = 0;
  BYTE Byte2 = 0;
  BYTE Byte3 = 255;
  DWORD Dword1 = 0xFFFFFFFF;
  BYTE Byte4 = 0;
  DWORD Dword2 = 0;
  DWORD Dword3 = 0;
  KVTTIME RawTime = 0;
  KVTTIME CorrectedTime = 0;
  KVTTIME DayOffset = 0;
  std::string ShortText = "-";
};

// The side of a run that its passing list reports to.
class CPassingOwner {
 public:
  virtual ~CPassingOwner() = default;
  virtual void OnAllPassings() {}
  virtual void OnAddPassings(const std::vector<CBasePassing*>& passings) { (void)passings; }
  virtual void OnModifyPassings(const std::vector<CBasePassing*>& passings) { (void)passings; }

  DWORD RunUniqueID = 0xFFFFFFFF;
  BOOL TimeBasis = FALSE;
};

class CPassingList {
 public:
  CPassingList(CBaseModule* module, CPassingOwner* owner) : Module(module), Owner(owner) {}
  CPassingList(const CPassingList&) = delete;
  CPassingList& operator=(const CPassingList&) = delete;
  virtual ~CPassingList();

  void Clear();
  void AddPassings(CModuleMessage& message);
  void ModifyPassings(CModuleMessage& message);

  CBaseModule* Module;
  CPassingOwner* Owner;
  std::map<DWORD, CBasePassing*> Passings;
  // Passings overwritten by an add under a known key: kept alive, freed by Clear.
  std::vector<CBasePassing*> Overwritten;

 private:
  CBasePassing* Store(DWORD id, CBasePassing* passing);
};
