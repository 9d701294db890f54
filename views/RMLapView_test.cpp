// The lap view: its row record and wire body, the texts of flag and unassigned rows, the
// slotting of late passings, withdrawn photocell rows, and the ownership of its rows.
#include "views/RMLapView.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "data/DataEncoder.h"
#include "data/DataTestSupport.h"
#include "frame/TimeText.h"
#include "testing/KVTCatch.h"
#include "testing/LogCapture.h"
#include "testing/ViewTestSupport.h"
#include "views/ViewEncoder.h"

namespace {

constexpr DWORD kRun = 0x40000001;
constexpr DWORD kOtherRun = 0x40000002;
constexpr KVTTIME kSecond = 1000000;

// Competitors of the run: one with a name, three without (a translated transponder, an
// untranslated one, none at all).
constexpr DWORD kNamed = 1;
constexpr DWORD kTranslated = 2;
constexpr DWORD kUntranslated = 3;
constexpr DWORD kNoTransponder = 4;
constexpr DWORD kUnknownCompetitor = 77;

DWORD KindFlags(int kind) { return static_cast<DWORD>(kind) << 2; }
DWORD FlagRowFlags(DWORD flagClass, DWORD colour) {
  return KindFlags(kLapRowFlag) | (colour << 16) | (flagClass << 19);
}

std::string Ids(const std::vector<CRMLapViewRow*>& rows) {
  std::string text;
  for (const CRMLapViewRow* row : rows) {
    if (!text.empty()) text += ",";
    text += std::to_string(row->RowID);
  }
  return text;
}

// Writes one line per notification: "l:all:<list>", "l:add:<id>:list=<list>",
// "l:modify:<rows>", "l:remove:<id>:list=<list>", "l:clear".
class CLapLog : public CRMLapViewObserver {
 public:
  explicit CLapLog(std::vector<std::string>* log, std::string name = "l") : Log(log), Name(std::move(name)) {}
  void OnAllRows(CRMLapView* view) override { Log->push_back(Name + ":all:" + Ids(view->GetRows())); }
  void OnRowAdded(CRMLapView* view, CRMLapViewRow* row) override {
    Log->push_back(Name + ":add:" + std::to_string(row->RowID) + ":list=" + Ids(view->GetRows()));
    if (AfterAdd) AfterAdd(view);
  }
  void OnRowsModified(CRMLapView* view, const std::vector<CRMLapViewRow*>& rows) override {
    (void)view;
    Log->push_back(Name + ":modify:" + Ids(rows));
  }
  void OnRowRemoved(CRMLapView* view, CRMLapViewRow* row) override {
    Log->push_back(Name + ":remove:" + std::to_string(row->RowID) + ":list=" + Ids(view->GetRows()));
  }
  void OnCleared(CRMLapView* view) override {
    (void)view;
    Log->push_back(Name + ":clear");
  }
  std::vector<std::string>* Log;
  std::string Name;
  std::function<void(CRMLapView*)> AfterAdd;
};

CRMLapViewRow Row(DWORD id, KVTTIME time, DWORD flags = 0, DWORD competitor = kNamed) {
  CRMLapViewRow row;
  row.RowID = id;
  row.PassingTime = time;
  row.Flags = flags;
  row.CompetitorID = competitor;
  return row;
}

CBaseCompetitor* NewCompetitor(DWORD id, const std::string& first, const std::string& last,
                               std::vector<DWORD> transponders) {
  auto* competitor = new CBaseCompetitor;
  competitor->UniqueID = id;
  competitor->Number = std::to_string(id);
  competitor->FirstName = first;
  competitor->LastName = last;
  competitor->Transponders = std::move(transponders);
  competitor->BuildFullName();
  return competitor;
}

// A live link whose replica holds two runs; the first has competitors and a lap view
// with one observer.
struct RMLapView : ::testing::Test {
  RMLapView() {
    CBaseDataComm model;
    for (DWORD id : {kRun, kOtherRun}) AddOpenRun(model, id);
    auto& competitors = model.Runs[kRun]->Competitors->Competitors;
    competitors[kNamed] = NewCompetitor(kNamed, "Ann", "Able", {1001});
    competitors[kTranslated] = NewCompetitor(kTranslated, "", "", {5001, 1002});
    competitors[kUntranslated] = NewCompetitor(kUntranslated, "", "", {0x6000000 + 42});
    competitors[kNoTransponder] = NewCompetitor(kNoTransponder, "", "", {});
    auto* tx = new CBaseTxTranslation;
    tx->UniqueID = 5001;
    tx->Text = "Guest car";
    model.TxTranslations[5001] = tx;
    link.Apply(DataEncoder::Snapshot(model));
    run = link.Data().GetRun(kRun);
    view = link.comm.CreateLapView(run);
    observer.Attach(view);
  }

