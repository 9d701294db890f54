#include "host/RaceViews.h"

#include <algorithm>
#include <numeric>

namespace RaceViews {

namespace {

constexpr KVTTIME kSecond = CRaceSimulation::kSecond;
constexpr DWORD kNone = 0xFFFFFFFF;  // a DWORD cell shows it as "-"

// Column types.
constexpr BYTE kDword = 0;
constexpr BYTE kInteger = 1;
constexpr BYTE kDouble = 2;
constexpr BYTE kString = 3;
constexpr BYTE kTime = 4;
constexpr BYTE kDiff = 5;
constexpr BYTE kDateTime = 7;
constexpr BYTE kTransponder = 8;

template <class Context>
struct ColumnDef {
  BYTE Type;
  const char* Title;
  const char* Key;
  void (*Fill)(ViewCellValue& cell, const Context& context);
};

template <class Context>
std::vector<CColumn> ColumnsOf(const std::vector<ColumnDef<Context>>& defs) {
  std::vector<CColumn> columns;
  for (const auto& def : defs) {
    CColumn column;
    column.Type = def.Type;
    column.Title = def.Title;
    column.Key = def.Key;
    columns.push_back(column);
  }
  return columns;
}

template <class Context>
ViewRowValues RowOf(const std::vector<ColumnDef<Context>>& defs, DWORD rowID, const Context& context) {
  ViewRowValues row;
  row.RowID = rowID;
  row.GroupID = 0;
  row.Cells.resize(defs.size());
  for (std::size_t i = 0; i < defs.size(); ++i) defs[i].Fill(row.Cells[i], context);
  return row;
}

// km/h over `length` km in `time`; 0 (shown "-") without a time.
double Speed(double length, KVTTIME time) {
  if (time == KVTTIME_NULL || time <= 0) return 0.0;
  return length / (static_cast<double>(time) / 3600e6);
}

KVTTIME WholeSeconds(KVTTIME time) { return time == KVTTIME_NULL ? time : time / kSecond * kSecond; }

KVTTIME LapsBehind(int laps) { return static_cast<KVTTIME>(laps) << 48; }

std::string FullName(const RaceCompetitorPlan& plan) {
  return plan.FirstName.empty() ? plan.LastName : plan.FirstName + " " + plan.LastName;
}

const RaceEventPlan* EventOf(const RaceDescription& race, DWORD fileID) {
  for (const RaceEventPlan& event : race.Events) {
    if (event.ID == fileID) return &event;
  }
  return nullptr;
}

// The root event above `event`; none when the parents run in a circle. The reader
// refuses such a file, but a walk up the chain never takes more steps than there are
// events.
const RaceEventPlan* RootOf(const RaceDescription& race, const RaceEventPlan* event) {
  for (std::size_t steps = 0; event != nullptr && steps < race.Events.size(); ++steps) {
    if (event->Parent == 0) return event;
    event = EventOf(race, event->Parent);
  }
  return nullptr;
}

// The behind-the-leader value of sort type 0, judged at the line where `behind` last
// crossed it: the laps `ahead` had more by then, else how long after `ahead` it completed
// the same lap. A car on the same lap that has not yet come round after `ahead` is not a
// lap down. When `behind` completed that lap first, the two changed places on the track
// since, and the gap is unknown ("-") until `behind` crosses again.
KVTTIME RaceGap(const SimCompetitor& ahead, const SimCompetitor& behind) {
  if (behind.Laps == 0 || ahead.Laps == 0) return KVTTIME_NULL;
  const auto laps = static_cast<std::size_t>(behind.Laps);
  if (ahead.Crossings.size() < laps || behind.Crossings.size() < laps) return KVTTIME_NULL;
  const auto aheadByThen = std::upper_bound(ahead.Crossings.begin(), ahead.Crossings.end(), behind.LastCrossing);
  const auto lapsAheadByThen = static_cast<std::size_t>(aheadByThen - ahead.Crossings.begin());
  if (lapsAheadByThen > laps) return LapsBehind(static_cast<int>(lapsAheadByThen - laps));
  const KVTTIME behindAtTheLine = behind.LastCrossing - ahead.Crossings[laps - 1];
  return behindAtTheLine < 0 ? KVTTIME_NULL : behindAtTheLine;
}

KVTTIME BestLapGap(const SimCompetitor& ahead, const SimCompetitor& behind) {
  if (behind.BestLap == KVTTIME_NULL || ahead.BestLap == KVTTIME_NULL) return KVTTIME_NULL;
  return behind.BestLap - ahead.BestLap;
}

int SortTypeOf(const Request& request, const SimRun& run) {
  if (request.SortType == 0 || request.SortType == 1) return request.SortType;
  return run.Plan->Type == 2 ? 0 : 1;
}

// ---- results --------------------------------------------------------------------------

struct ResultContext {
  const CRaceSimulation& Meeting;
  const SimRun& Run;
  std::size_t Competitor;
  const SimCompetitor& State;
  const RaceCompetitorPlan& Plan;
  int Position;
  int PositionInClass;
  KVTTIME Gap;
  KVTTIME Diff;
  double Length() const { return Meeting.Race().TrackLength; }
};

void Empty(ViewCellValue&, const ResultContext&) {}

const std::vector<ColumnDef<ResultContext>>& ResultColumns() {
  using C = ResultContext;
  using V = ViewCellValue;
  static const std::vector<ColumnDef<C>> defs = {
      {kInteger, "Pos", "lgHeader_Pos", [](V& v, const C& c) { v.Integer = c.Position; }},
      {kInteger, "PIC", "lgHeader_PosInClass", [](V& v, const C& c) { v.Integer = c.PositionInClass; }},
      {kString, "No", "lgHeader_No", [](V& v, const C& c) { v.Text = c.Plan.Number; }},
      {kString, "Class", "lgHeader_Class", [](V& v, const C& c) { v.Text = c.Plan.Class; }},
      {kString, "Name", "lgHeader_Name", [](V& v, const C& c) { v.Text = FullName(c.Plan); }},
      {kString, "First name", "lgHeader_First_Name", [](V& v, const C& c) { v.Text = c.Plan.FirstName; }},
      {kString, "Last name", "lgHeader_Last_Name", [](V& v, const C& c) { v.Text = c.Plan.LastName; }},
      {kString, "Add. 1", "lgHeader_CarAdditional1", Empty},
      {kString, "Add. 2", "lgHeader_CarAdditional2", Empty},
      {kString, "Add. 3", "lgHeader_CarAdditional3", Empty},
      {kString, "Add. 4", "lgHeader_CarAdditional4", Empty},
      {kString, "Add. 5", "lgHeader_CarAdditional5", Empty},
      {kString, "Add. 6", "lgHeader_CarAdditional6", Empty},
      {kString, "Add. 7", "lgHeader_CarAdditional7", Empty},
      {kString, "Add. 8", "lgHeader_CarAdditional8", Empty},
      {kString, "Reg. No", "lgHeader_Car_RegNumber", Empty},
      {kTransponder, "Transponder", "lgHeader_Car_Transponders",
       [](V& v, const C& c) { v.Transponders = c.Plan.Transponders; }},
      // The holder of the run's fastest lap is marked.
      {kString, "", "lgHeader_Marker",
       [](V& v, const C& c) {
         const bool holds = c.Run.BestLap != KVTTIME_NULL && c.Run.BestBy == c.Competitor;
         v.Text.assign(holds ? 1 : 0, '*');
       }},
      {kInteger, "Laps", "lgHeader_Laps", [](V& v, const C& c) { v.Integer = c.State.Laps; }},
      {kTime, "Last lap", "lgHeader_LastTm", [](V& v, const C& c) { v.Time = c.State.LastLap; }},
      {kDouble, "Last speed", "lgHeader_LastSpd", [](V& v, const C& c) { v.Real = Speed(c.Length(), c.State.LastLap); }},
      {kTime, "Total time", "lgHeader_TotalTm", [](V& v, const C& c) { v.Time = c.State.LastCrossing; }},
      {kTime, "Average lap", "lgHeader_AvgTm",
       [](V& v, const C& c) { v.Time = c.State.Laps == 0 ? KVTTIME_NULL : c.State.LastCrossing / c.State.Laps; }},
      {kDouble, "Average speed", "lgHeader_AvgSpeed",
       [](V& v, const C& c) {
         v.Real = c.State.Laps == 0 ? 0.0 : Speed(c.Length() * c.State.Laps, c.State.LastCrossing);
       }},
      {kDiff, "Diff", "lgHeader_Diff", [](V& v, const C& c) { v.Time = c.Diff; }},
      {kDiff, "Gap", "lgHeader_Gap", [](V& v, const C& c) { v.Time = c.Gap; }},
      {kTime, "Best lap", "lgHeader_BestTm", [](V& v, const C& c) { v.Time = c.State.BestLap; }},
      {kDword, "In lap", "lgHeader_In_Lap",
       [](V& v, const C& c) { v.Dword = c.State.BestLapNumber == 0 ? kNone : static_cast<DWORD>(c.State.BestLapNumber); }},
      {kDouble, "Best speed", "lgHeader_BestSpd", [](V& v, const C& c) { v.Real = Speed(c.Length(), c.State.BestLap); }},
      {kTime, "2nd best", "lgHeader_2nd_Best", [](V& v, const C& c) { v.Time = c.State.SecondBest; }},
      {kDword, "2nd in lap", "lgHeader_2nd_Lap",
       [](V& v, const C& c) {
         v.Dword = c.State.SecondLapNumber == 0 ? kNone : static_cast<DWORD>(c.State.SecondLapNumber);
       }},
      {kDouble, "2nd speed", "lgHeader_2nd_Spd", [](V& v, const C& c) { v.Real = Speed(c.Length(), c.State.SecondBest); }},
      {kDword, "ID", "lgHeader_UniqueID", [](V& v, const C& c) { v.Dword = c.Plan.ID; }},
  };
  return defs;
}

std::vector<ViewRowValues> ResultRows(const Request& request, const CRaceSimulation& meeting, const SimRun& run) {
  const RaceDescription& race = meeting.Race();
  const int sortType = SortTypeOf(request, run);
  const std::vector<std::size_t> order = Standings(run, sortType);
  std::vector<ViewRowValues> rows;
  rows.reserve(order.size());
  std::map<std::string, int> classPlaces;
  for (std::size_t place = 0; place < order.size(); ++place) {
    const std::size_t competitor = order[place];
    const SimCompetitor& state = run.Field[competitor];
    const SimCompetitor& leader = run.Field[order.front()];
    const SimCompetitor& ahead = run.Field[order[place == 0 ? 0 : place - 1]];
    const auto gapTo = [&](const SimCompetitor& other) {
      return sortType == 0 ? RaceGap(other, state) : BestLapGap(other, state);
    };
    const ResultContext context{meeting,
                                run,
                                competitor,
                                state,
                                race.Competitors[competitor],
                                static_cast<int>(place + 1),
                                ++classPlaces[race.Competitors[competitor].Class],
                                place == 0 ? 0 : gapTo(leader),
                                place == 0 ? 0 : gapTo(ahead)};
    rows.push_back(RowOf(ResultColumns(), race.Competitors[competitor].ID, context));
  }
  return rows;
}

// ---- run information ------------------------------------------------------------------

struct RunInfoContext {
  const CRaceSimulation& Meeting;
  std::size_t Index;
  const SimRun& Run;
  int SortType;                    // the run's own order: 0 by laps and time, 1 by best lap
  std::vector<std::size_t> Order;  // in that order
  int MostLaps;                    // laps done by whoever has done most
  const SimCompetitor* Leader() const { return Order.empty() ? nullptr : &Run.Field[Order.front()]; }
  // P1 once it has a place: a lap done, or in an order by best lap, a best lap.
  bool Led() const {
    const SimCompetitor* leader = Leader();
    if (leader == nullptr) return false;
    return SortType == 0 ? leader->Laps > 0 : leader->BestLap != KVTTIME_NULL;
  }
  const RaceEventPlan* Event() const { return EventOf(Meeting.Race(), Run.Plan->Event); }
  KVTTIME Elapsed() const { return Meeting.RunTime(Index, Meeting.Now()); }
};

const std::vector<ColumnDef<RunInfoContext>>& RunInfoColumns() {
  using C = RunInfoContext;
  using V = ViewCellValue;
  static const std::vector<ColumnDef<C>> defs = {
      {kString, "Event", "lgHeader_ParentEvent",
       [](V& v, const C& c) {
         const RaceEventPlan* root = RootOf(c.Meeting.Race(), c.Event());
         v.Text = root != nullptr ? root->Name : "";
       }},
      {kString, "Track", "lgHeader_Track", [](V& v, const C& c) { v.Text = c.Meeting.Race().TrackName; }},
      {kString, "Group", "lgHeader_Event",
       [](V& v, const C& c) { v.Text = c.Event() != nullptr ? c.Event()->Name : ""; }},
      {kString, "Session", "lgHeader_Run", [](V& v, const C& c) { v.Text = c.Run.Plan->Name; }},
      {kString, "Type", "lgHeader_RunType", [](V& v, const C& c) { v.Text = RunTypeName(c.Run.Plan->Type); }},
      {kDword, "Run", "lgHeader_RunID", [](V& v, const C& c) { v.Dword = c.Run.Plan->ID; }},
      {kInteger, "Laps", "lgHeader_Laps",
       [](V& v, const C& c) { v.Integer = c.MostLaps; }},
      {kString, "Leader", "lgHeader_Leader",
       [](V& v, const C& c) {
         v.Text = c.Led() ? FullName(c.Meeting.Race().Competitors[c.Order.front()]) : "";
       }},
      {kDouble, "Average speed", "lgHeader_AvgSpeed",
       [](V& v, const C& c) {
         const SimCompetitor* leader = c.Leader();
         v.Real = leader == nullptr || leader->Laps == 0
                      ? 0.0
                      : Speed(c.Meeting.Race().TrackLength * leader->Laps, leader->LastCrossing);
       }},
      {kDiff, "Margin", "lgLabel_Margin_of_Victory",
       [](V& v, const C& c) {
         if (c.Order.size() < 2) {
           v.Time = KVTTIME_NULL;
           return;
         }
         const SimCompetitor& first = c.Run.Field[c.Order[0]];
         const SimCompetitor& second = c.Run.Field[c.Order[1]];
         v.Time = c.SortType == 0 ? RaceGap(first, second) : BestLapGap(first, second);
       }},
      {kDword, "Laps to go", "lgHeader_LapsToGo",
       [](V& v, const C& c) {
         v.Dword = c.Run.Plan->Laps == 0 ? kNone : static_cast<DWORD>(std::max(0, c.Run.Plan->Laps - c.MostLaps));
       }},
      {kTime, "Best lap", "lgHeader_Best_Laptime", [](V& v, const C& c) { v.Time = c.Run.BestLap; }},
      {kString, "Best lap by", "lgHeader_BestLapBy",
       [](V& v, const C& c) {
         v.Text = c.Run.BestLap == KVTTIME_NULL ? "" : FullName(c.Meeting.Race().Competitors[c.Run.BestBy]);
       }},
      {kTime, "Race time", "lgHeader_ElapsedTime", [](V& v, const C& c) { v.Time = WholeSeconds(c.Elapsed()); }},
      {kTime, "Time to go", "lgHeader_TimeToGo",
       [](V& v, const C& c) {
         if (c.Run.Plan->Minutes == 0) return;  // a run over laps has no time to go
         const KVTTIME left = c.Run.Plan->Minutes * 60 * kSecond - WholeSeconds(c.Elapsed());
         v.Time = std::max<KVTTIME>(0, left);
       }},
      {kTime, "Time of day", "lgHeader_TimeOfDay",
       [](V& v, const C& c) { v.Time = WholeSeconds(c.Meeting.TimeOfDay(c.Meeting.Now())); }},
      {kDword, "Flag", "lgHeader_Flag", [](V& v, const C& c) { v.Dword = c.Run.Flag; }},
      {kDword, "Special flag", "lgHeader_FlagSpecial", [](V& v, const C& c) { v.Dword = c.Run.Special; }},
      {kDateTime, "Time stamp", "lgHeader_Timestamp",
       [](V& v, const C& c) { v.Dword = c.Meeting.UtcSeconds(c.Meeting.TimeOfDay(c.Meeting.Now())); }},
  };
  return defs;
}

// ---- schedule ----------------------------------------------------------------------------

struct ScheduleContext {
  const CRaceSimulation& Meeting;
  std::size_t Index;
  const RaceRunPlan& Plan;
};

const std::vector<ColumnDef<ScheduleContext>>& ScheduleColumns() {
  using C = ScheduleContext;
  using V = ViewCellValue;
  static const std::vector<ColumnDef<C>> defs = {
      {kDateTime, "Start", "lgHeader_DateTime",
       [](V& v, const C& c) { v.Dword = c.Meeting.UtcSeconds(c.Meeting.ScheduledStart(c.Index)); }},
      {kString, "Group", "lgHeader_Group",
       [](V& v, const C& c) {
         const RaceEventPlan* event = EventOf(c.Meeting.Race(), c.Plan.Event);
         v.Text = event != nullptr ? event->Name : "";
       }},
      {kString, "Session", "lgHeader_Name", [](V& v, const C& c) { v.Text = c.Plan.Name; }},
      {kString, "Type", "lgHeader_Type", [](V& v, const C& c) { v.Text = RunTypeName(c.Plan.Type); }},
      {kString, "Distance", "lgHeader_RaceDistance",
       [](V& v, const C& c) { v.Text = c.Plan.Laps > 0 ? std::to_string(c.Plan.Laps) + " Laps" : "-"; }},
      {kString, "Duration", "lgHeader_RaceTime",
       [](V& v, const C& c) { v.Text = c.Plan.Minutes > 0 ? std::to_string(c.Plan.Minutes) + " min" : "-"; }},
      {kTime, "Minimum lap", "lgHeader_Minimum_Laptime", [](V&, const C&) {}},
      {kDword, "ID", "lgHeader_UniqueID", [](V& v, const C& c) { v.Dword = kRaceRunBit | c.Plan.ID; }},
  };
  return defs;
}

// True when the event of the file `fileID` is `wanted` or lies below it.
bool EventWithin(const RaceDescription& race, DWORD fileID, DWORD wanted) {
  const RaceEventPlan* event = EventOf(race, fileID);
  for (std::size_t steps = 0; event != nullptr && steps < race.Events.size(); ++steps) {
    if (event->ID == wanted) return true;
    if (event->Parent == 0) break;
    event = EventOf(race, event->Parent);
  }
  return false;
}

// ---- announcements -----------------------------------------------------------------------

struct AnnouncementContext {
  const SimAnnouncement& News;
};

const std::vector<ColumnDef<AnnouncementContext>>& AnnouncementColumns() {
  using C = AnnouncementContext;
  using V = ViewCellValue;
  static const std::vector<ColumnDef<C>> defs = {
      {kDword, "ID", "lgHeader_UniqueID", [](V& v, const C& c) { v.Dword = c.News.ID; }},
      {kTime, "Time", "lgHeader_Time", [](V& v, const C& c) { v.Time = WholeSeconds(c.News.TimeOfDay); }},
      {kTime, "Time of day", "lgHeader_TimeOfDay", [](V& v, const C& c) { v.Time = WholeSeconds(c.News.TimeOfDay); }},
      {kString, "Text", "lgHeader_Text", [](V& v, const C& c) { v.Text = c.News.Text; }},
  };
  return defs;
}

// ---- lap times ------------------------------------------------------------------------------

struct LapContext {
  const CRaceSimulation& Meeting;
  const SimRun& Run;
  const SimPassing& Passing;
  const RaceCompetitorPlan& Plan() const { return Meeting.Race().Competitors[Passing.Competitor]; }
};

const std::vector<ColumnDef<LapContext>>& LapColumns() {
  using C = LapContext;
  using V = ViewCellValue;
  static const std::vector<ColumnDef<C>> defs = {
      {kTime, "Time of day", "lgHeader_TimeOfDay",
       [](V& v, const C& c) { v.Time = c.Meeting.TimeOfDay(c.Run.StartAt + c.Passing.RunTime); }},
      {kTime, "Race time", "lgHeader_ElapsedTime", [](V& v, const C& c) { v.Time = c.Passing.RunTime; }},
      {kString, "No", "lgHeader_No", [](V& v, const C& c) { v.Text = c.Plan().Number; }},
      {kString, "Name", "lgHeader_Name", [](V& v, const C& c) { v.Text = FullName(c.Plan()); }},
      {kInteger, "Lap", "lgHeader_Laps", [](V& v, const C& c) { v.Integer = c.Passing.Lap; }},
      {kString, "Timeline", "lgHeader_Timeline",
       [](V& v, const C& c) { v.Text = c.Meeting.Race().Timelines[c.Passing.Timeline].Name; }},
      {kTime, "Time", "lgHeader_Time", [](V& v, const C& c) { v.Time = c.Passing.Segment; }},
      {kDouble, "Speed", "lgHeader_Speed",
       [](V& v, const C& c) {
         const auto& lines = c.Meeting.Race().Timelines;
         const double length = c.Meeting.Race().TrackLength;
         const std::size_t at = c.Passing.Timeline;
         // A split covers the part of the lap since the timeline before it.
         const double covered = at == 0 ? length : lines[at].Position - lines[at - 1].Position;
         v.Real = Speed(covered, c.Passing.Segment);
       }},
      {kTransponder, "Transponder", "lgHeader_Tx", [](V& v, const C& c) { v.Transponders = c.Plan().Transponders; }},
      {kDword, "ID", "lgHeader_UniqueID", [](V& v, const C& c) { v.Dword = c.Plan().ID; }},
  };
  return defs;
}

}  // namespace

const std::vector<std::string>& Names() {
  static const std::vector<std::string> names = {kResults, kRunInfo, kSchedule, kAnnouncements, kLapTimes};
  return names;
}

std::vector<CColumn> Columns(const std::string& name) {
  if (name == kResults) return ColumnsOf(ResultColumns());
  if (name == kRunInfo) return ColumnsOf(RunInfoColumns());
  if (name == kSchedule) return ColumnsOf(ScheduleColumns());
  if (name == kAnnouncements) return ColumnsOf(AnnouncementColumns());
  if (name == kLapTimes) return ColumnsOf(LapColumns());
  return {};
}

int RunIndexOf(const CRaceSimulation& meeting, DWORD uniqueID) {
  const auto& runs = meeting.Runs();
  for (std::size_t i = 0; i < runs.size(); ++i) {
    if ((kRaceRunBit | runs[i].Plan->ID) == uniqueID) return static_cast<int>(i);
  }
  return -1;
}

std::vector<std::size_t> Standings(const SimRun& run, int sortType) {
  std::vector<std::size_t> order(run.Field.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  const auto earlier = [](KVTTIME a, KVTTIME b) {
    if (a == b) return false;
    if (a == KVTTIME_NULL) return false;
    return b == KVTTIME_NULL || a < b;
  };
  std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
    const SimCompetitor& x = run.Field[a];
    const SimCompetitor& y = run.Field[b];
    if (sortType == 0) {
      if (x.Laps != y.Laps) return x.Laps > y.Laps;
      if (x.LastCrossing != y.LastCrossing) return earlier(x.LastCrossing, y.LastCrossing);
    } else if (x.BestLap != y.BestLap) {
      return earlier(x.BestLap, y.BestLap);
    }
    return x.Grid < y.Grid;
  });
  return order;
}

