#include "data/Run.h"

#include <algorithm>

#include "data/BaseDataComm.h"
#include "data/Event.h"
#include "data/RMData.h"
#include "data/Track.h"
#include "frame/KVTException.h"
#include "views/RMComm.h"

void CBaseRange::MessageToRange(CTTBuffer& message) {
  Guarded("CBaseRange::MessageToRange()", [&] { message >> RangeFirst >> RangeLast >> RangeValue; });
}

CBaseRun::~CBaseRun() {
  for (CBaseRange* range : Ranges) delete range;
}

void CBaseRun::MessageToRun(CTTBuffer& message) {
  Guarded("CBaseRun::MessageToRun()", [&] {
    FieldValues.clear();
    message >> Tag >> Flags >> EventID >> Name >> RunParam1 >> RunParam2 >> StartTime >> EndTime >> RunType >> Name2 >>
        RunParam3 >> RunParam4;
    Flags |= kRunLocal;
    ReadStringList(message, FieldValues);
    Parameters.BufferToParameters(message);
    RunNotify();
  });
}

CRun::CRun(CBaseModule* module) : Module(module), Passings(new CPassingList(module, &PassingSide)) {
  Competitors = new CCompetitorContainer(module, this);
  Announcements = new CAnnouncementContainer(module, this);
}

CRun::~CRun() {
  delete Passings;
  delete Announcements;
  delete Competitors;
}

void CRun::AddCompetitors() {
  Guarded("CRun::AddCompetitors()", [&] {
    OnAddCompetitors();
    CompetitorsNotify(1);
  });
}

void CRun::ModifyCompetitors() {
  Guarded("CRun::ModifyCompetitors()", [&] {
    OnModifyCompetitors();
    CompetitorsNotify(2);
  });
}

void CRun::RemoveCompetitors() {
  Guarded("CRun::RemoveCompetitors()", [&] {
    OnRemoveCompetitors();
    CompetitorsNotify(3);
  });
}

void CRun::AddAnnouncement() {
  Guarded("CRun::AddAnnouncement()", [&] {
    OnAddAnnouncement();
    AnnouncementsNotify(1);
  });
}

void CRun::ModifyAnnouncement() {
  Guarded("CRun::ModifyAnnouncement()", [&] {
    OnModifyAnnouncement();
    AnnouncementsNotify(2);
  });
}

void CRun::RemoveAnnouncement() {
  Guarded("CRun::RemoveAnnouncement()", [&] {
    OnRemoveAnnouncement();
    AnnouncementsNotify(3);
  });
}

void CRun::ProcessMessage(CModuleMessage& message) {
  Guarded("CRun::ProcessMessage()", [&] {
    switch (message.ID) {
      case 66: OnModifyRun(message); break;
      case 67: OnAddRange(message); break;
      case 68: OnModifyRange(message); break;
      case 69: OnRemoveRange(message); break;
      case 70:
      case 71:
      case 72: ProcessAnnouncementMessage(message); break;
      case 112: OnAllPassings(message); break;
      case 113: OnAddPassings(message); break;
      case 114: OnModifyPassings(message); break;
      default: Competitors->ProcessMessage(message); break;
    }
  });
}

void CRun::ProcessAnnouncementMessage(CModuleMessage& message) {
  Guarded("CRun::ProcessAnnouncementMessage()", [&] { Announcements->ProcessMessage(message); });
}

BOOL CRun::OnAddRun(CModuleMessage& message) {
  return Guarded("CRun::OnAddRun()", [&] {
    MessageToRun(message);
    PassingSide.TimeBasis = (Flags & kRunSecondTimeBasis) != 0 ? TRUE : FALSE;
    PassingSide.RunUniqueID = UniqueID;
    UpdateTrackEvent();
    if (message.ID == 2) return FALSE;
    OnAddRun();
    if (Data != nullptr) Data->RunsNotify(1, this);
    return TRUE;
  });
}

