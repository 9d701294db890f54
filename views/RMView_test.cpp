// The view model: its observers and requests, the structure, the four row handlers with
// their reading rules and notifications, group rows, the filter and failures.
#include "views/RMView.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "testing/KVTCatch.h"
#include "testing/ViewTestSupport.h"

namespace {

std::vector<CColumn> LapColumns() {
  return {MakeColumn(kColumnInteger, "lgHeader_Laps"), MakeColumn(kColumnString, "lgHeader_Name"),
          MakeColumn(kColumnString, "lgHeader_Class")};
}

ViewRowValues Row(DWORD id, int laps, const std::string& name = "", const std::string& className = "",
                  DWORD group = 0) {
  return MakeRowValues(id, {IntegerValue(laps), TextValue(name), TextValue(className)}, group);
}

ViewRowBlock Block(std::vector<ViewRowValues> rows, std::map<DWORD, std::string> groups = {}) {
  ViewRowBlock block;
  block.Rows = std::move(rows);
  block.Groups = std::move(groups);
  return block;
}

using Lines = std::vector<std::string>;

// A view with one logging observer, "a".
struct RMViewTest : ::testing::Test {
  explicit RMViewTest(const std::string& name = "lgView_Test", BOOL isPrivate = FALSE, BOOL grouped = FALSE,
                      const CParameters& parameters = CParameters())
      : harness(name, isPrivate, grouped, parameters) {}
  CRMView& view() { return *harness.View; }
  // Attached and given its structure: the view waits for its first rows.
  void Live(const std::vector<CColumn>& columns = LapColumns()) {
    a.Attach(&view());
    harness.Structure(columns);
    log.clear();
  }
  // Live, with all rows in.
  void Loaded(const ViewRowBlock& block) {
    Live();
    harness.AllRows(block);
    log.clear();
  }

  CViewHarness harness;
  Lines log;
  CLoggingViewObserver a{&log, "a"};
};

struct RMViewGrouped : RMViewTest {
  RMViewGrouped() : RMViewTest("lgView_Test", FALSE, TRUE) {}
};

CParameters SomeParameters() {
  CParameters parameters;
  parameters.Add("event", DWORD{0x80000005});
  parameters.Add("run", "2");
  return parameters;
}

struct RMViewRequests : RMViewTest {
  RMViewRequests() : RMViewTest("lgView_Results", FALSE, FALSE, SomeParameters()) {}
  ViewRequest Request(std::size_t index) {
    CModuleMessage& message = *harness.Module.Target.Sent.at(index);
    message.Reset();
    return ViewEncoder::ReadViewRequest(message);
  }
};

}  // namespace

// Requests to the data manager.

TEST_F(RMViewRequests, FirstObserverSendsConnectWithNameViewIDAndParameters) {
  a.Attach(&view());
  ASSERT_EQ(harness.SentIDs(), (std::vector<WORD>{kMsgViewConnect}));
  const ViewRequest request = Request(0);
  EXPECT_EQ(request.Name, "lgView_Results");
  EXPECT_EQ(request.ViewID, CViewHarness::kViewID);
  EXPECT_TRUE(request.Parameters == SomeParameters());
  EXPECT_EQ(view().GetObservers(), (std::vector<CRMViewObserver*>{&a}));
  EXPECT_EQ(a.GetSubjects(), (std::vector<CRMView*>{&view()}));
  EXPECT_TRUE(log.empty());
}

TEST_F(RMViewRequests, LastDetachSendsDisconnectWithAnEmptyParameterBlockThenDropsTheName) {
  CLoggingViewObserver b(&log, "b");
  a.Attach(&view());
  b.Attach(&view());
  harness.Structure(LapColumns());
  harness.AllRows(Block({Row(1, 3)}));
  b.Detach(&view(), TRUE);
  EXPECT_EQ(harness.SentIDs(), (std::vector<WORD>{kMsgViewConnect})) << "observers remain";
  EXPECT_EQ(view().GetRowMap().size(), 1u);

  a.Detach(&view(), TRUE);
  ASSERT_EQ(harness.SentIDs(), (std::vector<WORD>{kMsgViewConnect, kMsgViewDisconnect}));
  const ViewRequest request = Request(1);
  EXPECT_EQ(request.Name, "lgView_Results");
  EXPECT_EQ(request.ViewID, CViewHarness::kViewID);
  EXPECT_EQ(request.Parameters.GetCount(), 0u);
  EXPECT_EQ(harness.Module.Target.Sent[1]->GetFilled(), 4u + 14u + 4u + 4u) << "name, view ID, a count of 0";

  EXPECT_EQ(view().GetName(), "");
  EXPECT_EQ(view().GetParameters().GetCount(), 0u);
  EXPECT_FALSE(view().IsWaitingForAllRows());
  EXPECT_EQ(view().GetColumnCount(), 0u);
  EXPECT_TRUE(view().GetRowMap().empty());
  EXPECT_TRUE(view().GetSortedRows().empty());
  EXPECT_EQ(view().GetStructureRow(), nullptr);
  EXPECT_FALSE(view().CompareParameters(SomeParameters()));
}

TEST_F(RMViewRequests, LastDetachWithoutTellingClearsButSendsNothing) {
  a.Attach(&view());
  a.Detach(&view(), FALSE);
  EXPECT_EQ(harness.SentIDs(), (std::vector<WORD>{kMsgViewConnect}));
  EXPECT_EQ(view().GetName(), "");
  EXPECT_TRUE(a.GetSubjects().empty());
}

TEST_F(RMViewRequests, ObserverThatGoesAwayLeavesItsViewsAndTellsTheDataManager) {
  auto b = std::make_unique<CLoggingViewObserver>(&log, "b");
  b->Attach(&view());
  b.reset();
  EXPECT_TRUE(view().GetObservers().empty());
  EXPECT_EQ(harness.SentIDs(), (std::vector<WORD>{kMsgViewConnect, kMsgViewDisconnect}));
}

