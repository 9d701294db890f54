// The meeting the data manager stand-in plays: the runs of the race file one after the
// other, each with a green flag, passings at the finish line and at the splits from each
// competitor's pace, a yellow flag now and then, the white flag for the last lap and the
// chequered flag, and announcements of what happened. Deterministic for a seed: the
// clock is moved on by the caller, and everything between two calls happens in order.
#pragma once

#include <cstdint>
#include <deque>
#include <queue>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "frame/Types.h"
#include "host/RaceFile.h"

// One crossing of a timeline.
struct SimPassing {
  DWORD Sequence = 0;        // from 1, over the whole meeting
  std::size_t Competitor = 0;  // index into the race's competitors
  int Lap = 0;               // the lap completed (finish line) or under way (split)
  std::size_t Timeline = 0;  // index into the race's timelines; 0 is the finish line
  KVTTIME RunTime = 0;       // since the run's green flag
  KVTTIME Segment = 0;       // the lap time at the finish line, the time since the last timeline at a split
};

struct SimCompetitor {
  int Grid = 0;  // start order from 0
  int Laps = 0;
  KVTTIME LastCrossing = KVTTIME_NULL;  // run time of the latest finish-line crossing
  std::vector<KVTTIME> Crossings;       // run time of each finish-line crossing, lap 1 first
  KVTTIME LastLap = KVTTIME_NULL;
  KVTTIME BestLap = KVTTIME_NULL;
  KVTTIME SecondBest = KVTTIME_NULL;
  int BestLapNumber = 0;
  int SecondLapNumber = 0;
  bool Finished = false;
  // The lap under way: where it began, how long it takes, the next timeline.
  KVTTIME LapStart = 0;
  KVTTIME LapLength = 0;
  KVTTIME LastTimelineAt = 0;
  std::size_t NextTimeline = 0;
};

enum class RunPhase { Waiting, Running, Finishing, Done };

// Flag values as the run information carries them.
inline constexpr DWORD kFlagWarmup = 0;
inline constexpr DWORD kFlagGreen = 1;
inline constexpr DWORD kFlagYellow = 2;
inline constexpr DWORD kSpecialNone = 0;
inline constexpr DWORD kSpecialWhite = 1;
inline constexpr DWORD kSpecialFinish = 2;

struct SimRun {
  const RaceRunPlan* Plan = nullptr;
  RunPhase Phase = RunPhase::Waiting;
  KVTTIME StartAt = KVTTIME_NULL;  // meeting time of the green flag, once known
  KVTTIME EndAt = KVTTIME_NULL;    // meeting time when the last competitor was in
  KVTTIME FinishFlagAt = KVTTIME_NULL;
  DWORD Flag = kFlagWarmup;
  DWORD Special = kSpecialNone;
  KVTTIME YellowUntil = KVTTIME_NULL;
  std::vector<SimCompetitor> Field;  // in the order of the race's competitors
  std::vector<SimPassing> Passings;
  KVTTIME BestLap = KVTTIME_NULL;
  std::size_t BestBy = 0;
  // Grows with every change of the run, so that a reader can tell it changed.
  std::uint64_t Revision = 0;
};

struct SimAnnouncement {
  DWORD ID = 0;  // from 1, over the whole meeting
  std::size_t Run = 0;
  KVTTIME TimeOfDay = 0;  // absolute, local
  std::string Text;
};

class CRaceSimulation {
 public:
  static constexpr KVTTIME kSecond = 1000000;
  // How long the first run waits for its green flag.
  static constexpr KVTTIME kFirstStartDelay = 10 * kSecond;

  // `origin` is the local absolute time (microseconds since 1970 in local time) of meeting
  // time 0, `utcOrigin` the same moment in seconds since 1970 (UTC).
  CRaceSimulation(const RaceDescription& race, std::uint32_t seed, bool loop, KVTTIME origin, std::int64_t utcOrigin);

  // Plays everything up to meeting time `time` (microseconds since the play began).
  void AdvanceTo(KVTTIME time);
  // The meeting time of the next thing to happen; KVTTIME_NULL when nothing will.
  KVTTIME NextEventTime() const;
  KVTTIME Now() const { return Clock; }
  KVTTIME TimeOfDay(KVTTIME meetingTime) const { return Origin + meetingTime; }
  // Seconds since 1970 (UTC) of a local absolute time of this meeting.
  DWORD UtcSeconds(KVTTIME timeOfDay) const {
    return static_cast<DWORD>(UtcOrigin + (timeOfDay - Origin) / kSecond);
  }

  const RaceDescription& Race() const { return Description; }
  const std::vector<SimRun>& Runs() const { return RunStates; }
  std::size_t ActiveRun() const { return Active; }
  // How often the meeting has begun again.
  int Round() const { return Rounds; }
  const std::deque<SimAnnouncement>& Announcements() const { return News; }
  // The planned start of each run, as the schedule shows it (absolute, local).
  KVTTIME PlannedStart(std::size_t run) const { return Planned.at(run); }
  // When the run's green flag really came (absolute, local) once it has; else its planned start.
  KVTTIME ScheduledStart(std::size_t run) const;
  // Run time of the active run at meeting time `time`: 0 before its start, frozen at its end.
  KVTTIME RunTime(std::size_t run, KVTTIME time) const;

 private:
  struct Crossing {
    KVTTIME At;
    std::size_t Competitor;
    bool operator>(const Crossing& other) const {
      return At != other.At ? At > other.At : Competitor > other.Competitor;
    }
  };

  void ResetRuns();
  void PlanStarts();
  void StartRun(KVTTIME at);
  void Cross(KVTTIME at, std::size_t competitor);
  void CrossFinishLine(SimRun& run, KVTTIME at, std::size_t competitor);
  void ScheduleNextTimeline(SimRun& run, std::size_t competitor);
  void DrawLap(SimRun& run, std::size_t competitor);
  // The run goes into its last crossings: chequered flag, no yellow.
  void ShowChequeredFlag(SimRun& run, KVTTIME at);
  void TimeUp(KVTTIME at);
  void EndYellow(KVTTIME at);
  void EndRun(KVTTIME at);
  void Restart(KVTTIME at);
  void Announce(KVTTIME at, const std::string& text);
  std::vector<int> GridOrder(const SimRun& run) const;
  int LeaderLaps(const SimRun& run) const;
  std::string Label(std::size_t competitor) const;
  KVTTIME SlowestPace() const;

  const RaceDescription& Description;
  bool Loop;
  KVTTIME Origin;
  std::int64_t UtcOrigin;
  std::mt19937 Random;
  std::vector<std::pair<KVTTIME, KVTTIME>> Paces;  // lap time and spread per competitor
  std::vector<SimRun> RunStates;
  std::vector<KVTTIME> Planned;
  std::size_t Active = 0;
  int Rounds = 0;
  KVTTIME Clock = 0;
  KVTTIME RestartAt = KVTTIME_NULL;
  DWORD NextPassing = 1;
  DWORD NextAnnouncement = 1;
  std::deque<SimAnnouncement> News;
  std::priority_queue<Crossing, std::vector<Crossing>, std::greater<Crossing>> Pending;
};

std::string RunTypeName(BYTE type);
// "1:45.234" for the announcements.
std::string LapTimeText(KVTTIME time);
