// A template page with live objects: which tables survive the run check, the waiting
// lists, the error texts in place of bad tags, and what a page does with row messages
// once its tables are gone.
#include <gtest/gtest.h>

#include <string>

#include "site/ZOLInfo.h"
#include "site/ZOLServerPage.h"
#include "site/ZOLServerTable.h"
#include "testing/LivePageSupport.h"
#include "testing/LogCapture.h"
#include "testing/ModuleFixture.h"

namespace {

constexpr DWORD kPracticeRun = 0x40000001;
constexpr DWORD kRaceRun = 0x40000002;
constexpr DWORD kNonResultRun = 0x40000003;

std::string Table(const std::string& type, const std::string& caption = "") {
  return "<zol_table type=\"" + type + "\"><zol_rh type=\"name\">" + caption +
         "</zol_rh><zol_rr><tr><zol_rd>sample</zol_rd></tr></zol_rr></zol_table>";
}

std::size_t Occurrences(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

class CountingPageObserver : public COutputPageObserver {
 public:
  void OnPageUpdated(COutputPage* page) override {
    (void)page;
    ++Updates;
  }
  int Updates = 0;
};

struct LivePage : ::testing::Test {
  LivePage() {
    data.AddRun(kPracticeRun, 0, false);
    data.AddRun(kRaceRun, 2, false);
    data.AddRun(kNonResultRun, 3, false);
  }
  // Imports `body` into the page, bound to `runId`.
  void Import(int runId, const std::string& body) {
    ASSERT_EQ(page.Initialize(&data.link.comm, static_cast<int>(kLiveEventID), "", runId, "<zol>" + body + "</zol>"),
              TRUE);
  }
  std::string Wire() {
    page.ZOLExport();
    return page.GetDataAsString();
  }

  PackageScope scope;
  CLiveData data;
  CZOLServerPage page{1, 2, 1, 20, "results/", "current.zol"};
};

}  // namespace

TEST_F(LivePage, RaceTableOnAPracticeRunVanishesWithoutATraceAndAResultsTableStays) {
  Import(static_cast<int>(kPracticeRun), "<p>a</p>" + Table("race", "Race") + "<p>b</p>" + Table("results", "All"));
  ASSERT_EQ(page.GetTables().size(), 1u);
  EXPECT_EQ(page.GetTables().begin()->second->GetType(), "results");
  const std::string wire = Wire();
  EXPECT_EQ(Occurrences(wire, "<zol_table"), 1u);
  EXPECT_EQ(wire.find("Race"), std::string::npos);
  EXPECT_EQ(wire.find("zol_error"), std::string::npos);
  // The race table left no chunk behind: literal text, the results table's marker.
  const std::vector<std::string> chunks{"", "<p>a</p>", "<p>b</p>", "#TABLE#1", ""};
  EXPECT_EQ(page.GetChunks(), chunks);
}

TEST_F(LivePage, EachTableTypeSurvivesOnlyOnItsKindOfRun) {
  const std::string all = Table("practice") + Table("qualify") + Table("race") + Table("results") + Table("none") +
                          Table("announcements") + Table("laptimes");
  const auto typesOn = [&](DWORD runId) {
    Import(static_cast<int>(runId), all);
    std::vector<std::string> types;
    for (const auto& [id, table] : page.GetTables()) types.push_back(table->GetType());
    return types;
  };
  EXPECT_EQ(typesOn(kPracticeRun), (std::vector<std::string>{"practice", "results", "announcements", "laptimes"}));
  EXPECT_EQ(typesOn(kRaceRun), (std::vector<std::string>{"race", "results", "announcements", "laptimes"}));
}

TEST_F(LivePage, RunTypeThreeOrMoreRemovesAResultsTable) {
  Import(static_cast<int>(kNonResultRun), Table("results") + Table("announcements"));
  ASSERT_EQ(page.GetTables().size(), 1u);
  EXPECT_EQ(page.GetTables().begin()->second->GetType(), "announcements");
  EXPECT_EQ(Occurrences(Wire(), "<zol_table"), 1u);
}

TEST_F(LivePage, LabelAndTableOnAPageWithRunMinusOneAndNoActiveRun) {
  Import(-1, Table("results") + "<zol_label type=\"runname\">Heat</zol_label>");
  // The table found no run to bind to and vanished; the label has no view and shows its
  // own text in place of a value.
  EXPECT_TRUE(page.GetTables().empty());
  ASSERT_EQ(page.GetLabels().size(), 1u);
  EXPECT_EQ(page.GetLabels().begin()->second->GetView(), nullptr);
  EXPECT_TRUE(page.GetWaitingLabels().empty());
  EXPECT_TRUE(data.link.comm.GetViews().empty());
  const std::string wire = Wire();
  EXPECT_EQ(wire.find("<zol_table"), std::string::npos);
  EXPECT_NE(wire.find("<zol_label type=\"runname\">&lt;zol_label"), std::string::npos) << wire;
  EXPECT_EQ(page.GetRunId(), -1);
}

TEST_F(LivePage, RunMinusOneTakesTheActiveRunAtTheFirstTableForEveryLaterObject) {
  data.AddRun(kRaceRun, 2, true);
  Import(-1, "<zol_label type=\"runname\"/>" + Table("race") + "<zol_label type=\"flag\"/>");
  EXPECT_EQ(page.GetRunId(), static_cast<int>(kRaceRun));
  ASSERT_EQ(page.GetLabels().size(), 2u);
  // The label before the first table was read while the run was still -1.
  EXPECT_EQ(page.GetLabels().at(0)->GetView(), nullptr);
  EXPECT_NE(page.GetLabels().at(1)->GetView(), nullptr);
  ASSERT_EQ(page.GetWaitingLabels().size(), 1u);
  EXPECT_EQ(page.GetWaitingLabels()[0], page.GetLabels().at(1));
}

TEST_F(LivePage, WithTwoTablesThePageIsDueOnlyAfterTheSecondHasReported) {
  Import(static_cast<int>(kRaceRun), Table("race") + Table("announcements"));
  ASSERT_EQ(page.GetTables().size(), 2u);
  ASSERT_EQ(page.GetWaitingTables().size(), 2u);
  CountingPageObserver observer;
  observer.Attach(&page);
  CRMView* results = data.View("lgView_Results");
  CRMView* announcements = data.View("lgView_Announcements");
  ASSERT_NE(results, nullptr);
  ASSERT_NE(announcements, nullptr);

  data.Serve(results, ResultsColumns(), {ResultRow(1, 1, "7", "Ann", 3)});
  EXPECT_EQ(observer.Updates, 0);
  EXPECT_FALSE(page.IsExportDue());
  EXPECT_EQ(page.GetWaitingTables().size(), 1u);

  data.Serve(announcements, {MakeColumn(kColumnDWord, "lgHeader_UniqueID"), MakeColumn(kColumnString, "lgHeader_Text")},
             {MakeRowValues(1, {DwordValue(1), TextValue("Welcome")})});
  EXPECT_EQ(observer.Updates, 1);
  EXPECT_TRUE(page.GetWaitingTables().empty());
  EXPECT_TRUE(page.ExportIfDue());
  EXPECT_NE(page.GetDataAsString().find(">Ann</zol_rd>"), std::string::npos);
}

TEST_F(LivePage, EveryChangeAfterTheFirstReportsMakesThePageDueAgain) {
  Import(static_cast<int>(kRaceRun), Table("race"));
  CountingPageObserver observer;
  observer.Attach(&page);
  CRMView* results = data.View("lgView_Results");
  ASSERT_NE(results, nullptr);
  data.Serve(results, ResultsColumns(), {ResultRow(1, 1, "7", "Ann", 3), ResultRow(2, 2, "9", "Bo", 3)});
  ASSERT_TRUE(page.ExportIfDue());
  const std::string first = page.GetDataAsString();
  EXPECT_LT(first.find(">Ann<"), first.find(">Bo<"));
  data.Modify(results->GetViewID(), ResultsColumns(), {ResultRow(2, 1, "9", "Bo", 4)});
  data.Modify(results->GetViewID(), ResultsColumns(), {ResultRow(1, 2, "7", "Ann", 3)});
  EXPECT_EQ(observer.Updates, 3);
  // Two changes, one export, with the rows as they stand now.
  ASSERT_TRUE(page.ExportIfDue());
  const std::string second = page.GetDataAsString();
  EXPECT_LT(second.find(">Bo<"), second.find(">Ann<"));
  EXPECT_FALSE(page.ExportIfDue());
}

TEST_F(LivePage, TableWithoutATypeIsReplacedByTheFailedTableText) {
  Import(static_cast<int>(kRaceRun), "<zol_table><zol_rh type=\"name\"/></zol_table>");
  EXPECT_TRUE(page.GetTables().empty());
  EXPECT_NE(Wire().find("<zol_error>Failed to import table.</zol_error>"), std::string::npos);
}

TEST_F(LivePage, TableOnAnUnknownRunIsReplacedByTheInvalidIdText) {
  Import(0x40000099, Table("results"));
  EXPECT_TRUE(page.GetTables().empty());
  EXPECT_NE(Wire().find("<zol_error>Cannot find run or merge (invalid ID).</zol_error>"), std::string::npos);
}

TEST_F(LivePage, LabelOfAnUnknownTypeIsReplacedByTheFailedLabelText) {
  Import(static_cast<int>(kRaceRun), "<zol_label type=\"weather\"/>");
  EXPECT_TRUE(page.GetLabels().empty());
  EXPECT_NE(Wire().find("<zol_error>Failed to import label.</zol_error>"), std::string::npos);
}

TEST_F(LivePage, ScheduleTableConnectsToTheEventsScheduleView) {
  Import(static_cast<int>(kRaceRun), Table("schedule"));
  ASSERT_EQ(page.GetTables().size(), 1u);
  CRMView* schedule = data.View("lgView_EventSchedule");
  ASSERT_NE(schedule, nullptr);
  EXPECT_EQ(schedule->GetParameters().GetString("UniqueID"), std::to_string(kLiveEventID));
  EXPECT_EQ(page.GetWaitingTables().size(), 1u);
}

TEST_F(LivePage, ScheduleTableOfAnUnknownEventStaysUnboundButKept) {
  ASSERT_EQ(page.Initialize(&data.link.comm, 0x7F, "", static_cast<int>(kRaceRun), "<zol>" + Table("schedule") + "</zol>"),
            TRUE);
  ASSERT_EQ(page.GetTables().size(), 1u);
  EXPECT_EQ(page.GetTables().begin()->second->GetView(), nullptr);
  EXPECT_TRUE(page.GetWaitingTables().empty());
  EXPECT_NE(Wire().find("<zol_table type=\"schedule\" >"), std::string::npos);
}

TEST_F(LivePage, RowMessagesForAViewWhoseTablesWereDeletedAreDroppedWithoutAWord) {
  LogCapturePackage log;
  InstalledPackage installed(&log);
  Import(static_cast<int>(kRaceRun), Table("race"));
  CRMView* results = data.View("lgView_Results");
  ASSERT_NE(results, nullptr);
  const DWORD viewID = results->GetViewID();
  data.Serve(results, ResultsColumns(), {ResultRow(1, 1, "7", "Ann", 3)});
  // A run change reads the page again: its tables and their views are gone.
  Import(static_cast<int>(kPracticeRun), Table("race"));
  EXPECT_TRUE(page.GetTables().empty());
  // The view lost its last reader; it waits only for the data manager to let it go.
  ASSERT_EQ(data.link.comm.GetViews().count(viewID), 1u);
  EXPECT_TRUE(data.link.comm.GetViews().at(viewID)->GetObservers().empty());
  EXPECT_TRUE(data.link.comm.GetViews().at(viewID)->GetName().empty());
  const std::size_t linesBefore = log.GetLines().size();
  EXPECT_NO_THROW(data.Modify(viewID, ResultsColumns(), {ResultRow(1, 1, "7", "Ann", 4)}));
  // Once the data manager has let the view go, its ID is unknown; a late message still
  // goes nowhere.
  data.link.Apply(ViewEncoder::ViewDisconnect("lgView_Results", viewID));
  EXPECT_EQ(data.link.comm.GetViews().count(viewID), 0u);
  EXPECT_NO_THROW(data.Modify(viewID, ResultsColumns(), {ResultRow(1, 1, "7", "Ann", 5)}));
  EXPECT_EQ(log.GetLines().size(), linesBefore);
  EXPECT_FALSE(page.IsExportDue());
}

TEST_F(LivePage, ClearDeletesTablesAndLabelsAndResetsTheirNumbers) {
  Import(static_cast<int>(kRaceRun), Table("race") + "<zol_label type=\"runname\"/>");
  ASSERT_EQ(page.GetTables().size(), 1u);
  ASSERT_EQ(page.GetLabels().size(), 1u);
  page.Clear();
  EXPECT_TRUE(page.GetTables().empty());
  EXPECT_TRUE(page.GetLabels().empty());
  EXPECT_TRUE(page.GetWaitingTables().empty());
  EXPECT_TRUE(page.GetWaitingLabels().empty());
  // The views lost their last reader and can no longer be found.
  EXPECT_FALSE(data.link.comm.GetViews().empty());
  EXPECT_EQ(data.View("lgView_Results"), nullptr);
  EXPECT_EQ(data.View("lgView_RunInfo"), nullptr);
  Import(static_cast<int>(kRaceRun), Table("race"));
  EXPECT_EQ(page.GetTables().begin()->first, 0);
}
