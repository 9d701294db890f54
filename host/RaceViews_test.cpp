#include "host/RaceViews.h"

#include "site/ZOLServerTable.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <numeric>

namespace {

constexpr KVTTIME kSecond = CRaceSimulation::kSecond;
constexpr KVTTIME kMinute = 60 * kSecond;

const char kMeeting[] = R"({
  "track": {"name": "Test Ring", "length": 2.4,
            "timelines": [{"id": 0, "name": "Finish", "position": 0}, {"id": 1, "name": "Split 1", "position": 0.8}]},
  "events": [{"id": 1, "name": "Cup"}, {"id": 2, "name": "Seniors", "parent": 1}],
  "meeting": {"break": 20},
  "runs": [{"id": 1, "event": 2, "name": "Qualifying", "type": 1, "minutes": 3},
           {"id": 2, "event": 2, "name": "Race", "type": 2, "laps": 6}],
  "competitors": [{"id": 1, "number": "1", "first": "Al", "last": "Able", "class": "A", "pace": {"lap": 40, "spread": 1.5}},
                  {"id": 2, "number": "2", "first": "Bo", "last": "Baker", "class": "B", "pace": {"lap": 40.5, "spread": 1.5}},
                  {"id": 3, "number": "3", "first": "Cy", "last": "Cole", "class": "A", "pace": {"lap": 41, "spread": 1.5}},
                  {"id": 4, "number": "4", "first": "Di", "last": "Dunn", "class": "B", "pace": {"lap": 39.8, "spread": 1.5}},
                  {"id": 5, "number": "5", "first": "Ed", "last": "Eng", "class": "A", "pace": {"lap": 44, "spread": 0.5}}]
})";

constexpr DWORD kQualifying = kRaceRunBit | 1;
constexpr DWORD kRace = kRaceRunBit | 2;

RaceDescription Meeting() {
  RaceDescription race;
  std::string error;
  EXPECT_TRUE(ReadRaceDescription(kMeeting, "meeting.json", race, error)) << error;
  return race;
}

std::size_t ColumnOf(const std::string& view, const std::string& key) {
  const std::vector<CColumn> columns = RaceViews::Columns(view);
  for (std::size_t i = 0; i < columns.size(); ++i) {
    if (columns[i].Key == key) return i;
  }
  ADD_FAILURE() << view << " has no column " << key;
  return 0;
}

const ViewCellValue& Cell(const ViewRowValues& row, const std::string& view, const std::string& key) {
  return row.Cells.at(ColumnOf(view, key));
}

// Positions worked out from the passings alone: laps done, then who completed the last
// of them first; a competitor without laps after those with laps.
std::map<DWORD, int> PositionsFromPassings(const RaceDescription& race, const SimRun& run) {
  struct Tally {
    int Laps = 0;
    KVTTIME Last = 0;
    int Grid = 0;
    DWORD ID = 0;
  };
  std::vector<Tally> tallies(race.Competitors.size());
  for (std::size_t i = 0; i < tallies.size(); ++i) {
    tallies[i].Grid = run.Field[i].Grid;
    tallies[i].ID = race.Competitors[i].ID;
  }
  for (const SimPassing& passing : run.Passings) {
    if (passing.Timeline != 0) continue;
    ++tallies[passing.Competitor].Laps;
    tallies[passing.Competitor].Last = passing.RunTime;
  }
  std::sort(tallies.begin(), tallies.end(), [](const Tally& a, const Tally& b) {
    if (a.Laps != b.Laps) return a.Laps > b.Laps;
    if (a.Laps > 0 && a.Last != b.Last) return a.Last < b.Last;
    return a.Grid < b.Grid;
  });
  std::map<DWORD, int> positions;
  for (std::size_t i = 0; i < tallies.size(); ++i) positions[tallies[i].ID] = static_cast<int>(i + 1);
  return positions;
}

}  // namespace

