#include "data/Event.h"

#include <ctime>

#include "data/BaseDataComm.h"
#include "data/SideRecords.h"
#include "frame/KVTException.h"

CBaseEvent::CBaseEvent()
    : StartDate(static_cast<DWORD>(std::time(nullptr))), EndDate(static_cast<DWORD>(std::time(nullptr))) {}

void CBaseEvent::MessageToEvent(CTTBuffer& message) {
  Guarded("CBaseEvent::MessageToEvent()", [&] {
    FieldValues.clear();
    message >> Tag >> Flags >> TrackID >> ParentID >> Name >> Name2 >> Name3 >> StartDate >> EndDate >> EventParam;
    ReadStringList(message, FieldValues);
    EventNotify();
  });
}

Cevent::Cevent(CBaseModule* module) : Competitors(new CCompetitorContainer(module, this)), Module(module) {}

Cevent::~Cevent() { delete Competitors; }

void Cevent::AddCompetitors() {
  Guarded("Cevent::AddCompetitors()", [&] {
    OnAddCompetitors();
    CompetitorsNotify(1);
  });
}

void Cevent::ModifyCompetitors() {
  Guarded("Cevent::ModifyCompetitors()", [&] {
    OnModifyCompetitors();
    CompetitorsNotify(2);
  });
}

void Cevent::RemoveCompetitors() {
  Guarded("Cevent::RemoveCompetitors()", [&] {
    OnRemoveCompetitors();
    CompetitorsNotify(3);
  });
}

void Cevent::ProcessMessage(CModuleMessage& message) {
  Guarded("Cevent::ProcessMessage()", [&] {
    if (message.ID == 50) {
      OnModifyEvent(message);
    } else {
      Competitors->ProcessMessage(message);
    }
  });
}

BOOL Cevent::OnAddEvent(CModuleMessage& message) {
  return Guarded("Cevent::OnAddEvent()", [&] {
    MessageToEvent(message);
    if (message.ID == 2) return FALSE;
    OnAddEvent();
    if (Data != nullptr) Data->EventsNotify(1, this);
    return TRUE;
  });
}

void Cevent::OnModifyEvent(CModuleMessage& message) {
  Guarded("Cevent::OnModifyEvent()", [&] {
    OnBeforeModifyEvent();
    const BYTE old = Flags;
    MessageToEvent(message);
    OnAfterModifyEvent();
    if (Data != nullptr) Data->EventsNotify(KindOfDeleteChange(old, Flags), this);
  });
}
