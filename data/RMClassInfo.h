// The positions of the competitor classes, read from the carriers of class data in the
// special event 0x80000000.
#pragma once

#include <map>
#include <string>

#include "data/Subjects.h"
#include "frame/Types.h"

class CBaseCompetitor;
class Cevent;

inline constexpr DWORD kClassEventID = 0x80000000;

class CRMClassInfo : public CCompetitorsObserver {
 public:
  void Initialize(Cevent* event);
  virtual void OnAddCompetitor(int kind, CCompetitorsSubject* subject);
  void OnSubjectNotify(BYTE kind, CCompetitorsSubject* subject) override { OnAddCompetitor(kind, subject); }
  void CheckCompetitor(const CBaseCompetitor* competitor);

  std::map<std::string, BYTE> ClassPositions;
};