TEST(RaceViews, EveryViewHasTheColumnsTablesAndLabelsAskForWithTheirTypes) {
  const std::map<std::string, BYTE> results = {
      {"lgHeader_Pos", 1},     {"lgHeader_No", 3},      {"lgHeader_Name", 3},     {"lgHeader_Class", 3},
      {"lgHeader_Laps", 1},    {"lgHeader_Gap", 5},     {"lgHeader_Diff", 5},     {"lgHeader_LastTm", 4},
      {"lgHeader_BestTm", 4},  {"lgHeader_TotalTm", 4}, {"lgHeader_AvgSpeed", 2}, {"lgHeader_BestSpd", 2},
      {"lgHeader_In_Lap", 0},  {"lgHeader_Car_Transponders", 8}, {"lgHeader_PosInClass", 1},
      {"lgHeader_First_Name", 3}, {"lgHeader_Last_Name", 3}, {"lgHeader_CarAdditional8", 3}};
  const std::vector<CColumn> columns = RaceViews::Columns(RaceViews::kResults);
  for (const auto& [key, type] : results) {
    const auto found = std::find_if(columns.begin(), columns.end(), [&](const CColumn& c) { return c.Key == key; });
    ASSERT_NE(found, columns.end()) << key;
    EXPECT_EQ(found->Type, type) << key;
  }
  EXPECT_EQ(RaceViews::Columns(RaceViews::kRunInfo)[ColumnOf(RaceViews::kRunInfo, "lgHeader_ElapsedTime")].Type, 4);
  EXPECT_EQ(RaceViews::Columns(RaceViews::kRunInfo)[ColumnOf(RaceViews::kRunInfo, "lgHeader_Flag")].Type, 0);
  EXPECT_EQ(RaceViews::Columns(RaceViews::kSchedule)[ColumnOf(RaceViews::kSchedule, "lgHeader_DateTime")].Type, 7);
  EXPECT_EQ(RaceViews::Columns(RaceViews::kAnnouncements)[ColumnOf(RaceViews::kAnnouncements, "lgHeader_Text")].Type, 3);
  EXPECT_EQ(RaceViews::Columns(RaceViews::kLapTimes)[ColumnOf(RaceViews::kLapTimes, "lgHeader_Tx")].Type, 8);
  EXPECT_TRUE(RaceViews::Columns("lgView_Unknown").empty());
  // Every row has one cell per column.
  const RaceDescription race = Meeting();
  CRaceSimulation meeting(race, 1, false, 0, 0);
  meeting.AdvanceTo(2 * kMinute);
  for (const std::string& name : RaceViews::Names()) {
    const DWORD id = name == RaceViews::kSchedule ? (kRaceEventBit | 1) : kQualifying;
    const auto rows = RaceViews::Rows({name, id, -1}, meeting);
    ASSERT_FALSE(rows.empty()) << name;
    for (const ViewRowValues& row : rows) EXPECT_EQ(row.Cells.size(), RaceViews::Columns(name).size()) << name;
  }
}

