#include "views/RMViewRow.h"

#include "frame/KVTException.h"

CRMViewRow::~CRMViewRow() {
  for (CRMCell* cell : Cells) delete cell;
}

CRMViewRow& CRMViewRow::operator=(const CRMViewRow& other) {
  if (this == &other) return *this;
  Cells.reserve(Cells.size() + other.Cells.size());
  for (const CRMCell* cell : other.Cells) Cells.push_back(cell->Clone());
  return *this;
}

void CRMViewRow::MessageToViewRow(CTTBuffer& message) {
  Guarded("CRMViewRow::MessageToViewRow()", [&] {
    message >> GroupID >> Status;
    for (CRMCell* cell : Cells) cell->MessageToCell(message);
  });
}

CRMCell* CRMViewRow::CellGetAt(DWORD index) const { return index < Cells.size() ? Cells[index] : nullptr; }

const char* CRMViewRow::TextAt(DWORD index) const {
  const CRMCell* cell = CellGetAt(index);
  return cell != nullptr ? cell->GetText() : "";
}