void CRun::OnModifyRun(CModuleMessage& message) {
  Guarded("CRun::OnModifyRun()", [&] {
    OnBeforeModifyRun();
    const WORD old = Flags;
    MessageToRun(message);
    PassingSide.TimeBasis = (Flags & kRunSecondTimeBasis) != 0 ? TRUE : FALSE;
    UpdateTrackEvent();
    if ((old & kRunHasPassings) != 0 && (Flags & kRunHasPassings) == 0) {
      ClearAllPassings();
      PassingsLive = TRUE;
    }
    if (((old ^ Flags) & kRunActive) != 0 || (Flags & kRunActive) != 0) OnActiveRunChanged();
    OnAfterModifyRun();
    if (Data != nullptr) Data->RunsNotify(KindOfDeleteChange(old, Flags), this);
  });
}

void CRun::UpdateTrackEvent() {
  Guarded("CRun::UpdateTrackEvent()", [&] {
    Event = nullptr;
    Track = nullptr;
    if (Data == nullptr) return;
    Event = Data->FindEvent(EventID);
    if (Event == nullptr) return;
    Cevent* root = Data->EventGetRoot(Event);
    if (root != nullptr) Track = Data->FindTrack(root->TrackID);
  });
}

void CRun::MessageToRanges(CTTBuffer& message) {
  Guarded("CRun::MessageToRanges()", [&] {
    for (CBaseRange* range : Ranges) delete range;
    Ranges.clear();
    int count = 0;
    message >> count;
    for (int i = 0; i < count; ++i) {
      auto* range = new CBaseRange;
      Ranges.push_back(range);
      range->MessageToRange(message);
    }
  });
}

void CRun::OnAddRange(CModuleMessage& message) {
  Guarded("CRun::OnAddRange()", [&] {
    auto* range = new CBaseRange;
    Ranges.push_back(range);
    range->MessageToRange(message);
    if (message.ID != 2) OnAddRange(range);
  });
}

void CRun::OnModifyRange(CModuleMessage& message) {
  Guarded("CRun::OnModifyRange()", [&] {
    DWORD index = 0;
    message >> index;
    CBaseRange* range = Ranges.empty() ? nullptr : Ranges.at(index);
    if (range == nullptr) ThrowKVT("CBaseRange::MessageToRange()");
    range->MessageToRange(message);
    OnModifyRange(range);
  });
}

void CRun::OnRemoveRange(CModuleMessage& message) {
  Guarded("CRun::OnRemoveRange()", [&] {
    DWORD index = 0;
    message >> index;
    CBaseRange* range = Ranges.empty() ? nullptr : Ranges.at(index);
    if (range == nullptr) ThrowKVT("CRun::OnRemoveRange(): no range");
    Ranges.erase(std::find(Ranges.begin(), Ranges.end(), range));
    OnRemoveRange(range);
    delete range;
  });
}

void CRun::ClearAllPassings() {
  Guarded("CRun::ClearAllPassings()", [&] {
    if (Passings != nullptr) {
      Passings->Clear();
      PassingsLive = FALSE;
    }
    OnClearAllPassings();
  });
}

void CRun::OnAddPassings(CModuleMessage& message) {
  Guarded("CRun::OnAddPassings()", [&] {
    if (PassingsLive != FALSE) Passings->AddPassings(message);
  });
}

void CRun::OnModifyPassings(CModuleMessage& message) {
  Guarded("CRun::OnModifyPassings()", [&] {
    if (PassingsLive != FALSE) Passings->ModifyPassings(message);
  });
}

void CRun::OnAllPassings(CModuleMessage& message) {
  Guarded("CRun::OnAllPassings()", [&] {
    if (PassingsWanted == FALSE) return;
    ClearAllPassings();
    PassingsLive = TRUE;
    PassingsWanted = FALSE;
    Passings->AddPassings(message);
  });
}

void CRMCRun::OnActiveRunChanged() {
  Guarded("CRMCRun::OnActiveRunChanged()", [&] {
    if (RMData == nullptr) return;
    CRun* argument = IsActive() != FALSE ? this : nullptr;
    for (CRMCommObserver* observer = RMData->ObserverGetHead(); observer != nullptr;
         observer = RMData->ObserverGetNext()) {
      observer->OnActiveRunChanged(argument);
    }
  });
}

void CRMCRun::OnClearAllPassings() {
  Guarded("CRMCRun::OnClearAllPassings()", [&] {
    if (RMData != nullptr) RMData->OnClearAllPassings(UniqueID);
  });
}
