#include "data/Data.h"

#include <algorithm>
#include <memory>

#include "frame/BaseModule.h"
#include "frame/KVTException.h"
#include "frame/Package.h"

namespace {

template <class Map, class Orphans, class Object>
void StoreInMap(Map& map, DWORD key, Object* object, Orphans& orphans) {
  auto& slot = map[key];
  if (slot != nullptr && slot != object) orphans.push_back(slot);
  slot = object;
}

DWORD LocalComputer() {
  const CPackage* package = GetPackage();
  return package != nullptr ? package->LocalAddress : 0;
}

}  // namespace

CData::CData(CBaseModule* module, CDataOwner* owner, CPassingOwner* passingOwner)
    : Module(module), Owner(owner), PassingOwner(passingOwner), GlobalPassings(new CPassingList(module, passingOwner)) {}

CData::~CData() {
  Clear();
  delete GlobalPassings;
}

void CData::OnInitialize(WORD moduleClass, DWORD parameter) {
  Guarded("CData::OnInitialize()", [&] {
    ModuleClass = moduleClass;
    ConnectParameter = parameter;
    State = EDataLinkState::Waiting;
    Module->EnableWaiting(TRUE);
  });
}

void CData::OnModifyModule(WORD moduleClass, DWORD instance, DWORD computer, BOOL present) {
  Guarded("CData::OnModifyModule()", [&] {
    if (moduleClass != ModuleClass) return;
    const DWORD local = LocalComputer();
    DWORD current = Module->ConnectedClass == kNoClass ? kNoComputer : Module->ConnectedComputer;
    if (computer != local && current != kNoComputer) return;
    if (present == FALSE) {
      if (computer == current) OnDisconnect(TRUE);
      return;
    }
    if (computer == current) return;
    if (current != kNoComputer && current != local) {
      Module->Send(kMsgDataDisconnect);
      OnDisconnect(FALSE);
      current = kNoComputer;
    }
    if (current == kNoComputer) {
      Module->SetConnected(moduleClass, instance, computer);
      auto* message = new CModuleMessage(kMsgDataConnect, Module);
      *message << static_cast<int>(ConnectParameter);
      Module->Send(message);
      State = EDataLinkState::Connecting;
    }
  });
}

void CData::OnConnect() {
  Guarded("CData::OnConnect()", [&] {
    Module->EnableWaiting(FALSE);
    Owner->OnConnect();
    Module->Send(kMsgDataAll);
    Connected = TRUE;
    State = EDataLinkState::Loading;
  });
}

void CData::OnDisconnect(BOOL listModules) {
  Guarded("CData::OnDisconnect()", [&] {
    Owner->OnDisconnect();
    Module->EnableWaiting(TRUE);
    Module->SetConnected(kNoClass, kNoComputer, kNoComputer);
    Clear();
    Connected = FALSE;
    State = EDataLinkState::Waiting;
    if (listModules != FALSE) Module->GetAllModules();
  });
}

void CData::ForgetTrackPointers() {
  DefaultTrack = nullptr;
  SpareDefault1 = nullptr;
}

void CData::ForgetRunPointers() {
  DefaultRun = nullptr;
  SpareDefault2 = nullptr;
  ActiveRun = nullptr;
}

void CData::RefreshTrackEventPointers() {
  for (auto& [key, run] : Runs) run->UpdateTrackEvent();
  for (auto& [key, merge] : Merges) merge->UpdateTrackEvent();
  for (CRun* run : OrphanRuns) run->Event = nullptr, run->Track = nullptr;
  for (CMerge* merge : OrphanMerges) merge->Event = nullptr, merge->Track = nullptr;
}

void CData::Clear() {
  Guarded("CData::Clear()", [&] {
    CBaseDataComm::Clear();
    GlobalPassings->Clear();
    DestroyFields();
    DestroyTxTranslations();
    DestroyChampionships();
    ForgetTrackPointers();
    ForgetRunPointers();
    DestroyOrphans();
  });
}

void CData::ClearAllUpdated() {
  Guarded("CData::ClearAllUpdated()", [&] {
    UpdatedTracks.clear();
    UpdatedEvents.clear();
    UpdatedRuns.clear();
    UpdatedMerges.clear();
    UpdatedTxTranslations.clear();
    RemovedTxTranslations.clear();
    UpdatedChampionships.clear();
  });
}