TEST_F(RMViewRequests, ViewThatGoesAwayTellsItsObserversWhichForgetIt) {
  CLoggingViewObserver b(&log, "b");
  a.Attach(&view());
  b.Attach(&view());
  harness.View.reset();
  EXPECT_EQ(log, (Lines{"a:removed", "b:removed"}));
  EXPECT_TRUE(a.GetSubjects().empty());
  EXPECT_TRUE(b.GetSubjects().empty());
}

TEST(RMViewAttach, WithoutAModuleTheFirstObserverSendsNothingAndIsStillAttached) {
  CRMView view("lgView_Test", 1, FALSE, FALSE, CParameters(), nullptr, nullptr);
  Lines log;
  CLoggingViewObserver a(&log, "a");
  a.Attach(&view);
  EXPECT_EQ(view.GetObservers().size(), 1u);
  a.Attach(nullptr);
  EXPECT_EQ(a.GetSubjects().size(), 1u) << "null is ignored";
  a.Detach(&view, TRUE);
  EXPECT_TRUE(view.GetObservers().empty());
}

TEST_F(RMViewTest, ObserverAttachedTwiceIsListedOnce) {
  a.Attach(&view());
  a.Attach(&view());
  EXPECT_EQ(view().GetObservers().size(), 1u);
  EXPECT_EQ(a.GetSubjects().size(), 1u);
}

// Late comers.

TEST_F(RMViewTest, SecondObserverGetsStructureAndAllRowsAtOnceAndCausesNoMessage) {
  Loaded(Block({Row(2, 5), Row(1, 3)}));
  CLoggingViewObserver b(&log, "b");
  b.Attach(&view());
  EXPECT_EQ(log, (Lines{"b:structure", "b:data:0:changed=:removed=:sorted=2,1"}));
  EXPECT_EQ(harness.SentIDs(), (std::vector<WORD>{kMsgViewConnect}));
}

TEST_F(RMViewTest, NewObserverBeforeTheStructureGetsNothingUntilTheStructureComes) {
  a.Attach(&view());
  CLoggingViewObserver b(&log, "b");
  b.Attach(&view());
  EXPECT_TRUE(log.empty());
  EXPECT_EQ(harness.SentIDs(), (std::vector<WORD>{kMsgViewConnect}));
  harness.Structure(LapColumns());
  EXPECT_EQ(log, (Lines{"a:structure", "b:structure"}));
}

// Structure.

TEST_F(RMViewTest, StructureBuildsColumnsAndATemplateRowWithOneEmptyCellPerColumn) {
  std::vector<CColumn> columns = LapColumns();
  columns[1].Title = "Name";
  columns[1].Size = 120;
  columns[1].Option = 3;
  columns.push_back(MakeColumn(9, "lgHeader_Unknown"));
  columns.push_back(MakeColumn(kColumnKVTTime, "lgHeader_Time"));
  Live(columns);
  ASSERT_EQ(view().GetColumnCount(), 5u);
  const CColumn* name = view().ColumnGetAt(1);
  ASSERT_NE(name, nullptr);
  EXPECT_EQ(name->Title, "Name");
  EXPECT_EQ(name->Key, "lgHeader_Name");
  EXPECT_EQ(name->Size, 120);
  EXPECT_EQ(name->Option, 3);
  const CRMViewRow* structure = view().GetStructureRow();
  ASSERT_NE(structure, nullptr);
  EXPECT_EQ(structure->RowID, kNoRowID);
  EXPECT_EQ(structure->Cells.size(), 4u) << "a type above 8 makes no cell";
  EXPECT_STREQ(structure->TextAt(3), "-.---");
  EXPECT_TRUE(view().IsWaitingForAllRows());
}

TEST_F(RMViewTest, SecondStructureAppendsColumns) {
  Live();
  harness.Structure({MakeColumn(kColumnDWord, "lgHeader_Pos")});
  EXPECT_EQ(view().GetColumnCount(), 4u);
  EXPECT_EQ(view().ColumnFind("lgHeader_Pos"), 3);
  EXPECT_EQ(view().GetStructureRow()->Cells.size(), 4u);
  EXPECT_EQ(log, (Lines{"a:structure"}));
}

TEST_F(RMViewTest, ColumnGetAtOfNoIndexOrOfTheColumnCountIsNull) {
  Live();
  EXPECT_EQ(view().ColumnGetAt(0xFFFFFFFF), nullptr);
  EXPECT_EQ(view().ColumnGetAt(3), nullptr);
  ASSERT_NE(view().ColumnGetAt(2), nullptr);
  EXPECT_EQ(view().ColumnGetAt(2)->Key, "lgHeader_Class");
}

TEST_F(RMViewTest, ColumnFindMatchesTheKeyByteForByte) {
  Live();
  EXPECT_EQ(view().ColumnFind("lgHeader_Laps"), 0);
  EXPECT_EQ(view().ColumnFind("lgHeader_Class"), 2);
  EXPECT_EQ(view().ColumnFind("lgheader_class"), -1);
  EXPECT_EQ(view().ColumnFind("lgHeader_Class "), -1);
}

TEST_F(RMViewTest, StructureSetsTheSortColumnThatWasNamedBefore) {
  view().SetSortColumn("lgHeader_Class", TRUE);
  EXPECT_EQ(view().GetSortColumnIndex(), -1);
  Live();
  EXPECT_EQ(view().GetSortColumnIndex(), 2);
}

// Reading rules of the row handlers.

