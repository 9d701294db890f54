// A table bound to a live view: the view it asks for and how it sorts, the binding of its
// columns, the rows built from the view's rows with startrow, maxrows and the lap
// separator, the exact text that clients receive, and the rebuild that waits for the export.
#include "site/ZOLServerTable.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "data/DataTestSupport.h"
#include "data/Event.h"
#include "data/Merge.h"
#include "data/Run.h"
#include "frame/TimeText.h"
#include "site/ZOLLiveObservers.h"
#include "testing/ViewTestSupport.h"
#include "views/RMComm.h"
#include "views/RMView.h"
#include "views/ViewEncoder.h"

namespace {

constexpr DWORD kRun = 0x40000001;

// Position, number, name, laps and gap, as a results view has them.
std::vector<CColumn> ResultColumns() {
  return {MakeColumn(kColumnInteger, "lgHeader_Pos", "Pos."), MakeColumn(kColumnString, "lgHeader_No", "No."),
          MakeColumn(kColumnString, "lgHeader_Name", "Driver"), MakeColumn(kColumnInteger, "lgHeader_Laps", "Laps"),
          MakeColumn(kColumnKVTDiff, "lgHeader_Gap", "Gap")};
}

ViewRowValues Result(DWORD id, int position, const std::string& name, int laps = 0, KVTTIME gap = KVTTIME_NULL) {
  return MakeRowValues(id, {IntegerValue(position), TextValue(std::to_string(id)), TextValue(name), IntegerValue(laps),
                            TimeValue(gap)});
}

ViewRowBlock Block(std::vector<ViewRowValues> rows) {
  ViewRowBlock block;
  block.Rows = std::move(rows);
  return block;
}

// `count` rows at positions 1 to count, named "P1", "P2", ..., delivered in reverse.
ViewRowBlock Positions(int count) {
  std::vector<ViewRowValues> rows;
  for (int position = count; position >= 1; --position) {
    rows.push_back(Result(static_cast<DWORD>(100 + position), position, "P" + std::to_string(position)));
  }
  return Block(std::move(rows));
}

// A table of positions and names, in the compact form the wire expectations use.
std::string PositionNameTable(const std::string& attributes = "") {
  return "<zol_table type=\"results\"" + attributes +
         "><zol_rh type=\"position\">Pos</zol_rh><zol_rh type=\"name\">Name</zol_rh>"
         "<zol_rr><zol_rd>-</zol_rd><zol_rd>-</zol_rd></zol_rr></zol_table>";
}

// The names of a table's rows as they go to clients, in order.
std::string NameRows(const std::vector<std::string>& rows) {
  std::string text;
  for (const std::string& row : rows) text += "<zol_rr><zol_rd>" + row + "</zol_rd></zol_rr>";
  return text;
}

// Counts the reports of the tables it holds.
class CCountingTableObserver : public CZOLServerTableObserver {
 public:
  void OnTableUpdated(CZOLServerTable* table) override {
    ++Reports;
    Last = table;
  }
  int Reports = 0;
  CZOLServerTable* Last = nullptr;
};

// A data link with a race run; tables are bound to it and their view fed as the data
// manager would.
struct ZOLServerTableLive : ::testing::Test {
  ZOLServerTableLive() {
    run.UniqueID = kRun;
    run.RunType = 2;
  }

  // Imports and binds a table to the run.
  void Bind(CZOLServerTable& target, const std::string& text, CRun* to = nullptr) {
    ASSERT_EQ(target.ZOLImport(text), TRUE);
    target.RunConnect(to != nullptr ? to : &run, CParameters());
    ASSERT_NE(target.GetView(), nullptr);
  }
  void Structure(CRMView* view, const std::vector<CColumn>& columns = ResultColumns()) {
    types = ViewEncoder::ColumnTypes(columns);
    link.Apply(ViewEncoder::ViewStructure(view->GetViewID(), columns));
  }
  void AllRows(CRMView* view, const ViewRowBlock& block) {
    link.Apply(ViewEncoder::AllRows(view->GetViewID(), types, block));
  }
  void ModifyRows(CRMView* view, const ViewRowBlock& block) {
    link.Apply(ViewEncoder::ModifyRows(view->GetViewID(), types, block));
  }
  // Imports, binds, and feeds structure and rows.
  void Live(CZOLServerTable& target, const std::string& text, const ViewRowBlock& block,
            const std::vector<CColumn>& columns = ResultColumns(), CRun* to = nullptr) {
    Bind(target, text, to);
    Structure(target.GetView(), columns);
    AllRows(target.GetView(), block);
  }

  // The view requests sent to the data manager, in order.
  std::vector<WORD> ViewRequests() const {
    std::vector<WORD> ids;
    for (WORD id : link.module.DataManagerIDs()) {
      if (id == kMsgViewConnect || id == kMsgViewDisconnect) ids.push_back(id);
    }
    return ids;
  }