std::vector<ViewRowValues> Rows(const Request& request, const CRaceSimulation& meeting) {
  std::vector<ViewRowValues> rows;
  const RaceDescription& race = meeting.Race();
  const int runIndex = RunIndexOf(meeting, request.UniqueID);
  const SimRun* run = runIndex < 0 ? nullptr : &meeting.Runs()[static_cast<std::size_t>(runIndex)];
  const bool isEvent = (request.UniqueID & kRaceEventBit) != 0 &&
                       EventOf(race, request.UniqueID & ~kRaceEventBit) != nullptr;
  if (request.Name == kResults && run != nullptr) return ResultRows(request, meeting, *run);
  if (request.Name == kRunInfo && run != nullptr) {
    const int sortType = SortTypeOf(Request{}, *run);  // the run's own order
    int mostLaps = 0;
    for (const SimCompetitor& state : run->Field) mostLaps = std::max(mostLaps, state.Laps);
    const RunInfoContext context{meeting, static_cast<std::size_t>(runIndex), *run, sortType,
                                 Standings(*run, sortType), mostLaps};
    rows.push_back(RowOf(RunInfoColumns(), 1, context));
  } else if (request.Name == kSchedule && isEvent) {
    for (std::size_t i = 0; i < race.Runs.size(); ++i) {
      if (!EventWithin(race, race.Runs[i].Event, request.UniqueID & ~kRaceEventBit)) continue;
      rows.push_back(RowOf(ScheduleColumns(), race.Runs[i].ID, ScheduleContext{meeting, i, race.Runs[i]}));
    }
  } else if (request.Name == kAnnouncements && (run != nullptr || isEvent)) {
    const auto& news = meeting.Announcements();
    for (auto item = news.rbegin(); item != news.rend() && rows.size() < kAnnouncementRows; ++item) {
      if (run != nullptr && item->Run != static_cast<std::size_t>(runIndex)) continue;
      rows.push_back(RowOf(AnnouncementColumns(), item->ID, AnnouncementContext{*item}));
    }
  } else if (request.Name == kLapTimes && run != nullptr) {
    rows.reserve(run->Passings.size());
    for (const SimPassing& passing : run->Passings) {
      rows.push_back(RowOf(LapColumns(), passing.Sequence, LapContext{meeting, *run, passing}));
    }
  }
  return rows;
}

std::uint64_t Revision(const Request& request, const CRaceSimulation& meeting) {
  const int runIndex = RunIndexOf(meeting, request.UniqueID);
  const std::uint64_t round = static_cast<std::uint64_t>(meeting.Round()) << 48;
  if (request.Name == kRunInfo) {
    // The clock of the day moves on even while nothing else does.
    return round + static_cast<std::uint64_t>(meeting.Now() / kSecond) +
           (runIndex < 0 ? 0 : meeting.Runs()[static_cast<std::size_t>(runIndex)].Revision << 32);
  }
  if (request.Name == kAnnouncements) {
    return meeting.Announcements().empty() ? 0 : meeting.Announcements().back().ID;
  }
  if (request.Name == kSchedule) {
    // A run that starts shows its real start from then on.
    std::uint64_t started = 0;
    for (const SimRun& run : meeting.Runs()) started += run.Phase == RunPhase::Waiting ? 0 : 1;
    return round + started;
  }
  if (runIndex < 0) return round;
  return round + meeting.Runs()[static_cast<std::size_t>(runIndex)].Revision;
}

}  // namespace RaceViews