TEST_F(RMViewTest, AllRowsStoresEveryRowAndEndsWaiting) {
  Live();
  EXPECT_EQ(harness.AllRows(Block({Row(4, 1, "Ann", "A"), Row(9, 2, "Bob", "B")}, {{1, "One"}})), 0u);
  EXPECT_FALSE(view().IsWaitingForAllRows());
  ASSERT_EQ(view().GetRowMap().size(), 2u);
  const CRMViewRow* bob = view().GetRowMap().at(9);
  EXPECT_EQ(bob->RowID, 9u);
  EXPECT_STREQ(bob->TextAt(0), "2");
  EXPECT_STREQ(bob->TextAt(1), "Bob");
  EXPECT_STREQ(bob->TextAt(2), "B");
  EXPECT_EQ(view().GetGroupNames(), (std::map<DWORD, std::string>{{1, "One"}}));
  EXPECT_TRUE(view().GetChangedRows().empty()) << "emptied after the notification";
}

TEST_F(RMViewTest, AddBeforeTheFirstAllRowsIsIgnoredAndNotRead) {
  Live();
  CModuleMessage* add = ViewEncoder::AddRows(CViewHarness::kViewID, harness.Types, Block({Row(1, 1)}));
  const DWORD body = add->GetFilled() - 4;
  EXPECT_EQ(harness.Feed(&CRMView::OnAddRows, add), body);
  CModuleMessage* modify = ViewEncoder::ModifyRows(CViewHarness::kViewID, harness.Types, Block({Row(1, 1)}));
  const DWORD modifyBody = modify->GetFilled() - 4;
  EXPECT_EQ(harness.Feed(&CRMView::OnModifyRows, modify), modifyBody);
  EXPECT_TRUE(log.empty());
  EXPECT_TRUE(view().GetRowMap().empty());
  EXPECT_TRUE(view().IsWaitingForAllRows());
}

TEST_F(RMViewTest, RemoveBeforeTheFirstAllRowsIsCarriedOut) {
  Live();
  EXPECT_EQ(harness.RemoveRows(Block({Row(1, 1)}, {{3, "Three"}})), 0u);
  EXPECT_EQ(log, (Lines{"a:before:3"}));
  EXPECT_EQ(view().GetGroupNames().size(), 1u) << "the groups of the message were read";
  EXPECT_TRUE(view().IsWaitingForAllRows());
}

TEST_F(RMViewTest, MessageWhileNoObserverIsAttachedIsIgnoredWhole) {
  harness.Structure(LapColumns());
  const ViewRowBlock block = Block({Row(1, 1)}, {{1, "One"}});
  CModuleMessage* all = ViewEncoder::AllRows(CViewHarness::kViewID, harness.Types, block);
  const DWORD body = all->GetFilled() - 4;
  EXPECT_EQ(harness.Feed(&CRMView::OnAllRows, all), body);
  EXPECT_FALSE(view().IsWaitingForAllRows()) << "the waiting flag goes before the observers are looked at";
  EXPECT_EQ(harness.AddRows(block), body);
  EXPECT_EQ(harness.ModifyRows(block), body);
  EXPECT_EQ(harness.RemoveRows(block), body);
  EXPECT_TRUE(view().GetRowMap().empty());
  EXPECT_TRUE(view().GetGroupNames().empty());
}

TEST_F(RMViewTest, ModifyOfAnUnknownRowConsumesItsBytesAndLeavesTheRowMapAlone) {
  Loaded(Block({Row(1, 1, "Ann"), Row(2, 2, "Bob")}));
  const CRMViewRow* ann = view().GetRowMap().at(1);
  EXPECT_EQ(harness.ModifyRows(Block({Row(99, 7, "Nobody", "X"), Row(2, 5, "Bobby", "B")})), 0u);
  EXPECT_EQ(view().GetRowMap().size(), 2u);
  EXPECT_EQ(view().GetRowMap().count(99), 0u);
  EXPECT_EQ(view().GetRowMap().at(1), ann);
  EXPECT_STREQ(view().GetRowMap().at(2)->TextAt(1), "Bobby");
  EXPECT_STREQ(view().GetRowMap().at(2)->TextAt(0), "5");
  EXPECT_EQ(log, (Lines{"a:before:2", "a:data:2:changed=2:removed=:sorted=1,2"}));
}

TEST_F(RMViewTest, RemoveOfAnUnknownRowConsumesItsBytes) {
  Loaded(Block({Row(1, 1), Row(2, 2)}));
  EXPECT_EQ(harness.RemoveRows(Block({Row(99, 7, "Nobody"), Row(2, 2)})), 0u);
  EXPECT_EQ(harness.SortedIDs(), (std::vector<DWORD>{1}));
  EXPECT_EQ(view().GetRowMap().count(2), 0u);
  EXPECT_EQ(log, (Lines{"a:before:3", "a:data:3:changed=:removed=2:sorted=1"}));
  EXPECT_TRUE(view().GetRemovedRows().empty()) << "removed rows are destroyed after the notification";
}

TEST_F(RMViewTest, RemovedRowReadsItsBodyBeforeItGoes) {
  Loaded(Block({Row(1, 1, "Ann")}));
  std::string seen;
  a.AfterData = [&](int type, CRMView* view) {
    if (type == kNotifyRowsRemoved) seen = view->GetRemovedRows().at(0)->TextAt(1);
  };
  harness.RemoveRows(Block({Row(1, 1, "Gone")}));
  EXPECT_EQ(seen, "Gone");
}

TEST_F(RMViewTest, AddUnderAKnownIDPutsTheNewRowInTheMapAndKeepsTheOldOneShown) {
  Loaded(Block({Row(1, 5, "Old")}));
  CRMViewRow* old = view().GetRowMap().at(1);
  harness.AddRows(Block({Row(1, 6, "New")}));
  EXPECT_NE(view().GetRowMap().at(1), old);
  EXPECT_STREQ(view().GetRowMap().at(1)->TextAt(1), "New");
  ASSERT_EQ(view().GetSortedRows().size(), 2u);
  EXPECT_EQ(view().GetSortedRows()[0], old);
  EXPECT_STREQ(view().GetSortedRows()[0]->TextAt(1), "Old");
  harness.RemoveRows(Block({Row(1, 6)}));
  EXPECT_EQ(view().GetSortedRows(), (std::vector<CRMViewRow*>{old}));
  // The old row lives until the view is cleared; the sanitizer build sees it freed then.
  a.Detach(&view(), TRUE);
  EXPECT_TRUE(view().GetSortedRows().empty());
}

