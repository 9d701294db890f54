#include "views/RMCell.h"

#include <cstring>

#include "views/RMStringCell.h"
#include "views/RMTransponderCell.h"
#include "views/RMValueCells.h"

CRMCell::CRMCell(std::size_t textSize) { ReplaceTextBuffer(textSize); }

void CRMCell::SetText(const std::string& text) {
  const std::size_t length = text.size() < TextSize ? text.size() : TextSize - 1;
  std::memcpy(Text.get(), text.data(), length);
  Text[length] = '\0';
}

void CRMCell::ReplaceTextBuffer(std::size_t size) {
  Text = std::make_unique<char[]>(size);
  Text[0] = '\0';
  TextSize = size;
}

CRMCell* NewCellOfType(BYTE columnType, CRMData* data) {
  switch (columnType) {
    case kColumnDWord:
      return new CRMDWordCell;
    case kColumnInteger:
      return new CRMIntegerCell;
    case kColumnDouble:
      return new CRMDoubleCell;
    case kColumnString:
      return new CRMStringCell;
    case kColumnKVTTime:
      return new CRMKVTTimeCell;
    case kColumnKVTDiff:
      return new CRMKVTDiffCell;
    case kColumnDate:
      return new CRMDateCell;
    case kColumnDateTime:
      return new CRMDateTimeCell;
    case kColumnTransponder:
      return new CRMTransponderCell(data);
    default:
      return nullptr;
  }
}
