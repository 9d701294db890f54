#include "data/RMData.h"

#include <algorithm>

#include "data/DataComm.h"
#include "data/RMClassInfo.h"
#include "frame/BaseModule.h"
#include "frame/KVTException.h"
#include "views/RMComm.h"

CRMData::CRMData(CBaseModule* module, CRMComm* comm) : Module(module), Comm(comm) {
  Data = new CData(module, this, nullptr);
  DataComm = new CDataComm(module, this, Data);
  ClassInfo = new CRMClassInfo;
  EventCursor = Data->Events.end();
}

CRMData::~CRMData() {
  delete ClassInfo;
  delete DataComm;
  delete Data;
}

void CRMData::Initialize(DWORD parameter) {
  Guarded("CRMData::Initialize()", [&] { Data->OnInitialize(kDataManagerClass, parameter); });
}

void CRMData::OnModifyModule(WORD moduleClass, DWORD instance, DWORD computer, BOOL present) {
  Guarded("CRMData::OnModifyModule()", [&] { Data->OnModifyModule(moduleClass, instance, computer, present); });
}

void CRMData::ProcessMessage(CModuleMessage& message) {
  Guarded("CRMData::ProcessMessage()", [&] { DataComm->ProcessMessage(message); });
}

BOOL CRMData::IsAllDataSeen() const { return DataComm->AllDataSeen; }

void CRMData::Attach(CRMCommObserver* observer) {
  Guarded("CRMData::Attach()", [&] {
    CRMCommObserver* remembered = ObserverCursor < Observers.size() ? Observers[ObserverCursor] : nullptr;
    if (std::find(Observers.begin(), Observers.end(), observer) != Observers.end()) return;
    Observers.push_back(observer);
    if (DataComm->AllDataSeen != FALSE) observer->OnAllData();
    ObserverCursor = remembered != nullptr
                         ? static_cast<std::size_t>(std::find(Observers.begin(), Observers.end(), remembered) -
                                                    Observers.begin())
                         : Observers.size();
  });
}

void CRMData::Detach(CRMCommObserver* observer) {
  Guarded("CRMData::Detach()", [&] {
    CRMCommObserver* remembered = ObserverCursor < Observers.size() ? Observers[ObserverCursor] : nullptr;
    auto found = std::find(Observers.begin(), Observers.end(), observer);
    if (found == Observers.end()) return;
    Observers.erase(found);
    ObserverCursor = remembered != nullptr
                         ? static_cast<std::size_t>(std::find(Observers.begin(), Observers.end(), remembered) -
                                                    Observers.begin())
                         : Observers.size();
  });
}

CRMCommObserver* CRMData::ObserverGetHead() {
  ObserverCursor = 0;
  return Observers.empty() ? nullptr : Observers[0];
}

CRMCommObserver* CRMData::ObserverGetNext() {
  if (ObserverCursor < Observers.size()) ++ObserverCursor;
  return ObserverCursor < Observers.size() ? Observers[ObserverCursor] : nullptr;
}

CTrack* CRMData::GetTrack(DWORD id) const { return Data->FindTrack(id); }
Cevent* CRMData::GetEvent(DWORD id) const { return Data->FindEvent(id); }
CRun* CRMData::GetRun(DWORD id) const { return Data->FindRun(id); }
CMerge* CRMData::GetMerge(DWORD id) const { return Data->FindMerge(id); }
CRun* CRMData::GetActiveRun() const { return Data->ActiveRun; }
Cevent* CRMData::EventGetRoot(Cevent* event) const { return Data->EventGetRoot(event); }

Cevent* CRMData::EventGetHead() {
  EventCursor = Data->Events.begin();
  return EventCursor == Data->Events.end() ? nullptr : EventCursor->second;
}

Cevent* CRMData::EventGetNext() {
  if (EventCursor == Data->Events.end()) return nullptr;
  ++EventCursor;
  return EventCursor == Data->Events.end() ? nullptr : EventCursor->second;
}

CBaseTxTranslation* CRMData::GetTxTranslation(DWORD transponder) const {
  auto found = Data->TxTranslations.find(transponder);
  return found == Data->TxTranslations.end() ? nullptr : found->second;
}

void CRMData::OnClearAllPassings(DWORD runID) {
  Guarded("CRMData::OnClearAllPassings()", [&] {
    if (Comm != nullptr) Comm->OnClearAllPassings(runID);
  });
}

void CRMData::OnConnect() {
  Guarded("CRMData::OnConnect()", [&] {
    for (CRMCommObserver* observer = ObserverGetHead(); observer != nullptr; observer = ObserverGetNext()) {
      observer->OnConnect();
    }
  });
}

void CRMData::OnDisconnect() {
  Guarded("CRMData::OnDisconnect()", [&] {
    for (CRMCommObserver* observer = ObserverGetHead(); observer != nullptr; observer = ObserverGetNext()) {
      observer->OnDisconnect();
    }
    if (Comm != nullptr) Comm->OnDisconnect();
  });
}

void CRMData::OnAllData() {
  Guarded("CRMData::OnAllData()", [&] {
    Module->Send(kMsgAllViews);
    ClassInfo->Initialize(Data->FindEvent(kClassEventID));
  });
}

void CRMData::OnInitializeTrack(CTrack* track) {
  if (auto* rm = dynamic_cast<CRMCTrack*>(track)) rm->RMData = this;
}
void CRMData::OnInitializeEvent(Cevent* event) {
  if (auto* rm = dynamic_cast<CRMCEvent*>(event)) rm->RMData = this;
}
void CRMData::OnInitializeRun(CRun* run) {
  if (auto* rm = dynamic_cast<CRMCRun*>(run)) rm->RMData = this;
}
void CRMData::OnInitializeMerge(CMerge* merge) {
  if (auto* rm = dynamic_cast<CRMCMerge*>(merge)) rm->RMData = this;
}

void CRMData::OnBackupCreated() {
  Guarded("CRMData::OnBackupCreated()", [&] {
    for (CRMCommObserver* observer = ObserverGetHead(); observer != nullptr; observer = ObserverGetNext()) {
      observer->OnBackupCreated();
    }
  });
}
