#include "host/RaceFile.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

namespace {

const char kSmallRace[] = R"({
  "track": {"name": "Test Ring", "length": 2.0,
            "timelines": [{"id": 3, "name": "Split", "position": 1.2}, {"id": 0, "name": "Finish", "position": 0}]},
  "events": [{"id": 1, "name": "Cup"}, {"id": 2, "name": "Juniors", "parent": 1}],
  "runs": [{"id": 1, "event": 2, "name": "Heat", "type": 2, "laps": 5},
           {"id": 2, "event": 2, "name": "Warm-up", "type": 0, "minutes": 3}],
  "competitors": [{"id": 9, "number": "4", "first": "Ida", "last": "Moss", "pace": {"lap": 61.5, "spread": 0.4}},
                  {"id": 10, "number": "5", "last": "Reed", "transponders": [77]}]
})";

std::string Error(const std::string& text) {
  RaceDescription race;
  std::string error;
  EXPECT_FALSE(ReadRaceDescription(text, "race.json", race, error));
  return error;
}

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
  const auto at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  return text.replace(at, from.size(), to);
}

}  // namespace

TEST(RaceFile, ReadsTheMeetingWithTimelinesInTrackOrderAndRunLengths) {
  RaceDescription race;
  std::string error;
  ASSERT_TRUE(ReadRaceDescription(kSmallRace, "race.json", race, error)) << error;
  EXPECT_EQ(race.TrackName, "Test Ring");
  ASSERT_EQ(race.Timelines.size(), 2u);
  EXPECT_EQ(race.Timelines[0].Name, "Finish");
  EXPECT_EQ(race.Timelines[1].ID, 3);
  ASSERT_EQ(race.Runs.size(), 2u);
  EXPECT_EQ(race.Runs[0].Laps, 5);
  EXPECT_EQ(race.Runs[0].Minutes, 0);
  EXPECT_EQ(race.Runs[1].Minutes, 3);
  EXPECT_DOUBLE_EQ(race.Competitors[0].LapSeconds, 61.5);
  EXPECT_DOUBLE_EQ(race.Competitors[0].SpreadSeconds, 0.4);
  EXPECT_EQ(race.Competitors[1].LapSeconds, 0.0);  // seeded default
  EXPECT_EQ(race.BreakSeconds, 60);
  EXPECT_EQ(race.StartSecondOfDay, -1);
  // The replica's data: the first run is the active one, the runs carry the field.
  ASSERT_NE(race.Model, nullptr);
  const CRun& heat = *race.Model->Runs.at(kRaceRunBit | 1);
  EXPECT_TRUE(heat.IsActive());
  EXPECT_FALSE(race.Model->Runs.at(kRaceRunBit | 2)->IsActive());
  EXPECT_EQ(heat.EventID, kRaceEventBit | 2);
  EXPECT_EQ(heat.Competitors->Competitors.size(), 2u);
  EXPECT_EQ(race.Model->Events.at(kRaceEventBit | 2)->ParentID, kRaceEventBit | 1);
}

TEST(RaceFile, TheExampleMeetingReads) {
  std::ifstream file(std::string(ZOL_SOURCE_DIR) + "/examples/race.json");
  std::stringstream text;
  text << file.rdbuf();
  RaceDescription race;
  std::string error;
  ASSERT_TRUE(ReadRaceDescription(text.str(), "examples/race.json", race, error)) << error;
  ASSERT_EQ(race.Runs.size(), 3u);
  EXPECT_EQ(race.Runs[0].Type, 0);
  EXPECT_EQ(race.Runs[1].Type, 1);
  EXPECT_EQ(race.Runs[2].Type, 2);
  EXPECT_EQ(race.StartSecondOfDay, 10 * 3600);
}

TEST(RaceFile, TextThatIsNoJsonNamesTheFileLineAndColumn) {
  const std::string error = Error("{\n  \"track\": {\n    \"name\": ,\n");
  EXPECT_EQ(error.rfind("race file race.json: line 3, column 13: not valid JSON: ", 0), 0u) << error;
  EXPECT_EQ(error.find('\n'), std::string::npos);
}

