#include "host/RaceSimulation.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

// The default pace: about 150 km/h around the track, each competitor a little slower
// than the next best, by the seed.
constexpr double kDefaultSpeedKmh = 150.0;
constexpr double kDefaultFieldSpreadShare = 0.06;
constexpr double kDefaultLapSpreadShare = 0.006;
constexpr double kYellowChancePerLeaderLap = 0.12;
constexpr double kYellowSlowdown = 1.12;
constexpr KVTTIME kGridStagger = 300000;  // between two start places

KVTTIME Seconds(double seconds) { return static_cast<KVTTIME>(std::llround(seconds * 1e6)); }

bool Before(KVTTIME a, KVTTIME b) {
  if (a == KVTTIME_NULL) return false;
  return b == KVTTIME_NULL || a < b;
}

}  // namespace

std::string RunTypeName(BYTE type) {
  switch (type) {
    case 0: return "Practice";
    case 1: return "Qualifying";
    default: return "Race";
  }
}

std::string LapTimeText(KVTTIME time) {
  if (time == KVTTIME_NULL) return "-";
  const long long millis = time / 1000;
  char text[32];
  if (millis >= 60000) {
    std::snprintf(text, sizeof text, "%lld:%02lld.%03lld", millis / 60000, millis / 1000 % 60, millis % 1000);
  } else {
    std::snprintf(text, sizeof text, "%lld.%03lld", millis / 1000, millis % 1000);
  }
  return text;
}

CRaceSimulation::CRaceSimulation(const RaceDescription& race, std::uint32_t seed, bool loop, KVTTIME origin,
                                 std::int64_t utcOrigin)
    : Description(race), Loop(loop), Origin(origin), UtcOrigin(utcOrigin), Random(seed) {
  const double defaultLap = 3600.0 * race.TrackLength / kDefaultSpeedKmh;
  std::uniform_real_distribution<double> fieldShare(0.0, kDefaultFieldSpreadShare);
  for (const RaceCompetitorPlan& plan : race.Competitors) {
    const double lap = plan.LapSeconds > 0 ? plan.LapSeconds : defaultLap * (1.0 + fieldShare(Random));
    const double spread = plan.SpreadSeconds >= 0 ? plan.SpreadSeconds : lap * kDefaultLapSpreadShare;
    Paces.emplace_back(Seconds(lap), Seconds(spread));
  }
  ResetRuns();
  RunStates.front().StartAt = kFirstStartDelay;
  PlanStarts();
}

void CRaceSimulation::ResetRuns() {
  RunStates.clear();
  for (const RaceRunPlan& plan : Description.Runs) {
    SimRun run;
    run.Plan = &plan;
    run.Field.resize(Description.Competitors.size());
    RunStates.push_back(std::move(run));
  }
  Active = 0;
  Pending = {};
  // Before any start the field stands in the order of the file.
  for (SimRun& run : RunStates) {
    for (std::size_t i = 0; i < run.Field.size(); ++i) run.Field[i].Grid = static_cast<int>(i);
  }
}

KVTTIME CRaceSimulation::SlowestPace() const {
  KVTTIME slowest = 0;
  for (const auto& pace : Paces) slowest = std::max(slowest, pace.first);
  return slowest;
}

// The schedule: each run planned from the first start, a timed run by its minutes, a run
// over laps by its laps at the slowest pace, then the break.
void CRaceSimulation::PlanStarts() {
  Planned.clear();
  KVTTIME at = Origin + RunStates.front().StartAt;
  for (const RaceRunPlan& plan : Description.Runs) {
    Planned.push_back(at);
    const KVTTIME length = plan.Minutes > 0 ? plan.Minutes * 60 * kSecond : plan.Laps * SlowestPace();
    at += length + SlowestPace() + Description.BreakSeconds * kSecond;
  }
}

KVTTIME CRaceSimulation::ScheduledStart(std::size_t index) const {
  const SimRun& run = RunStates.at(index);
  if (run.Phase == RunPhase::Waiting || run.StartAt == KVTTIME_NULL) return Planned.at(index);
  return TimeOfDay(run.StartAt);
}