TEST_F(RMViewTest, ViewWithNoSortColumnKeepsArrivalOrder) {
  Loaded(Block({Row(3, 1, "C"), Row(1, 9, "A"), Row(2, 5, "B")}));
  EXPECT_EQ(harness.SortedIDs(), (std::vector<DWORD>{3, 1, 2}));
  harness.AddRows(Block({Row(5, 0), Row(4, 7)}));
  harness.ModifyRows(Block({Row(1, -4, "Z"), Row(3, 100, "0")}));
  EXPECT_EQ(harness.SortedIDs(), (std::vector<DWORD>{3, 1, 2, 5, 4}));
}

// Order of notifications.

TEST_F(RMViewTest, AllRowsTellsBeforeAndThenDataToEveryObserverInTurn) {
  CLoggingViewObserver b(&log, "b");
  view().SetSortColumn("lgHeader_Laps", TRUE);
  Live();
  b.Attach(&view());
  log.clear();
  harness.AllRows(Block({Row(1, 9), Row(2, 3)}));
  EXPECT_EQ(log, (Lines{"a:before:0", "b:before:0", "a:data:0:changed=2,1:removed=:sorted=2,1",
                        "b:data:0:changed=2,1:removed=:sorted=2,1"}));
}

TEST_F(RMViewTest, AddTellsBeforeAndDataOfTypeOneWithTheSortedNewRows) {
  view().SetSortColumn("lgHeader_Laps", TRUE);
  Loaded(Block({Row(1, 2), Row(2, 4)}));
  harness.AddRows(Block({Row(5, 5), Row(3, 3), Row(4, 1)}));
  EXPECT_EQ(log, (Lines{"a:before:1", "a:data:1:changed=4,3,5:removed=:sorted=4,1,3,2,5"}));
}

TEST_F(RMViewTest, ModifyTellsTheChangedRowsSorted) {
  view().SetSortColumn("lgHeader_Laps", TRUE);
  Loaded(Block({Row(1, 1), Row(2, 2), Row(3, 3)}));
  harness.ModifyRows(Block({Row(1, 9), Row(3, 0)}));
  EXPECT_EQ(log, (Lines{"a:before:2", "a:data:2:changed=3,1:removed=:sorted=3,2,1"}));
}

TEST_F(RMViewTest, ModifyOfOnlyUnknownRowsTellsBeforeButNoData) {
  Loaded(Block({Row(1, 1)}));
  harness.ModifyRows(Block({Row(8, 1)}));
  EXPECT_EQ(log, (Lines{"a:before:2"}));
}

TEST_F(RMViewTest, RemoveTellsBeforeThenTheRemovedRowsAndDestroysThem) {
  CLoggingViewObserver b(&log, "b");
  Loaded(Block({Row(1, 1), Row(2, 2), Row(3, 3)}));
  b.Attach(&view());
  log.clear();
  harness.RemoveRows(Block({Row(2, 2), Row(1, 1)}));
  EXPECT_EQ(log, (Lines{"a:before:3", "b:before:3", "a:data:3:changed=:removed=2,1:sorted=3",
                        "b:data:3:changed=:removed=2,1:sorted=3"}));
  EXPECT_TRUE(view().GetRemovedRows().empty());
  EXPECT_EQ(view().GetRowMap().size(), 1u);
}

// Group rows.

TEST_F(RMViewGrouped, SpacerAndHeadGoBeforeEachGroupsFirstRow) {
  view().SetSortColumn("lgHeader_Laps", TRUE);
  Live();
  harness.AllRows(
      Block({Row(1, 5, "", "", 10), Row(2, 1, "", "", 20), Row(3, 7, "", "", 10)}, {{10, "Ten"}, {20, "Twenty"}}));
  EXPECT_EQ(log, (Lines{"a:before:0", "a:data:0:changed=2,1,3,g,g,g,g:removed=:sorted=g,g,2,g,g,1,3"}));
  const std::vector<CRMViewRow*>& sorted = view().GetSortedRows();
  ASSERT_EQ(sorted.size(), 7u);
  EXPECT_EQ(sorted[0]->GroupID, kNoRowID) << "spacer";
  EXPECT_EQ(sorted[1]->GroupID, 20u) << "head";
  EXPECT_EQ(sorted[3]->GroupID, kNoRowID);
  EXPECT_EQ(sorted[4]->GroupID, 10u);
  EXPECT_EQ(view().GetGroupRows().size(), 4u);
  EXPECT_EQ(sorted[1]->Cells.size(), 3u) << "group rows have the structure's cells";
}

TEST_F(RMViewGrouped, SurplusGroupRowsGoToTheRemovedListAndAreToldAsRemoved) {
  view().SetSortColumn("lgHeader_Laps", TRUE);
  Live();
  harness.AllRows(
      Block({Row(1, 5, "", "", 10), Row(2, 1, "", "", 20), Row(3, 7, "", "", 10)}, {{10, "Ten"}, {20, "Twenty"}}));
  log.clear();
  // One group left: two group rows go. Row 2's group has no name, so it has no head;
  // row 1 starts another run of group 10, but no group rows are left for it.
  harness.ModifyRows(Block({Row(3, 0, "", "", 10)}, {{10, "Ten"}}));
  EXPECT_EQ(log, (Lines{"a:before:2", "a:data:2:changed=3,g,g:removed=g,g:sorted=g,g,3,2,1",
                        "a:data:3:changed=:removed=g,g:sorted=g,g,3,2,1"}));
  EXPECT_EQ(view().GetGroupRows().size(), 2u);
  EXPECT_TRUE(view().GetRemovedRows().empty());
}

