// Competitors and the container that events and runs keep them in, with its map from
// transponder number to competitor.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "frame/ModuleMessage.h"
#include "frame/Types.h"

class CBaseModule;

inline constexpr DWORD kTransponderNumberMask = 0x1FFFFFFF;

class CBaseCompetitor {
 public:
  virtual ~CBaseCompetitor() = default;
  virtual std::string ToString() const;

  DWORD GetTransponder(int index, BOOL raw) const;
  void MessageToCompetitor(CTTBuffer& message);
  // FullName from FirstName and LastName.
  void BuildFullName();

  DWORD UniqueID = 65535;
  std::string Number;
  std::string Text1;
  std::vector<std::string> FieldValues;
  BYTE Status = 0;
  std::string Text2;
  std::string Class;
  WORD Word1 = 0;
  BYTE Byte1 = 0;
  std::string Text3;
  std::string FirstName;
  std::string LastName;
  double Value1 = 0;
  KVTTIME Time1 = 0;
  int Count1 = 0;
  KVTTIME Time2 = 0;
  double Value2 = 0;
  int Count2 = 0;
  KVTTIME Time3 = 0;
  int Count3 = 0;
  KVTTIME Time4 = 0;

  std::string FullName;
  std::vector<DWORD> Transponders;
  std::map<DWORD, std::string> TransponderLabels;
};

// What an event or a run offers its competitor container.
class CCompetitorOwner {
 public:
  virtual ~CCompetitorOwner() = default;
  virtual void AddCompetitors() = 0;
  virtual void ModifyCompetitors() = 0;
  virtual void RemoveCompetitors() = 0;
};

class CBaseCompetitorContainer {
 public:
  CBaseCompetitorContainer() = default;
  CBaseCompetitorContainer(const CBaseCompetitorContainer&) = delete;
  CBaseCompetitorContainer& operator=(const CBaseCompetitorContainer&) = delete;
  virtual ~CBaseCompetitorContainer();

  BOOL CompetitorToTransponderMap(const CBaseCompetitor* competitor);
  void UpdateTransponderMap();
  // The competitor ID entered for a transponder number, or 0xFFFFFFFF.
  DWORD FindTransponder(DWORD number) const;

  std::map<DWORD, CBaseCompetitor*> Competitors;
  std::vector<CBaseCompetitor*> Updated;
  std::vector<CBaseCompetitor*> Removed;
  std::map<DWORD, DWORD> Transponders;
  // Competitors overwritten by an add under a known key: kept alive, freed at the end.
  std::vector<CBaseCompetitor*> Overwritten;
};

class CCompetitorContainer : public CBaseCompetitorContainer {
 public:
  CCompetitorContainer(CBaseModule* module, CCompetitorOwner* owner) : Module(module), Owner(owner) {}

  void ProcessMessage(CModuleMessage& message);
  void OnAddCompetitors(CModuleMessage& message);
  void OnModifyCompetitors(CModuleMessage& message);
  void OnRemoveCompetitors(CModuleMessage& message);

  CBaseModule* Module;
  CCompetitorOwner* Owner;
};
