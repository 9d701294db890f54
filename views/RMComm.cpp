#include "views/RMComm.h"

#include <algorithm>

#include "data/RMData.h"
#include "frame/BaseModule.h"
#include "frame/KVTException.h"

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

// No view objects exist yet, so every view and lap row message finds no receiver and is
// dropped after its key, as for a view that has gone away.
void CRMComm::OnViewConnect(CModuleMessage& message) {
  Guarded("CRMComm::OnViewConnect()", [&] {
    DWORD viewID = 0;
    message >> viewID;
  });
}

void CRMComm::OnViewDisconnect(CModuleMessage& message) {
  Guarded("CRMComm::OnViewDisconnect()", [&] {
    std::string name;
    DWORD viewID = 0;
    message >> name >> viewID;
  });
}

void CRMComm::OnProcessViewMessage(CModuleMessage& message) {
  Guarded("CRMComm::OnProcessViewMessage()", [&] {
    DWORD viewID = 0;
    message >> viewID;
  });
}

void CRMComm::OnProcessLapRowMessage(CModuleMessage& message) {
  Guarded("CRMComm::OnProcessLapRowMessage()", [&] {
    DWORD key = 0;
    message >> key;
  });
}

void CRMComm::OnClearAllPassings(DWORD runID) {
  Guarded("CRMComm::OnClearAllPassings()", [&] { (void)runID; });
}

void CRMComm::ClearAll() {
  Guarded("CRMComm::ClearAll()", [&] { ViewNames.clear(); });
}

void CRMComm::OnDisconnect() {
  Guarded("CRMComm::OnDisconnect()", [&] {});
}
