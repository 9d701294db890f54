// The sort rules of a view: one per column key and type, the direction, the rule for
// equal values and the second key of a string column.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "data/DataEncoder.h"
#include "data/DataTestSupport.h"
#include "testing/ViewTestSupport.h"
#include "views/RMView.h"

namespace {

// A view with one observer, sorted on `key` before its structure comes, and loaded with
// `rows` in one all-rows message.
struct CSortedView {
  CSortedView(const std::string& name, const std::vector<CColumn>& columns, const std::string& key, BOOL ascending,
              const std::vector<ViewRowValues>& rows, CRMData* data = nullptr)
      : harness(name, FALSE, FALSE, CParameters(), data) {
    harness.View->SetSortColumn(key, ascending);
    observer.Attach(harness.View.get());
    harness.Structure(columns);
    ViewRowBlock block;
    block.Rows = rows;
    harness.AllRows(block);
    for (const ViewRowValues& row : rows) arrival.push_back(harness.View->GetRowMap().at(row.RowID));
  }
  std::vector<DWORD> IDs() const { return harness.SortedIDs(); }
  // The rows in arrival order, sorted by their address.
  std::vector<CRMViewRow*> ByAddress() const {
    std::vector<CRMViewRow*> rows = arrival;
    std::sort(rows.begin(), rows.end(), std::less<CRMViewRow*>());
    return rows;
  }
  // The rows in arrival order after the standard sort with a rule under which no row
  // ever goes first: the order the sort itself leaves equal values in.
  std::vector<CRMViewRow*> AsTheSortLeavesTies() const {
    std::vector<CRMViewRow*> rows = arrival;
    std::sort(rows.begin(), rows.end(), [](const CRMViewRow*, const CRMViewRow*) { return false; });
    return rows;
  }

  CViewHarness harness;
  std::vector<std::string> log;
  CLoggingViewObserver observer{&log, "o"};
  std::vector<CRMViewRow*> arrival;
};

std::vector<ViewRowValues> OneColumnRows(const std::vector<ViewCellValue>& values, DWORD firstID = 1) {
  std::vector<ViewRowValues> rows;
  for (std::size_t i = 0; i < values.size(); ++i) {
    rows.push_back(MakeRowValues(firstID + static_cast<DWORD>(i), {values[i]}));
  }
  return rows;
}

std::vector<ViewCellValue> Texts(const std::vector<std::string>& texts) {
  std::vector<ViewCellValue> values;
  for (const std::string& text : texts) values.push_back(TextValue(text));
  return values;
}

}  // namespace

TEST(RMViewSort, UnknownSortColumnLeavesTheRowsInArrivalOrder) {
  CSortedView view("lgView_Test", {MakeColumn(kColumnInteger, "lgHeader_Laps")}, "lgHeader_Nothing", TRUE,
                   OneColumnRows({IntegerValue(3), IntegerValue(1), IntegerValue(2)}));
  EXPECT_EQ(view.harness.View->GetSortColumnIndex(), -1);
  EXPECT_EQ(view.IDs(), (std::vector<DWORD>{1, 2, 3}));
}

TEST(RMViewSort, DiffColumnKeepsTheOrderOfArrival) {
  for (BOOL ascending : {TRUE, FALSE}) {
    CSortedView view("lgView_Test", {MakeColumn(kColumnKVTDiff, "lgHeader_Gap")}, "lgHeader_Gap", ascending,
                     OneColumnRows({TimeValue(3000000), TimeValue(1000000), TimeValue(2000000), TimeValue(-5)}));
    EXPECT_EQ(view.IDs(), (std::vector<DWORD>{1, 2, 3, 4})) << "ascending " << ascending;
    view.harness.AddRows(ViewRowBlock{{}, OneColumnRows({TimeValue(0)}, 5)});
    EXPECT_EQ(view.IDs(), (std::vector<DWORD>{1, 2, 3, 4, 5}));
  }
}