TEST_F(RMViewGrouped, GroupRowsRemovedByAnAddWaitForTheNextRemoval) {
  Live();
  harness.AllRows(Block({Row(1, 1, "", "", 10), Row(2, 1, "", "", 20)}, {{10, "Ten"}, {20, "Twenty"}}));
  log.clear();
  harness.AddRows(Block({Row(3, 1, "", "", 10)}, {{10, "Ten"}}));
  EXPECT_EQ(log, (Lines{"a:before:1", "a:data:1:changed=3,g,g:removed=g,g:sorted=g,g,1,2,3"}));
  EXPECT_EQ(view().GetRemovedRows().size(), 2u);
  log.clear();
  harness.RemoveRows(Block({Row(2, 1, "", "", 20)}, {{10, "Ten"}}));
  EXPECT_EQ(log, (Lines{"a:before:3", "a:data:2:changed=g,g:removed=g,g,2:sorted=g,g,1,3",
                        "a:data:3:changed=:removed=g,g,2:sorted=g,g,1,3"}));
  EXPECT_TRUE(view().GetRemovedRows().empty());
}

TEST_F(RMViewGrouped, MessageWithoutGroupNamesLeavesTheGroupRowsOut) {
  Live();
  harness.AllRows(Block({Row(1, 1, "", "", 10)}, {{10, "Ten"}}));
  EXPECT_EQ(harness.SortedIDs(), (std::vector<DWORD>{kNoRowID, kNoRowID, 1}));
  log.clear();
  harness.ModifyRows(Block({Row(1, 2, "", "", 10)}));
  EXPECT_EQ(log, (Lines{"a:before:2", "a:data:2:changed=1:removed=:sorted=1"}));
  EXPECT_EQ(view().GetGroupRows().size(), 2u) << "kept in their own list";
}

TEST_F(RMViewTest, UngroupedViewMakesNoGroupRows) {
  Live();
  harness.AllRows(Block({Row(1, 1, "", "", 10)}, {{10, "Ten"}}));
  EXPECT_EQ(harness.SortedIDs(), (std::vector<DWORD>{1}));
  EXPECT_TRUE(view().GetGroupRows().empty());
}

// The filter of a private view.

namespace {

struct FilterCase {
  EFilterMode Mode;
  BOOL Contains;
  std::vector<DWORD> Shown;
  // After row 2's class becomes "Open" and row 1's becomes "X".
  std::vector<DWORD> ShownAfterChange;
};

class RMViewFilter : public ::testing::TestWithParam<FilterCase> {
 protected:
  RMViewFilter() : harness("lgView_Test", TRUE, FALSE) {}
  CViewHarness harness;
  Lines log;
  CLoggingViewObserver a{&log, "a"};
};

}  // namespace

TEST_P(RMViewFilter, HidesAndShowsRowsByTheModesRule) {
  const FilterCase& c = GetParam();
  CRMView& view = *harness.View;
  view.SetFilter(TRUE, c.Contains, c.Mode, {"lgHeader_Class"}, {"Open"});
  a.Attach(&view);
  harness.Structure(LapColumns());
  harness.AllRows(Block({Row(1, 1, "Ann", "Open"), Row(2, 2, "Bob", "Junior"), Row(3, 3, "Carl", "open class")}));
  EXPECT_EQ(harness.SortedIDs(), c.Shown);
  EXPECT_EQ(view.GetRowMap().size(), 3u) << "hidden rows stay in the row map";
  harness.ModifyRows(Block({Row(2, 2, "Bob", "Open"), Row(1, 1, "Ann", "X")}));
  EXPECT_EQ(harness.SortedIDs(), c.ShownAfterChange);
}

INSTANTIATE_TEST_SUITE_P(Modes, RMViewFilter,
                         ::testing::Values(
                             // 0: hidden as soon as one text differs; contains compares whole texts too.
                             FilterCase{EFilterMode::ShowOnlyMatchingAll, FALSE, {1}, {2}},
                             FilterCase{EFilterMode::ShowOnlyMatchingAll, TRUE, {1}, {2}},
                             // 1: shown when a text matches; contains finds "OPEN" in "open class".
                             FilterCase{EFilterMode::ShowIfAnyMatches, FALSE, {1}, {2}},
                             FilterCase{EFilterMode::ShowIfAnyMatches, TRUE, {1, 3}, {3, 2}},
                             // 2: shown when a text differs; contains shows where the value is not found.
                             FilterCase{EFilterMode::ShowIfAnyDiffers, FALSE, {2, 3}, {3, 1}},
                             FilterCase{EFilterMode::ShowIfAnyDiffers, TRUE, {2}, {1}},
                             // 3: hidden as soon as one text matches, whole texts either way.
                             FilterCase{EFilterMode::HideIfAnyMatches, FALSE, {2, 3}, {3, 1}},
                             FilterCase{EFilterMode::HideIfAnyMatches, TRUE, {2, 3}, {3, 1}}));

TEST(RMViewFilterRules, RowShownAgainIsAppendedBehindTheSortedRowsAndTold) {
  CViewHarness harness("lgView_Test", TRUE, FALSE);
  Lines log;
  CLoggingViewObserver a(&log, "a");
  CRMView& view = *harness.View;
  view.SetSortColumn("lgHeader_Laps", TRUE);
  view.SetFilter(TRUE, FALSE, EFilterMode::ShowOnlyMatchingAll, {"lgHeader_Class"}, {"Open"});
  a.Attach(&view);
  harness.Structure(LapColumns());
  harness.AllRows(Block({Row(1, 5, "", "Open"), Row(2, 1, "", "Junior"), Row(3, 9, "", "Open")}));
  EXPECT_EQ(harness.SortedIDs(), (std::vector<DWORD>{1, 3}));
  log.clear();
  harness.ModifyRows(Block({Row(2, 1, "", "Open")}));
  EXPECT_EQ(log, (Lines{"a:before:2", "a:data:2:changed=2:removed=:sorted=1,3,2"}))
      << "the filter comes after the sort";
  harness.ModifyRows(Block({Row(3, 9, "", "Open")}));
  EXPECT_EQ(harness.SortedIDs(), (std::vector<DWORD>{2, 1, 3}));
}

