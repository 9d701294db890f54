#include "views/Column.h"

#include "frame/KVTException.h"

void CColumn::MessageToColumn(CTTBuffer& message) {
  Guarded("CColumn::MessageToColumn()", [&] { message >> Type >> Title >> Key >> Size >> Option; });
}
