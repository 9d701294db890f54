#include "host/RaceSimulation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace {

constexpr KVTTIME kSecond = CRaceSimulation::kSecond;
constexpr KVTTIME kMinute = 60 * kSecond;

const char kMeeting[] = R"({
  "track": {"name": "Test Ring", "length": 2.4,
            "timelines": [{"id": 0, "name": "Finish", "position": 0}, {"id": 1, "name": "Split 1", "position": 0.8},
                          {"id": 2, "name": "Split 2", "position": 1.9}]},
  "events": [{"id": 1, "name": "Cup"}],
  "meeting": {"break": 30},
  "runs": [{"id": 1, "event": 1, "name": "Practice", "type": 0, "minutes": 4},
           {"id": 2, "event": 1, "name": "Qualifying", "type": 1, "minutes": 3},
           {"id": 3, "event": 1, "name": "Race", "type": 2, "laps": 12}],
  "competitors": [{"id": 1, "number": "1", "last": "Able", "pace": {"lap": 60, "spread": 0.5}},
                  {"id": 2, "number": "2", "last": "Baker", "pace": {"lap": 61, "spread": 0.5}},
                  {"id": 3, "number": "3", "last": "Cole"},
                  {"id": 4, "number": "4", "last": "Dunn"}]
})";

RaceDescription Meeting(const std::string& text = kMeeting) {
  RaceDescription race;
  std::string error;
  EXPECT_TRUE(ReadRaceDescription(text, "meeting.json", race, error)) << error;
  return race;
}

// Plays until the run of `index` is over or the time limit is reached.
void PlayUntilDone(CRaceSimulation& meeting, std::size_t index, KVTTIME limit) {
  while (meeting.Runs()[index].Phase != RunPhase::Done && meeting.Now() < limit) {
    meeting.AdvanceTo(meeting.Now() + kSecond);
  }
}

}  // namespace

TEST(RaceSimulation, TheSameSeedPlaysTheSameMeetingAndAnotherSeedAnother) {
  const RaceDescription race = Meeting();
  CRaceSimulation first(race, 7, false, 0, 0);
  CRaceSimulation second(race, 7, false, 0, 0);
  CRaceSimulation other(race, 8, false, 0, 0);
  for (CRaceSimulation* meeting : {&first, &second, &other}) meeting->AdvanceTo(3 * kMinute);
  const auto times = [](const CRaceSimulation& meeting) {
    std::vector<std::pair<std::size_t, KVTTIME>> list;
    for (const SimPassing& passing : meeting.Runs()[0].Passings) list.emplace_back(passing.Competitor, passing.RunTime);
    return list;
  };
  ASSERT_GT(times(first).size(), 20u);
  EXPECT_EQ(times(first), times(second));
  EXPECT_NE(times(first), times(other));
}

TEST(RaceSimulation, TheFirstRunWaitsForItsGreenFlagThenEveryLapPassesEachTimelineInOrder) {
  const RaceDescription race = Meeting();
  CRaceSimulation meeting(race, 1, false, 0, 0);
  meeting.AdvanceTo(CRaceSimulation::kFirstStartDelay - 1);
  EXPECT_EQ(meeting.Runs()[0].Phase, RunPhase::Waiting);
  EXPECT_EQ(meeting.Runs()[0].Flag, kFlagWarmup);
  EXPECT_EQ(meeting.RunTime(0, meeting.Now()), 0);
  meeting.AdvanceTo(CRaceSimulation::kFirstStartDelay);
  EXPECT_EQ(meeting.Runs()[0].Phase, RunPhase::Running);
  EXPECT_EQ(meeting.Runs()[0].Flag, kFlagGreen);
  meeting.AdvanceTo(2 * kMinute);
  EXPECT_EQ(meeting.RunTime(0, meeting.Now()), 2 * kMinute - CRaceSimulation::kFirstStartDelay);
  // Per competitor the timelines come 1, 2, 0, 1, 2, 0, ... and the finish line counts laps.
  for (std::size_t competitor = 0; competitor < race.Competitors.size(); ++competitor) {
    std::size_t expected = 1;
    int laps = 0;
    KVTTIME last = 0;
    for (const SimPassing& passing : meeting.Runs()[0].Passings) {
      if (passing.Competitor != competitor) continue;
      EXPECT_EQ(passing.Timeline, expected);
      EXPECT_GT(passing.RunTime, last);
      last = passing.RunTime;
      if (passing.Timeline == 0) {
        EXPECT_EQ(passing.Lap, ++laps);
      }
      expected = (expected + 1) % 3;
    }
    EXPECT_EQ(meeting.Runs()[0].Field[competitor].Laps, laps);
    EXPECT_GE(laps, 1);
  }
}

TEST(RaceSimulation, ATimedRunEndsAfterItsMinutesWithOneMoreCrossingEachAndTheNextRunBecomesActive) {
  const RaceDescription race = Meeting();
  CRaceSimulation meeting(race, 3, false, 0, 0);
  PlayUntilDone(meeting, 0, 30 * kMinute);
  const SimRun& practice = meeting.Runs()[0];
  ASSERT_EQ(practice.Phase, RunPhase::Done);
  EXPECT_EQ(practice.Special, kSpecialFinish);
  EXPECT_EQ(practice.FinishFlagAt, practice.StartAt + 4 * kMinute);
  const KVTTIME up = 4 * kMinute;
  for (std::size_t competitor = 0; competitor < race.Competitors.size(); ++competitor) {
    int finishCrossingsAfterTimeUp = 0;
    for (const SimPassing& passing : practice.Passings) {
      if (passing.Competitor == competitor && passing.RunTime >= up && passing.Timeline == 0) ++finishCrossingsAfterTimeUp;
    }
    EXPECT_EQ(finishCrossingsAfterTimeUp, 1) << competitor;
    EXPECT_TRUE(practice.Field[competitor].Finished);
  }
  EXPECT_EQ(meeting.ActiveRun(), 1u);
  EXPECT_EQ(meeting.Runs()[1].Phase, RunPhase::Waiting);
  EXPECT_EQ(meeting.Runs()[1].StartAt, practice.EndAt + 30 * kSecond);
}