TEST(RaceViews, AfterEachPassingTheRaceResultsAgreeWithPositionsWorkedOutFromThePassings) {
  const RaceDescription race = Meeting();
  CRaceSimulation meeting(race, 4, false, 0, 0);
  while (meeting.ActiveRun() == 0) meeting.AdvanceTo(meeting.Now() + 10 * kSecond);
  const SimRun& run = meeting.Runs()[1];
  const std::string view = RaceViews::kResults;
  std::size_t checked = 0;
  bool sawLapsBehind = false;
  bool sawSameLapBehindTheLeader = false;
  for (KVTTIME next = meeting.NextEventTime(); next != KVTTIME_NULL && run.Phase != RunPhase::Done;
       next = meeting.NextEventTime()) {
    meeting.AdvanceTo(next);
    const auto rows = RaceViews::Rows({view, kRace, 0}, meeting);
    const std::map<DWORD, int> expected = PositionsFromPassings(race, run);
    ASSERT_EQ(rows.size(), race.Competitors.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
      const ViewRowValues& row = rows[i];
      // Rows come in the order of their positions, 1, 2, 3, ...
      EXPECT_EQ(Cell(row, view, "lgHeader_Pos").Integer, static_cast<int>(i + 1));
      EXPECT_EQ(Cell(row, view, "lgHeader_Pos").Integer, expected.at(row.RowID)) << "after passing " << run.Passings.size();
      int laps = 0;
      KVTTIME best = KVTTIME_NULL;
      for (const SimPassing& passing : run.Passings) {
        if (passing.Timeline != 0 || race.Competitors[passing.Competitor].ID != row.RowID) continue;
        ++laps;
        if (best == KVTTIME_NULL || passing.Segment < best) best = passing.Segment;
      }
      EXPECT_EQ(Cell(row, view, "lgHeader_Laps").Integer, laps);
      EXPECT_EQ(Cell(row, view, "lgHeader_BestTm").Time, best);
      // The gap to the leader, judged where this car last crossed the line: the laps the
      // leader had more by then in the high bits, else how long after the leader it
      // completed the same lap.
      const KVTTIME gap = Cell(row, view, "lgHeader_Gap").Time;
      const int leaderLaps = Cell(rows.front(), view, "lgHeader_Laps").Integer;
      const KVTTIME total = Cell(row, view, "lgHeader_TotalTm").Time;
      std::vector<KVTTIME> leaderCrossings;
      for (const SimPassing& passing : run.Passings) {
        if (passing.Timeline == 0 && race.Competitors[passing.Competitor].ID == rows.front().RowID) {
          leaderCrossings.push_back(passing.RunTime);
        }
      }
      const auto leaderLapsByThen = static_cast<int>(
          std::count_if(leaderCrossings.begin(), leaderCrossings.end(), [&](KVTTIME at) { return at <= total; }));
      if (i == 0) {
        EXPECT_EQ(gap, 0);
      } else if (laps == 0) {
        EXPECT_EQ(gap, KVTTIME_NULL);
      } else if (laps < leaderLapsByThen) {
        EXPECT_EQ(gap, static_cast<KVTTIME>(leaderLapsByThen - laps) << 48);
        sawLapsBehind = true;
      } else {
        ASSERT_LE(static_cast<std::size_t>(laps), leaderCrossings.size());
        // Negative when this car completed the lap first: the two changed places on the
        // track since, and the gap is unknown until it crosses again.
        const KVTTIME atTheLine = total - leaderCrossings[static_cast<std::size_t>(laps) - 1];
        EXPECT_EQ(gap, atTheLine < 0 ? KVTTIME_NULL : atTheLine);
        sawSameLapBehindTheLeader = sawSameLapBehindTheLeader || (laps < leaderLaps && atTheLine >= 0);
      }
    }
    ++checked;
  }
  EXPECT_GT(checked, 30u);
  // Nobody is lapped in this short race; lapped cars are checked with steady laps below.
  EXPECT_FALSE(sawLapsBehind);
  EXPECT_TRUE(sawSameLapBehindTheLeader);
}

TEST(RaceViews, QualifyingIsOrderedByBestLapUnlessSortTypeAsksForLaps) {
  const RaceDescription race = Meeting();
  CRaceSimulation meeting(race, 9, false, 0, 0);
  meeting.AdvanceTo(3 * kMinute);
  const std::string view = RaceViews::kResults;
  const auto byBest = RaceViews::Rows({view, kQualifying, -1}, meeting);
  for (std::size_t i = 1; i < byBest.size(); ++i) {
    const KVTTIME ahead = Cell(byBest[i - 1], view, "lgHeader_BestTm").Time;
    const KVTTIME behind = Cell(byBest[i], view, "lgHeader_BestTm").Time;
    EXPECT_LE(ahead, behind);
    EXPECT_EQ(Cell(byBest[i], view, "lgHeader_Diff").Time, behind - ahead);
  }
  const auto byLaps = RaceViews::Rows({view, kQualifying, 0}, meeting);
  for (std::size_t i = 1; i < byLaps.size(); ++i) {
    EXPECT_GE(Cell(byLaps[i - 1], view, "lgHeader_Laps").Integer, Cell(byLaps[i], view, "lgHeader_Laps").Integer);
  }
  // Positions in class count within the class.
  std::map<std::string, int> seen;
  for (const ViewRowValues& row : byBest) {
    EXPECT_EQ(Cell(row, view, "lgHeader_PosInClass").Integer, ++seen[Cell(row, view, "lgHeader_Class").Text]);
  }
  // A UniqueID that names no run gives no rows.
  EXPECT_TRUE(RaceViews::Rows({view, kRaceRunBit | 99, -1}, meeting).empty());
}