TEST(RMViewSort, DoubleColumnOrdersAscendingRowsOnlyByTheirAddress) {
  CSortedView view("lgView_Test", {MakeColumn(kColumnDouble, "lgHeader_Speed")}, "lgHeader_Speed", TRUE,
                   OneColumnRows({RealValue(3.5), RealValue(1.25), RealValue(2.0), RealValue(-7.0), RealValue(9.0),
                                  RealValue(0.5)}));
  EXPECT_EQ(view.harness.View->GetSortedRows(), view.ByAddress());
}

TEST(RMViewSort, DescendingSortWithEqualValuesGivesTheUnstableSortsOwnOrder) {
  // More rows than the standard sort leaves to its final insertion pass.
  std::vector<ViewCellValue> same(40, IntegerValue(7));
  CSortedView view("lgView_Test", {MakeColumn(kColumnInteger, "lgHeader_Laps")}, "lgHeader_Laps", FALSE,
                   OneColumnRows(same));
  ASSERT_NE(view.AsTheSortLeavesTies(), view.arrival) << "the sort moves equal values, or this test shows nothing";
  EXPECT_EQ(view.harness.View->GetSortedRows(), view.AsTheSortLeavesTies());
  EXPECT_NE(view.harness.View->GetSortedRows(), view.ByAddress());

  std::vector<ViewCellValue> reals;
  for (int i = 0; i < 40; ++i) reals.push_back(RealValue(i * 1.5));
  CSortedView doubles("lgView_Test", {MakeColumn(kColumnDouble, "lgHeader_Speed")}, "lgHeader_Speed", FALSE,
                      OneColumnRows(reals));
  EXPECT_EQ(doubles.harness.View->GetSortedRows(), doubles.AsTheSortLeavesTies());
}

TEST(RMViewSort, AscendingEqualValuesGoByAddress) {
  CSortedView view("lgView_Test", {MakeColumn(kColumnInteger, "lgHeader_Laps")}, "lgHeader_Laps", TRUE,
                   OneColumnRows({IntegerValue(2), IntegerValue(1), IntegerValue(2), IntegerValue(1), IntegerValue(2),
                                  IntegerValue(1)}));
  std::vector<CRMViewRow*> ones;
  std::vector<CRMViewRow*> twos;
  for (CRMViewRow* row : view.ByAddress()) (row->RowID % 2 == 0 ? ones : twos).push_back(row);
  ones.insert(ones.end(), twos.begin(), twos.end());
  EXPECT_EQ(view.harness.View->GetSortedRows(), ones);
}

TEST(RMViewSort, PointsTextSortsByItsDigitsSoTwelveAndAHalfGoesAboveNinetyNine) {
  CSortedView view("lgView_Test", {MakeColumn(kColumnString, "lgHeader_Points")}, "lgHeader_Points", TRUE,
                   OneColumnRows(Texts({"12.5", "99", "100"})));
  EXPECT_EQ(view.IDs(), (std::vector<DWORD>{2, 3, 1})) << "12.5 counts as 125";
}

TEST(RMViewSort, NumberColumnsSortByTheDigitsOfTheirTextWhateverTheirType) {
  CSortedView numbers("lgView_Test", {MakeColumn(kColumnString, "lgHeader_No")}, "lgHeader_No", TRUE,
                      OneColumnRows(Texts({"#12", "3a", "", "1:23.4", "-5"})));
  EXPECT_EQ(numbers.IDs(), (std::vector<DWORD>{3, 2, 5, 1, 4})) << "0, 3, 5, 12, 1234";

  // A short number held as a double column still sorts by its text's digits.
  CSortedView shortNumbers("lgView_Test", {MakeColumn(kColumnDouble, "lgHeader_ShortNr")}, "lgHeader_ShortNr", FALSE,
                           OneColumnRows({RealValue(1.5), RealValue(12.0), RealValue(0.75)}));
  EXPECT_EQ(shortNumbers.IDs(), (std::vector<DWORD>{2, 1, 3})) << "12000, 1500, 750";
}

