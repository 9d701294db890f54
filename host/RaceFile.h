// The race file the data manager stand-in plays: the track with its timelines, the
// events, the runs of the meeting in order with their length, the competitors with
// their pace. Read strictly: a file that is not JSON, lacks a field or holds a value out
// of range is refused with one line naming the file and the place.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "data/BaseDataComm.h"
#include "frame/Types.h"

struct RaceTimelinePlan {
  BYTE ID = 0;
  std::string Name;
  double Position = 0.0;  // km from the finish line
};

struct RaceSectionPlan {
  std::string Name;
};

struct RaceRunPlan {
  DWORD ID = 0;     // as in the file; the replica's run ID adds the run bit
  DWORD Event = 0;  // as in the file
  std::string Name;
  BYTE Type = 0;    // 0 practice, 1 qualifying, 2 race
  int Minutes = 0;  // a timed run: its length; 0 for a run over laps
  int Laps = 0;     // a run over laps: its length; 0 for a timed run
};

struct RaceCompetitorPlan {
  DWORD ID = 0;
  std::string Number;
  std::string FirstName;
  std::string LastName;
  std::string Class;
  std::vector<DWORD> Transponders;
  double LapSeconds = 0.0;    // 0: a seeded default
  double SpreadSeconds = -1;  // below 0: a seeded default
};

struct RaceEventPlan {
  DWORD ID = 0;
  std::string Name;
  DWORD Parent = 0;  // 0: a root event
};

struct RaceDescription {
  std::string TrackName;
  double TrackLength = 0.0;  // km
  std::vector<RaceTimelinePlan> Timelines;  // sorted by position, the finish line first
  std::vector<RaceSectionPlan> Sections;
  std::vector<RaceEventPlan> Events;
  std::vector<RaceRunPlan> Runs;  // in the order they are run
  std::vector<RaceCompetitorPlan> Competitors;
  int StartSecondOfDay = -1;  // the meeting's first start; below 0: when the play begins
  int BreakSeconds = 60;      // between the end of one run and the start of the next
  std::vector<std::string> ViewNames;
  // The code page every text of the file (names, numbers, classes, transponder texts) is
  // held in, and how many of those texts lost a character the code page cannot hold.
  std::string CodePage = "UTF-8";
  std::size_t NamesLosingCharacters = 0;
  // The race data as the data manager holds it at the start of the meeting.
  std::unique_ptr<CBaseDataComm> Model;
};

// The replica's unique IDs of the file's events and runs.
inline constexpr DWORD kRaceEventBit = 0x80000000;
inline constexpr DWORD kRaceRunBit = 0x40000000;

// Reads the race from `text`; `fileName` only names the file in the error line. False
// with one line in `error`: "race file F: PLACE: what is wrong". The file's texts are
// UTF-8; they are held in `codePage` (a character it cannot hold becomes "?").
bool ReadRaceDescription(const std::string& text, const std::string& fileName, RaceDescription& race,
                         std::string& error, const std::string& codePage = "UTF-8");