  CLiveLink link;
  CRun run{nullptr};
  std::vector<BYTE> types;
  CZOLServerTable table{0, &link.comm};
};

}  // namespace

// ---------------------------------------------------------------------------------------
// The name tables

TEST(ZOLServerTableNames, ViewOfEachTableType) {
  for (const char* type : {"practice", "qualify", "race", "results"}) {
    EXPECT_EQ(CZOLServerTable::ZOLGetViewName(type), "lgView_Results") << type;
  }
  EXPECT_EQ(CZOLServerTable::ZOLGetViewName("schedule"), "lgView_EventSchedule");
  EXPECT_EQ(CZOLServerTable::ZOLGetViewName("announcements"), "lgView_Announcements");
  for (const char* type : {"laptimes", "points", "none", "Results", ""}) {
    EXPECT_EQ(CZOLServerTable::ZOLGetViewName(type), "") << type;
  }
}

TEST(ZOLServerTableNames, ViewColumnKeyOfEachColumnName) {
  const std::vector<std::pair<std::string, std::string>> expected = {
      {"position", "lgHeader_Pos"},
      {"positioninclass", "lgHeader_PosInClass"},
      {"no", "lgHeader_No"},
      {"class", "lgHeader_Class"},
      {"name", "lgHeader_Name"},
      {"firstname", "lgHeader_First_Name"},
      {"lastname", "lgHeader_Last_Name"},
      {"marker", "lgHeader_Marker"},
      {"averagetime", "lgHeader_AvgTm"},
      {"lasttime", "lgHeader_LastTm"},
      {"lastspeed", "lgHeader_LastSpd"},
      {"laps", "lgHeader_Laps"},
      {"totaltime", "lgHeader_TotalTm"},
      {"averagespeed", "lgHeader_AvgSpeed"},
      {"difference", "lgHeader_Diff"},
      {"gap", "lgHeader_Gap"},
      {"besttime", "lgHeader_BestTm"},
      {"inlap", "lgHeader_In_Lap"},
      {"bestspeed", "lgHeader_BestSpd"},
      {"2ndbesttime", "lgHeader_2nd_Best"},
      {"2ndinlap", "lgHeader_2nd_Lap"},
      {"2ndbestspeed", "lgHeader_2nd_Spd"},
      {"datetime", "lgHeader_DateTime"},
      {"groupname", "lgHeader_Group"},
      {"runname", "lgHeader_Name"},
      {"runtype", "lgHeader_Type"},
      {"racedistance", "lgHeader_RaceDistance"},
      {"racetime", "lgHeader_RaceTime"},
      {"minlaptime", "lgHeader_Minimum_Laptime"},
      {"uniqueid", "lgHeader_UniqueID"},
      {"time", "lgHeader_Time"},
      {"text", "lgHeader_Text"},
      {"transpondernr", "lgHeader_Car_Transponders"},
      {"regnumber", "lgHeader_Car_RegNumber"},
  };
  for (const auto& [name, key] : expected) EXPECT_EQ(CZOLServerTable::ZOLGetViewColumnName(name), key) << name;
  for (int i = 1; i <= 8; ++i) {
    EXPECT_EQ(CZOLServerTable::ZOLGetViewColumnName("additional" + std::to_string(i)),
              "lgHeader_CarAdditional" + std::to_string(i));
  }
  for (const char* name : {"additional0", "additional9", "shoesize", "Name", ""}) {
    EXPECT_EQ(CZOLServerTable::ZOLGetViewColumnName(name), "") << name;
  }
}

TEST(ZOLServerTableNames, GapTextIsTheCompactGapWithoutPlusAndWithThreeDecimals) {
  EXPECT_EQ(CZOLServerTable::GetDiffAsString(1500000), "1.500");
  EXPECT_EQ(CZOLServerTable::GetDiffAsString(KVTTIME_NULL), "-");
  EXPECT_EQ(CZOLServerTable::GetDiffAsString(61000000), FormatGap(61000000, FALSE, TRUE, 3));
}

// ---------------------------------------------------------------------------------------
// Without a data link

TEST(ZOLServerTable, WithoutADataLinkConnectingDoesNothingAndTheSampleRowsAreExported) {
  CZOLServerTable table(0, nullptr);
  ASSERT_EQ(table.ZOLImport(PositionNameTable()), TRUE);
  CRun run(nullptr);
  table.RunConnect(&run, CParameters());
  CMerge merge(nullptr);
  table.MergeConnect(&merge, CParameters());
  Cevent event(nullptr);
  table.EventConnect(&event, CParameters());
  EXPECT_EQ(table.GetView(), nullptr);
  EXPECT_EQ(table.ZOLExport(),
            "<zol_table type=\"results\" ><zol_rh type='position'>Pos</zol_rh><zol_rh type='name'>Name</zol_rh>"
            "<zol_rr><zol_rd>-</zol_rd><zol_rd>-</zol_rd></zol_rr></zol_table>");
  EXPECT_EQ(table.HTMLExport(), "PosName--");
}