TEST(RaceSimulation, ARaceOverLapsShowsWhiteForTheLeadersLastLapThenTheChequeredFlag) {
  const RaceDescription race = Meeting();
  CRaceSimulation meeting(race, 5, false, 0, 0);
  PlayUntilDone(meeting, 1, 60 * kMinute);
  ASSERT_EQ(meeting.ActiveRun(), 2u);
  const SimRun& run = meeting.Runs()[2];
  bool sawWhite = false;
  while (run.Phase != RunPhase::Finishing && meeting.Now() < 120 * kMinute) {
    meeting.AdvanceTo(meeting.Now() + kSecond / 10);
    int leaderLaps = 0;
    for (const SimCompetitor& state : run.Field) leaderLaps = std::max(leaderLaps, state.Laps);
    if (run.Phase == RunPhase::Running) {
      // White exactly while the leader is on the last lap.
      EXPECT_EQ(run.Special == kSpecialWhite, leaderLaps == 11) << leaderLaps;
      sawWhite = sawWhite || run.Special == kSpecialWhite;
    }
  }
  EXPECT_TRUE(sawWhite);
  ASSERT_EQ(run.Phase, RunPhase::Finishing);
  EXPECT_EQ(run.Special, kSpecialFinish);
  PlayUntilDone(meeting, 2, 150 * kMinute);
  ASSERT_EQ(run.Phase, RunPhase::Done);
  // Everyone crosses the line once after the winner and stops there.
  int winners = 0;
  for (const SimCompetitor& state : run.Field) winners += state.Laps == 12 ? 1 : 0;
  EXPECT_GE(winners, 1);
  // The last run stays active at the end of a meeting that does not loop.
  EXPECT_EQ(meeting.ActiveRun(), 2u);
  EXPECT_EQ(meeting.NextEventTime(), KVTTIME_NULL);
  const auto& news = meeting.Announcements();
  const bool chequered = std::any_of(news.begin(), news.end(), [](const SimAnnouncement& item) {
    return item.Text.find("Chequered flag: ") == 0 && item.Text.find(" wins Race") != std::string::npos;
  });
  EXPECT_TRUE(chequered);
}

TEST(RaceSimulation, YellowFlagsComeNowAndThenAndEndWithGreen) {
  // A long race: the leader's laps give the yellow flag its chances.
  std::string text = kMeeting;
  text.replace(text.find(R"("laps": 12)"), 10, R"("laps": 60)");
  const RaceDescription race = Meeting(text);
  int yellows = 0;
  int greens = 0;
  for (std::uint32_t seed = 1; seed <= 3; ++seed) {
    CRaceSimulation meeting(race, seed, false, 0, 0);
    bool wasYellow = false;
    while (meeting.NextEventTime() != KVTTIME_NULL && meeting.Now() < 200 * kMinute) {
      meeting.AdvanceTo(meeting.Now() + kSecond);
      const SimRun& run = meeting.Runs()[meeting.ActiveRun()];
      const bool yellow = run.Flag == kFlagYellow;
      if (yellow && !wasYellow) ++yellows;
      if (!yellow && wasYellow && run.Phase == RunPhase::Running) {
        ++greens;
        EXPECT_EQ(run.Flag, kFlagGreen);
      }
      wasYellow = yellow;
    }
  }
  EXPECT_GE(yellows, 2);
  EXPECT_GE(greens, 1);
}

TEST(RaceSimulation, TheRaceStartsInTheOrderOfQualifying) {
  const RaceDescription race = Meeting();
  CRaceSimulation meeting(race, 11, false, 0, 0);
  PlayUntilDone(meeting, 1, 60 * kMinute);
  meeting.AdvanceTo(meeting.Runs()[2].StartAt);
  const SimRun& qualifying = meeting.Runs()[1];
  const SimRun& race3 = meeting.Runs()[2];
  for (std::size_t a = 0; a < race.Competitors.size(); ++a) {
    for (std::size_t b = 0; b < race.Competitors.size(); ++b) {
      if (qualifying.Field[a].BestLap < qualifying.Field[b].BestLap) {
        EXPECT_LT(race3.Field[a].Grid, race3.Field[b].Grid) << a << " " << b;
      }
    }
  }
}

TEST(RaceSimulation, WithLoopTheMeetingBeginsAgainAfterItsLastRun) {
  const RaceDescription race = Meeting();
  CRaceSimulation looping(race, 2, true, 0, 0);
  while (looping.Round() == 0 && looping.Now() < 300 * kMinute) looping.AdvanceTo(looping.Now() + 10 * kSecond);
  ASSERT_EQ(looping.Round(), 1);
  EXPECT_EQ(looping.ActiveRun(), 0u);
  EXPECT_TRUE(looping.Runs()[2].Passings.empty());
  EXPECT_EQ(looping.Runs()[0].Phase, RunPhase::Waiting);
  looping.AdvanceTo(looping.Now() + 3 * kMinute);
  EXPECT_FALSE(looping.Runs()[0].Passings.empty());
}
