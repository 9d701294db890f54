#include "views/RMStringCell.h"

#include <string>

CRMStringCell::CRMStringCell() : CRMCell(kStartCapacity) {}

CRMCell* CRMStringCell::Clone() const { return new CRMStringCell; }

void CRMStringCell::MessageToCell(CTTBuffer& message) {
  std::string value;
  message >> value >> Option;
  if (value.size() >= Capacity) {
    Capacity = value.size() + 1;
    ReplaceTextBuffer(Capacity);
  }
  SetText(value);
}