TEST(ZOLServerTable, ATableThatFailedToImportExportsItsTagOnly) {
  CZOLServerTable table(0, nullptr);
  EXPECT_EQ(table.ZOLImport("<zol_table><zol_rh type='no'/></zol_table>"), FALSE);
  EXPECT_EQ(table.ZOLExport(), "<zol_table></zol_table>");
  EXPECT_EQ(table.HTMLExport(), "");
}

TEST(ZOLServerTable, TwoRowTemplatesWriteAllRowsTwice) {
  CZOLServerTable table(0, nullptr);
  ASSERT_EQ(table.ZOLImport("<zol_table type='x'><zol_rh type='name'/><zol_rr>a<zol_rd>1</zol_rd></zol_rr>|"
                            "<zol_rr>b<zol_rd>2</zol_rd></zol_rr></zol_table>"),
            TRUE);
  const std::string rows = "<zol_rr>a<zol_rd>1</zol_rd></zol_rr><zol_rr>b<zol_rd>2</zol_rd></zol_rr>";
  EXPECT_EQ(table.ZOLExport(), "<zol_table type=\"x\" ><zol_rh type='name'></zol_rh>" + rows + "|" + rows +
                                   "</zol_table>");
  EXPECT_EQ(table.HTMLExport(), "a1|b2") << "a browser sees one row per row template";
}

// ---------------------------------------------------------------------------------------
// Connecting

TEST_F(ZOLServerTableLive, RaceRunAsksForTheResultsViewOfTheRunSortedByPositionAndDropsTheSampleRows) {
  Bind(table, PositionNameTable());
  CRMView* view = table.GetView();
  EXPECT_EQ(view->GetName(), "lgView_Results");
  CParameters expected;
  expected.Add("UniqueID", DWORD{kRun});
  expected.Add("SortType", 0);
  EXPECT_TRUE(view->GetParameters() == expected);
  EXPECT_FALSE(view->IsPrivate());
  EXPECT_FALSE(view->IsGrouped());
  EXPECT_EQ(view->GetSortColumnName(), "lgHeader_Pos");
  EXPECT_TRUE(view->IsAscending());
  EXPECT_EQ(view->GetObservers(), (std::vector<CRMViewObserver*>{&table}));
  EXPECT_EQ(ViewRequests(), (std::vector<WORD>{kMsgViewConnect}));
  EXPECT_EQ(table.ZOLExport(),
            "<zol_table type=\"results\" ><zol_rh type='position'>Pos</zol_rh><zol_rh type='name'>Name</zol_rh>"
            "</zol_table>");
}

TEST_F(ZOLServerTableLive, RunsOtherThanRacesAskForSortType1AndTheGivenParametersAreKept) {
  run.RunType = 0;
  ASSERT_EQ(table.ZOLImport(PositionNameTable()), TRUE);
  CParameters given;
  given.Add("Extra", "x");
  table.RunConnect(&run, given);
  CParameters expected = given;
  expected.Add("UniqueID", DWORD{kRun});
  expected.Add("SortType", 1);
  ASSERT_NE(table.GetView(), nullptr);
  EXPECT_TRUE(table.GetView()->GetParameters() == expected);
}

TEST_F(ZOLServerTableLive, AnnouncementsAreSortedByUniqueIdDescendingWithoutSortType) {
  Bind(table, "<zol_table type='announcements'><zol_rh type='text'/></zol_table>");
  CRMView* view = table.GetView();
  EXPECT_EQ(view->GetName(), "lgView_Announcements");
  EXPECT_EQ(view->GetParameters().GetString("SortType"), "");
  EXPECT_EQ(view->GetParameters().GetString("UniqueID"), std::to_string(kRun));
  EXPECT_EQ(view->GetSortColumnName(), "lgHeader_UniqueID");
  EXPECT_FALSE(view->IsAscending());
}

TEST_F(ZOLServerTableLive, LaptimesAndPointsTablesAskForAViewWithAnEmptyName) {
  Bind(table, "<zol_table type='laptimes'><zol_rh type='time'/></zol_table>");
  CRMView* laps = table.GetView();
  EXPECT_EQ(laps->GetName(), "");
  EXPECT_EQ(laps->GetParameters().GetString("AddCompetitorInfo"), "") << "the empty name is not the lap times view";
  EXPECT_EQ(laps->GetParameters().GetString("SortType"), "");
  EXPECT_EQ(laps->GetSortColumnName(), "lgHeader_TimeOfDay");
  EXPECT_FALSE(laps->IsAscending());

  CZOLServerTable points(1, &link.comm);
  ASSERT_EQ(points.ZOLImport("<zol_table type='points'><zol_rh type='position'/></zol_table>"), TRUE);
  CMerge merge(nullptr);
  merge.UniqueID = 0x20000003;
  points.MergeConnect(&merge, CParameters());
  ASSERT_NE(points.GetView(), nullptr);
  EXPECT_EQ(points.GetView()->GetName(), "");
  EXPECT_EQ(points.GetView()->GetParameters().GetString("UniqueID"), std::to_string(0x20000003));
}