TEST(RaceViews, TheRunInformationFollowsTheClock) {
  const RaceDescription race = Meeting();
  CRaceSimulation meeting(race, 2, false, 1000 * kSecond, 0);
  const std::string view = RaceViews::kRunInfo;
  const auto row = [&](DWORD run) { return RaceViews::Rows({view, run, -1}, meeting).at(0); };
  EXPECT_EQ(Cell(row(kQualifying), view, "lgHeader_Flag").Dword, kFlagWarmup);
  EXPECT_EQ(Cell(row(kQualifying), view, "lgHeader_ElapsedTime").Time, 0);
  EXPECT_EQ(Cell(row(kQualifying), view, "lgHeader_TimeToGo").Time, 3 * kMinute);
  const KVTTIME start = CRaceSimulation::kFirstStartDelay;
  for (KVTTIME at : {start + 1500000, start + 61 * kSecond, start + 150 * kSecond + 700000}) {
    meeting.AdvanceTo(at);
    const ViewRowValues info = row(kQualifying);
    const KVTTIME elapsed = (at - start) / kSecond * kSecond;
    EXPECT_EQ(Cell(info, view, "lgHeader_ElapsedTime").Time, elapsed);
    EXPECT_EQ(Cell(info, view, "lgHeader_TimeToGo").Time, 3 * kMinute - elapsed);
    EXPECT_EQ(Cell(info, view, "lgHeader_TimeOfDay").Time, (1000 * kSecond + at) / kSecond * kSecond);
    EXPECT_EQ(Cell(info, view, "lgHeader_Flag").Dword == kFlagWarmup, false);
    EXPECT_EQ(Cell(info, view, "lgHeader_LapsToGo").Dword, 0xFFFFFFFFu);  // a timed run
  }
  // Time up: the time to go stays at 0 and the chequered flag shows.
  meeting.AdvanceTo(start + 3 * kMinute + kSecond);
  EXPECT_EQ(Cell(row(kQualifying), view, "lgHeader_TimeToGo").Time, 0);
  EXPECT_EQ(Cell(row(kQualifying), view, "lgHeader_FlagSpecial").Dword, kSpecialFinish);
  // The race over laps: laps to go count down with the leader, no time to go.
  while (meeting.Runs()[1].Phase == RunPhase::Waiting || meeting.ActiveRun() == 0) {
    meeting.AdvanceTo(meeting.Now() + kSecond);
  }
  int lastLapsToGo = 7;
  bool sawLastLap = false;
  while (meeting.Runs()[1].Phase == RunPhase::Running) {
    meeting.AdvanceTo(meeting.Now() + kSecond);
    const ViewRowValues info = row(kRace);
    const int leaderLaps = Cell(info, view, "lgHeader_Laps").Integer;
    const auto lapsToGo = static_cast<int>(Cell(info, view, "lgHeader_LapsToGo").Dword);
    EXPECT_EQ(lapsToGo, std::max(0, 6 - leaderLaps));
    EXPECT_LE(lapsToGo, lastLapsToGo);
    lastLapsToGo = lapsToGo;
    EXPECT_EQ(Cell(info, view, "lgHeader_TimeToGo").Time, KVTTIME_NULL);
    if (meeting.Runs()[1].Phase == RunPhase::Running) {
      EXPECT_EQ(Cell(info, view, "lgHeader_FlagSpecial").Dword == kSpecialWhite, leaderLaps == 5);
      sawLastLap = sawLastLap || lapsToGo == 1;
    }
  }
  EXPECT_TRUE(sawLastLap);
  EXPECT_EQ(lastLapsToGo, 0);
  EXPECT_EQ(Cell(row(kRace), view, "lgHeader_FlagSpecial").Dword, kSpecialFinish);
  EXPECT_EQ(Cell(row(kRace), view, "lgHeader_LapsToGo").Dword, 0u);
  // The finished run's race time stays where it ended.
  while (meeting.Runs()[1].Phase != RunPhase::Done) meeting.AdvanceTo(meeting.Now() + kSecond);
  const KVTTIME ended = Cell(row(kRace), view, "lgHeader_ElapsedTime").Time;
  meeting.AdvanceTo(meeting.Now() + 5 * kMinute);
  EXPECT_EQ(Cell(row(kRace), view, "lgHeader_ElapsedTime").Time, ended);
}

