#include "views/RMComm.h"

#include <algorithm>

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

CRMComm::CRMComm(CBaseModule* module) : Module(module) {}

CRMComm::~CRMComm() {
  ClearAll();
  // Observers that outlive the link must not detach from it later.
  for (CRMCommObserver* observer : Observers) {
    auto& subjects = observer->Subjects;
    subjects.erase(std::remove(subjects.begin(), subjects.end(), this), subjects.end());
  }
}

void CRMComm::Initialize(DWORD parameter) { (void)parameter; }

void CRMComm::OnModifyModule(WORD moduleClass, DWORD instance, DWORD computer, int present) {
  (void)moduleClass, (void)instance, (void)computer, (void)present;
}

void CRMComm::Attach(CRMCommObserver* observer) {
  if (std::find(Observers.begin(), Observers.end(), observer) == Observers.end()) Observers.push_back(observer);
}

void CRMComm::Detach(CRMCommObserver* observer) {
  Observers.erase(std::remove(Observers.begin(), Observers.end(), observer), Observers.end());
}

void CRMComm::ProcessMessage(CModuleMessage* message) {
  Guarded("CRMComm::ProcessMessage()", [&] { (void)message; });
}

void CRMComm::ClearAll() {
  Guarded("CRMComm::ClearAll()", [&] {});
}

void CRMComm::OnDisconnect() {
  Guarded("CRMComm::OnDisconnect()", [&] {
    for (CRMCommObserver* observer : Observers) observer->OnDisconnect();
  });
}
