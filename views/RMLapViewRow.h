// One passing of a run as a lap view lists it: a passing at a loop, a photocell or
// manual entry, or a flag change.
#pragma once

#include <string>

#include "frame/TTBuffer.h"
#include "frame/Types.h"

class CBaseCompetitor;

// Row kinds, from bits 2 to 4 of the flags.
inline constexpr int kLapRowPassing = 0;
inline constexpr int kLapRowPhotocell = 1;
inline constexpr int kLapRowPhotocellSecond = 2;
inline constexpr int kLapRowManual = 3;
inline constexpr int kLapRowFlag = 4;

inline constexpr DWORD kUnassignedCompetitor = 0xFFFFFFFF;

class CRMLapViewRow {
 public:
  // The alternative text holds at most this many characters.
  static constexpr std::size_t kAlternativeLength = 31;

  // Reads the lap row body (everything behind the row ID).
  void MessageToViewRow(CTTBuffer& message);
  void SetCompetitor(CBaseCompetitor* competitor);
  // Sets the text shown instead of a competitor's name, cut to 31 characters.
  void SetAlternative(const std::string& text);
  BOOL IsPhotoCell() const;
  int GetKind() const { return static_cast<int>((Flags & 0x1C) >> 2); }
  DWORD GetFlagColour() const { return (Flags >> 16) & 0x7; }
  DWORD GetFlagClass() const { return (Flags >> 19) & 0x7; }

  DWORD RowID = 0xFFFFFFFF;
  DWORD Flags = 0;
  DWORD CompetitorID = kUnassignedCompetitor;
  DWORD SecondID = 0;
  BYTE Status = 0xFF;
  WORD Word1 = 0;
  WORD Word2 = 0;
  BYTE Byte3 = 0;
  WORD Word4 = 0;
  WORD Word5 = 0;
  KVTTIME Time1 = 0;
  // The row's place in the list; no time means the row is not listed.
  KVTTIME PassingTime = KVTTIME_NULL;
  KVTTIME Time3 = KVTTIME_NULL;
  KVTTIME Time4 = KVTTIME_NULL;
  CBaseCompetitor* Competitor = nullptr;
  std::string Alternative;
};
