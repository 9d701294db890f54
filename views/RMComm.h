// The module's link to the data manager: the race data replica and the live views.
#pragma once

#include <vector>

#include "frame/ModuleMessage.h"
#include "frame/Types.h"

class CBaseModule;
class CRMComm;
class CRMRun;

// Base of the objects that follow the link: told when the data manager comes and goes
// and when all data is at hand.
class CRMCommObserver {
 public:
  virtual ~CRMCommObserver();
  virtual void OnConnect() {}
  virtual void OnDisconnect() {}
  virtual void OnAllData() {}
  virtual void OnActiveRunChanged(CRMRun* run) { (void)run; }
  virtual void OnBackupCreated() {}

  void Attach(CRMComm* comm);

  std::vector<CRMComm*> Subjects;
};

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

  CBaseModule* GetModule() const { return Module; }
  const std::vector<CRMCommObserver*>& GetObservers() const { return Observers; }

 private:
  CBaseModule* Module;
  std::vector<CRMCommObserver*> Observers;
};
