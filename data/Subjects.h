// The subjects and observers through which the replica reports its changes.
//
// All sixteen subject classes share one pattern: a vector of observers in order of
// attachment with a walk cursor, a notify operation that walks it, and a destructor that
// tells every observer that the subject is gone. Each family differs only in its names
// and in what OnSubjectNotify receives, so the pattern is one template and each family
// is a traits struct plus a thin named class.
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

#include "frame/KVTException.h"
#include "frame/Types.h"

template <class Traits, class Signature = typename Traits::Signature>
class TObserver;
template <class Traits>
class TSubject;

template <class Traits, class... Args>
class TObserver<Traits, void(Args...)> {
 public:
  // The subject as its base: a subject tells of its end from its base destructor.
  using Subject = TSubject<Traits>;

  TObserver() = default;
  TObserver(const TObserver&) = delete;
  TObserver& operator=(const TObserver&) = delete;

  // Leaves every subject; a subject's cursor is not adjusted.
  virtual ~TObserver() {
    for (Cursor = 0; Cursor < Subjects.size(); ++Cursor) {
      auto& list = Subjects[Cursor]->Observers;
      auto found = std::find(list.begin(), list.end(), this);
      if (found != list.end()) list.erase(found);
    }
    Subjects.clear();
  }
  virtual void OnSubjectNotify(Args... args) { ((void)args, ...); }
  virtual void OnSubjectRemoved(Subject* subject) { (void)subject; }

  // Enters the pair on both sides, each side once; the observer is not called.
  void Attach(Subject* subject) {
    Guarded(Traits::AttachName, [&] {
      if (std::find(Subjects.begin(), Subjects.end(), subject) == Subjects.end()) Subjects.push_back(subject);
      auto& list = subject->Observers;
      if (std::find(list.begin(), list.end(), this) == list.end()) list.push_back(this);
    });
  }

  // Leaves the pair on both sides. A walk of the subject in progress goes on with the
  // observer that followed the one removed.
  void Detach(Subject* subject) {
    Guarded(Traits::DetachName, [&] {
      auto found = std::find(Subjects.begin(), Subjects.end(), subject);
      if (found != Subjects.end()) Subjects.erase(found);
      auto& list = subject->Observers;
      auto self = std::find(list.begin(), list.end(), this);
      if (self == list.end()) return;
      const auto index = static_cast<std::size_t>(self - list.begin());
      list.erase(self);
      if (index <= subject->Cursor) --subject->Cursor;
    });
  }

  void RemoveSubject(Subject* subject) {
    Guarded(Traits::RemoveName, [&] {
      auto found = std::find(Subjects.begin(), Subjects.end(), subject);
      if (found != Subjects.end()) Subjects.erase(found);
      OnSubjectRemoved(subject);
    });
  }

  std::vector<Subject*> Subjects;
  std::size_t Cursor = 0;
};

template <class Traits>
class TSubject {
 public:
  using Observer = TObserver<Traits>;

  TSubject() = default;
  TSubject(const TSubject&) = delete;
  TSubject& operator=(const TSubject&) = delete;

  virtual ~TSubject() {
    for (Cursor = 0; Cursor < Observers.size(); ++Cursor) {
      Observers[Cursor]->RemoveSubject(this);
    }
    Observers.clear();
  }

  std::vector<Observer*> Observers;
  // The walk position; meaningful only during a walk.
  std::size_t Cursor = 0;
  // How many walks have started; a walk over no observers starts none.
  std::size_t WalksStarted = 0;

 protected:
  // Observers are told one at a time in order of attachment. An exception from an
  // observer ends the walk at once.
  template <class... Args>
  void Walk(Args... args) {
    Guarded(Traits::NotifyName, [&] {
      if (Observers.empty()) return;
      ++WalksStarted;
      Cursor = 0;
      for (;;) {
        Observers[Cursor]->OnSubjectNotify(args...);
        ++Cursor;
        if (Cursor >= Observers.size()) return;
      }
    });
  }
};

class CTrack;
class Cevent;
class CRun;
class CMerge;
class CBaseTxTranslation;
class CBaseChampionship;
class CBaseTrackRecord;

// One family: a traits struct naming the subject, the observer signature and the trail
// names; the subject class with its notify operation; the observer alias.
#define ZOL_SUBJECT_FAMILY(Family, NotifyOp, Sig)                                   \
  class C##Family##Subject;                                                        \
  struct Family##Traits {                                                          \
    using Subject = C##Family##Subject;                                            \
    using Signature = Sig;                                                         \
    static constexpr const char* NotifyName = "C" #Family "Subject::" #NotifyOp "()"; \
    static constexpr const char* RemoveName = "C" #Family "Subject::RemoveSubject()"; \
    static constexpr const char* AttachName = "C" #Family "Observer::Attach()";     \
    static constexpr const char* DetachName = "C" #Family "Observer::Detach()";     \
  };                                                                               \
  using C##Family##Observer = TObserver<Family##Traits>;

