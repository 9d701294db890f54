#include "data/BaseDataComm.h"

#include "frame/KVTException.h"

namespace {

template <class Map>
void DestroyAll(Map& map) {
  for (auto& [key, object] : map) delete object;
  map.clear();
}

template <class Vector>
void DestroyList(Vector& list) {
  for (auto* object : list) delete object;
  list.clear();
}

template <class Map>
typename Map::mapped_type Lookup(const Map& map, DWORD key) {
  auto found = map.find(key);
  return found == map.end() ? nullptr : found->second;
}

}  // namespace

CBaseDataComm::~CBaseDataComm() {
  DestroyTracks();
  DestroyEvents();
  DestroyRuns();
  DestroyMerges();
  DestroyFields();
  DestroyTxTranslations();
  DestroyChampionships();
  DestroyList(RemovedTxTranslations);
  DestroyOrphans();
}

void CBaseDataComm::DestroyOrphans() {
  // Runs and merges first: they may point at events and tracks.
  DestroyList(OrphanMerges);
  DestroyList(OrphanRuns);
  DestroyList(OrphanEvents);
  DestroyList(OrphanTracks);
  DestroyList(OrphanTxTranslations);
  DestroyList(OrphanChampionships);
  DestroyList(OrphanFields);
}

void CBaseDataComm::DestroyTracks() { DestroyAll(Tracks); }
void CBaseDataComm::DestroyEvents() { DestroyAll(Events); }
void CBaseDataComm::DestroyRuns() { DestroyAll(Runs); }
void CBaseDataComm::DestroyMerges() { DestroyAll(Merges); }
void CBaseDataComm::DestroyTxTranslations() { DestroyAll(TxTranslations); }
void CBaseDataComm::DestroyChampionships() { DestroyAll(Championships); }

void CBaseDataComm::DestroyFields() {
  for (auto& fields : FieldVectors) DestroyList(fields);
}

void CBaseDataComm::Clear() {
  Guarded("CBaseDataComm::Clear()", [&] {
    DestroyMerges();
    DestroyRuns();
    DestroyEvents();
    DestroyTracks();
    DestroyChampionships();
    ClearUpdated();
  });
}

void CBaseDataComm::ClearUpdated() {
  UpdatedTracks.clear();
  UpdatedEvents.clear();
  UpdatedRuns.clear();
  UpdatedMerges.clear();
  UpdatedChampionships.clear();
}

std::vector<CBaseField*>* CBaseDataComm::GetFieldVector(DWORD kind) {
  return kind < 4 ? &FieldVectors[kind] : nullptr;
}

Cevent* CBaseDataComm::EventGetRoot(Cevent* event) const {
  return Guarded("CBaseDataComm::EventGetRoot()", [&]() -> Cevent* {
    // A chain longer than the map holds events runs in a circle: it has no root.
    for (std::size_t steps = 0; event != nullptr && steps <= Events.size(); ++steps) {
      if (event->ParentID == kNoParent) return event;
      event = FindEvent(event->ParentID);
    }
    return nullptr;
  });
}

CTrack* CBaseDataComm::FindTrack(DWORD id) const { return Lookup(Tracks, id); }
Cevent* CBaseDataComm::FindEvent(DWORD id) const { return Lookup(Events, id); }
CRun* CBaseDataComm::FindRun(DWORD id) const { return Lookup(Runs, id); }
CMerge* CBaseDataComm::FindMerge(DWORD id) const { return Lookup(Merges, id); }
