// The module's link to the data manager. It passes the race data messages to the
// replica (CRMData) and keeps the list of views the data manager offers; the views
// themselves are not built yet.
#pragma once

#include <string>
#include <vector>

#include "frame/ModuleMessage.h"
#include "frame/Types.h"

class CBaseModule;
class CRMComm;
class CRMData;
class CRun;

// Base of the objects that follow the link: told when the data manager comes and goes
// and when all data is at hand.
class CRMCommObserver {
 public:
  CRMCommObserver() = default;
  CRMCommObserver(const CRMCommObserver&) = delete;
  CRMCommObserver& operator=(const CRMCommObserver&) = delete;
  virtual ~CRMCommObserver();
  virtual void OnConnect() {}
  virtual void OnDisconnect() {}
  virtual void OnAllData() {}
  virtual void OnActiveRunChanged(CRun* run) { (void)run; }
  virtual void OnBackupCreated() {}

  void Attach(CRMComm* comm);

  std::vector<CRMComm*> Subjects;
};

inline constexpr WORD kMsgViewBase = 0x8000;

class CRMComm {
 public:
  explicit CRMComm(CBaseModule* module);
  CRMComm(const CRMComm&) = delete;
  CRMComm& operator=(const CRMComm&) = delete;
  virtual ~CRMComm();

  void Initialize(DWORD parameter);
  void OnModifyModule(WORD moduleClass, DWORD instance, DWORD computer, int present);
  void Attach(CRMCommObserver* observer);
  void Detach(CRMCommObserver* observer);
  void ProcessMessage(CModuleMessage* message);
  void ClearAll();
  void OnDisconnect();
  void OnClearAllPassings(DWORD runID);

  CBaseModule* GetModule() const { return Module; }
  CRMData* GetData() const { return Data; }
  const std::vector<CRMCommObserver*>& GetObservers() const;
  const std::vector<std::string>& GetViewNames() const { return ViewNames; }
  DWORD GetNextViewID() const { return NextViewID; }

 private:
  void OnAllViews(CModuleMessage& message);
  void OnViewConnect(CModuleMessage& message);
  void OnViewDisconnect(CModuleMessage& message);
  void OnProcessViewMessage(CModuleMessage& message);
  void OnProcessLapRowMessage(CModuleMessage& message);

  CBaseModule* Module;
  CRMData* Data;
  DWORD NextViewID = 0;
  std::vector<std::string> ViewNames;
};