TEST(RMViewFilterRules, FilterColumnTheViewLacksIsSkipped) {
  CViewHarness harness("lgView_Test", TRUE, FALSE);
  Lines log;
  CLoggingViewObserver a(&log, "a");
  CRMView& view = *harness.View;
  view.SetFilter(TRUE, FALSE, EFilterMode::ShowOnlyMatchingAll, {"lgHeader_Missing", "lgHeader_Class"},
                 {"nothing matches this", "Open"});
  a.Attach(&view);
  harness.Structure(LapColumns());
  harness.AllRows(Block({Row(1, 1, "", "Open"), Row(2, 1, "", "Junior")}));
  EXPECT_EQ(harness.SortedIDs(), (std::vector<DWORD>{1}));
}

TEST(RMViewFilterRules, AnyOfSeveralColumnsCanShowARow) {
  CViewHarness harness("lgView_Test", TRUE, FALSE);
  Lines log;
  CLoggingViewObserver a(&log, "a");
  CRMView& view = *harness.View;
  view.SetFilter(TRUE, FALSE, EFilterMode::ShowIfAnyMatches, {"lgHeader_Class", "lgHeader_Name"}, {"Junior", "Carl"});
  a.Attach(&view);
  harness.Structure(LapColumns());
  harness.AllRows(Block({Row(1, 1, "Ann", "Open"), Row(2, 2, "Bob", "Junior"), Row(3, 3, "Carl", "Open")}));
  EXPECT_EQ(harness.SortedIDs(), (std::vector<DWORD>{2, 3}));
}

TEST(RMViewFilterRules, SharedViewOrFilterOffShowsEveryRow) {
  for (BOOL isPrivate : {FALSE, TRUE}) {
    CViewHarness harness("lgView_Test", isPrivate, FALSE);
    Lines log;
    CLoggingViewObserver a(&log, "a");
    CRMView& view = *harness.View;
    view.SetFilter(isPrivate ? FALSE : TRUE, FALSE, EFilterMode::ShowOnlyMatchingAll, {"lgHeader_Class"}, {"Open"});
    a.Attach(&view);
    harness.Structure(LapColumns());
    harness.AllRows(Block({Row(1, 1, "", "Open"), Row(2, 2, "", "Junior")}));
    EXPECT_EQ(harness.SortedIDs(), (std::vector<DWORD>{1, 2})) << "private " << isPrivate;
  }
}

// Observers that leave during a notification.

namespace {

struct RMViewObserverWalk : ::testing::Test {
  RMViewObserverWalk() {
    for (const char* name : {"a", "b", "c"}) {
      observers.push_back(std::make_unique<CLoggingViewObserver>(&log, name));
      observers.back()->Attach(&view());
    }
    harness.Structure(LapColumns());
    harness.AllRows(Block({Row(1, 1)}));
    log.clear();
  }
  CRMView& view() { return *harness.View; }
  CLoggingViewObserver& at(int i) { return *observers[static_cast<std::size_t>(i)]; }

  CViewHarness harness;
  Lines log;
  std::vector<std::unique_ptr<CLoggingViewObserver>> observers;
};

// Leaves the view from inside OnNotifyBeforeData.
class CLeavingBeforeDataObserver : public CRMViewObserver {
 public:
  explicit CLeavingBeforeDataObserver(Lines* log) : Log(log) {}
  void OnNotifyBeforeData(int type, CRMView* view) override {
    Log->push_back("leaving:before:" + std::to_string(type));
    Detach(view, TRUE);
  }
  void OnNotifyData(int type, CRMView* view) override {
    (void)view;
    Log->push_back("leaving:data:" + std::to_string(type));
  }
  Lines* Log;
};

}  // namespace

TEST_F(RMViewObserverWalk, ObserverThatDetachesItselfDoesNotMakeTheWalkSkipAnyone) {
  at(0).AfterData = [&](int, CRMView* view) { at(0).Detach(view, TRUE); };
  harness.ModifyRows(Block({Row(1, 2)}));
  EXPECT_EQ(log, (Lines{"a:before:2", "b:before:2", "c:before:2", "a:data:2:changed=1:removed=:sorted=1",
                        "b:data:2:changed=1:removed=:sorted=1", "c:data:2:changed=1:removed=:sorted=1"}));
  log.clear();
  harness.ModifyRows(Block({Row(1, 3)}));
  EXPECT_EQ(log, (Lines{"b:before:2", "c:before:2", "b:data:2:changed=1:removed=:sorted=1",
                        "c:data:2:changed=1:removed=:sorted=1"}));
}

TEST_F(RMViewObserverWalk, ObserverThatDetachesAnEarlierOneDoesNotMakeTheWalkRepeatAnyone) {
  at(1).AfterData = [&](int, CRMView* view) { at(0).Detach(view, TRUE); };
  harness.ModifyRows(Block({Row(1, 2)}));
  EXPECT_EQ(log, (Lines{"a:before:2", "b:before:2", "c:before:2", "a:data:2:changed=1:removed=:sorted=1",
                        "b:data:2:changed=1:removed=:sorted=1", "c:data:2:changed=1:removed=:sorted=1"}));
  EXPECT_EQ(view().GetObservers().size(), 2u);
}