KVTTIME CRaceSimulation::RunTime(std::size_t index, KVTTIME time) const {
  const SimRun& run = RunStates.at(index);
  if (run.StartAt == KVTTIME_NULL || run.Phase == RunPhase::Waiting || time < run.StartAt) return 0;
  const KVTTIME until = run.Phase == RunPhase::Done ? run.EndAt : time;
  return until - run.StartAt;
}

KVTTIME CRaceSimulation::NextEventTime() const {
  if (RestartAt != KVTTIME_NULL) return RestartAt;
  const SimRun& run = RunStates[Active];
  KVTTIME next = KVTTIME_NULL;
  switch (run.Phase) {
    case RunPhase::Waiting:
      next = run.StartAt;
      break;
    case RunPhase::Running:
    case RunPhase::Finishing:
      if (!Pending.empty()) next = Pending.top().At;
      if (run.Phase == RunPhase::Running && run.Plan->Minutes > 0) {
        const KVTTIME up = run.StartAt + run.Plan->Minutes * 60 * kSecond;
        if (Before(up, next)) next = up;
      }
      if (Before(run.YellowUntil, next)) next = run.YellowUntil;
      if (run.Phase == RunPhase::Finishing) {
        // Whoever has not come in long after the chequered flag is taken as in.
        const KVTTIME giveUp = run.FinishFlagAt + 3 * SlowestPace();
        if (Before(giveUp, next)) next = giveUp;
      }
      break;
    case RunPhase::Done:
      break;
  }
  return next;
}

void CRaceSimulation::AdvanceTo(KVTTIME time) {
  for (KVTTIME next = NextEventTime(); next != KVTTIME_NULL && next <= time; next = NextEventTime()) {
    Clock = std::max(Clock, next);
    if (RestartAt != KVTTIME_NULL) {
      Restart(next);
      continue;
    }
    SimRun& run = RunStates[Active];
    if (run.Phase == RunPhase::Waiting) {
      StartRun(next);
    } else if (run.YellowUntil == next) {
      EndYellow(next);
    } else if (run.Phase == RunPhase::Running && run.Plan->Minutes > 0 &&
               next == run.StartAt + run.Plan->Minutes * 60 * kSecond) {
      TimeUp(next);
    } else if (!Pending.empty() && Pending.top().At == next) {
      const Crossing crossing = Pending.top();
      Pending.pop();
      Cross(crossing.At, crossing.Competitor);
    } else {
      EndRun(next);
    }
  }
  Clock = std::max(Clock, time);
}

std::vector<int> CRaceSimulation::GridOrder(const SimRun& run) const {
  std::vector<int> order(run.Field.size());
  for (std::size_t i = 0; i < order.size(); ++i) order[i] = static_cast<int>(i);
  if (run.Plan->Type != 2) return order;
  // A race starts in the order of the latest qualifying of this round, fastest first.
  const SimRun* qualifying = nullptr;
  for (const SimRun& other : RunStates) {
    if (&other == &run) break;
    if (other.Plan->Type == 1 && other.Phase == RunPhase::Done) qualifying = &other;
  }
  if (qualifying == nullptr) return order;
  std::stable_sort(order.begin(), order.end(), [&](int a, int b) {
    return Before(qualifying->Field[static_cast<std::size_t>(a)].BestLap, qualifying->Field[static_cast<std::size_t>(b)].BestLap);
  });
  return order;
}

void CRaceSimulation::StartRun(KVTTIME at) {
  SimRun& run = RunStates[Active];
  run.Phase = RunPhase::Running;
  run.StartAt = at;
  run.Flag = kFlagGreen;
  run.Special = kSpecialNone;
  const std::vector<int> order = GridOrder(run);
  for (std::size_t place = 0; place < order.size(); ++place) {
    const auto competitor = static_cast<std::size_t>(order[place]);
    SimCompetitor& state = run.Field[competitor];
    state.Grid = static_cast<int>(place);
    // Each place on the grid starts a little later from the line.
    state.LapStart = static_cast<KVTTIME>(place) * kGridStagger;
    state.LastTimelineAt = state.LapStart;
    state.NextTimeline = Description.Timelines.size() > 1 ? 1 : 0;
    DrawLap(run, competitor);
    ScheduleNextTimeline(run, competitor);
  }
  ++run.Revision;
  Announce(at, run.Plan->Name + ": green flag");
}