TEST(RMViewSort, UnsignedColumnsCompareTheirDWord) {
  for (BYTE type : {kColumnDWord, kColumnDate, kColumnDateTime}) {
    CSortedView view("lgView_Test", {MakeColumn(type, "lgHeader_Value")}, "lgHeader_Value", TRUE,
                     OneColumnRows({DwordValue(0xFFFFFFFF), DwordValue(5), DwordValue(0x80000000), DwordValue(0)}));
    EXPECT_EQ(view.IDs(), (std::vector<DWORD>{4, 2, 3, 1})) << "type " << int{type};
  }
}

TEST(RMViewSort, IntegerColumnComparesSigned) {
  CSortedView view("lgView_Test", {MakeColumn(kColumnInteger, "lgHeader_Laps")}, "lgHeader_Laps", TRUE,
                   OneColumnRows({IntegerValue(5), IntegerValue(-1), IntegerValue(0), IntegerValue(-300)}));
  EXPECT_EQ(view.IDs(), (std::vector<DWORD>{4, 2, 3, 1}));
  CSortedView down("lgView_Test", {MakeColumn(kColumnInteger, "lgHeader_Laps")}, "lgHeader_Laps", FALSE,
                   OneColumnRows({IntegerValue(5), IntegerValue(-1), IntegerValue(0), IntegerValue(-300)}));
  EXPECT_EQ(down.IDs(), (std::vector<DWORD>{1, 3, 2, 4}));
}

TEST(RMViewSort, TimeColumnComparesSignedTimesWithNoTimeLast) {
  CSortedView view("lgView_Test", {MakeColumn(kColumnKVTTime, "lgHeader_Time")}, "lgHeader_Time", TRUE,
                   OneColumnRows({TimeValue(KVTTIME_NULL), TimeValue(3000000000000LL), TimeValue(-5), TimeValue(0)}));
  EXPECT_EQ(view.IDs(), (std::vector<DWORD>{3, 4, 2, 1}));
}

TEST(RMViewSort, TextsThatDifferOnlyInCaseTieAndGoToThePositionInAResultsView) {
  const std::vector<CColumn> columns = {MakeColumn(kColumnString, "lgHeader_Name"),
                                        MakeColumn(kColumnDWord, "lgHeader_Pos"),
                                        MakeColumn(kColumnString, "lgHeader_No")};
  auto row = [](DWORD id, const char* name, DWORD position, const char* number) {
    return MakeRowValues(id, {TextValue(name), DwordValue(position), TextValue(number)});
  };
  const std::vector<ViewRowValues> rows = {row(1, "anna", 3, "1"), row(2, "ANNA", 1, "3"), row(3, "Anna", 2, "2"),
                                           row(4, "bob", 0, "9"), row(5, "Al", 9, "8")};
  for (const char* name : {"lgView_Results", "lgView_MergeResults"}) {
    CSortedView up(name, columns, "lgHeader_Name", TRUE, rows);
    EXPECT_EQ(up.IDs(), (std::vector<DWORD>{5, 2, 3, 1, 4})) << name;
    CSortedView down(name, columns, "lgHeader_Name", FALSE, rows);
    EXPECT_EQ(down.IDs(), (std::vector<DWORD>{4, 1, 3, 2, 5})) << name;
  }
  // Any other view takes the number column as its second key.
  CSortedView other("lgView_Test", columns, "lgHeader_Name", TRUE, rows);
  EXPECT_EQ(other.IDs(), (std::vector<DWORD>{5, 1, 3, 2, 4}));
}

TEST(RMViewSort, SecondKeyComparesTheDigitsOfItsText) {
  const std::vector<CColumn> columns = {MakeColumn(kColumnString, "lgHeader_Name"),
                                        MakeColumn(kColumnString, "lgHeader_Pos")};
  auto row = [](DWORD id, const char* position) { return MakeRowValues(id, {TextValue("Same"), TextValue(position)}); };
  CSortedView view("lgView_Results", columns, "lgHeader_Name", TRUE,
                   {row(1, "10."), row(2, "9."), row(3, "DNF"), row(4, "1:0")});
  // 0, 9, then the two tens by address.
  const auto& map = view.harness.View->GetRowMap();
  const bool oneFirst = std::less<CRMViewRow*>()(map.at(1), map.at(4));
  EXPECT_EQ(view.IDs(), (std::vector<DWORD>{3, 2, oneFirst ? 1u : 4u, oneFirst ? 4u : 1u}));
}