TEST_F(RMViewObserverWalk, ObserverThatDetachesALaterOneSkipsOnlyThatOne) {
  at(0).AfterData = [&](int, CRMView* view) { at(1).Detach(view, TRUE); };
  harness.ModifyRows(Block({Row(1, 2)}));
  EXPECT_EQ(log, (Lines{"a:before:2", "b:before:2", "c:before:2", "a:data:2:changed=1:removed=:sorted=1",
                        "c:data:2:changed=1:removed=:sorted=1"}));
}

TEST_F(RMViewObserverWalk, ObserverDestroyedByAnotherDuringTheWalkIsNotReadAgain) {
  at(1).AfterData = [&](int, CRMView*) {
    observers[0].reset();
    observers[2].reset();
  };
  harness.ModifyRows(Block({Row(1, 2)}));
  EXPECT_EQ(log, (Lines{"a:before:2", "b:before:2", "c:before:2", "a:data:2:changed=1:removed=:sorted=1",
                        "b:data:2:changed=1:removed=:sorted=1"}));
  EXPECT_EQ(view().GetObservers(), (std::vector<CRMViewObserver*>{observers[1].get()}));
}

TEST_F(RMViewObserverWalk, LastObserverLeavingDuringTheWalkClearsTheViewAndTheHandlerEndsCleanly) {
  at(0).AfterData = [&](int, CRMView* view) {
    at(0).Detach(view, TRUE);
    at(1).Detach(view, TRUE);
  };
  at(2).AfterData = [&](int, CRMView* view) { at(2).Detach(view, TRUE); };
  harness.ModifyRows(Block({Row(1, 4)}));
  EXPECT_EQ(log, (Lines{"a:before:2", "b:before:2", "c:before:2", "a:data:2:changed=1:removed=:sorted=1",
                        "c:data:2:changed=1:removed=:sorted=1"}));
  EXPECT_TRUE(view().GetObservers().empty());
  EXPECT_TRUE(view().GetRowMap().empty());
  EXPECT_TRUE(view().GetSortedRows().empty());
  EXPECT_TRUE(view().GetChangedRows().empty());
  EXPECT_EQ(view().GetName(), "");
  EXPECT_EQ(harness.SentIDs(), (std::vector<WORD>{kMsgViewConnect, kMsgViewDisconnect}));
}

TEST_F(RMViewGrouped, LastObserverLeavingWhileChangedRowsAreToldFreesTheRemovedRowsWithTheView) {
  Live();
  harness.AllRows(Block({Row(1, 1, "", "", 10), Row(2, 1, "", "", 20)}, {{10, "Ten"}, {20, "Twenty"}}));
  a.AfterData = [&](int type, CRMView* view) {
    if (type == kNotifyRowsChanged) a.Detach(view, TRUE);
  };
  log.clear();
  harness.RemoveRows(Block({Row(2, 1, "", "", 20)}, {{10, "Ten"}}));
  EXPECT_EQ(log, (Lines{"a:before:3", "a:data:2:changed=g,g:removed=2,g,g:sorted=g,g,1"}))
      << "the view was let go before the removed rows were told";
  EXPECT_TRUE(view().GetRemovedRows().empty());
  EXPECT_TRUE(view().GetGroupRows().empty());
  EXPECT_TRUE(view().GetRowMap().empty());
  EXPECT_EQ(harness.SentIDs().back(), kMsgViewDisconnect);
}

TEST(RMViewObserverLeaving, LastObserverLeavingBeforeTheDataStopsTheMessage) {
  CViewHarness harness;
  Lines log;
  CLeavingBeforeDataObserver leaving(&log);
  leaving.Attach(harness.View.get());
  harness.Structure(LapColumns());
  EXPECT_NE(harness.AllRows(Block({Row(1, 1)})), 0u) << "the rows are not read";
  EXPECT_EQ(log, (Lines{"leaving:before:0"}));
  EXPECT_TRUE(harness.View->GetRowMap().empty());
  EXPECT_TRUE(harness.View->GetSortedRows().empty());
  EXPECT_EQ(harness.SentIDs(), (std::vector<WORD>{kMsgViewConnect, kMsgViewDisconnect}));
}

TEST(RMViewObserverLeaving, RemovedRowsLeftWhenTheViewIsLetGoAreFreed) {
  CViewHarness harness("lgView_Test", FALSE, TRUE);
  Lines log;
  CLoggingViewObserver a(&log, "a");
  a.Attach(harness.View.get());
  harness.Structure(LapColumns());
  harness.AllRows(Block({Row(1, 1, "", "", 10), Row(2, 1, "", "", 20)}, {{10, "Ten"}, {20, "Twenty"}}));
  harness.AddRows(Block({Row(3, 1, "", "", 10)}, {{10, "Ten"}}));
  ASSERT_EQ(harness.View->GetRemovedRows().size(), 2u);
  a.Detach(harness.View.get(), TRUE);
  EXPECT_TRUE(harness.View->GetRemovedRows().empty());
  EXPECT_TRUE(harness.View->GetGroupRows().empty());
}

// Failures.

namespace {

// The message cut short by `missing` bytes.
CModuleMessage* Shortened(CModuleMessage* message, DWORD missing) {
  std::unique_ptr<CModuleMessage> full(message);
  auto* cut = new CModuleMessage(full->ID, full->TargetClass, full->TargetInstance, full->TargetComputer);
  cut->Assign(full->GetData(), full->GetFilled() - missing);
  return cut;
}

}  // namespace

