// Events: root events at a track and the groups below them, each with its competitors.
#pragma once

#include <string>
#include <vector>

#include "data/Competitor.h"
#include "data/Subjects.h"
#include "frame/ModuleMessage.h"
#include "frame/Types.h"

class CBaseModule;
class CBaseDataComm;
class CRMData;

inline constexpr DWORD kNoParent = 0xFFFFFFFF;

class CBaseEvent : public CCompetitorOwner, public CEventSubject, public CCompetitorsSubject {
 public:
  CBaseEvent();
  void MessageToEvent(CTTBuffer& message);

  DWORD UniqueID = 0xFFFFFFFF;
  DWORD Tag = 0xFFFFFFFF;
  BYTE Flags = 0;
  DWORD TrackID = 0xFFFFFFFF;
  DWORD ParentID = kNoParent;
  std::string Name;
  std::string Name2;
  std::string Name3;
  DWORD StartDate;
  DWORD EndDate;
  DWORD EventParam = 0;
  std::vector<std::string> FieldValues;
};

class Cevent : public CBaseEvent {
 public:
  explicit Cevent(CBaseModule* module);
  ~Cevent() override;

  void AddCompetitors() override;
  void ModifyCompetitors() override;
  void RemoveCompetitors() override;
  virtual void OnAddEvent() {}
  virtual void OnBeforeModifyEvent() {}
  virtual void OnAfterModifyEvent() {}
  virtual void OnAddCompetitors() {}
  virtual void OnModifyCompetitors() {}
  virtual void OnRemoveCompetitors() {}

  void ProcessMessage(CModuleMessage& message);
  BOOL OnAddEvent(CModuleMessage& message);
  void OnModifyEvent(CModuleMessage& message);

  CCompetitorContainer* Competitors;
  CBaseModule* Module;
  CBaseDataComm* Data = nullptr;
};

class CRMCEvent : public Cevent {
 public:
  using Cevent::Cevent;
  CRMData* RMData = nullptr;
};

// The kind of a Flags bit-0 change: 2 unchanged, 3 now deleted, 1 now undeleted.
inline BYTE KindOfDeleteChange(unsigned oldFlags, unsigned newFlags) {
  if (((oldFlags ^ newFlags) & 1) == 0) return 2;
  return (newFlags & 1) != 0 ? 3 : 1;
}