TEST(RMViewSort, TextsThatTieWithoutASecondKeyColumnGoByAddress) {
  CSortedView view("lgView_Results", {MakeColumn(kColumnString, "lgHeader_Name")}, "lgHeader_Name", TRUE,
                   OneColumnRows(Texts({"x", "X", "x", "X"})));
  EXPECT_EQ(view.harness.View->GetSortedRows(), view.ByAddress());
}

TEST(RMViewSort, TextCompareLowersOnlyTheLettersAndComparesBytesUnsigned) {
  CSortedView view("lgView_Test", {MakeColumn(kColumnString, "lgHeader_Name")}, "lgHeader_Name", TRUE,
                   OneColumnRows(Texts({"B", "a", "_", "\xC9t\xE9", "z", "ab", ""})));
  // '_' lies between the upper and the lower letters: it goes first only if letters are
  // lowered; bytes above 127 come after 'z'.
  EXPECT_EQ(view.IDs(), (std::vector<DWORD>{7, 3, 2, 6, 1, 5, 4}));
}

TEST(RMViewSort, TransponderColumnComparesNumbersAsNumbersAndNamesAsTexts) {
  CLiveLink link;
  link.Apply(DataEncoder::Snapshot(CBaseDataComm()));
  for (const auto& [transponder, text] : std::map<DWORD, std::string>{{7001, "zed"}, {7002, "Alpha"}}) {
    CBaseTxTranslation record;
    record.UniqueID = transponder;
    record.Text = text;
    link.Apply(DataEncoder::AddTxTranslation(record));
  }
  std::vector<ViewCellValue> values = {TranspondersValue({300}),  TranspondersValue({20}),   TranspondersValue({7001}),
                                       TranspondersValue({1000}), TranspondersValue({7002}), TranspondersValue({})};
  CSortedView view("lgView_Test", {MakeColumn(kColumnTransponder, "lgHeader_Tx")}, "lgHeader_Tx", TRUE,
                   OneColumnRows(values), link.comm.GetData());
  EXPECT_STREQ(view.harness.View->GetRowMap().at(3)->TextAt(0), "zed");
  // "" and the names have no number and go by their texts; 20 < 300 < 1000 as numbers.
  EXPECT_EQ(view.IDs(), (std::vector<DWORD>{6, 2, 1, 4, 5, 3}));
}

