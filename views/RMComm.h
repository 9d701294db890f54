// The module's link to the data manager. It keeps the list of views the data manager
// offers, creates and shares the live views, routes row and lap row messages to them by
// ID, and passes everything else to the race data replica (CRMData).
#pragma once

#include <map>
#include <string>
#include <vector>

#include "frame/ModuleMessage.h"
#include "frame/Types.h"

class CBaseModule;
class CRMComm;
class CParameters;
class CRMData;
class CRMLapView;
class CRMView;
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

  // The view of that name and parameters: an existing one unless private is set, else
  // a new one under the next view ID, which is never given twice.
  CRMView* CreateView(const std::string& name, BOOL isPrivate, const CParameters& parameters, BOOL grouped);
  // The lap view of a run, made on first request. Nothing in the module asks for one;
  // readers of a run's passings would.
  CRMLapView* CreateLapView(CRun* run);

  CBaseModule* GetModule() const { return Module; }
  CRMData* GetData() const { return Data; }
  const std::vector<CRMCommObserver*>& GetObservers() const;
  const std::vector<std::string>& GetViewNames() const { return ViewNames; }
  DWORD GetNextViewID() const { return NextViewID; }
  const std::map<DWORD, CRMView*>& GetViews() const { return Views; }
  const std::map<DWORD, CRMLapView*>& GetLapViews() const { return LapViews; }

 private:
  void OnAllViews(CModuleMessage& message);
  void OnViewConnect(CModuleMessage& message);
  void OnViewDisconnect(CModuleMessage& message);
  void OnProcessViewMessage(CModuleMessage& message);
  void OnProcessLapRowMessage(CModuleMessage& message);
  void DestroyViews();
  void DestroyLapViews();

  CBaseModule* Module;
  CRMData* Data;
  DWORD NextViewID = 0;
  std::vector<std::string> ViewNames;
  // View ID to view; owned.
  std::map<DWORD, CRMView*> Views;
  // Run unique ID to lap view; owned.
  std::map<DWORD, CRMLapView*> LapViews;
};