  void Add(const CRMLapViewRow& row) { link.Apply(ViewEncoder::AddLapRow(kRun, row)); }
  void All(const std::vector<CRMLapViewRow>& rows) {
    std::vector<const CRMLapViewRow*> pointers;
    for (const CRMLapViewRow& row : rows) pointers.push_back(&row);
    link.Apply(ViewEncoder::AllPassings(kRun, pointers));
  }
  void Modify(const std::vector<CRMLapViewRow>& rows) {
    std::vector<const CRMLapViewRow*> pointers;
    for (const CRMLapViewRow& row : rows) pointers.push_back(&row);
    link.Apply(ViewEncoder::ModifyLapRows(kRun, pointers));
  }
  std::string List() const { return Ids(view->GetRows()); }
  const CRMLapViewRow* Mapped(DWORD id) const {
    auto found = view->GetRowMap().find(id);
    return found == view->GetRowMap().end() ? nullptr : found->second;
  }
  CBaseCompetitor* Competitor(DWORD id) const { return run->Competitors->Competitors.at(id); }

  // The all-passings timing line goes to the captured log, not to the test output.
  LogCapturePackage quietLog;
  InstalledPackage quietScope{&quietLog};
  CLiveLink link;
  CRun* run = nullptr;
  CRMLapView* view = nullptr;
  std::vector<std::string> log;
  CLapLog observer{&log};
};

}  // namespace

// ---------------------------------------------------------------------------------------
// The row record

TEST(RMLapViewRow, BodyIsReadInWireOrderAndTakesExactlyItsBytes) {
  CTTBuffer buffer(16);
  buffer << DWORD{11} << DWORD{22} << BYTE{33} << DWORD{0x00250008} << WORD{44} << WORD{55} << KVTTIME{66}
         << KVTTIME{77} << KVTTIME{88} << KVTTIME{99} << WORD{111} << WORD{122} << BYTE{133} << DWORD{0xABCDEF01};
  buffer.Reset();
  CRMLapViewRow row;
  row.MessageToViewRow(buffer);
  EXPECT_EQ(row.CompetitorID, 11u);
  EXPECT_EQ(row.SecondID, 22u);
  EXPECT_EQ(row.Status, 33);
  EXPECT_EQ(row.Flags, 0x00250008u);
  EXPECT_EQ(row.Word4, 44);
  EXPECT_EQ(row.Word5, 55);
  EXPECT_EQ(row.Time1, 66);
  EXPECT_EQ(row.PassingTime, 77);
  EXPECT_EQ(row.Time3, 88);
  EXPECT_EQ(row.Time4, 99);
  EXPECT_EQ(row.Word1, 111);
  EXPECT_EQ(row.Word2, 122);
  EXPECT_EQ(row.Byte3, 133);
  EXPECT_EQ(row.RowID, 0xFFFFFFFFu) << "the row ID is not part of the body";
  DWORD next = 0;
  buffer >> next;
  EXPECT_EQ(next, 0xABCDEF01u) << "the body ends after byte 3";
  EXPECT_EQ(row.GetKind(), 2);
  EXPECT_EQ(row.GetFlagColour(), 5u);
  EXPECT_EQ(row.GetFlagClass(), 4u);
}

TEST(RMLapViewRow, StartsWithTheDesignedValues) {
  CRMLapViewRow row;
  EXPECT_EQ(row.RowID, 0xFFFFFFFFu);
  EXPECT_EQ(row.CompetitorID, kUnassignedCompetitor);
  EXPECT_EQ(row.Status, 0xFF);
  EXPECT_EQ(row.Time1, 0);
  EXPECT_EQ(row.PassingTime, KVTTIME_NULL);
  EXPECT_EQ(row.Time3, KVTTIME_NULL);
  EXPECT_EQ(row.Time4, KVTTIME_NULL);
  EXPECT_EQ(row.Competitor, nullptr);
  EXPECT_TRUE(row.Alternative.empty());
}

