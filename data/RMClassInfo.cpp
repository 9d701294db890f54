#include "data/RMClassInfo.h"

#include "data/Event.h"
#include "frame/KVTException.h"

void CRMClassInfo::Initialize(Cevent* event) {
  Guarded("CRMClassInfo::Initialize()", [&] {
    if (event == nullptr) return;
    Attach(static_cast<CCompetitorsSubject*>(event));
    for (auto& [key, competitor] : event->Competitors->Competitors) CheckCompetitor(competitor);
  });
}

void CRMClassInfo::OnAddCompetitor(int kind, CCompetitorsSubject* subject) {
  Guarded("CRMClassInfo::OnAddCompetitor()", [&] {
    if (kind < 0 || kind > 2) return;
    auto* event = dynamic_cast<Cevent*>(subject);
    if (event == nullptr) return;
    for (auto& [key, competitor] : event->Competitors->Competitors) CheckCompetitor(competitor);
  });
}

void CRMClassInfo::CheckCompetitor(const CBaseCompetitor* competitor) {
  Guarded("CRMClassInfo::CheckCompetitor()", [&] {
    if (competitor->LastName != "ClassCompetitor") return;
    const int position = competitor->Count1 - 1;
    if (position < 0) return;
    ClassPositions[competitor->Class] = static_cast<BYTE>(position);
  });
}
