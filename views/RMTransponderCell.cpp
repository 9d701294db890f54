#include "views/RMTransponderCell.h"

#include <algorithm>
#include <string>

#include "data/RMData.h"
#include "data/SideRecords.h"
#include "frame/KVTException.h"
#include "frame/TimeText.h"

namespace {
// Bytes of one list entry on the wire: the transponder and a byte that is dropped.
constexpr DWORD kEntryBytes = 5;
}  // namespace

CRMTransponderCell::CRMTransponderCell(CRMData* data) : CRMCell(kTextSize), Data(data) {}

CRMTransponderCell::operator DWORD() const { return Transponders.empty() ? 0 : Transponders.front(); }

CRMCell* CRMTransponderCell::Clone() const { return new CRMTransponderCell(Data); }

void CRMTransponderCell::MessageToCell(CTTBuffer& message) {
  int count = 0;
  message >> count >> Option;
  // The list is sized from the count, so a count the message cannot hold is refused
  // before anything is allocated.
  if (count < 0 || static_cast<std::uint64_t>(count) * kEntryBytes > message.GetRemaining()) {
    ThrowKVT("CRMTransponderCell::MessageToCell()");
  }
  bool changed = static_cast<std::size_t>(count) != Transponders.size();
  Transponders.resize(static_cast<std::size_t>(count));
  for (DWORD& entry : Transponders) {
    DWORD transponder = 0;
    BYTE dropped = 0;
    message >> transponder >> dropped;
    if (transponder != entry) changed = true;
    entry = transponder;
  }
  if (changed) MakeText();
}

void CRMTransponderCell::MakeText() {
  std::string text;
  for (std::size_t i = 0; i < Transponders.size(); ++i) {
    const DWORD number = Transponders[i];
    if (std::find(Transponders.begin(), Transponders.begin() + static_cast<std::ptrdiff_t>(i), number) !=
        Transponders.begin() + static_cast<std::ptrdiff_t>(i)) {
      continue;  // a repeat is shown once
    }
    if (i > 0) text += ", ";
    const CBaseTxTranslation* translation = Data != nullptr ? Data->GetTxTranslation(number) : nullptr;
    text += translation != nullptr ? translation->Text : TransponderToString(number);
    if (text.size() >= kTextSize) break;
  }
  SetText(text);
}