TEST(RMLapViewRow, BodyCutShortThrowsAndLeavesTheRowAsItWas) {
  CTTBuffer buffer(16);
  buffer << DWORD{11} << DWORD{22} << BYTE{33};
  buffer.Reset();
  CRMLapViewRow row;
  row.SecondID = 5;
  auto error = CatchKVT([&] { row.MessageToViewRow(buffer); });
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->GetTrail().back(), "CRMLapViewRow::MessageToViewRow()");
  EXPECT_EQ(row.CompetitorID, kUnassignedCompetitor);
  EXPECT_EQ(row.SecondID, 5u);
}

TEST(RMLapViewRow, AlternativeIsCutTo31Characters) {
  CRMLapViewRow row;
  row.SetAlternative(std::string(40, 'x'));
  EXPECT_EQ(row.Alternative, std::string(31, 'x'));
  row.SetAlternative("short");
  EXPECT_EQ(row.Alternative, "short");
}

TEST(RMLapViewRow, OnlyKindsOneAndTwoArePhotocells) {
  for (int kind = 0; kind < 8; ++kind) {
    CRMLapViewRow row;
    row.Flags = KindFlags(kind) | 0xFFFF0003u;
    EXPECT_EQ(row.GetKind(), kind);
    EXPECT_EQ(row.IsPhotoCell(), kind == 1 || kind == 2 ? TRUE : FALSE) << "kind " << kind;
  }
}

// ---------------------------------------------------------------------------------------
// Late passings

TEST_F(RMLapView, InSequencePassingsGoToTheEndAndMoveTheLastPassingTime) {
  Add(Row(1, 10 * kSecond));
  Add(Row(2, 20 * kSecond));
  Add(Row(3, 20 * kSecond));
  EXPECT_EQ(List(), "1,2,3");
  EXPECT_EQ(view->GetLastPassingTime(), 20 * kSecond);
  EXPECT_EQ(log, (std::vector<std::string>{"l:add:1:list=1", "l:add:2:list=1,2", "l:add:3:list=1,2,3"}));
}

TEST_F(RMLapView, LatePassingWithAnEqualTimeGoesAheadOfThatRowWhichIsReportedModified) {
  Add(Row(1, 10 * kSecond));
  Add(Row(2, 20 * kSecond));
  Add(Row(3, 30 * kSecond));
  log.clear();
  Add(Row(4, 20 * kSecond));
  EXPECT_EQ(List(), "1,4,2,3");
  EXPECT_EQ(log, (std::vector<std::string>{"l:add:4:list=1,4,2,3", "l:modify:3,2"}));
  EXPECT_EQ(view->GetLastPassingTime(), 30 * kSecond) << "a late passing leaves the last passing time";
}

TEST_F(RMLapView, LatePassingEarlierThanAllRowsGoesFirstAndAllRowsAreReportedModified) {
  Add(Row(1, 10 * kSecond));
  Add(Row(2, 20 * kSecond));
  Add(Row(3, 30 * kSecond));
  log.clear();
  Add(Row(9, 5 * kSecond));
  EXPECT_EQ(List(), "9,1,2,3");
  EXPECT_EQ(log, (std::vector<std::string>{"l:add:9:list=9,1,2,3", "l:modify:3,2,1"}));
  EXPECT_EQ(view->GetLastPassingTime(), 30 * kSecond);
}

TEST_F(RMLapView, AfterClearTheLastPassingTimeStandsAndAnEarlierRowTakesTheOutOfSequenceWay) {
  Add(Row(1, 10 * kSecond));
  Add(Row(2, 30 * kSecond));
  view->Clear();
  EXPECT_TRUE(view->GetRows().empty());
  EXPECT_TRUE(view->GetRowMap().empty());
  EXPECT_EQ(view->GetLastPassingTime(), 30 * kSecond);
  log.clear();
  Add(Row(5, 20 * kSecond));
  EXPECT_EQ(List(), "5");
  EXPECT_EQ(log, (std::vector<std::string>{"l:add:5:list=5", "l:modify:"}))
      << "the out-of-sequence way tells an empty displaced list";
  EXPECT_EQ(view->GetLastPassingTime(), 30 * kSecond);
}

