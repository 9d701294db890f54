// Names in any script: the stand-in writes the race file's texts (UTF-8 in the JSON) in
// the code page of the installation, a character the code page cannot hold as "?".
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "data/Competitor.h"
#include "host/DataManagerStandIn.h"
#include "host/RaceFile.h"
#include "host/RaceViews.h"

namespace {

// Émile Fabré, Łucja Żak, Jürgen Müller, Iñigo Muñoz and one name in Chinese script.
const char kRaceWithNames[] = R"({
  "track": {"name": "Ring Süd", "length": 2.0, "timelines": [{"id": 0, "name": "Finish", "position": 0}]},
  "events": [{"id": 1, "name": "Coupe d'Été"}],
  "runs": [{"id": 1, "event": 1, "name": "Heat", "type": 2, "laps": 5}],
  "competitors": [{"id": 1, "number": "1", "first": "Émile", "last": "Fabré"},
                  {"id": 2, "number": "2", "first": "Łucja", "last": "Żak"},
                  {"id": 3, "number": "3", "first": "Jürgen", "last": "Müller"},
                  {"id": 4, "number": "4", "first": "Iñigo", "last": "Muñoz"},
                  {"id": 5, "number": "5", "last": "王小明"}]
})";

constexpr DWORD kHeat = kRaceRunBit | 1;

// The names in the results view's rows of the heat, as the stand-in sends them.
std::set<std::string> ResultNames(const CDataManagerStandIn& standIn) {
  const std::vector<CColumn> columns = RaceViews::Columns(RaceViews::kResults);
  const auto name = std::find_if(columns.begin(), columns.end(), [](const CColumn& c) { return c.Key == "lgHeader_Name"; });
  EXPECT_NE(name, columns.end());
  const auto column = static_cast<std::size_t>(name - columns.begin());
  RaceViews::Request request;
  request.Name = RaceViews::kResults;
  request.UniqueID = kHeat;
  std::set<std::string> names;
  for (const ViewRowValues& row : RaceViews::Rows(request, *standIn.GetMeeting())) names.insert(row.Cells.at(column).Text);
  return names;
}

// The full names of the competitors of the heat in the data the stand-in's snapshot carries.
std::set<std::string> SnapshotNames(const CDataManagerStandIn& standIn) {
  std::set<std::string> names;
  for (const auto& [id, competitor] : standIn.GetModel().Runs.at(kHeat)->Competitors->Competitors) {
    names.insert(competitor->FirstName.empty() ? competitor->LastName
                                               : competitor->FirstName + " " + competitor->LastName);
  }
  return names;
}

}  // namespace

TEST(RaceTextStandIn, RowsCarryTheNamesInCp1252ByDefault) {
  CDataManagerStandIn standIn(1, 1);
  std::string error;
  ASSERT_TRUE(standIn.LoadRaceText(kRaceWithNames, error)) << error;
  const std::set<std::string> expected = {"\xC9mile Fabr\xE9", "?ucja ?ak", "J\xFCrgen M\xFCller", "I\xF1igo Mu\xF1oz",
                                          "???"};
  EXPECT_EQ(ResultNames(standIn), expected);
  EXPECT_EQ(SnapshotNames(standIn), expected);
  EXPECT_EQ(standIn.GetModel().Tracks.begin()->second->Name, "Ring S\xFC" "d");
  // Łucja, Żak and the name in Chinese script lost characters; nothing else did.
  EXPECT_EQ(standIn.NamesLosingCharacters(), 3u);
}

TEST(RaceTextStandIn, RowsKeepEveryCharacterUnderUtf8) {
  CDataManagerStandIn standIn(1, 1);
  standIn.SetCodePage("UTF-8");
  std::string error;
  ASSERT_TRUE(standIn.LoadRaceText(kRaceWithNames, error)) << error;
  const std::set<std::string> expected = {"Émile Fabré", "Łucja Żak", "Jürgen Müller", "Iñigo Muñoz", "王小明"};
  EXPECT_EQ(ResultNames(standIn), expected);
  EXPECT_EQ(SnapshotNames(standIn), expected);
  EXPECT_EQ(standIn.NamesLosingCharacters(), 0u);
}

TEST(RaceTextStandIn, AnnouncementsNameCompetitorsInTheSameCodePage) {
  CDataManagerStandIn standIn(1, 1);
  std::string error;
  ASSERT_TRUE(standIn.LoadRaceText(kRaceWithNames, error)) << error;
  // Far enough for the race to finish: the winner is announced by name.
  standIn.AdvanceRaceTime(3600 * CRaceSimulation::kSecond);
  bool named = false;
  for (const auto& news : standIn.GetMeeting()->Announcements()) {
    EXPECT_EQ(news.Text.find("\xC3"), std::string::npos) << "UTF-8 in a CP1252 text: " << news.Text;
    if (news.Text.find("Fabr\xE9") != std::string::npos || news.Text.find("M\xFCller") != std::string::npos ||
        news.Text.find("Mu\xF1oz") != std::string::npos) {
      named = true;
    }
  }
  EXPECT_TRUE(named);
}

TEST(RaceTextReader, TransponderTextsAndClassesAreConvertedAndCounted) {
  const std::string text = R"({
    "track": {"name": "T", "length": 2.0, "timelines": [{"id": 0, "name": "Finish", "position": 0}]},
    "events": [{"id": 1, "name": "E"}],
    "runs": [{"id": 1, "event": 1, "name": "R", "type": 0, "minutes": 5}],
    "competitors": [{"id": 1, "number": "1", "last": "A", "class": "Öffentlich"}],
    "txtranslations": [{"transponder": 42, "text": "Łódź"}]
  })";
  RaceDescription race;
  std::string error;
  ASSERT_TRUE(ReadRaceDescription(text, "race.json", race, error, "CP1252")) << error;
  EXPECT_EQ(race.Competitors.at(0).Class, "\xD6" "ffentlich");
  EXPECT_EQ(race.Model->TxTranslations.at(42)->Text, "?\xF3" "d?");
  EXPECT_EQ(race.NamesLosingCharacters, 1u);
  // The reader on its own keeps the file's UTF-8.
  RaceDescription kept;
  ASSERT_TRUE(ReadRaceDescription(text, "race.json", kept, error)) << error;
  EXPECT_EQ(kept.Model->TxTranslations.at(42)->Text, "Łódź");
  EXPECT_EQ(kept.NamesLosingCharacters, 0u);
}