TEST(RMViewFailure, MessageThatEndsEarlyThrowsWithTheViewsNameAndTheViewStaysUsable) {
  CViewHarness harness("lgView_Results");
  Lines log;
  CLoggingViewObserver a(&log, "a");
  CRMView& view = *harness.View;
  view.SetSortColumn("lgHeader_Laps", TRUE);
  a.Attach(&view);
  harness.Structure(LapColumns());
  harness.AllRows(Block({Row(1, 1, "Ann"), Row(2, 2, "Bob"), Row(3, 3, "Carl")}));
  log.clear();

  CModuleMessage* cut = Shortened(
      ViewEncoder::ModifyRows(CViewHarness::kViewID, harness.Types, Block({Row(1, 9), Row(2, 8, "Bobby")})), 3);
  auto failure = CatchKVT([&] { harness.Feed(&CRMView::OnModifyRows, cut); });
  ASSERT_NE(failure, nullptr);
  const std::vector<std::string>& trail = failure->GetTrail();
  ASSERT_FALSE(trail.empty());
  EXPECT_EQ(trail.back(), "CRMView::OnModifyRows(lgView_Results)");
  EXPECT_NE(std::find(trail.begin(), trail.end(), "CRMViewRow::MessageToViewRow()"), trail.end());
  EXPECT_TRUE(view.GetChangedRows().empty());
  EXPECT_EQ(log, (Lines{"a:before:2"}));
  log.clear();

  harness.ModifyRows(Block({Row(2, 0, "Bob")}));
  EXPECT_EQ(log, (Lines{"a:before:2", "a:data:2:changed=2:removed=:sorted=2,3,1"}));
  harness.AddRows(Block({Row(4, 4, "Dan")}));
  EXPECT_EQ(harness.SortedIDs(), (std::vector<DWORD>{2, 3, 4, 1}));
  EXPECT_STREQ(view.GetRowMap().at(2)->TextAt(1), "Bob");
}

TEST(RMViewFailure, EveryRowHandlerNamesTheViewInItsTrail) {
  CViewHarness harness("lgView_Laps");
  Lines log;
  CLoggingViewObserver a(&log, "a");
  a.Attach(harness.View.get());
  harness.Structure(LapColumns());
  const ViewRowBlock block = Block({Row(1, 1, "Ann")});
  struct Case {
    void (CRMView::*Handler)(CTTBuffer&);
    CModuleMessage* (*Make)(DWORD, const std::vector<BYTE>&, const ViewRowBlock&);
    const char* Label;
  };
  const Case cases[] = {{&CRMView::OnAllRows, &ViewEncoder::AllRows, "CRMView::OnAllRows(lgView_Laps)"},
                        {&CRMView::OnAddRows, &ViewEncoder::AddRows, "CRMView::OnAddRows(lgView_Laps)"},
                        {&CRMView::OnModifyRows, &ViewEncoder::ModifyRows, "CRMView::OnModifyRows(lgView_Laps)"},
                        {&CRMView::OnRemoveRows, &ViewEncoder::RemoveRows, "CRMView::OnRemoveRows(lgView_Laps)"}};
  for (const Case& c : cases) {
    auto failure =
        CatchKVT([&] { harness.Feed(c.Handler, Shortened(c.Make(CViewHarness::kViewID, harness.Types, block), 1)); });
    ASSERT_NE(failure, nullptr) << c.Label;
    EXPECT_EQ(failure->GetTrail().back(), c.Label);
    if (c.Handler == &CRMView::OnAllRows) harness.AllRows(block);
  }
  EXPECT_EQ(harness.View->GetRowMap().size(), 1u);
}

TEST(RMViewFailure, ColumnCountOfTwoBillionFailsAtTheEndOfTheMessageWithoutAllocating) {
  CViewHarness harness;
  Lines log;
  CLoggingViewObserver a(&log, "a");
  a.Attach(harness.View.get());
  auto* message = new CModuleMessage(kMsgViewConnect, kDataManagerClass, 0, 0);
  *message << CViewHarness::kViewID << 2000000000;
  ViewEncoder::WriteColumn(*message, MakeColumn(kColumnString, "lgHeader_Name"));
  auto failure = CatchKVT([&] { harness.Feed(&CRMView::MessageToViewStructure, message); });
  ASSERT_NE(failure, nullptr);
  EXPECT_EQ(failure->GetTrail().back(), "CRMView::MessageToViewStructure()");
  EXPECT_EQ(harness.View->GetColumnCount(), 0u) << "a structure that failed is not taken in part";
  EXPECT_EQ(harness.View->GetStructureRow(), nullptr);
  EXPECT_TRUE(log.empty());
  harness.Structure(LapColumns());
  EXPECT_EQ(harness.View->GetColumnCount(), 3u);
  EXPECT_EQ(log, (Lines{"a:structure"}));
}

TEST(RMViewFailure, RowAndGroupCountsBeyondTheMessageFailWithoutAllocating) {
  CViewHarness harness;
  Lines log;
  CLoggingViewObserver a(&log, "a");
  a.Attach(harness.View.get());
  harness.Structure(LapColumns());
  auto* rows = new CModuleMessage(kMsgAllRows, kDataManagerClass, 0, 0);
  *rows << CViewHarness::kViewID << DWORD{0} << DWORD{0xFFFFFFF0};
  EXPECT_NE(CatchKVT([&] { harness.Feed(&CRMView::OnAllRows, rows); }), nullptr);
  auto* groups = new CModuleMessage(kMsgAllRows, kDataManagerClass, 0, 0);
  *groups << CViewHarness::kViewID << DWORD{0xFFFFFFF0};
  EXPECT_NE(CatchKVT([&] { harness.Feed(&CRMView::OnModifyRows, groups); }), nullptr);
  EXPECT_TRUE(harness.View->GetRowMap().empty());
  harness.AllRows(Block({Row(1, 1)}));
  EXPECT_EQ(harness.SortedIDs(), (std::vector<DWORD>{1}));
}

TEST(RMViewParameters, CompareParametersComparesTheWholeTable) {
  CViewHarness harness("lgView_Results", FALSE, FALSE, SomeParameters());
  EXPECT_TRUE(harness.View->CompareParameters(SomeParameters()));
  CParameters other = SomeParameters();
  other.Add("run", "3");
  EXPECT_FALSE(harness.View->CompareParameters(other));
  EXPECT_FALSE(harness.View->CompareParameters(CParameters()));
}