TEST_F(RMLapView, RowWithoutTimeStaysOnlyInTheMapAndIsNotTold) {
  Add(Row(1, KVTTIME_NULL));
  EXPECT_TRUE(view->GetRows().empty());
  ASSERT_NE(Mapped(1), nullptr);
  EXPECT_TRUE(log.empty());
  EXPECT_EQ(view->GetLastPassingTime(), 0);
}

TEST_F(RMLapView, RowUnderAKnownIdPushesTheOldOneOutOfTheMapWhileTheListKeepsBoth) {
  Add(Row(1, 10 * kSecond));
  const CRMLapViewRow* first = view->GetRows()[0];
  Add(Row(1, 20 * kSecond));
  ASSERT_EQ(view->GetRows().size(), 2u);
  EXPECT_EQ(view->GetRows()[0], first);
  EXPECT_EQ(Mapped(1), view->GetRows()[1]);
  EXPECT_EQ(Mapped(1)->PassingTime, 20 * kSecond);
  EXPECT_EQ(first->PassingTime, 10 * kSecond) << "the pushed-out row is still alive";
  view->Clear();  // both rows are freed here, each once
  EXPECT_TRUE(view->GetRows().empty());
}

// ---------------------------------------------------------------------------------------
// All passings

TEST_F(RMLapView, AllPassingsListsTimedRowsSortedByTimeThenIdAndKeepsUntimedRowsInTheMap) {
  All({Row(3, 30 * kSecond), Row(7, 10 * kSecond), Row(2, KVTTIME_NULL), Row(4, 10 * kSecond)});
  EXPECT_EQ(List(), "4,7,3");
  EXPECT_EQ(view->GetRowMap().size(), 4u);
  ASSERT_NE(Mapped(2), nullptr);
  EXPECT_EQ(log, (std::vector<std::string>{"l:all:4,7,3"}));
  EXPECT_TRUE(view->HasAllPassings());
  EXPECT_EQ(view->GetLastPassingTime(), 0) << "all passings does not move the last passing time";
}

TEST_F(RMLapView, AllPassingsWritesHowLongItTook) {
  LogCapturePackage package;
  InstalledPackage installed(&package);
  All({Row(1, 10 * kSecond)});
  const std::vector<std::string> lines = package.GetLines();
  ASSERT_EQ(lines.size(), 1u);
  const std::string prefix = "All passigns in RMComm took ";
  const std::string suffix = " msec.\r\n";
  ASSERT_GE(lines[0].size(), prefix.size() + suffix.size() + 1);
  EXPECT_EQ(lines[0].substr(0, prefix.size()), prefix);
  EXPECT_EQ(lines[0].substr(lines[0].size() - suffix.size()), suffix);
  const std::string digits = lines[0].substr(prefix.size(), lines[0].size() - prefix.size() - suffix.size());
  EXPECT_EQ(digits.find_first_not_of("0123456789"), std::string::npos) << lines[0];
}

TEST_F(RMLapView, SecondAllPassingsReplacesTheListedRowsAndTheirMapEntries) {
  All({Row(3, 30 * kSecond), Row(4, 40 * kSecond), Row(2, KVTTIME_NULL)});
  log.clear();
  All({Row(5, 1 * kSecond), Row(3, 2 * kSecond)});
  EXPECT_EQ(List(), "5,3");
  std::vector<DWORD> keys;
  for (const auto& [id, row] : view->GetRowMap()) keys.push_back(id);
  EXPECT_EQ(keys, (std::vector<DWORD>{2, 3, 5})) << "row 4 went with the old list; untimed row 2 stays";
  EXPECT_EQ(Mapped(3), view->GetRows()[1]);
  EXPECT_EQ(Mapped(3)->PassingTime, 2 * kSecond);
  EXPECT_EQ(log, (std::vector<std::string>{"l:all:5,3"}));
}

TEST_F(RMLapView, AllPassingsFreesListedRowsThatWerePushedOutOfTheMapOnlyOnce) {
  Add(Row(1, 10 * kSecond));
  Add(Row(1, 20 * kSecond));
  Add(Row(2, KVTTIME_NULL));
  All({});
  EXPECT_TRUE(view->GetRows().empty());
  std::vector<DWORD> keys;
  for (const auto& [id, row] : view->GetRowMap()) keys.push_back(id);
  EXPECT_EQ(keys, (std::vector<DWORD>{2}));
  // The sanitizer build shows a second free or a leak when the view is destroyed.
}