void CRaceSimulation::DrawLap(SimRun& run, std::size_t competitor) {
  const auto [pace, spread] = Paces[competitor];
  std::normal_distribution<double> noise(0.0, static_cast<double>(spread));
  double lap = static_cast<double>(pace) + noise(Random);
  lap = std::max(lap, 0.8 * static_cast<double>(pace));
  if (run.Flag == kFlagYellow) lap *= kYellowSlowdown;
  run.Field[competitor].LapLength = static_cast<KVTTIME>(lap);
}

void CRaceSimulation::ScheduleNextTimeline(SimRun& run, std::size_t competitor) {
  const SimCompetitor& state = run.Field[competitor];
  const std::size_t next = state.NextTimeline;
  const double share = next == 0 ? 1.0 : Description.Timelines[next].Position / Description.TrackLength;
  const KVTTIME at = run.StartAt + state.LapStart + static_cast<KVTTIME>(share * static_cast<double>(state.LapLength));
  Pending.push({at, competitor});
}

void CRaceSimulation::Cross(KVTTIME at, std::size_t competitor) {
  SimRun& run = RunStates[Active];
  SimCompetitor& state = run.Field[competitor];
  const KVTTIME runTime = at - run.StartAt;
  const std::size_t timeline = state.NextTimeline;
  ++run.Revision;
  if (timeline == 0) {
    CrossFinishLine(run, at, competitor);
    return;
  }
  SimPassing passing;
  passing.Sequence = NextPassing++;
  passing.Competitor = competitor;
  passing.Lap = state.Laps + 1;
  passing.Timeline = timeline;
  passing.RunTime = runTime;
  passing.Segment = runTime - state.LastTimelineAt;
  run.Passings.push_back(passing);
  state.LastTimelineAt = runTime;
  state.NextTimeline = (timeline + 1) % Description.Timelines.size();
  ScheduleNextTimeline(run, competitor);
}

int CRaceSimulation::LeaderLaps(const SimRun& run) const {
  int laps = 0;
  for (const SimCompetitor& state : run.Field) laps = std::max(laps, state.Laps);
  return laps;
}

std::string CRaceSimulation::Label(std::size_t competitor) const {
  const RaceCompetitorPlan& plan = Description.Competitors[competitor];
  std::string name = plan.FirstName.empty() ? plan.LastName : plan.FirstName + " " + plan.LastName;
  return plan.Number.empty() ? name : "#" + plan.Number + " " + name;
}