ZOL_SUBJECT_FAMILY(Tracks, TracksNotify, void(BYTE, CTrack*))
ZOL_SUBJECT_FAMILY(Events, EventsNotify, void(BYTE, Cevent*))
ZOL_SUBJECT_FAMILY(Runs, RunsNotify, void(BYTE, CRun*))
ZOL_SUBJECT_FAMILY(Merges, MergesNotify, void(BYTE, CMerge*))
ZOL_SUBJECT_FAMILY(TxTranslations, TxTranslationsNotify, void(BYTE, CBaseTxTranslation*))
ZOL_SUBJECT_FAMILY(Championships, ChampionshipsNotify, void(BYTE, CBaseChampionship*))
ZOL_SUBJECT_FAMILY(Timer, TimerNotify, void())
ZOL_SUBJECT_FAMILY(Track, TrackNotify, void(CTrackSubject*))
ZOL_SUBJECT_FAMILY(TrackRecords, TrackRecordsNotify, void(BYTE, CBaseTrackRecord*))
ZOL_SUBJECT_FAMILY(Event, EventNotify, void(CEventSubject*))
ZOL_SUBJECT_FAMILY(Run, RunNotify, void(CRunSubject*))
ZOL_SUBJECT_FAMILY(Merge, MergeNotify, void(CMergeSubject*))
ZOL_SUBJECT_FAMILY(Competitors, CompetitorsNotify, void(BYTE, CCompetitorsSubject*))
ZOL_SUBJECT_FAMILY(Announcements, AnnouncementsNotify, void(BYTE, CAnnouncementsSubject*))
ZOL_SUBJECT_FAMILY(MergeRows, MergeRowsNotify, void(BYTE, CMergeRowsSubject*))
ZOL_SUBJECT_FAMILY(Results, ResultsNotify, void())

#undef ZOL_SUBJECT_FAMILY

class CTracksSubject : public TSubject<TracksTraits> {
 public:
  void TracksNotify(BYTE kind, CTrack* track) { Walk(kind, track); }
};
class CEventsSubject : public TSubject<EventsTraits> {
 public:
  void EventsNotify(BYTE kind, Cevent* event) { Walk(kind, event); }
};
class CRunsSubject : public TSubject<RunsTraits> {
 public:
  void RunsNotify(BYTE kind, CRun* run) { Walk(kind, run); }
};
class CMergesSubject : public TSubject<MergesTraits> {
 public:
  void MergesNotify(BYTE kind, CMerge* merge) { Walk(kind, merge); }
};
class CTxTranslationsSubject : public TSubject<TxTranslationsTraits> {
 public:
  void TxTranslationsNotify(BYTE kind, CBaseTxTranslation* record) { Walk(kind, record); }
};
class CChampionshipsSubject : public TSubject<ChampionshipsTraits> {
 public:
  void ChampionshipsNotify(BYTE kind, CBaseChampionship* record) { Walk(kind, record); }
};
// Kept for the shape of the store; nothing here notifies through it.
class CTimerSubject : public TSubject<TimerTraits> {};
class CTrackSubject : public TSubject<TrackTraits> {
 public:
  void TrackNotify() { Walk(this); }
};
class CTrackRecordsSubject : public TSubject<TrackRecordsTraits> {
 public:
  void TrackRecordsNotify(BYTE kind, CBaseTrackRecord* record) { Walk(kind, record); }
};
class CEventSubject : public TSubject<EventTraits> {
 public:
  void EventNotify() { Walk(this); }
};
class CRunSubject : public TSubject<RunTraits> {
 public:
  void RunNotify() { Walk(this); }
};
class CMergeSubject : public TSubject<MergeTraits> {
 public:
  void MergeNotify() { Walk(this); }
};
class CCompetitorsSubject : public TSubject<CompetitorsTraits> {
 public:
  void CompetitorsNotify(BYTE kind) { Walk(kind, this); }
};
class CAnnouncementsSubject : public TSubject<AnnouncementsTraits> {
 public:
  void AnnouncementsNotify(BYTE kind) { Walk(kind, this); }
};
class CMergeRowsSubject : public TSubject<MergeRowsTraits> {
 public:
  void MergeRowsNotify(BYTE kind) { Walk(kind, this); }
};
class CResultsSubject : public TSubject<ResultsTraits> {
 public:
  void Attach(CResultsObserver* observer) {
    if (std::find(Observers.begin(), Observers.end(), observer) == Observers.end()) Observers.push_back(observer);
  }
  void Detach(CResultsObserver* observer) {
    auto found = std::find(Observers.begin(), Observers.end(), observer);
    if (found != Observers.end()) Observers.erase(found);
  }
};
