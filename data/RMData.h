// The façade of the replica that the rest of the module sees: the observers of the link
// to the data manager, the lookups, and the owner of the store.
#pragma once

#include <cstddef>
#include <vector>

#include "data/Data.h"
#include "frame/ModuleMessage.h"
#include "frame/Types.h"

class CBaseModule;
class CDataComm;
class CRMClassInfo;
class CRMComm;
class CRMCommObserver;

inline constexpr WORD kMsgAllViews = 0x8020;

class CRMData : public CDataOwner {
 public:
  CRMData(CBaseModule* module, CRMComm* comm);
  CRMData(const CRMData&) = delete;
  CRMData& operator=(const CRMData&) = delete;
  ~CRMData() override;

  void Initialize(DWORD parameter);
  void OnModifyModule(WORD moduleClass, DWORD instance, DWORD computer, BOOL present);
  void ProcessMessage(CModuleMessage& message);
  void Attach(CRMCommObserver* observer);
  void Detach(CRMCommObserver* observer);
  CRMCommObserver* ObserverGetHead();
  CRMCommObserver* ObserverGetNext();

  CTrack* GetTrack(DWORD id) const;
  Cevent* GetEvent(DWORD id) const;
  Cevent* EventGetHead();
  Cevent* EventGetNext();
  Cevent* EventGetRoot(Cevent* event) const;
  CRun* GetRun(DWORD id) const;
  CRun* GetActiveRun() const;
  CMerge* GetMerge(DWORD id) const;
  CBaseTxTranslation* GetTxTranslation(DWORD transponder) const;
  void OnClearAllPassings(DWORD runID);

  // CDataOwner
  void OnConnect() override;
  void OnDisconnect() override;
  void OnAllData() override;
  void OnInitializeTrack(CTrack* track) override;
  void OnInitializeEvent(Cevent* event) override;
  void OnInitializeRun(CRun* run) override;
  void OnInitializeMerge(CMerge* merge) override;
  void OnBackupCreated() override;

  BOOL IsAllDataSeen() const;
  CData* GetData() const { return Data; }
  CDataComm* GetDataComm() const { return DataComm; }
  CRMClassInfo* GetClassInfo() const { return ClassInfo; }
  const std::vector<CRMCommObserver*>& GetObservers() const { return Observers; }

 private:
  CBaseModule* Module;
  CRMComm* Comm;
  CDataComm* DataComm;
  CData* Data;
  CRMClassInfo* ClassInfo;
  std::vector<CRMCommObserver*> Observers;
  // Walk position; equal to the count means "at the end".
  std::size_t ObserverCursor = 0;
  std::map<DWORD, Cevent*>::const_iterator EventCursor;
};
