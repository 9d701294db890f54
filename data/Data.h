// The store with the link to the data manager: connection states, the incremental
// messages, the side-record handlers and the marker pointers (default track and run,
// active run).
#pragma once

#include "data/BaseDataComm.h"
#include "data/Passing.h"
#include "frame/ModuleMessage.h"
#include "frame/Types.h"

class CBaseModule;

// What the store tells its owner (the CRMData).
class CDataOwner {
 public:
  virtual ~CDataOwner() = default;
  virtual void OnConnect() {}
  virtual void OnDisconnect() {}
  virtual void OnAllData() {}
  virtual void OnInitializeTrack(CTrack* track) { (void)track; }
  virtual void OnAllTracks() {}
  virtual void OnInitializeEvent(Cevent* event) { (void)event; }
  virtual void OnAllEvents() {}
  virtual void OnInitializeRun(CRun* run) { (void)run; }
  virtual void OnAllRuns() {}
  virtual void OnInitializeMerge(CMerge* merge) { (void)merge; }
  virtual void OnAllMerges() {}
  virtual void OnAddField(DWORD kind, CBaseField* field) { (void)kind, (void)field; }
  virtual void OnModifyField(DWORD kind, CBaseField* field) { (void)kind, (void)field; }
  virtual void OnRemoveField(DWORD kind, CBaseField* field) { (void)kind, (void)field; }
  virtual void OnBackupCreated() {}
};

// Where the link to the data manager stands.
enum class EDataLinkState { Waiting, Connecting, Loading, Live };

inline constexpr WORD kMsgDataConnect = 0;
inline constexpr WORD kMsgDataDisconnect = 1;
inline constexpr WORD kMsgDataAll = 2;

class CData : public CBaseDataComm {
 public:
  CData(CBaseModule* module, CDataOwner* owner, CPassingOwner* passingOwner);
  ~CData() override;

  void OnInitialize(WORD moduleClass, DWORD parameter);
  void OnModifyModule(WORD moduleClass, DWORD instance, DWORD computer, BOOL present);
  void OnConnect();
  void OnDisconnect(BOOL listModules);
  void ProcessDataManagerMessage(CModuleMessage& message);
  void Clear();
  void ClearAllUpdated();

  void OnAddTrack(CTrack* track, CModuleMessage& message);
  void OnAddEvent(Cevent* event, CModuleMessage& message);
  void OnAddRun(CRun* run, CModuleMessage& message);
  void OnAddMerge(CMerge* merge, CModuleMessage& message);

  void ProcessAnnouncementOwnerMessage(CModuleMessage& message);
  void ProcessCompetitorMessage(CModuleMessage& message);
  void ProcessPassingsMessage(CModuleMessage& message);

  void OnAddTxTranslations(CModuleMessage& message);
  void OnAddTxTranslation(CModuleMessage& message);
  void OnModifyTxTranslation(CModuleMessage& message);
  void OnRemoveTxTranslation(CModuleMessage& message);
  void OnAddChampionships(CModuleMessage& message);
  void OnAddChampionship(CModuleMessage& message);
  void OnModifyChampionship(CModuleMessage& message);
  void OnRemoveChampionship(CModuleMessage& message);
  void MessageToAllFields(CModuleMessage& message);
  void MessageToFields(DWORD kind, CModuleMessage& message);
  void OnAddField(CModuleMessage& message);
  void OnModifyField(CModuleMessage& message);
  void OnRemoveField(CModuleMessage& message);

  // Called by the snapshot reader once all data is in.
  void OnSnapshotApplied() { State = EDataLinkState::Live; }
  // The marker pointers that a list of their kind replaces.
  void ForgetRunPointers();
  void ForgetTrackPointers();
  // Refreshes the event and track pointers of runs and merges after a list of events or
  // tracks replaced the objects they pointed at.
  void RefreshTrackEventPointers();

  EDataLinkState GetState() const { return State; }

  CBaseModule* Module;
  CDataOwner* Owner;
  CPassingOwner* PassingOwner;
  WORD ModuleClass = 65535;
  BOOL Connected = FALSE;
  DWORD ConnectParameter = 0;
  CTrack* DefaultTrack = nullptr;
  void* SpareDefault1 = nullptr;
  CRun* DefaultRun = nullptr;
  void* SpareDefault2 = nullptr;
  CRun* ActiveRun = nullptr;
  CPassingList* GlobalPassings;

 private:
  void ActiveRunStep(CRun* run);
  EDataLinkState State = EDataLinkState::Waiting;
};

inline constexpr const char* kDefaultTrackName = "Def@ult Track Properties";
inline constexpr const char* kDefaultRunName = "Def@ult Run Properties";
