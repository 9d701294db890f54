#include "views/RMLapViewRow.h"

#include <utility>

#include "frame/KVTException.h"

void CRMLapViewRow::MessageToViewRow(CTTBuffer& message) {
  Guarded("CRMLapViewRow::MessageToViewRow()", [&] {
    // Read into a copy, so that a body cut short leaves the row as it was.
    CRMLapViewRow read = *this;
    message >> read.CompetitorID >> read.SecondID >> read.Status >> read.Flags >> read.Word4 >> read.Word5 >>
        read.Time1 >> read.PassingTime >> read.Time3 >> read.Time4 >> read.Word1 >> read.Word2 >> read.Byte3;
    *this = std::move(read);
  });
}

void CRMLapViewRow::SetCompetitor(CBaseCompetitor* competitor) {
  Guarded("CRMLapViewRow::SetCompetitor()", [&] { Competitor = competitor; });
}

void CRMLapViewRow::SetAlternative(const std::string& text) {
  Guarded("CRMLapViewRow::SetAlternative()", [&] { Alternative = text.substr(0, kAlternativeLength); });
}

BOOL CRMLapViewRow::IsPhotoCell() const {
  return Guarded("CRMLapViewRow::IsPhotoCell()", [&] {
    const int kind = GetKind();
    return kind == kLapRowPhotocell || kind == kLapRowPhotocellSecond ? TRUE : FALSE;
  });
}