TEST(RMViewSort, TransponderRuleThatIsNoOrderKeepsEveryRowOnce) {
  // " 10" < "!" and "!" < "9" as texts, but "9" < " 10" as numbers: no order at all.
  CLiveLink link;
  link.Apply(DataEncoder::Snapshot(CBaseDataComm()));
  const std::vector<std::string> names = {" 10", "!", "9", "x7", "10 ", " 9", "#"};
  for (std::size_t i = 0; i < names.size(); ++i) {
    CBaseTxTranslation record;
    record.UniqueID = 5000 + static_cast<DWORD>(i);
    record.Text = names[i];
    link.Apply(DataEncoder::AddTxTranslation(record));
  }
  std::vector<ViewCellValue> values;
  for (int i = 0; i < 600; ++i) {
    values.push_back(TranspondersValue(
        {i % 3 == 0 ? static_cast<DWORD>(1 + (i * 37) % 50) : 5000 + static_cast<DWORD>((i * 13) % names.size())}));
  }
  for (BOOL ascending : {TRUE, FALSE}) {
    CSortedView view("lgView_Test", {MakeColumn(kColumnTransponder, "lgHeader_Tx")}, "lgHeader_Tx", ascending,
                     OneColumnRows(values), link.comm.GetData());
    std::vector<CRMViewRow*> sorted = view.harness.View->GetSortedRows();
    std::vector<CRMViewRow*> expected = view.arrival;
    std::sort(sorted.begin(), sorted.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(sorted, expected) << "every row once, ascending " << ascending;
  }
}

TEST(RMViewSort, MissingCellsSortAsZeroAndEmptyText) {
  // A column of a type above 8 makes no cell, so the last column's cells are missing.
  const std::vector<CColumn> columns = {MakeColumn(kColumnInteger, "lgHeader_Laps"), MakeColumn(9, "lgHeader_Odd"),
                                        MakeColumn(kColumnString, "lgHeader_Name")};
  auto row = [](DWORD id, int laps, const char* name) {
    return MakeRowValues(id, {IntegerValue(laps), ViewCellValue(), TextValue(name)});
  };
  const std::vector<ViewRowValues> rows = {row(1, 3, "c"), row(2, 1, "a"), row(3, 2, "b")};
  CSortedView byName("lgView_Test", columns, "lgHeader_Name", TRUE, rows);
  EXPECT_EQ(byName.harness.View->GetSortedRows(), byName.ByAddress()) << "every row's text is empty";
  CSortedView byLaps("lgView_Test", columns, "lgHeader_Laps", TRUE, rows);
  EXPECT_EQ(byLaps.IDs(), (std::vector<DWORD>{2, 3, 1}));
}

TEST(RMViewSort, SetSortColumnSortsAgainWithoutTellingObservers) {
  CSortedView view("lgView_Test", {MakeColumn(kColumnInteger, "lgHeader_Laps")}, "", TRUE,
                   OneColumnRows({IntegerValue(2), IntegerValue(9), IntegerValue(4)}));
  EXPECT_EQ(view.IDs(), (std::vector<DWORD>{1, 2, 3}));
  view.log.clear();
  view.harness.View->SetSortColumn("lgHeader_Laps", FALSE);
  EXPECT_EQ(view.IDs(), (std::vector<DWORD>{2, 3, 1}));
  EXPECT_TRUE(view.log.empty());
  EXPECT_EQ(view.harness.View->GetSortColumnName(), "lgHeader_Laps");
  EXPECT_FALSE(view.harness.View->IsAscending());
}

TEST(RMViewSort, ChangedRowsAreToldInTheSortOrder) {
  CSortedView view("lgView_Test", {MakeColumn(kColumnString, "lgHeader_Name")}, "lgHeader_Name", FALSE,
                   OneColumnRows(Texts({"b", "d", "a", "c"})));
  EXPECT_EQ(view.log.back(), "o:data:0:changed=2,4,1,3:removed=:sorted=2,4,1,3");
  view.harness.ModifyRows(ViewRowBlock{{}, {MakeRowValues(3, {TextValue("e")}), MakeRowValues(2, {TextValue("A")})}});
  EXPECT_EQ(view.log.back(), "o:data:2:changed=3,2:removed=:sorted=3,4,1,2");
}

TEST(RMViewSort, SortColumnNameOutlivesTheViewBeingLetGo) {
  CSortedView view("lgView_Test", {MakeColumn(kColumnInteger, "lgHeader_Laps")}, "lgHeader_Laps", TRUE,
                   OneColumnRows({IntegerValue(2), IntegerValue(1)}));
  view.observer.Detach(view.harness.View.get(), TRUE);
  EXPECT_EQ(view.harness.View->GetSortColumnName(), "lgHeader_Laps");
  view.observer.Attach(view.harness.View.get());
  view.harness.Structure({MakeColumn(kColumnString, "lgHeader_Name"), MakeColumn(kColumnInteger, "lgHeader_Laps")});
  EXPECT_EQ(view.harness.View->GetSortColumnIndex(), 1);
  view.harness.AllRows(ViewRowBlock{
      {}, {MakeRowValues(1, {TextValue("x"), IntegerValue(5)}), MakeRowValues(2, {TextValue("y"), IntegerValue(3)})}});
  EXPECT_EQ(view.IDs(), (std::vector<DWORD>{2, 1}));
}

// A long list is mostly sorted from one message to the next; the order must be the one
// the rule gives, whatever way of sorting finds it.

namespace {

int LapsOf(const CRMViewRow* row) { return static_cast<int>(*row->CellGetAt(0)); }

}  // namespace

TEST(RMViewSort, AscendingOrderAfterEachChangeIsTheOrderOfValueAndAddress) {
  std::mt19937 random(7);
  std::vector<ViewCellValue> values;
  for (int i = 0; i < 200; ++i) values.push_back(IntegerValue(static_cast<int>(random() % 10)));
  CSortedView view("lgView_Test", {MakeColumn(kColumnInteger, "lgHeader_Laps")}, "lgHeader_Laps", TRUE,
                   OneColumnRows(values));
  for (int step = 0; step < 60; ++step) {
    ViewRowBlock block;
    for (int i = 0; i < 1 + step % 3; ++i) {
      block.Rows.push_back(
          MakeRowValues(1 + static_cast<DWORD>(random() % 200), {IntegerValue(static_cast<int>(random() % 10))}));
    }
    view.harness.ModifyRows(block);
    std::vector<CRMViewRow*> expected = view.arrival;
    std::sort(expected.begin(), expected.end(), [](const CRMViewRow* a, const CRMViewRow* b) {
      return LapsOf(a) != LapsOf(b) ? LapsOf(a) < LapsOf(b) : std::less<const CRMViewRow*>()(a, b);
    });
    ASSERT_EQ(view.harness.View->GetSortedRows(), expected) << "step " << step;
  }
}

TEST(RMViewSort, DescendingTiesAfterAChangeAreWhereTheStandardSortPutsThemFromTheOrderBefore) {
  std::vector<ViewCellValue> values;
  for (int i = 0; i < 100; ++i) values.push_back(IntegerValue(i % 5));
  CSortedView view("lgView_Test", {MakeColumn(kColumnInteger, "lgHeader_Laps")}, "lgHeader_Laps", FALSE,
                   OneColumnRows(values));
  for (DWORD id : {17u, 3u, 64u}) {
    const std::vector<CRMViewRow*> before = view.harness.View->GetSortedRows();
    view.harness.ModifyRows(ViewRowBlock{{}, {MakeRowValues(id, {IntegerValue(static_cast<int>(id % 3))})}});
    std::vector<CRMViewRow*> expected = before;
    std::sort(expected.begin(), expected.end(),
              [](const CRMViewRow* a, const CRMViewRow* b) { return LapsOf(a) > LapsOf(b); });
    EXPECT_EQ(view.harness.View->GetSortedRows(), expected) << "row " << id;
  }
}

TEST(RMViewSort, TransponderTiesFollowTheHeapSortFromTheOrderBefore) {
  std::vector<ViewCellValue> values;
  for (int i = 0; i < 60; ++i) values.push_back(TranspondersValue({static_cast<DWORD>(1 + i % 7)}));
  for (BOOL ascending : {TRUE, FALSE}) {
    CSortedView view("lgView_Test", {MakeColumn(kColumnTransponder, "lgHeader_Tx")}, "lgHeader_Tx", ascending,
                     OneColumnRows(values));
    auto number = [](const CRMViewRow* row) { return std::atol(row->TextAt(0)); };
    auto first = [&](const CRMViewRow* a, const CRMViewRow* b) {
      if (!ascending) return number(a) > number(b);
      return number(a) != number(b) ? number(a) < number(b) : std::less<const CRMViewRow*>()(a, b);
    };
    const std::vector<CRMViewRow*> before = view.harness.View->GetSortedRows();
    view.harness.ModifyRows(ViewRowBlock{{}, {MakeRowValues(5, {TranspondersValue({9})})}});
    std::vector<CRMViewRow*> expected = before;
    std::make_heap(expected.begin(), expected.end(), first);
    std::sort_heap(expected.begin(), expected.end(), first);
    EXPECT_EQ(view.harness.View->GetSortedRows(), expected) << "ascending " << ascending;
  }
}