TEST_F(ZOLServerTableLive, MergeAndEventConnectSetTheirIdentifierAndNoSort) {
  ASSERT_EQ(table.ZOLImport(PositionNameTable()), TRUE);
  CMerge merge(nullptr);
  merge.UniqueID = 0x20000007;
  table.MergeConnect(&merge, CParameters());
  ASSERT_NE(table.GetView(), nullptr);
  EXPECT_EQ(table.GetView()->GetName(), "lgView_Results");
  CParameters mergeParameters;
  mergeParameters.Add("UniqueID", DWORD{0x20000007});
  EXPECT_TRUE(table.GetView()->GetParameters() == mergeParameters) << "no SortType for a merge";
  EXPECT_EQ(table.GetView()->GetSortColumnName(), "");

  CZOLServerTable schedule(1, &link.comm);
  ASSERT_EQ(schedule.ZOLImport("<zol_table type='schedule'><zol_rh type='runname'/></zol_table>"), TRUE);
  Cevent event(nullptr);
  event.UniqueID = 0x80000005;
  schedule.EventConnect(&event, CParameters());
  ASSERT_NE(schedule.GetView(), nullptr);
  EXPECT_EQ(schedule.GetView()->GetName(), "lgView_EventSchedule");
  EXPECT_EQ(schedule.GetView()->GetParameters().GetString("UniqueID"), std::to_string(0x80000005u));
  EXPECT_EQ(schedule.GetView()->GetSortColumnName(), "");
}

TEST_F(ZOLServerTableLive, ConnectingAgainLeavesTheOldViewAndTellsTheDataManager) {
  Live(table, PositionNameTable(), Positions(2));
  CRMView* old = table.GetView();
  CRun other(nullptr);
  other.UniqueID = kRun + 1;
  other.RunType = 2;
  table.RunConnect(&other, CParameters());
  EXPECT_NE(table.GetView(), old);
  EXPECT_TRUE(old->GetObservers().empty());
  EXPECT_EQ(ViewRequests(), (std::vector<WORD>{kMsgViewConnect, kMsgViewDisconnect, kMsgViewConnect}));
  EXPECT_EQ(table.ZOLExport().find("<zol_rr>"), std::string::npos) << "no rows until the new view's data";
}

// ---------------------------------------------------------------------------------------
// Structure and rows

TEST_F(ZOLServerTableLive, StructureBindsEachCellToItsColumnAndLooksUpMarkerAndStatus) {
  Bind(table, "<zol_table type='results'><zol_rh type='name'>N</zol_rh><zol_rh type='shoesize'>S</zol_rh>"
              "<zol_rh type='gap'>G</zol_rh><zol_rr><zol_rd>a</zol_rd><zol_rd/><zol_rd>c</zol_rd></zol_rr>"
              "</zol_table>");
  std::vector<CColumn> columns = ResultColumns();
  columns.push_back(MakeColumn(kColumnString, "lgHeader_Status"));
  Structure(table.GetView(), columns);
  const CZOLRow& model = table.GetTemplateRow();
  EXPECT_EQ(model.CellGetAt(0)->m_column, 2);
  EXPECT_EQ(model.CellGetAt(1)->m_column, -1) << "a column the view lacks stays unbound";
  EXPECT_EQ(model.CellGetAt(2)->m_column, 4);
  EXPECT_EQ(table.GetMarkerColumn(), -1);
  EXPECT_EQ(table.GetStatusColumn(), 5);
}

TEST_F(ZOLServerTableLive, AnEmptyHeadingAndAnEmptyTemplateCellTakeTheColumnCaption) {
  Bind(table, "<zol_table type='results'><zol_rh type='position'></zol_rh><zol_rh type='name'>Name</zol_rh>"
              "<zol_rr><zol_rd/><zol_rd/></zol_rr></zol_table>");
  Structure(table.GetView());
  EXPECT_EQ(table.GetTemplateRow().CellGetAt(0)->m_text, "Pos.");
  EXPECT_EQ(table.GetTemplateRow().CellGetAt(1)->m_text, "Driver");
  EXPECT_EQ(table.GetHeaderRow().CellGetAt(0)->m_text, "Pos.");
  EXPECT_EQ(table.GetHeaderRow().CellGetAt(1)->m_text, "Name");
  EXPECT_NE(table.ZOLExport().find("<zol_rh type='position'>Pos.</zol_rh>"), std::string::npos);
}