TEST_F(RMLapView, AllPassingsWithACountBeyondTheMessageThrowsWithoutAllocatingOrLeaking) {
  auto* message = DataEncoder::NewMessage(kMsgAllPassings);
  *message << kRun << 0x7FFFFFFF << DWORD{8};
  ViewEncoder::WriteLapRowBody(*message, Row(8, 10 * kSecond));
  auto error = CatchKVT([&] { link.Apply(message); });
  ASSERT_NE(error, nullptr);
  const auto& trail = error->GetTrail();
  EXPECT_NE(std::find(trail.begin(), trail.end(), "CRMLapView::OnAllPassings()"), trail.end());
  EXPECT_NE(std::find(trail.begin(), trail.end(), "CRMComm::OnProcessLapRowMessage()"), trail.end());
  EXPECT_EQ(trail.back(), "CRMComm::ProcessMessage()");
  // The whole row read before the end stays owned by the view.
  EXPECT_EQ(List(), "8");
  EXPECT_LT(view->GetRows().capacity(), 16u) << "the list was sized by the count";
  EXPECT_NE(Mapped(8), nullptr);
  EXPECT_TRUE(log.empty()) << "a failed message tells nobody";
}

TEST_F(RMLapView, AllPassingsWithANegativeCountEmptiesTheList) {
  Add(Row(1, 10 * kSecond));
  log.clear();
  auto* message = DataEncoder::NewMessage(kMsgAllPassings);
  *message << kRun << -5;
  link.Apply(message);
  EXPECT_TRUE(view->GetRows().empty());
  EXPECT_EQ(log, (std::vector<std::string>{"l:all:"}));
}

TEST_F(RMLapView, AddCutShortThrowsAndStoresNothing) {
  auto* message = DataEncoder::NewMessage(kMsgAddLapRow);
  *message << kRun << DWORD{3} << DWORD{kNamed} << DWORD{0};
  auto error = CatchKVT([&] { link.Apply(message); });
  ASSERT_NE(error, nullptr);
  const auto& trail = error->GetTrail();
  EXPECT_NE(std::find(trail.begin(), trail.end(), "CRMLapView::CreateLapRow()"), trail.end());
  EXPECT_NE(std::find(trail.begin(), trail.end(), "CRMLapView::OnAddLapRow()"), trail.end());
  EXPECT_TRUE(view->GetRowMap().empty());
  EXPECT_TRUE(view->GetRows().empty());
}

// ---------------------------------------------------------------------------------------
// Modify

TEST_F(RMLapView, PhotocellRowThatLosesItsTimeLeavesWithARemovalAndComesBackWithAnAdd) {
  All({Row(1, 10 * kSecond), Row(2, 20 * kSecond, KindFlags(kLapRowPhotocell)), Row(3, 30 * kSecond)});
  log.clear();
  Modify({Row(2, KVTTIME_NULL, KindFlags(kLapRowPhotocell))});
  EXPECT_EQ(List(), "1,3");
  ASSERT_NE(Mapped(2), nullptr) << "the row stays in the map";
  EXPECT_EQ(log, (std::vector<std::string>{"l:remove:2:list=1,3"}));

  log.clear();
  Modify({Row(2, 25 * kSecond, KindFlags(kLapRowPhotocell))});
  EXPECT_EQ(List(), "1,2,3");
  EXPECT_EQ(log, (std::vector<std::string>{"l:add:2:list=1,2,3", "l:modify:2"}));
}

TEST_F(RMLapView, SecondPhotocellKindIsWithdrawnToo) {
  All({Row(1, 10 * kSecond, KindFlags(kLapRowPhotocellSecond))});
  log.clear();
  Modify({Row(1, KVTTIME_NULL, KindFlags(kLapRowPhotocellSecond))});
  EXPECT_EQ(List(), "");
  EXPECT_EQ(log, (std::vector<std::string>{"l:remove:1:list="}));
}

TEST_F(RMLapView, UntimedPhotocellRowThatGetsATimeIsAddedToTheList) {
  All({Row(1, 10 * kSecond), Row(2, KVTTIME_NULL, KindFlags(kLapRowPhotocell))});
  log.clear();
  Modify({Row(2, 5 * kSecond, KindFlags(kLapRowPhotocell))});
  EXPECT_EQ(List(), "2,1");
  EXPECT_EQ(log, (std::vector<std::string>{"l:add:2:list=2,1", "l:modify:2"}));
}