TEST(RaceViews, TheScheduleListsTheRunsOfTheEventAndTheAnnouncementsTheLatestOnes) {
  const RaceDescription race = Meeting();
  CRaceSimulation meeting(race, 2, false, 0, 1800000000);
  const auto schedule = RaceViews::Rows({RaceViews::kSchedule, kRaceEventBit | 1, -1}, meeting);
  ASSERT_EQ(schedule.size(), 2u);
  EXPECT_EQ(Cell(schedule[0], RaceViews::kSchedule, "lgHeader_Name").Text, "Qualifying");
  EXPECT_EQ(Cell(schedule[1], RaceViews::kSchedule, "lgHeader_RaceDistance").Text, "6 Laps");
  EXPECT_EQ(Cell(schedule[0], RaceViews::kSchedule, "lgHeader_DateTime").Dword, 1800000000u + 10);
  EXPECT_LT(Cell(schedule[0], RaceViews::kSchedule, "lgHeader_DateTime").Dword,
            Cell(schedule[1], RaceViews::kSchedule, "lgHeader_DateTime").Dword);
  EXPECT_EQ(RaceViews::Rows({RaceViews::kSchedule, kRaceEventBit | 2, -1}, meeting).size(), 2u);
  EXPECT_TRUE(RaceViews::Rows({RaceViews::kSchedule, kRaceEventBit | 8, -1}, meeting).empty());

  while (meeting.NextEventTime() != KVTTIME_NULL) meeting.AdvanceTo(meeting.Now() + 10 * kSecond);
  const auto news = RaceViews::Rows({RaceViews::kAnnouncements, kRaceEventBit | 1, -1}, meeting);
  ASSERT_EQ(news.size(), std::min(RaceViews::kAnnouncementRows, meeting.Announcements().size()));
  EXPECT_EQ(news.front().RowID, meeting.Announcements().back().ID);
  const auto raceNews = RaceViews::Rows({RaceViews::kAnnouncements, kRace, -1}, meeting);
  ASSERT_FALSE(raceNews.empty());
  EXPECT_NE(Cell(raceNews.front(), RaceViews::kAnnouncements, "lgHeader_Text").Text.find("Race"), std::string::npos);
}

TEST(RaceViews, LapTimesHaveARowForEveryPassing) {
  const RaceDescription race = Meeting();
  CRaceSimulation meeting(race, 2, false, 0, 0);
  meeting.AdvanceTo(2 * kMinute);
  const auto rows = RaceViews::Rows({RaceViews::kLapTimes, kQualifying, -1}, meeting);
  ASSERT_EQ(rows.size(), meeting.Runs()[0].Passings.size());
  const std::string view = RaceViews::kLapTimes;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const SimPassing& passing = meeting.Runs()[0].Passings[i];
    EXPECT_EQ(rows[i].RowID, passing.Sequence);
    EXPECT_EQ(Cell(rows[i], view, "lgHeader_Time").Time, passing.Segment);
    EXPECT_EQ(Cell(rows[i], view, "lgHeader_Timeline").Text, passing.Timeline == 0 ? "Finish" : "Split 1");
  }
}

