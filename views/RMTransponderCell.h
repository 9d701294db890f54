// A cell with a list of transponders, shown by their names from the data link's
// transponder translations or else by their printed codes; repeats are shown once.
#pragma once

#include <vector>

#include "views/RMCell.h"

class CRMTransponderCell : public CRMCell {
 public:
  static constexpr std::size_t kTextSize = 256;

  explicit CRMTransponderCell(CRMData* data);
  // The first transponder, or 0 for an empty list.
  explicit operator DWORD() const override;
  const std::vector<DWORD>* GetTransponders() const override { return &Transponders; }
  CRMCell* Clone() const override;
  void MessageToCell(CTTBuffer& message) override;

  CRMData* GetDataLink() const { return Data; }

 private:
  void MakeText();

  std::vector<DWORD> Transponders;
  CRMData* Data;
};
