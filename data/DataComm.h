// The first stage of message handling: the full lists (snapshots), which create the
// records as their most derived classes, and the add messages of the four record kinds.
#pragma once

#include "frame/ModuleMessage.h"
#include "frame/Types.h"

class CBaseModule;
class CData;
class CRMData;

class CDataComm {
 public:
  CDataComm(CBaseModule* module, CRMData* owner, CData* data) : Module(module), Owner(owner), Data(data) {}

  void ProcessMessage(CModuleMessage& message);
  void OnGetAllData(CModuleMessage& message);
  void OnGetAllTracks(CModuleMessage& message);
  void OnGetAllEvents(CModuleMessage& message);
  void OnGetAllRuns(CModuleMessage& message);
  void OnGetAllMerges(CModuleMessage& message);

  CBaseModule* Module;
  CRMData* Owner;
  CData* Data;
  BOOL AllDataSeen = FALSE;
};