TEST(RaceViews, EveryColumnATableCanNameIsServedByAView) {
  const char* const templateColumns[] = {
      "position", "positioninclass", "no", "class", "name", "firstname", "lastname", "additional1", "additional8",
      "marker", "averagetime", "lasttime", "lastspeed", "laps", "totaltime", "averagespeed", "difference", "gap",
      "besttime", "inlap", "bestspeed", "2ndbesttime", "2ndinlap", "2ndbestspeed", "datetime", "groupname",
      "runname", "runtype", "racedistance", "racetime", "minlaptime", "uniqueid", "time", "text", "transpondernr",
      "regnumber"};
  for (const char* column : templateColumns) {
    const std::string key = CZOLServerTable::ZOLGetViewColumnName(column);
    ASSERT_FALSE(key.empty()) << column;
    bool served = false;
    for (const std::string& view : RaceViews::Names()) {
      for (const CColumn& offered : RaceViews::Columns(view)) served = served || offered.Key == key;
    }
    EXPECT_TRUE(served) << column << " (" << key << ")";
  }
}

// The reader refuses a file whose event parents run in a circle; the views must still end
// on such a description (built here by hand). Each walk runs in a child process under an
// alarm, so a walk that never ends fails the test instead of hanging it.
TEST(RaceViewsDeathTest, EventParentsInACircleEndTheWalksOfTheViews) {
  RaceDescription race = Meeting();
  race.Events[0].Parent = 2;  // Cup below Seniors below Cup
  race.Events.push_back({3, "Open", 0});
  CRaceSimulation meeting(race, 2, false, 0, 0);
  EXPECT_EXIT(
      {
        alarm(10);
        const ViewRowValues info = RaceViews::Rows({RaceViews::kRunInfo, kQualifying, -1}, meeting).at(0);
        // Without a root the top event is unknown; the run's own event still shows.
        const bool shown = Cell(info, RaceViews::kRunInfo, "lgHeader_ParentEvent").Text.empty() &&
                           Cell(info, RaceViews::kRunInfo, "lgHeader_Event").Text == "Seniors";
        std::exit(shown ? 0 : 3);
      },
      ::testing::ExitedWithCode(0), "");
  EXPECT_EXIT(
      {
        alarm(10);
        const bool none = RaceViews::Rows({RaceViews::kSchedule, kRaceEventBit | 3, -1}, meeting).empty();
        const bool both = RaceViews::Rows({RaceViews::kSchedule, kRaceEventBit | 1, -1}, meeting).size() == 2;
        std::exit(none && both ? 0 : 3);
      },
      ::testing::ExitedWithCode(0), "");
}

namespace {

// Practice, qualifying and a race of a close field, so that the order by best lap and the
// order by laps part often.
const char kCloseMeeting[] = R"({
  "track": {"name": "Test Ring", "length": 2.4,
            "timelines": [{"id": 0, "name": "Finish", "position": 0}, {"id": 1, "name": "Split 1", "position": 0.8}]},
  "events": [{"id": 1, "name": "Cup"}],
  "meeting": {"break": 20},
  "runs": [{"id": 1, "event": 1, "name": "Practice", "type": 0, "minutes": 5},
           {"id": 2, "event": 1, "name": "Qualifying", "type": 1, "minutes": 5},
           {"id": 3, "event": 1, "name": "Race", "type": 2, "laps": 8}],
  "competitors": [{"id": 1, "number": "1", "first": "Al", "last": "Able", "pace": {"lap": 40, "spread": 2}},
                  {"id": 2, "number": "2", "first": "Bo", "last": "Baker", "pace": {"lap": 40.2, "spread": 2}},
                  {"id": 3, "number": "3", "first": "Cy", "last": "Cole", "pace": {"lap": 40.4, "spread": 2}},
                  {"id": 4, "number": "4", "first": "Di", "last": "Dunn", "pace": {"lap": 40.6, "spread": 2}},
                  {"id": 5, "number": "5", "first": "Ed", "last": "Eng", "pace": {"lap": 45, "spread": 0.5}}]
})";

RaceDescription CloseMeeting() {
  RaceDescription race;
  std::string error;
  EXPECT_TRUE(ReadRaceDescription(kCloseMeeting, "close.json", race, error)) << error;
  return race;
}

bool ShowsLaps(KVTTIME diff) { return diff != KVTTIME_NULL && (diff >> 48) != 0; }

}  // namespace