TEST_F(ZOLServerTableLive, RowsFollowTheViewsSortedRowsWithGapTextAndConvertedNames) {
  Live(table,
       "<zol_table type=\"results\"><zol_rh type=\"position\">Pos</zol_rh><zol_rh type=\"name\">Name</zol_rh>"
       "<zol_rh type=\"gap\">Gap</zol_rh><zol_rr><zol_rd>-</zol_rd><zol_rd>-</zol_rd><zol_rd>-</zol_rd></zol_rr>"
       "</zol_table>",
       Block({Result(2, 2, "Ren\xE9", 3, 1500000), Result(1, 1, "Ann", 3, KVTTIME_NULL)}));
  EXPECT_EQ(table.ZOLExport(),
            "<zol_table type=\"results\" ><zol_rh type='position'>Pos</zol_rh><zol_rh type='name'>Name</zol_rh>"
            "<zol_rh type='gap'>Gap</zol_rh>"
            "<zol_rr><zol_rd>1</zol_rd><zol_rd>Ann</zol_rd><zol_rd>-</zol_rd></zol_rr>"
            "<zol_rr><zol_rd>2</zol_rd><zol_rd>Ren\xC3\xA9</zol_rd><zol_rd>1.500</zol_rd></zol_rr>"
            "</zol_table>");
  EXPECT_EQ(table.HTMLExport(), "PosNameGap1Ann-");
}

TEST_F(ZOLServerTableLive, ShowheaderFalseAndZeroShowTheHeaderOnlyFalseHidesIt) {
  for (const char* value : {"False", "0", "FALSE", "no"}) {
    CZOLServerTable shown(1, &link.comm);
    Live(shown, PositionNameTable(std::string(" showheader=\"") + value + "\""), Positions(1));
    EXPECT_EQ(shown.ZOLExport(),
              "<zol_table type=\"results\" ><zol_rh type='position'>Pos</zol_rh><zol_rh type='name'>Name</zol_rh>"
              "<zol_rr><zol_rd>1</zol_rd><zol_rd>P1</zol_rd></zol_rr></zol_table>")
        << value;
  }
  Live(table, PositionNameTable(" showheader=\"false\""), Positions(1));
  EXPECT_EQ(table.ZOLExport(),
            "<zol_table type=\"results\" ><zol_rr><zol_rd>1</zol_rd><zol_rd>P1</zol_rd></zol_rr></zol_table>");
  EXPECT_EQ(table.HTMLExport(), "1P1");
}

TEST_F(ZOLServerTableLive, ExactWireTextOfATableWithShowheaderStartrowAndMaxrows) {
  Live(table,
       "<zol_table type=\"results\" showheader=\"true\" startrow=\"2\" maxrows=\"3\">\n"
       "<tr/><zol_rh type=\"no\" url=\"cars.zol\">No</zol_rh><zol_rh type=\"name\">Name</zol_rh><tr/>\n"
       "<zol_rr flags=\"row\"><tr><td><zol_rd>-</zol_rd></td><td><zol_rd>-</zol_rd></td></tr></zol_rr>\n"
       "</zol_table>",
       Positions(6));
  // The table holds view rows 2 to 4 and shows its own rows 2 and 3: view rows 3 and 4.
  EXPECT_EQ(table.ZOLExport(),
            "<zol_table type=\"results\" >\n"
            "<tr/><zol_rh type='no' url='cars.zol'>No</zol_rh><zol_rh type='name'>Name</zol_rh><tr/>\n"
            "<zol_rr flags='row'><tr><td><zol_rd>103</zol_rd></td><td><zol_rd>P3</zol_rd></td></tr></zol_rr>"
            "<zol_rr flags='row'><tr><td><zol_rd>104</zol_rd></td><td><zol_rd>P4</zol_rd></td></tr></zol_rr>\n"
            "</zol_table>");
  EXPECT_EQ(table.GetRows().size(), 3u);
}

TEST_F(ZOLServerTableLive, StartrowIsAppliedOnceToTheViewAndOnceToTheTable) {
  Live(table, "<zol_table type='results' startrow='5' maxrows='10'><zol_rh type='name'/>"
              "<zol_rr><zol_rd/></zol_rr></zol_table>",
       Positions(20));
  ASSERT_EQ(table.GetRows().size(), 10u) << "view rows 5 to 14";
  EXPECT_EQ(table.ZOLExportRows(), NameRows({"P9", "P10", "P11", "P12", "P13", "P14"}));
}

TEST_F(ZOLServerTableLive, StartrowEqualToTheViewsRowCountGivesAnEmptyTableOneLessGivesOneRow) {
  const std::string body = " maxrows='10'><zol_rh type='name'/><zol_rr><zol_rd/></zol_rr></zol_table>";
  Live(table, "<zol_table type='results' startrow='3'" + body, Positions(3));
  EXPECT_TRUE(table.GetRows().empty());
  EXPECT_EQ(table.ZOLExport(), "<zol_table type=\"results\" ><zol_rh type='name'>Driver</zol_rh></zol_table>");

  CRun other(nullptr);
  other.UniqueID = kRun + 1;
  other.RunType = 2;
  CZOLServerTable oneLess(1, &link.comm);
  Live(oneLess, "<zol_table type='results' startrow='2'" + body, Positions(3), ResultColumns(), &other);
  EXPECT_EQ(oneLess.ZOLExportRows(), NameRows({"P3"}));
}

