// The base of the objects that read a view: the tables and labels of the pages.
#pragma once

#include <vector>

#include "frame/Types.h"

class CRMView;

// What a data notification tells.
inline constexpr int kNotifyAllRows = 0;
inline constexpr int kNotifyRowsAdded = 1;
inline constexpr int kNotifyRowsChanged = 2;
inline constexpr int kNotifyRowsRemoved = 3;

class CRMViewObserver {
 public:
  CRMViewObserver() = default;
  CRMViewObserver(const CRMViewObserver&) = delete;
  CRMViewObserver& operator=(const CRMViewObserver&) = delete;
  // Leaves every view it reads, telling the data manager when it was a view's last reader.
  virtual ~CRMViewObserver();

  // The columns are known.
  virtual void OnNotifyStructure(CRMView* view) { (void)view; }
  // The view is about to change.
  virtual void OnNotifyBeforeData(int type, CRMView* view) {
    (void)type;
    (void)view;
  }
  // The view has changed: its sorted, changed and removed rows tell how.
  virtual void OnNotifyData(int type, CRMView* view) = 0;
  // The view is being destroyed; it is no longer among the subjects.
  virtual void OnSubjectRemoved(CRMView* view) { (void)view; }

  // Null is ignored.
  void Attach(CRMView* view);
  void Detach(CRMView* view, BOOL tellDataManager);
  // Called by a view that is being destroyed.
  void RemoveSubject(CRMView* view);

  const std::vector<CRMView*>& GetSubjects() const { return Subjects; }

 private:
  std::vector<CRMView*> Subjects;
};