TEST(RaceViews, InPracticeAndQualifyingTheLeaderIsP1OfTheResultsAfterEachPassing) {
  const RaceDescription race = CloseMeeting();
  CRaceSimulation meeting(race, 7, false, 0, 0);
  const std::string results = RaceViews::kResults;
  const std::string info = RaceViews::kRunInfo;
  std::size_t checked = 0;
  std::size_t leaderNotMostLaps = 0;
  for (KVTTIME next = meeting.NextEventTime(); next != KVTTIME_NULL && meeting.ActiveRun() < 2;
       next = meeting.NextEventTime()) {
    meeting.AdvanceTo(next);
    for (DWORD run : {kRaceRunBit | 1, kRaceRunBit | 2}) {
      const auto rows = RaceViews::Rows({results, run, -1}, meeting);
      const ViewRowValues label = RaceViews::Rows({info, run, -1}, meeting).at(0);
      ASSERT_FALSE(rows.empty());
      const ViewRowValues& first = rows.front();
      const std::string leader = Cell(label, info, "lgHeader_Leader").Text;
      if (Cell(first, results, "lgHeader_BestTm").Time == KVTTIME_NULL) {
        EXPECT_EQ(leader, "");
        continue;
      }
      ASSERT_EQ(leader, Cell(first, results, "lgHeader_Name").Text) << "run " << (run & 0xFF) << " at " << next;
      ++checked;
      int mostLaps = 0;
      for (const ViewRowValues& row : rows) mostLaps = std::max(mostLaps, Cell(row, results, "lgHeader_Laps").Integer);
      if (Cell(first, results, "lgHeader_Laps").Integer < mostLaps) ++leaderNotMostLaps;
    }
  }
  EXPECT_GT(checked, 50u);
  // The two orders did part, so the test tells them apart.
  EXPECT_GT(leaderNotMostLaps, 0u);
}

TEST(RaceViews, APracticeRunNeverShowsALapMarginOnlyTheBestLapDifference) {
  const RaceDescription race = CloseMeeting();
  CRaceSimulation meeting(race, 7, false, 0, 0);
  const std::string results = RaceViews::kResults;
  const std::string info = RaceViews::kRunInfo;
  std::size_t margins = 0;
  for (KVTTIME next = meeting.NextEventTime(); next != KVTTIME_NULL && meeting.ActiveRun() < 2;
       next = meeting.NextEventTime()) {
    meeting.AdvanceTo(next);
    for (DWORD run : {kRaceRunBit | 1, kRaceRunBit | 2}) {
      const auto rows = RaceViews::Rows({results, run, -1}, meeting);
      const KVTTIME margin = Cell(RaceViews::Rows({info, run, -1}, meeting).at(0), info, "lgLabel_Margin_of_Victory").Time;
      ASSERT_FALSE(ShowsLaps(margin)) << "run " << (run & 0xFF) << " at " << next;
      const KVTTIME best1 = Cell(rows[0], results, "lgHeader_BestTm").Time;
      const KVTTIME best2 = Cell(rows[1], results, "lgHeader_BestTm").Time;
      if (best1 != KVTTIME_NULL && best2 != KVTTIME_NULL) {
        EXPECT_EQ(margin, best2 - best1);
        ++margins;
      } else {
        EXPECT_EQ(margin, KVTTIME_NULL);
      }
      for (const ViewRowValues& row : rows) {
        EXPECT_FALSE(ShowsLaps(Cell(row, results, "lgHeader_Gap").Time));
        EXPECT_FALSE(ShowsLaps(Cell(row, results, "lgHeader_Diff").Time));
      }
    }
  }
  EXPECT_GT(margins, 20u);
}