TEST_F(ZOLServerTableLive, MaxrowsZeroTakesAllRowsAndExportsNone) {
  Live(table, "<zol_table type='results' startrow='1' maxrows='0'><zol_rh type='name'/>"
              "<zol_rr><zol_rd/></zol_rr></zol_table>",
       Positions(4));
  EXPECT_EQ(table.GetRows().size(), 4u);
  EXPECT_EQ(table.ZOLExportRows(), "");
}

TEST_F(ZOLServerTableLive, MaxrowsWithoutStartrowShowsAllRows) {
  Live(table, "<zol_table type='results' maxrows='2'><zol_rh type='name'/><zol_rr><zol_rd/></zol_rr></zol_table>",
       Positions(3));
  EXPECT_EQ(table.ZOLExportRows(), NameRows({"P1", "P2", "P3"}));
}

TEST_F(ZOLServerTableLive, AHeaderCellOfAnUnknownTypeKeepsItsTemplateTextInAllRows) {
  Live(table, "<zol_table type='results'><zol_rh type='shoesize'>?</zol_rh><zol_rh type='name'>Name</zol_rh>"
              "<zol_rr><zol_rd>42</zol_rd><zol_rd>-</zol_rd></zol_rr></zol_table>",
       Positions(3));
  EXPECT_EQ(table.ZOLExportRows(),
            "<zol_rr><zol_rd>42</zol_rd><zol_rd>P1</zol_rd></zol_rr><zol_rr><zol_rd>42</zol_rd><zol_rd>P2</zol_rd>"
            "</zol_rr><zol_rr><zol_rd>42</zol_rd><zol_rd>P3</zol_rd></zol_rr>");
}

TEST_F(ZOLServerTableLive, ANameWithMarkupCharactersIsEscapedOnceAndAUrlWithAQuoteIsNot) {
  Live(table, "<zol_table type=\"results\"><zol_rh type=\"name\">Name</zol_rh>"
              "<zol_rr url=\"row's.zol\"><zol_rd url=\"driver's.zol?a=1&amp;b=2\">-</zol_rd></zol_rr></zol_table>",
       Block({Result(1, 1, "<Ann> & \"Bea\"")}));
  EXPECT_EQ(table.ZOLExport(),
            "<zol_table type=\"results\" ><zol_rh type='name'>Name</zol_rh>"
            "<zol_rr url='row's.zol'><zol_rd url='driver's.zol?a=1&b=2'>&lt;Ann&gt; &amp; &quot;Bea&quot;</zol_rd>"
            "</zol_rr></zol_table>");
  EXPECT_EQ(table.HTMLExport(), "Name<Ann> & \"Bea\"") << "a browser gets the bare text";
}

TEST_F(ZOLServerTableLive, OnALapChartTheFirstRowOfEachNewLapCountIsMarkedButNotTheVeryFirstRow) {
  Live(table, "<zol_table type=\"race\"><zol_rh type=\"position\"/><zol_rh type=\"laps\"/>"
              "<zol_rr><zol_rd>-</zol_rd><zol_rd flags=\"num\">-</zol_rd></zol_rr></zol_table>",
       Block({Result(1, 1, "A", 10), Result(2, 2, "B", 10), Result(3, 3, "C", 9), Result(4, 4, "D", 9),
              Result(5, 5, "E", 8)}));
  EXPECT_EQ(table.ZOLExport(),
            "<zol_table type=\"race\" ><zol_rh type='position'>Pos.</zol_rh><zol_rh type='laps'>Laps</zol_rh>"
            "<zol_rr><zol_rd>1</zol_rd><zol_rd flags='num'>10</zol_rd></zol_rr>"
            "<zol_rr><zol_rd>2</zol_rd><zol_rd flags='num'>10</zol_rd></zol_rr>"
            "<zol_rr><zol_rd>3</zol_rd><zol_rd flags='num|lapseparator'>9</zol_rd></zol_rr>"
            "<zol_rr><zol_rd>4</zol_rd><zol_rd flags='num'>9</zol_rd></zol_rr>"
            "<zol_rr><zol_rd>5</zol_rd><zol_rd flags='num|lapseparator'>8</zol_rd></zol_rr>"
            "</zol_table>");
}