void CData::OnAddTrack(CTrack* track, CModuleMessage& message) {
  Guarded("CTrackList::OnAddTrack()", [&] {
    std::unique_ptr<CTrack> guard(track);
    DWORD key = 0;
    message >> key;
    Owner->OnInitializeTrack(track);
    track->UniqueID = key;
    track->Data = this;
    StoreInMap(Tracks, key, guard.release(), OrphanTracks);
    UpdatedTracks.push_back(track);
    if (track->OnAddTrack(message) != FALSE) UpdatedTracks.clear();
    if (track->Name == kDefaultTrackName) DefaultTrack = track;
  });
}

void CData::OnAddEvent(Cevent* event, CModuleMessage& message) {
  Guarded("CData::OnAddEvent()", [&] {
    std::unique_ptr<Cevent> guard(event);
    Owner->OnInitializeEvent(event);
    DWORD key = 0;
    message >> key;
    event->UniqueID = key;
    event->Data = this;
    StoreInMap(Events, key, guard.release(), OrphanEvents);
    UpdatedEvents.push_back(event);
    if (event->OnAddEvent(message) != FALSE) UpdatedEvents.clear();
  });
}

void CData::OnAddRun(CRun* run, CModuleMessage& message) {
  Guarded("CData::OnAddRun()", [&] {
    std::unique_ptr<CRun> guard(run);
    Owner->OnInitializeRun(run);
    DWORD key = 0;
    message >> key;
    run->UniqueID = key;
    run->Data = this;
    StoreInMap(Runs, key, guard.release(), OrphanRuns);
    UpdatedRuns.push_back(run);
    if (run->OnAddRun(message) != FALSE) UpdatedRuns.clear();
    if (run->Name == kDefaultRunName) DefaultRun = run;
    if (run->IsActive() != FALSE) ActiveRun = run;
  });
}

void CData::OnAddMerge(CMerge* merge, CModuleMessage& message) {
  Guarded("CData::OnAddMerge()", [&] {
    std::unique_ptr<CMerge> guard(merge);
    Owner->OnInitializeMerge(merge);
    DWORD key = 0;
    message >> key;
    merge->UniqueID = key;
    merge->Data = this;
    StoreInMap(Merges, key, guard.release(), OrphanMerges);
    UpdatedMerges.push_back(merge);
    if (merge->OnAddMerge(message) != FALSE) UpdatedMerges.clear();
  });
}

void CData::ActiveRunStep(CRun* run) {
  if (run->IsActive() != FALSE) {
    ActiveRun = run;
  } else if (ActiveRun != nullptr && ActiveRun->IsActive() == FALSE) {
    ActiveRun = nullptr;
  }
}

void CData::ProcessDataManagerMessage(CModuleMessage& message) {
  Guarded("CData::ProcessDataManagerMessage()", [&] {
    const WORD id = message.ID;
    if (id == 0) {
      OnConnect();
    } else if (id == 1) {
      OnDisconnect(TRUE);
    } else if (id == 3) {
      Owner->OnBackupCreated();
    } else if (id == 16) {
      OnAddField(message);
    } else if (id == 17) {
      OnRemoveField(message);
    } else if (id == 18) {
      OnModifyField(message);
    } else if (id >= 34 && id <= 43) {
      DWORD key = 0;
      message >> key;
      if (CTrack* track = FindTrack(key)) {
        UpdatedTracks.push_back(track);
        track->ProcessMessage(message);
      }
    } else if (id == 50) {
      DWORD key = 0;
      message >> key;
      if (Cevent* event = FindEvent(key)) {
        UpdatedEvents.push_back(event);
        event->ProcessMessage(message);
      }
    } else if (id >= 66 && id <= 69) {
      DWORD key = 0;
      message >> key;
      if (CRun* run = FindRun(key)) {
        if (id == 66) UpdatedRuns.push_back(run);
        run->ProcessMessage(message);
        ActiveRunStep(run);
      }
    } else if (id >= 70 && id <= 72) {
      ProcessAnnouncementOwnerMessage(message);
    } else if (id >= 82 && id <= 85) {
      DWORD key = 0;
      message >> key;
      if (CMerge* merge = FindMerge(key)) {
        if (id == 82) UpdatedMerges.push_back(merge);
        merge->ProcessMessage(message);
      }
    } else if (id >= 96 && id <= 98) {
      ProcessCompetitorMessage(message);
    } else if (id >= 112 && id <= 114) {
      ProcessPassingsMessage(message);
    } else if (id == 128) {
      OnAddTxTranslation(message);
    } else if (id == 129) {
      OnModifyTxTranslation(message);
    } else if (id == 130) {
      OnRemoveTxTranslation(message);
    } else if (id == 257) {
      OnAddChampionship(message);
    } else if (id == 258) {
      OnModifyChampionship(message);
    } else if (id == 259) {
      OnRemoveChampionship(message);
    }
    ClearAllUpdated();
  });
}