TEST_F(RMLapView, RowOfAnotherKindThatLosesItsTimeStaysInTheList) {
  All({Row(1, 10 * kSecond), Row(2, 20 * kSecond, KindFlags(kLapRowManual))});
  log.clear();
  Modify({Row(1, KVTTIME_NULL)});
  EXPECT_EQ(List(), "2,1") << "no time sorts last";
  EXPECT_EQ(log, (std::vector<std::string>{"l:modify:1"}));
}

TEST_F(RMLapView, ModifyResortsTheListAndSkipsTheBodyOfAnUnknownRow) {
  All({Row(1, 10 * kSecond), Row(2, 20 * kSecond), Row(3, 30 * kSecond)});
  log.clear();
  Modify({Row(99, 1 * kSecond), Row(3, 5 * kSecond), Row(1, 40 * kSecond)});
  EXPECT_EQ(List(), "3,2,1");
  EXPECT_EQ(Mapped(99), nullptr);
  EXPECT_EQ(log, (std::vector<std::string>{"l:modify:3,1"}));
}

TEST_F(RMLapView, ModifyOfOnlyUnknownRowsTellsNothing) {
  All({Row(1, 10 * kSecond)});
  log.clear();
  Modify({Row(99, 1 * kSecond)});
  EXPECT_TRUE(log.empty());
  EXPECT_EQ(Mapped(1)->PassingTime, 10 * kSecond);
}

TEST_F(RMLapView, ModifyChecksTheCompetitorAgainButNotTheFlagText) {
  All({Row(1, 10 * kSecond), Row(2, 20 * kSecond, FlagRowFlags(2, 0), kUnassignedCompetitor)});
  EXPECT_EQ(Mapped(1)->Competitor, Competitor(kNamed));
  EXPECT_EQ(Mapped(2)->Alternative, "Finish Flag");
  Modify({Row(1, 10 * kSecond, 0, kTranslated), Row(2, 20 * kSecond, FlagRowFlags(0, 1), kUnassignedCompetitor)});
  EXPECT_EQ(Mapped(1)->Competitor, nullptr);
  EXPECT_EQ(Mapped(1)->Alternative, "--- Guest car ---");
  EXPECT_EQ(Mapped(2)->Alternative, "Finish Flag") << "a flag row keeps its text on modify";
}

TEST_F(RMLapView, ModifyCutShortKeepsWhatWasAppliedAndThrows) {
  All({Row(1, 10 * kSecond), Row(2, 20 * kSecond)});
  auto* message = DataEncoder::NewMessage(kMsgModifyLapRows);
  *message << kRun << 2 << DWORD{2};
  ViewEncoder::WriteLapRowBody(*message, Row(2, 5 * kSecond));
  *message << DWORD{1} << DWORD{kNamed};
  auto error = CatchKVT([&] { link.Apply(message); });
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(Mapped(2)->PassingTime, 5 * kSecond);
  EXPECT_EQ(Mapped(1)->PassingTime, 10 * kSecond) << "a body cut short changes nothing";
}

// ---------------------------------------------------------------------------------------
// Texts

TEST_F(RMLapView, FlagRowsAreNamedByClassAndColour) {
  struct Case {
    DWORD flagClass;
    DWORD colour;
    const char* text;
  };
  const Case cases[] = {
      {0, 0, "Warmup Flag"},  {0, 1, "Green Flag"},  {0, 2, "Yellow Flag"}, {0, 3, "Yellow Flag (not counting)"},
      {0, 4, "Red Flag"},     {1, 0, "White Flag"},  {1, 7, "White Flag"},  {2, 3, "Finish Flag"},
      {3, 6, "Extra Flag"},   {0, 6, ""},            {0, 7, ""},            {4, 1, ""},
      {7, 0, ""},
  };
  DWORD id = 1;
  for (const Case& c : cases) {
    Add(Row(id, static_cast<KVTTIME>(id) * kSecond, FlagRowFlags(c.flagClass, c.colour)));
    ASSERT_NE(Mapped(id), nullptr);
    EXPECT_EQ(Mapped(id)->Alternative, c.text) << "class " << c.flagClass << " colour " << c.colour;
    EXPECT_EQ(Mapped(id)->Competitor, nullptr) << "a flag row has no competitor";
    ++id;
  }
}

