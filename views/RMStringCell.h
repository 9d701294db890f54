// A text cell: the text is the value. Its buffer starts at 16 bytes and is replaced by
// a larger one only when a text does not fit; it never shrinks.
#pragma once

#include "views/RMCell.h"

class CRMStringCell : public CRMCell {
 public:
  static constexpr std::size_t kStartCapacity = 16;

  CRMStringCell();
  CRMCell* Clone() const override;
  void MessageToCell(CTTBuffer& message) override;

  std::size_t GetCapacity() const { return Capacity; }

 private:
  std::size_t Capacity = kStartCapacity;
};