void CData::ProcessAnnouncementOwnerMessage(CModuleMessage& message) {
  Guarded("CData::ProcessCompetitorMessage()", [&] {
    DWORD owner = 0;
    message >> owner;
    if ((owner & 0x20000000) != 0) {
      if (CMerge* merge = FindMerge(owner)) {
        UpdatedMerges.push_back(merge);
        merge->ProcessMessage(message);
      }
    } else if ((owner & 0x40000000) != 0) {
      if (CRun* run = FindRun(owner)) {
        UpdatedRuns.push_back(run);
        run->ProcessMessage(message);
      }
    }
  });
}

void CData::ProcessCompetitorMessage(CModuleMessage& message) {
  Guarded("CData::ProcessCompetitorMessage()", [&] {
    DWORD owner = 0;
    message >> owner;
    if ((owner & 0x80000000) != 0) {
      if (Cevent* event = FindEvent(owner)) {
        UpdatedEvents.push_back(event);
        event->ProcessMessage(message);
      }
    } else if ((owner & 0x40000000) != 0) {
      if (CRun* run = FindRun(owner)) {
        UpdatedRuns.push_back(run);
        run->ProcessMessage(message);
      }
    } else if ((owner & 0x20000000) != 0) {
      if (CMerge* merge = FindMerge(owner)) {
        UpdatedMerges.push_back(merge);
        merge->ProcessMessage(message);
      }
    }
  });
}

void CData::ProcessPassingsMessage(CModuleMessage& message) {
  Guarded("CData::ProcessPassingsMessage()", [&] {
    DWORD runID = 0;
    message >> runID;
    if (runID != 0xFFFFFFFF) {
      if (CRun* run = FindRun(runID)) {
        UpdatedRuns.push_back(run);
        run->ProcessMessage(message);
      }
    }
    message.Reset();
    message >> runID;
    if (message.ID == 112 && runID == 0xFFFFFFFF) {
      GlobalPassings->AddPassings(message);
    } else if (message.ID == 113) {
      GlobalPassings->AddPassings(message);
    } else if (message.ID == 114) {
      GlobalPassings->ModifyPassings(message);
    }
  });
}

void CData::OnAddTxTranslations(CModuleMessage& message) {
  Guarded("CData::OnAddTxTranslations()", [&] {
    int count = 0;
    message >> count;
    for (int i = 0; i < count; ++i) OnAddTxTranslation(message);
  });
}

void CData::OnAddTxTranslation(CModuleMessage& message) {
  Guarded("CData::OnAddTxTranslation()", [&] {
    DWORD key = 0;
    message >> key;
    auto fresh = std::make_unique<CBaseTxTranslation>();
    fresh->UniqueID = key;
    fresh->MessageToTxTranslation(message);
    CBaseTxTranslation* record = fresh.release();
    StoreInMap(TxTranslations, key, record, OrphanTxTranslations);
    if (message.ID != 2) {
      UpdatedTxTranslations.push_back(record);
      TxTranslationsNotify(1, record);
      UpdatedTxTranslations.clear();
    }
  });
}

void CData::OnModifyTxTranslation(CModuleMessage& message) {
  Guarded("CData::OnModifyTxTranslation()", [&] {
    DWORD key = 0;
    message >> key;
    auto found = TxTranslations.find(key);
    if (found == TxTranslations.end()) return;
    found->second->MessageToTxTranslation(message);
    UpdatedTxTranslations.push_back(found->second);
    TxTranslationsNotify(2, found->second);
    UpdatedTxTranslations.clear();
  });
}

void CData::OnRemoveTxTranslation(CModuleMessage& message) {
  Guarded("CData::OnRemoveTxTranslation()", [&] {
    DWORD key = 0;
    message >> key;
    auto found = TxTranslations.find(key);
    if (found == TxTranslations.end()) return;
    CBaseTxTranslation* record = found->second;
    RemovedTxTranslations.push_back(record);
    TxTranslations.erase(found);
    TxTranslationsNotify(3, record);
    for (CBaseTxTranslation* removed : RemovedTxTranslations) delete removed;
    RemovedTxTranslations.clear();
  });
}

