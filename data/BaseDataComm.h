// The store of the replica: the maps of tracks, events, runs, merges and side records,
// with the subjects through which changes to each kind are told.
#pragma once

#include <map>
#include <vector>

#include "data/Event.h"
#include "data/Merge.h"
#include "data/Run.h"
#include "data/SideRecords.h"
#include "data/Subjects.h"
#include "data/Track.h"
#include "frame/Types.h"

class CBaseDataComm : public CTracksSubject,
                      public CEventsSubject,
                      public CRunsSubject,
                      public CMergesSubject,
                      public CTxTranslationsSubject,
                      public CChampionshipsSubject,
                      public CTimerSubject {
 public:
  CBaseDataComm() = default;
  ~CBaseDataComm() override;

  // Destroys tracks, events, runs, merges and championships; Tx translations stay.
  void Clear();
  void ClearUpdated();
  std::vector<CBaseField*>* GetFieldVector(DWORD kind);
  Cevent* EventGetRoot(Cevent* event) const;

  CTrack* FindTrack(DWORD id) const;
  Cevent* FindEvent(DWORD id) const;
  CRun* FindRun(DWORD id) const;
  CMerge* FindMerge(DWORD id) const;

  // Frees every object of one map and empties it.
  void DestroyTracks();
  void DestroyEvents();
  void DestroyRuns();
  void DestroyMerges();
  void DestroyFields();
  void DestroyTxTranslations();
  void DestroyChampionships();

  std::map<DWORD, CTrack*> Tracks;
  std::map<DWORD, Cevent*> Events;
  std::map<DWORD, CRun*> Runs;
  std::map<DWORD, CMerge*> Merges;
  std::map<DWORD, CBaseTxTranslation*> TxTranslations;
  std::map<DWORD, CBaseChampionship*> Championships;
  std::vector<CBaseField*> FieldVectors[4];

  std::vector<CTrack*> UpdatedTracks;
  std::vector<Cevent*> UpdatedEvents;
  std::vector<CRun*> UpdatedRuns;
  std::vector<CMerge*> UpdatedMerges;
  std::vector<CBaseTxTranslation*> UpdatedTxTranslations;
  std::vector<CBaseTxTranslation*> RemovedTxTranslations;
  std::vector<CBaseChampionship*> UpdatedChampionships;

  // Objects that left their map but stay alive, since another list may still point at
  // them: overwritten by an add under a known key, or a removed championship. Freed with
  // the store.
  std::vector<CTrack*> OrphanTracks;
  std::vector<Cevent*> OrphanEvents;
  std::vector<CRun*> OrphanRuns;
  std::vector<CMerge*> OrphanMerges;
  std::vector<CBaseTxTranslation*> OrphanTxTranslations;
  std::vector<CBaseChampionship*> OrphanChampionships;
  std::vector<CBaseField*> OrphanFields;

 protected:
  void DestroyOrphans();
};
