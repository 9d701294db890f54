#include "views/RMComm.h"

#include <algorithm>
#include <memory>

#include "data/RMData.h"
#include "data/Run.h"
#include "frame/BaseModule.h"
#include "frame/KVTException.h"
#include "views/RMLapView.h"
#include "views/RMView.h"

CRMCommObserver::~CRMCommObserver() {
  for (CRMComm* comm : Subjects) comm->Detach(this);
  Subjects.clear();
}

void CRMCommObserver::Attach(CRMComm* comm) {
  Guarded("CRMCommObserver::Attach()", [&] {
    if (std::find(Subjects.begin(), Subjects.end(), comm) == Subjects.end()) Subjects.push_back(comm);
    comm->Attach(this);
  });
}

CRMComm::CRMComm(CBaseModule* module) : Module(module), Data(new CRMData(module, this)) {}

CRMComm::~CRMComm() {
  ClearAll();
  // Observers that outlive the link must not detach from it later.
  for (CRMCommObserver* observer : Data->GetObservers()) {
    auto& subjects = observer->Subjects;
    subjects.erase(std::remove(subjects.begin(), subjects.end(), this), subjects.end());
  }
  delete Data;
}

const std::vector<CRMCommObserver*>& CRMComm::GetObservers() const { return Data->GetObservers(); }

void CRMComm::Initialize(DWORD parameter) {
  Guarded("CRMComm::Initialize()", [&] { Data->Initialize(parameter); });
}

void CRMComm::OnModifyModule(WORD moduleClass, DWORD instance, DWORD computer, int present) {
  Guarded("CRMComm::OnModifyModule()", [&] { Data->OnModifyModule(moduleClass, instance, computer, present); });
}

void CRMComm::Attach(CRMCommObserver* observer) { Data->Attach(observer); }

void CRMComm::Detach(CRMCommObserver* observer) { Data->Detach(observer); }

void CRMComm::ProcessMessage(CModuleMessage* message) {
  Guarded("CRMComm::ProcessMessage()", [&] {
    const WORD offset = static_cast<WORD>(message->ID - kMsgViewBase);
    if (offset <= 2) {
      OnProcessLapRowMessage(*message);
    } else if (offset == 32) {
      OnAllViews(*message);
    } else if (offset == 33) {
      OnViewConnect(*message);
    } else if (offset == 34) {
      OnViewDisconnect(*message);
    } else if (offset >= 36 && offset <= 39) {
      OnProcessViewMessage(*message);
    } else {
      Data->ProcessMessage(*message);
    }
  });
}

void CRMComm::OnAllViews(CModuleMessage& message) {
  Guarded("CRMComm::OnAllViews()", [&] {
    int count = 0;
    message >> count;
    for (int i = 0; i < count; ++i) {
      std::string name;
      message >> name;
      ViewNames.push_back(name);
    }
    for (CRMCommObserver* observer = Data->ObserverGetHead(); observer != nullptr; observer = Data->ObserverGetNext()) {
      observer->OnAllData();
      if (CRun* run = Data->GetActiveRun()) observer->OnActiveRunChanged(run);
    }
  });
}

void CRMComm::OnViewConnect(CModuleMessage& message) {
  Guarded("CRMComm::OnViewConnect()", [&] {
    DWORD viewID = 0;
    message >> viewID;
    auto found = Views.find(viewID);
    if (found == Views.end() || found->second == nullptr) return;
    found->second->MessageToViewStructure(message);
  });
}

void CRMComm::OnViewDisconnect(CModuleMessage& message) {
  Guarded("CRMComm::OnViewDisconnect()", [&] {
    std::string name;
    DWORD viewID = 0;
    message >> name >> viewID;
    auto found = Views.find(viewID);
    if (found == Views.end()) return;
    CRMView* view = found->second;
    Views.erase(found);
    delete view;
  });
}

void CRMComm::OnProcessViewMessage(CModuleMessage& message) {
  Guarded("CRMComm::OnProcessViewMessage()", [&] {
    DWORD viewID = 0;
    message >> viewID;
    auto found = Views.find(viewID);
    if (found == Views.end() || found->second == nullptr) return;
    CRMView* view = found->second;
    switch (message.ID) {
      case kMsgAllRows: view->OnAllRows(message); break;
      case kMsgAddRows: view->OnAddRows(message); break;
      case kMsgModifyRows: view->OnModifyRows(message); break;
      case kMsgRemoveRows: view->OnRemoveRows(message); break;
      default: break;
    }
  });
}

void CRMComm::OnProcessLapRowMessage(CModuleMessage& message) {
  Guarded("CRMComm::OnProcessLapRowMessage()", [&] {
    DWORD key = 0;
    message >> key;
    auto found = LapViews.find(key);
    if (found == LapViews.end() || found->second == nullptr) return;
    CRMLapView* lapView = found->second;
    switch (message.ID) {
      case kMsgAllPassings: lapView->OnAllPassings(message); break;
      case kMsgAddLapRow: lapView->OnAddLapRow(message); break;
      case kMsgModifyLapRows: lapView->OnModifyLapRows(message); break;
      default: break;
    }
  });
}

void CRMComm::OnClearAllPassings(DWORD runID) {
  Guarded("CRMComm::OnClearAllPassings()", [&] {
    auto found = LapViews.find(runID);
    if (found != LapViews.end() && found->second != nullptr) found->second->OnClearAllPassings();
  });
}

CRMView* CRMComm::CreateView(const std::string& name, BOOL isPrivate, const CParameters& parameters, BOOL grouped) {
  return Guarded("CRMComm::CreateView(Param)", [&]() -> CRMView* {
    if (isPrivate == FALSE) {
      // The map walks in ascending view ID, so the oldest match is shared.
      for (auto& [id, view] : Views) {
        if (view == nullptr) continue;
        if (view->GetName() == name && view->CompareParameters(parameters) != FALSE && view->IsPrivate() == FALSE &&
            view->IsGrouped() == grouped) {
          return view;
        }
      }
    }
    auto view = std::make_unique<CRMView>(name, NextViewID, isPrivate, grouped, parameters, Data, Module);
    Views[NextViewID] = view.get();
    ++NextViewID;
    return view.release();
  });
}

CRMLapView* CRMComm::CreateLapView(CRun* run) {
  return Guarded("CRMComm::CreateLapView()", [&]() -> CRMLapView* {
    if (run == nullptr) return nullptr;
    auto found = LapViews.find(run->UniqueID);
    if (found != LapViews.end() && found->second != nullptr) return found->second;
    auto lapView = std::make_unique<CRMLapView>(run, Data);
    LapViews[run->UniqueID] = lapView.get();
    return lapView.release();
  });
}

void CRMComm::DestroyViews() {
  // Taken out of the map first: a view's destructor tells its observers, and none of
  // them may find a view that is half gone.
  std::map<DWORD, CRMView*> views;
  views.swap(Views);
  for (auto& [id, view] : views) delete view;
}

void CRMComm::DestroyLapViews() {
  std::map<DWORD, CRMLapView*> lapViews;
  lapViews.swap(LapViews);
  for (auto& [key, lapView] : lapViews) delete lapView;
}

void CRMComm::ClearAll() {
  Guarded("CRMComm::ClearAll()", [&] {
    ViewNames.clear();
    DestroyViews();
    DestroyLapViews();
  });
}

void CRMComm::OnDisconnect() {
  Guarded("CRMComm::OnDisconnect()", [&] {
    DestroyViews();
    for (auto& [key, lapView] : LapViews) {
      if (lapView != nullptr) lapView->OnClearAllPassings();
    }
    DestroyLapViews();
  });
}