TEST_F(ZOLServerTableLive, TheLapSeparatorStandsAloneWhenTheCellHasNoFlags) {
  Live(table, "<zol_table type=\"race\"><zol_rh type=\"laps\"/><zol_rr><zol_rd/></zol_rr></zol_table>",
       Block({Result(1, 1, "A", 5), Result(2, 2, "B", 4)}));
  EXPECT_EQ(table.ZOLExportRows(),
            "<zol_rr><zol_rd>5</zol_rd></zol_rr><zol_rr><zol_rd flags='lapseparator'>4</zol_rd></zol_rr>");
}

TEST_F(ZOLServerTableLive, ASampleCellOfASecondRowTemplateChangesOnlyThatRowNotTheRowsBuiltFromTheView) {
  Live(table, "<zol_table type='results'><zol_rh type='name'/><zol_rh type='shoesize'/>"
              "<zol_rr><zol_rd/><zol_rd>first</zol_rd></zol_rr>"
              "<zol_rr><zol_rd/><zol_rd>second</zol_rd></zol_rr></zol_table>",
       Positions(2));
  const std::string rows = "<zol_rr><zol_rd>P1</zol_rd><zol_rd>first</zol_rd></zol_rr>"
                           "<zol_rr><zol_rd>P2</zol_rd><zol_rd>first</zol_rd></zol_rr>";
  EXPECT_EQ(table.ZOLExport(), "<zol_table type=\"results\" ><zol_rh type='name'>Driver</zol_rh>"
                               "<zol_rh type='shoesize'></zol_rh>" +
                                   rows + rows + "</zol_table>");
}

TEST_F(ZOLServerTableLive, ATableWithoutHeaderCellsGetsNoViewDataIntoItsRows) {
  Live(table, "<zol_table type='results'><zol_rr><td><zol_rd>x</zol_rd></td></zol_rr></zol_table>", Positions(2));
  EXPECT_EQ(table.ZOLExport(), "<zol_table type=\"results\" ><zol_rr><td></td></zol_rr><zol_rr><td></td></zol_rr>"
                               "</zol_table>");
}

TEST_F(ZOLServerTableLive, AViewRowWithoutACellShowsAnEmptyText) {
  std::vector<CColumn> columns = ResultColumns();
  columns.push_back(MakeColumn(42, "lgHeader_Class"));  // a type that makes no cell
  Live(table, "<zol_table type='results'><zol_rh type='class'/><zol_rh type='name'/>"
              "<zol_rr><zol_rd>c</zol_rd><zol_rd>n</zol_rd></zol_rr></zol_table>",
       Positions(1), columns);
  EXPECT_EQ(table.ZOLExportRows(), "<zol_rr><zol_rd></zol_rd><zol_rd>P1</zol_rd></zol_rr>");
}

// ---------------------------------------------------------------------------------------
// The rebuild waits for the export

TEST_F(ZOLServerTableLive, EachDataNotificationMarksTheRowsAndTellsTheObserversOnce) {
  CCountingTableObserver page;
  page.Attach(&table);
  Bind(table, PositionNameTable());
  Structure(table.GetView());
  EXPECT_EQ(page.Reports, 0) << "the structure alone is no data";
  AllRows(table.GetView(), Positions(3));
  EXPECT_EQ(page.Reports, 1);
  EXPECT_EQ(page.Last, &table);
  EXPECT_TRUE(table.AreRowsOutOfDate());
  ModifyRows(table.GetView(), Block({Result(101, 1, "Ann")}));
  ModifyRows(table.GetView(), Block({Result(102, 2, "Bea")}));
  EXPECT_EQ(page.Reports, 3);
  (void)table.ZOLExport();
  EXPECT_FALSE(table.AreRowsOutOfDate());
}

TEST_F(ZOLServerTableLive, ManyNotificationsThenOneExportEqualTheTableRebuiltAtEveryNotification) {
  CZOLServerTable eager(1, &link.comm);
  ASSERT_EQ(eager.ZOLImport(PositionNameTable()), TRUE);
  Bind(table, PositionNameTable());
  eager.RunConnect(&run, CParameters());
  ASSERT_EQ(eager.GetView(), table.GetView()) << "both read one shared view";
  CRMView* view = table.GetView();
  std::vector<std::string> eagerTexts;
  Structure(view);
  AllRows(view, Positions(4));
  eagerTexts.push_back(eager.ZOLExport());
  for (int round = 0; round < 20; ++round) {
    // Rows change places and names, one message at a time.
    const DWORD id = static_cast<DWORD>(101 + round % 4);
    ModifyRows(view, Block({Result(id, 4 - round % 4, "R" + std::to_string(round))}));
    eagerTexts.push_back(eager.ZOLExport());
  }
  link.Apply(ViewEncoder::RemoveRows(view->GetViewID(), types, Block({Result(102, 0, "")})));
  eagerTexts.push_back(eager.ZOLExport());
  EXPECT_TRUE(table.AreRowsOutOfDate());
  const std::string lazy = table.ZOLExport();
  EXPECT_EQ(lazy, eagerTexts.back());
  EXPECT_NE(eagerTexts.front(), eagerTexts.back());
  EXPECT_EQ(lazy, "<zol_table type=\"results\" ><zol_rh type='position'>Pos</zol_rh><zol_rh type='name'>Name</zol_rh>"
                  "<zol_rr><zol_rd>1</zol_rd><zol_rd>R19</zol_rd></zol_rr>"
                  "<zol_rr><zol_rd>2</zol_rd><zol_rd>R18</zol_rd></zol_rr>"
                  "<zol_rr><zol_rd>4</zol_rd><zol_rd>R16</zol_rd></zol_rr></zol_table>");
  EXPECT_EQ(table.HTMLExport(), eager.HTMLExport());
}