TEST_F(RMLapView, FlagRowWithClassZeroAndColourFiveHasAnEmptyAlternative) {
  Add(Row(1, kSecond, FlagRowFlags(0, 5), kUnassignedCompetitor));
  ASSERT_NE(Mapped(1), nullptr);
  EXPECT_EQ(Mapped(1)->Alternative, "");
  EXPECT_EQ(List(), "1") << "the row is listed all the same";
}

TEST_F(RMLapView, WhiteFlagTextComesFromTheLowerCaseKey) {
  LogCapturePackage package;
  package.Translations["lglabel_White_Flag"] = "Weisse Flagge";
  package.Translations["lgLabel_White_Flag"] = "wrong key";
  package.Translations["lgLabel_Red_Flag"] = "Rote Flagge";
  InstalledPackage installed(&package);
  Add(Row(1, kSecond, FlagRowFlags(1, 2)));
  Add(Row(2, 2 * kSecond, FlagRowFlags(0, 4)));
  EXPECT_EQ(Mapped(1)->Alternative, "Weisse Flagge");
  EXPECT_EQ(Mapped(2)->Alternative, "Rote Flagge");
}

TEST_F(RMLapView, UnassignedManualRowAndUnassignedPhotocellRowsGetTheirTexts) {
  Add(Row(1, 1 * kSecond, KindFlags(kLapRowManual), kUnassignedCompetitor));
  Add(Row(2, 2 * kSecond, KindFlags(kLapRowPhotocell), kUnassignedCompetitor));
  Add(Row(3, 3 * kSecond, KindFlags(kLapRowPassing), kUnassignedCompetitor));
  EXPECT_EQ(Mapped(1)->Alternative, "Unassigned Manual");
  EXPECT_EQ(Mapped(2)->Alternative, "Unassigned Photocell");
  EXPECT_EQ(Mapped(3)->Alternative, "Unassigned Photocell");
  for (DWORD id : {1u, 2u, 3u}) EXPECT_EQ(Mapped(id)->Competitor, nullptr);
}

TEST_F(RMLapView, CompetitorWithANameIsSetAndNeedsNoAlternative) {
  Add(Row(1, 1 * kSecond, KindFlags(kLapRowPassing), kNamed));
  Add(Row(2, 2 * kSecond, KindFlags(kLapRowManual), kNamed));
  EXPECT_EQ(Mapped(1)->Competitor, Competitor(kNamed));
  EXPECT_EQ(Mapped(2)->Competitor, Competitor(kNamed));
  EXPECT_EQ(Mapped(1)->Alternative, "");
}

TEST_F(RMLapView, CompetitorWithoutANameShowsItsFirstTransponderAndIsNotSet) {
  Add(Row(1, 1 * kSecond, KindFlags(kLapRowPassing), kTranslated));
  Add(Row(2, 2 * kSecond, KindFlags(kLapRowPhotocell), kUntranslated));
  Add(Row(3, 3 * kSecond, KindFlags(kLapRowManual), kNoTransponder));
  EXPECT_EQ(Mapped(1)->Alternative, "--- Guest car ---");
  EXPECT_EQ(Mapped(2)->Alternative, "--- " + TransponderToString(0x6000000 + 42) + " ---");
  EXPECT_NE(TransponderToString(0x6000000 + 42), std::to_string(0x6000000 + 42)) << "the code is printed as a code";
  EXPECT_EQ(Mapped(3)->Alternative, "--- 0 ---");
  for (DWORD id : {1u, 2u, 3u}) EXPECT_EQ(Mapped(id)->Competitor, nullptr);
}

TEST_F(RMLapView, CompetitorNotFoundLeavesAnEmptyAlternative) {
  Add(Row(1, 1 * kSecond, KindFlags(kLapRowPassing), kUnknownCompetitor));
  EXPECT_EQ(Mapped(1)->Competitor, nullptr);
  EXPECT_EQ(Mapped(1)->Alternative, "");
}