void CRaceSimulation::CrossFinishLine(SimRun& run, KVTTIME at, std::size_t competitor) {
  SimCompetitor& state = run.Field[competitor];
  const KVTTIME runTime = at - run.StartAt;
  const int leaderLapsBefore = LeaderLaps(run);
  const KVTTIME lap = runTime - state.LapStart;
  ++state.Laps;
  state.LastLap = lap;
  state.LastCrossing = runTime;
  state.Crossings.push_back(runTime);
  if (Before(lap, state.BestLap)) {
    state.SecondBest = state.BestLap;
    state.SecondLapNumber = state.BestLapNumber;
    state.BestLap = lap;
    state.BestLapNumber = state.Laps;
  } else if (Before(lap, state.SecondBest)) {
    state.SecondBest = lap;
    state.SecondLapNumber = state.Laps;
  }
  SimPassing passing;
  passing.Sequence = NextPassing++;
  passing.Competitor = competitor;
  passing.Lap = state.Laps;
  passing.Timeline = 0;
  passing.RunTime = runTime;
  passing.Segment = lap;
  run.Passings.push_back(passing);
  if (Before(lap, run.BestLap)) {
    run.BestLap = lap;
    run.BestBy = competitor;
    if (state.Laps >= 2) Announce(at, "Fastest lap: " + Label(competitor) + " " + LapTimeText(lap));
  }
  const bool leads = state.Laps > leaderLapsBefore;

  if (run.Phase == RunPhase::Finishing) {
    state.Finished = true;
  } else if (run.Plan->Laps > 0 && state.Laps >= run.Plan->Laps) {
    state.Finished = true;
    ShowChequeredFlag(run, at);
    Announce(at, "Chequered flag: " + Label(competitor) + " wins " + run.Plan->Name);
  } else if (leads) {
    const bool lastLapOverLaps = run.Plan->Laps > 0 && state.Laps == run.Plan->Laps - 1;
    const KVTTIME left = run.Plan->Minutes > 0 ? run.StartAt + run.Plan->Minutes * 60 * kSecond - at : 0;
    const bool lastLapOnTime = run.Plan->Minutes > 0 && left > 0 && left < lap;
    if ((lastLapOverLaps || lastLapOnTime) && run.Special == kSpecialNone) {
      run.Special = kSpecialWhite;
      Announce(at, run.Plan->Name + ": white flag, last lap for the leader");
    } else if (run.Flag == kFlagGreen && run.Special == kSpecialNone && state.Laps >= 2) {
      std::uniform_real_distribution<double> chance(0.0, 1.0);
      if (chance(Random) < kYellowChancePerLeaderLap) {
        std::uniform_int_distribution<int> seconds(20, 45);
        std::uniform_int_distribution<std::size_t> sector(0, Description.Timelines.size() - 1);
        const std::size_t where = sector(Random);
        const std::string place = where < Description.Sections.size() ? Description.Sections[where].Name
                                                                      : "sector " + std::to_string(where + 1);
        run.Flag = kFlagYellow;
        run.YellowUntil = at + seconds(Random) * kSecond;
        Announce(at, "Yellow flag: incident in " + place);
      }
    }
  }

  if (state.Finished) {
    const bool allIn = std::all_of(run.Field.begin(), run.Field.end(), [](const SimCompetitor& c) { return c.Finished; });
    if (allIn) EndRun(at);
    return;
  }
  state.LapStart = runTime;
  state.LastTimelineAt = runTime;
  state.NextTimeline = Description.Timelines.size() > 1 ? 1 : 0;
  DrawLap(run, competitor);
  ScheduleNextTimeline(run, competitor);
}

void CRaceSimulation::ShowChequeredFlag(SimRun& run, KVTTIME at) {
  run.Phase = RunPhase::Finishing;
  run.FinishFlagAt = at;
  run.Special = kSpecialFinish;
  run.Flag = kFlagGreen;
  run.YellowUntil = KVTTIME_NULL;
}

void CRaceSimulation::TimeUp(KVTTIME at) {
  SimRun& run = RunStates[Active];
  ShowChequeredFlag(run, at);
  ++run.Revision;
  Announce(at, run.Plan->Name + ": time is up, chequered flag");
}

void CRaceSimulation::EndYellow(KVTTIME at) {
  SimRun& run = RunStates[Active];
  run.YellowUntil = KVTTIME_NULL;
  if (run.Flag == kFlagYellow) run.Flag = kFlagGreen;
  ++run.Revision;
  Announce(at, "Green flag: the track is clear");
}

void CRaceSimulation::EndRun(KVTTIME at) {
  SimRun& run = RunStates[Active];
  for (SimCompetitor& state : run.Field) state.Finished = true;
  run.Phase = RunPhase::Done;
  run.EndAt = at;
  ++run.Revision;
  Pending = {};
  Announce(at, run.Plan->Name + " is over");
  if (Active + 1 < RunStates.size()) {
    ++Active;
    RunStates[Active].StartAt = at + Description.BreakSeconds * kSecond;
    Announce(at, "Next: " + RunStates[Active].Plan->Name);
  } else if (Loop) {
    RestartAt = at + Description.BreakSeconds * kSecond;
  }
}

void CRaceSimulation::Restart(KVTTIME at) {
  RestartAt = KVTTIME_NULL;
  ++Rounds;
  ResetRuns();
  RunStates.front().StartAt = at + kFirstStartDelay;
  PlanStarts();
  Announce(at, "The meeting begins again: " + RunStates.front().Plan->Name);
}

void CRaceSimulation::Announce(KVTTIME at, const std::string& text) {
  SimAnnouncement news;
  news.ID = NextAnnouncement++;
  news.Run = Active;
  news.TimeOfDay = Origin + at;
  news.Text = text;
  News.push_back(std::move(news));
  // The board keeps the latest ones.
  constexpr std::size_t kKept = 200;
  while (News.size() > kKept) News.pop_front();
}
