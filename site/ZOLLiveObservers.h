// How a page hears of its live objects: a table or a label that has new content tells
// the pages that hold it. Both families follow the replica's subject pattern, so either
// side can be destroyed first.
#pragma once

#include "data/Subjects.h"

class CZOLServerTable;
class CZOLInfo;

struct ZOLServerTableTraits {
  using Signature = void(CZOLServerTable*);
  static constexpr const char* NotifyName = "CZOLServerTable::NotifyDataAvailable()";
  static constexpr const char* RemoveName = "CZOLServerTableObserver::RemoveSubject()";
  static constexpr const char* AttachName = "CZOLServerTableObserver::Attach()";
  static constexpr const char* DetachName = "CZOLServerTableObserver::Detach()";
};

struct ZOLInfoTraits {
  using Signature = void(CZOLInfo*);
  static constexpr const char* NotifyName = "CZOLInfo::NotifyDataAvailable()";
  static constexpr const char* RemoveName = "CZOLInfoObserver::RemoveSubject()";
  static constexpr const char* AttachName = "CZOLInfoObserver::Attach()";
  static constexpr const char* DetachName = "CZOLInfoObserver::Detach()";
};

class CZOLServerTableObserver : public TObserver<ZOLServerTableTraits> {
 public:
  // A table that this observer holds has new rows.
  virtual void OnTableUpdated(CZOLServerTable* table) = 0;

 private:
  void OnSubjectNotify(CZOLServerTable* table) final { OnTableUpdated(table); }
};

class CZOLInfoObserver : public TObserver<ZOLInfoTraits> {
 public:
  // A label that this observer holds shows a new value.
  virtual void OnInfoUpdated(CZOLInfo* label) = 0;

 private:
  void OnSubjectNotify(CZOLInfo* label) final { OnInfoUpdated(label); }
};

class CZOLServerTableSubject : public TSubject<ZOLServerTableTraits> {
 protected:
  void NotifyTableObservers(CZOLServerTable* table) { Walk(table); }
};

class CZOLInfoSubject : public TSubject<ZOLInfoTraits> {
 protected:
  void NotifyInfoObservers(CZOLInfo* label) { Walk(label); }
};