TEST_F(RMLapView, CompetitorsAreLookedUpInTheViewsOwnRunOnly) {
  CRMLapView* other = link.comm.CreateLapView(link.Data().GetRun(kOtherRun));
  ASSERT_NE(other, nullptr);
  ASSERT_NE(other, view);
  link.Apply(ViewEncoder::AddLapRow(kOtherRun, Row(1, kSecond, 0, kNamed)));
  ASSERT_EQ(other->GetRows().size(), 1u);
  EXPECT_EQ(other->GetRows()[0]->Competitor, nullptr);
  EXPECT_TRUE(view->GetRows().empty());
}

TEST_F(RMLapView, SecondPhotocellRowGetsNoCompetitorWhenCreated) {
  Add(Row(1, 1 * kSecond, KindFlags(kLapRowPhotocellSecond), kNamed));
  Add(Row(2, 2 * kSecond, KindFlags(kLapRowPhotocellSecond), kUnassignedCompetitor));
  EXPECT_EQ(Mapped(1)->Competitor, nullptr);
  EXPECT_EQ(Mapped(2)->Alternative, "");
}

// ---------------------------------------------------------------------------------------
// Sort, clear, observers

TEST_F(RMLapView, SortIsByPassingTimeThenByUnsignedRowId) {
  CRMLapViewRow a = Row(0x80000000u, 5);
  CRMLapViewRow b = Row(1, 5);
  CRMLapViewRow c = Row(2, 4);
  EXPECT_TRUE(CRMLapView::LapRowViewSort(&b, &a));
  EXPECT_FALSE(CRMLapView::LapRowViewSort(&a, &b));
  EXPECT_TRUE(CRMLapView::LapRowViewSort(&c, &b));
  EXPECT_FALSE(CRMLapView::LapRowViewSort(&b, &b));
}

TEST_F(RMLapView, ClearAllPassingsEmptiesTheViewTellsTheObserversAndKeepsTheFlags) {
  All({Row(1, 10 * kSecond), Row(2, KVTTIME_NULL)});
  Add(Row(3, 30 * kSecond));
  log.clear();
  view->OnClearAllPassings();
  EXPECT_TRUE(view->GetRows().empty());
  EXPECT_TRUE(view->GetRowMap().empty());
  EXPECT_TRUE(view->HasAllPassings());
  EXPECT_EQ(view->GetLastPassingTime(), 30 * kSecond);
  EXPECT_EQ(log, (std::vector<std::string>{"l:clear"}));
}

TEST_F(RMLapView, ObserverThatDetachesDuringTheWalkDoesNotMakeTheNextOneMissOut) {
  std::vector<std::string> second;
  std::vector<std::string> third;
  CLapLog b(&second, "b");
  CLapLog c(&third, "c");
  b.Attach(view);
  c.Attach(view);
  observer.AfterAdd = [&](CRMLapView* v) { observer.Detach(v); };
  Add(Row(1, kSecond));
  EXPECT_EQ(log, (std::vector<std::string>{"l:add:1:list=1"}));
  EXPECT_EQ(second, (std::vector<std::string>{"b:add:1:list=1"}));
  EXPECT_EQ(third, (std::vector<std::string>{"c:add:1:list=1"}));
  EXPECT_EQ(view->GetObservers(), (std::vector<CRMLapViewObserver*>{&b, &c}));
  Add(Row(2, 2 * kSecond));
  EXPECT_EQ(log.size(), 1u) << "a detached observer hears no more";
  EXPECT_EQ(second.size(), 2u);
}

TEST_F(RMLapView, AttachIsOncePerObserverAndNullIsIgnored) {
  observer.Attach(view);
  observer.Attach(nullptr);
  observer.Detach(nullptr);
  EXPECT_EQ(view->GetObservers(), (std::vector<CRMLapViewObserver*>{&observer}));
  Add(Row(1, kSecond));
  EXPECT_EQ(log.size(), 1u);
  observer.Detach(view);
  EXPECT_TRUE(view->GetObservers().empty());
}

TEST_F(RMLapView, ObserverThatOutlivesItsLapViewIsDestroyedSafely) {
  std::vector<std::string> lines;
  auto late = std::make_unique<CLapLog>(&lines, "late");
  late->Attach(view);
  Add(Row(1, kSecond));
  link.comm.ClearAll();
  EXPECT_TRUE(link.comm.GetLapViews().empty());
  EXPECT_EQ(lines, (std::vector<std::string>{"late:add:1:list=1"})) << "destroying the view tells nobody";
  late.reset();  // would touch the freed view if the view had not let go of it
}