void CData::OnAddChampionships(CModuleMessage& message) {
  Guarded("CData::OnAddChampionships()", [&] {
    int count = 0;
    message >> count;
    for (int i = 0; i < count; ++i) OnAddChampionship(message);
    ChampionshipsNotify(0, nullptr);
  });
}

void CData::OnAddChampionship(CModuleMessage& message) {
  Guarded("CData::OnAddChampionship()", [&] {
    DWORD key = 0;
    message >> key;
    auto fresh = std::make_unique<CBaseChampionship>();
    fresh->UniqueID = key;
    fresh->MessageToChampionship(message);
    CBaseChampionship* record = fresh.release();
    StoreInMap(Championships, key, record, OrphanChampionships);
    if (message.ID != 2) {
      UpdatedChampionships.push_back(record);
      ChampionshipsNotify(1, record);
      UpdatedChampionships.clear();
    }
  });
}

void CData::OnModifyChampionship(CModuleMessage& message) {
  Guarded("CData::OnModifyChampionship()", [&] {
    DWORD key = 0;
    message >> key;
    auto found = Championships.find(key);
    if (found == Championships.end()) return;
    found->second->MessageToChampionship(message);
    UpdatedChampionships.push_back(found->second);
    ChampionshipsNotify(2, found->second);
    UpdatedChampionships.clear();
  });
}

void CData::OnRemoveChampionship(CModuleMessage& message) {
  Guarded("CData::OnRemoveChampionship()", [&] {
    DWORD key = 0;
    message >> key;
    auto found = Championships.find(key);
    if (found == Championships.end()) return;
    CBaseChampionship* record = found->second;
    Championships.erase(found);
    // Left to nobody on the wire's side; kept alive here and freed with the store.
    OrphanChampionships.push_back(record);
    ChampionshipsNotify(3, record);
  });
}

void CData::MessageToAllFields(CModuleMessage& message) {
  Guarded("CData::MessageToAllFields()", [&] {
    for (DWORD kind = 0; kind < 4; ++kind) MessageToFields(kind, message);
  });
}

void CData::MessageToFields(DWORD kind, CModuleMessage& message) {
  Guarded("CData::MessageToFields()", [&] {
    int count = 0;
    message >> count;
    std::vector<CBaseField*>* fields = GetFieldVector(kind);
    for (CBaseField* field : *fields) delete field;
    fields->clear();
    for (int i = 0; i < count; ++i) {
      auto* field = new CBaseField;
      fields->push_back(field);
      field->MessageToField(message);
    }
  });
}

namespace {

std::vector<CBaseField*>& FieldVectorOrThrow(CBaseDataComm& data, DWORD kind) {
  std::vector<CBaseField*>* fields = data.GetFieldVector(kind);
  if (fields == nullptr) ThrowKVT("CBaseDataComm::GetFieldVector(): no such kind");
  return *fields;
}

CBaseField* FieldAt(std::vector<CBaseField*>& fields, DWORD index) {
  CBaseField* field = fields.empty() ? nullptr : fields.at(index);
  if (field == nullptr) ThrowKVT("CBaseField::MessageToField(): no field");
  return field;
}

}  // namespace

void CData::OnAddField(CModuleMessage& message) {
  Guarded("CData::OnAddField()", [&] {
    DWORD kind = 0;
    message >> kind;
    auto& fields = FieldVectorOrThrow(*this, kind);
    auto* field = new CBaseField;
    fields.push_back(field);
    field->MessageToField(message);
    Owner->OnAddField(kind, field);
  });
}

void CData::OnModifyField(CModuleMessage& message) {
  Guarded("CData::OnModifyField()", [&] {
    DWORD kind = 0;
    DWORD index = 0;
    message >> kind >> index;
    CBaseField* field = FieldAt(FieldVectorOrThrow(*this, kind), index);
    field->MessageToField(message);
    Owner->OnModifyField(kind, field);
  });
}

void CData::OnRemoveField(CModuleMessage& message) {
  Guarded("CData::OnRemoveField()", [&] {
    DWORD kind = 0;
    DWORD index = 0;
    message >> kind >> index;
    auto& fields = FieldVectorOrThrow(*this, kind);
    CBaseField* field = FieldAt(fields, index);
    fields.erase(std::find(fields.begin(), fields.end(), field));
    Owner->OnRemoveField(kind, field);
    delete field;
  });
}
