#include "views/RMViewObserver.h"

#include <algorithm>

#include "frame/KVTException.h"
#include "views/RMView.h"

CRMViewObserver::~CRMViewObserver() {
  // Each view is left with the data manager told, so that a view whose last reader this
  // was is let go. A destructor cannot pass a failure on: one view's failure is dropped
  // and the other views are still left.
  const std::vector<CRMView*> subjects = Subjects;
  for (CRMView* view : subjects) {
    try {
      view->Detach(this, TRUE);
    } catch (CKVTException* e) {
      delete e;
    }
  }
  Subjects.clear();
}

void CRMViewObserver::Attach(CRMView* view) {
  Guarded("CRMViewObserver::Attach()", [&] {
    if (view == nullptr) return;
    if (std::find(Subjects.begin(), Subjects.end(), view) == Subjects.end()) Subjects.push_back(view);
    view->Attach(this);
  });
}

void CRMViewObserver::Detach(CRMView* view, BOOL tellDataManager) {
  Guarded("CRMViewObserver::Detach()", [&] {
    if (view == nullptr) return;
    auto found = std::find(Subjects.begin(), Subjects.end(), view);
    if (found != Subjects.end()) Subjects.erase(found);
    view->Detach(this, tellDataManager);
  });
}

void CRMViewObserver::RemoveSubject(CRMView* view) {
  Guarded("CRMViewObserver::RemoveSubject()", [&] {
    auto found = std::find(Subjects.begin(), Subjects.end(), view);
    if (found != Subjects.end()) Subjects.erase(found);
    OnSubjectRemoved(view);
  });
}
