// The module object: owns the ports and the sites, reads the configuration file, and
// drives everything from the host's timer once per whole second.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "frame/BaseModule.h"
#include "views/RMComm.h"

class CIniFile;

// Values that hold for every site and port; set only while loading the settings.
extern DWORD PacketSize;
extern DWORD PacketDelay;

class CZOLServer : public CBaseModule, public CRMCommObserver {
 public:
  CZOLServer();
  ~CZOLServer() override;

  int ProcessMessage(CModuleMessage* message) override;
  void Initialize() override;
  void OnModifyModule(WORD moduleClass, DWORD instance, DWORD computer, int present) override;
  void OnTimer() override;

  void OnDisconnect() override;
  void OnAllData() override;

  void LoadSettings();
  void SetTestPageSize(DWORD size);

  CRMComm* GetComm() const { return Comm; }
  DWORD GetNextPortID() const { return NextPortID; }
  DWORD GetTestPageSize() const { return TestPageSize; }
  BOOL IsDataConnected() const { return DataConnected; }
  // How many whole seconds the beat has done its work.
  DWORD GetBeatCount() const { return BeatCount; }

 private:
  CRMComm* Comm = nullptr;
  BOOL DataConnected = 0;
  DWORD NextPortID = 0;
  KVTTIME LastWholeSecond = 0;
  DWORD TestPageSize = 0;
  DWORD BeatCount = 0;
};