TEST_F(ZOLServerTableLive, TheBrowserViewAndTheRowsAreBroughtUpToDateToo) {
  Live(table, PositionNameTable(), Positions(2));
  EXPECT_TRUE(table.AreRowsOutOfDate());
  EXPECT_EQ(table.HTMLExport(), "PosName1P1");
  EXPECT_FALSE(table.AreRowsOutOfDate());
  ModifyRows(table.GetView(), Block({Result(101, 3, "Last")}));
  ASSERT_EQ(table.GetRows().size(), 2u);
  EXPECT_EQ(table.GetRows()[0]->CellGetAt(1)->m_text, "P2");
}

TEST_F(ZOLServerTableLive, ANewStructureEmptiesTheRowsUntilTheNextData) {
  Live(table, PositionNameTable(), Positions(2));
  Structure(table.GetView(), {});
  EXPECT_FALSE(table.AreRowsOutOfDate());
  EXPECT_EQ(table.ZOLExportRows(), "") << "what the rebuild at every notification would give";
}

TEST_F(ZOLServerTableLive, ALateReaderOfAFilledViewGetsItsRowsAtOnce) {
  Live(table, PositionNameTable(), Positions(2));
  CZOLServerTable late(1, &link.comm);
  CCountingTableObserver page;
  page.Attach(&late);
  ASSERT_EQ(late.ZOLImport(PositionNameTable()), TRUE);
  late.RunConnect(&run, CParameters());
  EXPECT_EQ(late.GetView(), table.GetView());
  EXPECT_EQ(page.Reports, 1);
  EXPECT_EQ(late.ZOLExportRows(), table.ZOLExportRows());
  EXPECT_EQ(late.ZOLExportRows(), "<zol_rr><zol_rd>1</zol_rd><zol_rd>P1</zol_rd></zol_rr>"
                                  "<zol_rr><zol_rd>2</zol_rd><zol_rd>P2</zol_rd></zol_rr>");
}

TEST_F(ZOLServerTableLive, AViewThatGoesAwayLeavesTheTableUnboundWithTheRowsItLastBuilt) {
  Live(table, PositionNameTable(), Positions(2));
  const std::string before = table.ZOLExport();
  CRMView* view = table.GetView();
  link.Apply(ViewEncoder::ViewDisconnect(view->GetName(), view->GetViewID()));
  EXPECT_EQ(table.GetView(), nullptr);
  EXPECT_EQ(table.ZOLExport(), before);
  table.RunConnect(&run, CParameters());
  EXPECT_NE(table.GetView(), nullptr);
}

TEST_F(ZOLServerTableLive, ATableOutlivedByItsViewLeavesIt) {
  CRMView* view = nullptr;
  {
    CZOLServerTable shortLived(1, &link.comm);
    Live(shortLived, PositionNameTable(), Positions(1));
    view = shortLived.GetView();
    EXPECT_EQ(view->GetObservers().size(), 1u);
  }
  EXPECT_TRUE(view->GetObservers().empty());
}

TEST_F(ZOLServerTableLive, OddTemplatesAndDataNeverCrash) {
  const std::vector<std::string> texts = {
      "<zol_table type='results'><zol_rr><zol_rd/></zol_rr></zol_table>",
      "<zol_table type='results'><zol_rh type='laps'/><zol_rh type='laps'/><zol_rr/><zol_rr/></zol_table>",
      "<zol_table type='results' startrow='-3' maxrows='-1'><zol_rh type='name'/><zol_rr><zol_rd/></zol_rr></zol_table>",
      "<zol_table type='results' startrow='0' maxrows='2'><zol_rh type='name'/><zol_rr><zol_rd/></zol_rr></zol_table>",
      "<zol_table type='results' startrow='99999999999' maxrows='99999999999'><zol_rh type='name'/><zol_rr>"
      "<zol_rd/></zol_rr></zol_table>",
  };
  long id = 10;
  for (const std::string& text : texts) {
    CZOLServerTable odd(id++, &link.comm);
    Live(odd, text, Positions(3));
    (void)odd.ZOLExport();
    (void)odd.HTMLExport();
  }
  SUCCEED();
}