TEST(RaceViews, TheScheduleShowsTheRealStartOfAStartedRun) {
  const RaceDescription race = CloseMeeting();
  CRaceSimulation meeting(race, 7, false, 0, 1800000000);
  const RaceViews::Request request{RaceViews::kSchedule, kRaceEventBit | 1, -1};
  const auto startOf = [&](std::size_t run) {
    return Cell(RaceViews::Rows(request, meeting).at(run), RaceViews::kSchedule, "lgHeader_DateTime").Dword;
  };
  const DWORD plannedSecond = startOf(1);
  EXPECT_EQ(plannedSecond, meeting.UtcSeconds(meeting.PlannedStart(1)));
  std::uint64_t revision = RaceViews::Revision(request, meeting);
  while (meeting.Runs()[1].Phase == RunPhase::Waiting) meeting.AdvanceTo(meeting.Now() + kSecond);
  const DWORD realStart = meeting.UtcSeconds(meeting.TimeOfDay(meeting.Runs()[1].StartAt));
  // The plan allows a whole slow lap after the time is up; the run began earlier than that.
  ASSERT_NE(realStart, plannedSecond);
  EXPECT_EQ(startOf(1), realStart);
  EXPECT_EQ(startOf(0), meeting.UtcSeconds(meeting.TimeOfDay(meeting.Runs()[0].StartAt)));
  // The run not yet started still shows its plan.
  EXPECT_EQ(startOf(2), meeting.UtcSeconds(meeting.PlannedStart(2)));
  // Readers hear of the change.
  EXPECT_NE(RaceViews::Revision(request, meeting), revision);
}

// Two cars with steady laps: the leader completes lap 2 while the other, a second and a
// bit behind on the same lap, has done one lap. Until it crosses, its gap is the time it
// was behind at the line, never "1 Lap".
TEST(RaceViews, ACarOnTheLeadersLapShowsATimeGapWhileOnlyTheLeaderHasCrossed) {
  RaceDescription race;
  std::string error;
  ASSERT_TRUE(ReadRaceDescription(R"({
    "track": {"name": "Test Ring", "length": 2.4, "timelines": [{"id": 0, "name": "Finish", "position": 0}]},
    "events": [{"id": 1, "name": "Cup"}],
    "runs": [{"id": 1, "event": 1, "name": "Race", "type": 2, "laps": 5}],
    "competitors": [{"id": 1, "number": "1", "last": "Able", "pace": {"lap": 40, "spread": 0.001}},
                    {"id": 2, "number": "2", "last": "Baker", "pace": {"lap": 41, "spread": 0.001}},
                    {"id": 3, "number": "3", "last": "Cole", "pace": {"lap": 60, "spread": 0.001}}]
  })", "two.json", race, error)) << error;
  CRaceSimulation meeting(race, 3, false, 0, 0);
  const SimRun& run = meeting.Runs()[0];
  while (run.Field[0].Laps < 2) meeting.AdvanceTo(meeting.NextEventTime());
  ASSERT_EQ(run.Field[1].Laps, 1);
  const std::string view = RaceViews::kResults;
  const auto rows = RaceViews::Rows({view, kRaceRunBit | 1, -1}, meeting);
  ASSERT_EQ(rows.at(1).RowID, 2u);
  const KVTTIME behindAtTheLine = run.Field[1].LastCrossing - run.Passings.front().RunTime;
  EXPECT_GT(behindAtTheLine, 0);
  EXPECT_LT(behindAtTheLine, 3 * kSecond);
  EXPECT_EQ(Cell(rows[1], view, "lgHeader_Gap").Time, behindAtTheLine);
  EXPECT_EQ(Cell(rows[1], view, "lgHeader_Diff").Time, behindAtTheLine);
  const KVTTIME margin = Cell(RaceViews::Rows({RaceViews::kRunInfo, kRaceRunBit | 1, -1}, meeting).at(0),
                              RaceViews::kRunInfo, "lgLabel_Margin_of_Victory").Time;
  EXPECT_EQ(margin, behindAtTheLine);
  // The slow car has done its first lap, some 20 s after the leader did.
  EXPECT_EQ(Cell(rows.at(2), view, "lgHeader_Gap").Time, run.Field[2].LastCrossing - run.Passings.front().RunTime);
  // Once the leader has come round a second time before it completes its own second lap,
  // it is a lap down.
  while (run.Field[2].Laps < 2) meeting.AdvanceTo(meeting.NextEventTime());
  ASSERT_EQ(run.Field[0].Laps, 3);
  const auto later = RaceViews::Rows({view, kRaceRunBit | 1, -1}, meeting);
  ASSERT_EQ(later.at(2).RowID, 3u);
  EXPECT_EQ(Cell(later[2], view, "lgHeader_Gap").Time, KVTTIME{1} << 48);
}