TEST(RaceFile, AMissingFieldIsNamedWithItsPlace) {
  EXPECT_EQ(Error(Replaced(kSmallRace, R"("name": "Heat", )", "")),
            "race file race.json: runs[0]: \"name\" is missing");
  EXPECT_EQ(Error(Replaced(kSmallRace, R"("last": "Reed", )", "")),
            "race file race.json: competitors[1]: \"last\" is missing");
  EXPECT_EQ(Error(R"({"events": []})"), "race file race.json: top level: \"track\" is missing");
  EXPECT_EQ(Error(Replaced(kSmallRace, R"(, "minutes": 3)", "")),
            "race file race.json: runs[1]: needs its length: either \"minutes\" or \"laps\"");
}

TEST(RaceFile, ARunTypeOutsideZeroToTwoIsRefused) {
  EXPECT_EQ(Error(Replaced(kSmallRace, R"("type": 2)", R"("type": 3)")),
            "race file race.json: runs[0].type: 3 is no run type (0 practice, 1 qualifying, 2 race)");
  EXPECT_EQ(Error(Replaced(kSmallRace, R"("type": 2)", R"("type": -1)")),
            "race file race.json: runs[0].type: -1 is no run type (0 practice, 1 qualifying, 2 race)");
  EXPECT_EQ(Error(Replaced(kSmallRace, R"("type": 2)", R"("type": "race")")),
            "race file race.json: runs[0].type: \"race\" is no run type (0 practice, 1 qualifying, 2 race)");
}

TEST(RaceFile, ValuesOfTheWrongKindOrOutOfRangeAreRefused) {
  EXPECT_EQ(Error(Replaced(kSmallRace, R"("laps": 5)", R"("laps": 0)")),
            "race file race.json: runs[0].laps: 0 is out of range (1 to 10000)");
  EXPECT_EQ(Error(Replaced(kSmallRace, R"("event": 2, "name": "Heat")", R"("event": 7, "name": "Heat")")),
            "race file race.json: runs[0].event: no event has the id 7");
  EXPECT_EQ(Error(Replaced(kSmallRace, R"("number": "4")", R"("number": 4)")),
            "race file race.json: competitors[0].number: expected a text");
  EXPECT_EQ(Error(Replaced(kSmallRace, R"("position": 0})", R"("position": 0.5})")),
            "race file race.json: track.timelines: needs the finish line, a timeline at position 0");
  EXPECT_EQ(Error(Replaced(kSmallRace, R"({"id": 10,)", R"({"id": 9,)")),
            "race file race.json: competitors[1].id: competitor id used twice");
  EXPECT_EQ(Error("[1, 2]"), "race file race.json: top level: expected an object");
}

TEST(RaceFile, AnEventThatIsItsOwnParentIsRefused) {
  EXPECT_EQ(Error(Replaced(kSmallRace, R"("parent": 1})", R"("parent": 2})")),
            "race file race.json: events[1].parent: event 2 lies below itself (its parents run in a circle)");
}

TEST(RaceFile, ParentsThatRunInACircleAreRefusedAtTheFirstEventOfTheCircle) {
  // 1 -> 3 -> 2 -> 1, and event 4 hangs below the circle without being part of it.
  const std::string outside = Replaced(kSmallRace, R"({"id": 1, "name": "Cup"})",
                                       R"({"id": 4, "name": "Open", "parent": 2}, {"id": 1, "name": "Cup", "parent": 3})");
  const std::string circle = Replaced(outside, R"({"id": 2, "name": "Juniors", "parent": 1})",
                                      R"({"id": 2, "name": "Juniors", "parent": 1}, {"id": 3, "name": "Seniors", "parent": 2})");
  EXPECT_EQ(Error(circle),
            "race file race.json: events[1].parent: event 1 lies below itself (its parents run in a circle)");
}

TEST(RaceFile, ADeepChainOfEventsWithoutACircleReads) {
  std::string events = R"({"id": 1, "name": "E1"})";
  for (int id = 2; id <= 2000; ++id) {
    events += R"(, {"id": )" + std::to_string(id) + R"(, "name": "E", "parent": )" + std::to_string(id - 1) + "}";
  }
  RaceDescription race;
  std::string error;
  const std::string chain =
      Replaced(kSmallRace, R"({"id": 1, "name": "Cup"}, {"id": 2, "name": "Juniors", "parent": 1})", events);
  EXPECT_TRUE(ReadRaceDescription(chain, "race.json", race, error)) << error;
}
