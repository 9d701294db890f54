// A column of a view as the structure block describes it.
#pragma once

#include <string>

#include "frame/TTBuffer.h"
#include "frame/Types.h"

class CColumn {
 public:
  virtual ~CColumn() = default;

  // Reads type, title, key, size and option.
  void MessageToColumn(CTTBuffer& message);

  BYTE Type = 0;
  std::string Title;
  // What look-ups and sort rules go by, such as "lgHeader_Pos".
  std::string Key;
  int Size = 0;
  BYTE Option = 0;
};
