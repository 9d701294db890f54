// Labels: the live values of a page bound to the run information view, the fixed values
// of the event, the merge legend, and what a page sends and shows for them.
#include "site/ZOLInfo.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "data/DataEncoder.h"
#include "data/DataTestSupport.h"
#include "data/Event.h"
#include "data/Merge.h"
#include "data/Track.h"
#include "frame/TimeText.h"
#include "site/ZOLServerPage.h"
#include "testing/ModuleFixture.h"
#include "testing/ViewTestSupport.h"
#include "views/RMComm.h"
#include "views/RMView.h"
#include "views/ViewEncoder.h"

namespace {

constexpr DWORD kRootEvent = 0x80000001;
constexpr DWORD kEvent = 0x80000002;
constexpr DWORD kRun = 0x40000001;
constexpr DWORD kOtherRun = 0x40000002;
constexpr DWORD kGoneRun = 0x40000009;
constexpr DWORD kMerge = 0x20000001;
constexpr DWORD kInnerMerge = 0x20000002;
constexpr KVTTIME kSecond = 1000000;

const char kDeclaration[] = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n";

// The wire text of a page whose root has no attributes, around `body`.
std::string WireOf(const std::string& body) {
  return std::string(kDeclaration) + "<zol refresh=\"10\" >" + body + "</zol>";
}

// What the run information view holds in its one row.
struct RunInfo {
  std::string Event = "Cup";
  std::string Run = "Final";
  std::string Leader = "Ann";
  KVTTIME RaceTime = 90 * kSecond;
  KVTTIME TimeToGo = 300 * kSecond;
  KVTTIME TimeOfDay = (13 * 3600 + 45 * 60) * kSecond;
  DWORD Flag = 1;
  DWORD Special = 0;
};

std::vector<CColumn> RunInfoColumns() {
  return {MakeColumn(kColumnString, "lgHeader_ParentEvent"), MakeColumn(kColumnString, "lgHeader_Run"),
          MakeColumn(kColumnString, "lgHeader_Leader"),      MakeColumn(kColumnKVTTime, "lgHeader_ElapsedTime"),
          MakeColumn(kColumnKVTDiff, "lgHeader_TimeToGo"),   MakeColumn(kColumnKVTTime, "lgHeader_TimeOfDay"),
          MakeColumn(kColumnDWord, "lgHeader_Flag"),         MakeColumn(kColumnDWord, "lgHeader_FlagSpecial")};
}

ViewRowBlock RowOf(const RunInfo& info) {
  ViewRowBlock block;
  block.Rows.push_back(MakeRowValues(
      1, {TextValue(info.Event), TextValue(info.Run), TextValue(info.Leader), TimeValue(info.RaceTime),
          TimeValue(info.TimeToGo), TimeValue(info.TimeOfDay), DwordValue(info.Flag), DwordValue(info.Special)}));
  return block;
}

class CountingInfoObserver : public CZOLInfoObserver {
 public:
  void OnInfoUpdated(CZOLInfo* label) override { Labels.push_back(label); }
  std::vector<CZOLInfo*> Labels;
};

// A live link whose replica holds a track of length 1.5 under the event, two runs and a
// merge of a run, a merge and a run that is gone.
struct ZOLInfoData : ::testing::Test {
  ZOLInfoData() {
    CBaseDataComm model;
    AddTrackAndEventGroup(model);
    model.Tracks[1]->Name = "Ring";
    model.Tracks[1]->Length = 1.5;
    model.Events[kRootEvent]->Name = "Cup";
    model.Events[kEvent]->Name = "Juniors";
    model.Events[kEvent]->TrackID = 1;
    CRun* run = AddOpenRun(model, kRun);
    run->Name = "Final";
    run->EventID = kEvent;
    CRun* other = AddOpenRun(model, kOtherRun);
    other->Name = "Heat 1";
    other->EventID = kEvent;
    auto* merge = new CMerge(nullptr);
    merge->UniqueID = kMerge;
    merge->EventID = kEvent;
    merge->Name = "Total";
    merge->MergeType = 2;
    merge->IDs = {kRun, kInnerMerge, kGoneRun};
    model.Merges[kMerge] = merge;
    auto* inner = new CMerge(nullptr);
    inner->UniqueID = kInnerMerge;
    inner->EventID = kEvent;
    inner->Name = "Semis";
    inner->IDs = {kOtherRun};
    model.Merges[kInnerMerge] = inner;
    link.Apply(DataEncoder::Snapshot(model));
    link.Apply(ViewEncoder::AllViews({"lgView_RunInfo"}));
  }

  // The data manager answers the view's request: structure, then its one row.
  void Deliver(const CRMView* view, const RunInfo& info = RunInfo()) {
    ASSERT_NE(view, nullptr);
    link.Apply(ViewEncoder::ViewStructure(view->GetViewID(), RunInfoColumns()));
    link.Apply(ViewEncoder::AllRows(view->GetViewID(), ViewEncoder::ColumnTypes(RunInfoColumns()), RowOf(info)));
  }
  void Modify(const CRMView* view, const RunInfo& info) {
    ASSERT_NE(view, nullptr);
    link.Apply(ViewEncoder::ModifyRows(view->GetViewID(), ViewEncoder::ColumnTypes(RunInfoColumns()), RowOf(info)));
  }

  CZOLInfo* FirstLabel(const CZOLServerPage& of) {
    return of.GetLabels().empty() ? nullptr : of.GetLabels().begin()->second;
  }
  // The page's wire text without its closing zero byte.
  static std::string Wire(CZOLServerPage& of) {
    of.ZOLExport();
    std::string text = of.GetDataAsString();
    EXPECT_FALSE(text.empty());
    if (!text.empty() && text.back() == '\0') text.pop_back();
    return text;
  }

  PackageScope scope;
  CLiveLink link;
  CZOLServerPage page{1, 20, 2, 5, "", "page.zol"};
};

}  // namespace

// ---------------------------------------------------------------------------------------
// Import

TEST_F(ZOLInfoData, UnknownLabelTypeGivesTheFailedLabelTextInThePage) {
  ASSERT_EQ(page.Initialize(&link.comm, kEvent, "", kRun, "<zol><p>a</p><zol_label type=\"nosuch\"/><p>b</p></zol>"),
            TRUE);
  EXPECT_TRUE(page.GetLabels().empty());
  EXPECT_EQ(Wire(page), WireOf("<p>a</p><zol_error>Failed to import label.</zol_error><p>b</p>"));
}

TEST_F(ZOLInfoData, ColumnLabelOnAPageWithNoRunShowsItsOwnCanonicalTagAsEscapedText) {
  ASSERT_EQ(page.Initialize(&link.comm, kEvent, "", -1,
                            "<zol><zol_label type=\"runname\" url=\"run.html\" format=\"x\"/></zol>"),
            TRUE);
  ASSERT_NE(FirstLabel(page), nullptr);
  EXPECT_EQ(FirstLabel(page)->GetView(), nullptr);
  EXPECT_EQ(Wire(page), WireOf("<zol_label type=\"runname\" url=\"run.html\" format=\"x\">"
                               "&lt;zol_labeltype=\"runname\"url=\"run.html\"format=\"x\"/&gt;</zol_label>"));
}

TEST(ZOLInfo, CanonicalTagJoinsItsPiecesWithoutBlanksAndLeavesOutEmptyUrlAndFormat) {
  CZOLInfo label(0, -1, nullptr);
  ASSERT_EQ(label.ZOLImport("<zol_label format='%s' type='leader'/>"), TRUE);
  EXPECT_EQ(label.GetText(), "<zol_labeltype=\"leader\"format=\"%s\"/>");
  EXPECT_EQ(label.GetColumnKey(), "lgHeader_Leader");
  CZOLInfo plain(1, -1, nullptr);
  ASSERT_EQ(plain.ZOLImport("<zol_label type=\"racetime\"></zol_label>"), TRUE);
  EXPECT_EQ(plain.GetText(), "<zol_labeltype=\"racetime\"/>");
}

TEST(ZOLInfo, TextThatIsNoLabelIsKeptAndExportsNothing) {
  CZOLInfo label(0, -1, nullptr);
  EXPECT_EQ(label.ZOLImport("<b>fixed</b>"), TRUE);
  EXPECT_EQ(label.GetText(), "<b>fixed</b>");
  EXPECT_EQ(label.ZOLExport(), "");
  EXPECT_EQ(label.HTMLExport(CParameters()), "");
}

TEST(ZOLInfo, WithoutALinkThereAreNoStaticLabelsSoTracklengthFailsToImport) {
  CZOLInfo label(0, static_cast<int>(kEvent), nullptr);
  EXPECT_EQ(label.ZOLImport("<zol_label type=\"tracklength\"/>"), FALSE);
  label.Import(static_cast<int>(kRun));
  EXPECT_EQ(label.GetView(), nullptr);
}

TEST_F(ZOLInfoData, UnknownEventLeavesTheStaticLabelsOut) {
  CZOLInfo label(0, 0x80000077, &link.comm);
  EXPECT_EQ(label.ZOLImport("<zol_label type=\"tracklength\"/>"), FALSE);
}

TEST_F(ZOLInfoData, EventWhoseTrackIsUnknownLeavesTheStaticLabelsOut) {
  // The root event's track is known; an event without a track is not.
  CZOLInfo known(0, static_cast<int>(kRootEvent), &link.comm);
  EXPECT_EQ(known.ZOLImport("<zol_label type=\"tracklength\"/>"), TRUE);
  link.Data().GetEvent(kRootEvent)->TrackID = 77;
  CZOLInfo unknown(1, static_cast<int>(kRootEvent), &link.comm);
  EXPECT_EQ(unknown.ZOLImport("<zol_label type=\"tracklength\"/>"), FALSE);
}

// ---------------------------------------------------------------------------------------
// Static labels

TEST_F(ZOLInfoData, TracklengthOfATrackOfLengthOneAndAHalfShowsOnePointFiveHundred) {
  ASSERT_EQ(page.Initialize(&link.comm, kEvent, "", -1, "<zol>L=<zol_label type=\"tracklength\"/>m</zol>"), TRUE);
  EXPECT_EQ(Wire(page), WireOf("L=<zol_label type=\"tracklength\">1.500</zol_label>m"));
}

TEST_F(ZOLInfoData, TracklengthKeepsTheAttributesTheAuthorWrote) {
  CZOLInfo label(0, static_cast<int>(kEvent), &link.comm);
  ASSERT_EQ(label.ZOLImport("<zol_label type='tracklength' url=\"t.html\">old</zol_label>"), TRUE);
  EXPECT_EQ(label.GetText(), "1.500");
  EXPECT_EQ(label.GetColumnKey(), "");
  EXPECT_EQ(label.ZOLExport(), "<zol_label type='tracklength' url=\"t.html\">1.500</zol_label>");
}

TEST_F(ZOLInfoData, EventAndTrackNamesAreShadowedByTheirColumnLabels) {
  CZOLInfo label(0, static_cast<int>(kEvent), &link.comm);
  ASSERT_EQ(label.ZOLImport("<zol_label type=\"trackname\"/>"), TRUE);
  EXPECT_EQ(label.GetColumnKey(), "lgHeader_Track");
  EXPECT_EQ(label.ZOLExport(), "<zol_label type=\"trackname\">&lt;zol_labeltype=\"trackname\"/&gt;</zol_label>");
}

// ---------------------------------------------------------------------------------------
// Column labels bound to the view

TEST_F(ZOLInfoData, EmptyLabelIsWrittenBackWithStartAndEndTagHoldingTheValue) {
  ASSERT_EQ(page.Initialize(&link.comm, kEvent, "", kRun, "<zol><h1><zol_label type=\"runname\"/></h1></zol>"), TRUE);
  ASSERT_NE(FirstLabel(page), nullptr);
  Deliver(FirstLabel(page)->GetView());
  EXPECT_EQ(Wire(page), WireOf("<h1><zol_label type=\"runname\">Final</zol_label></h1>"));
}

TEST_F(ZOLInfoData, EmptyValueStillGivesStartAndEndTag) {
  CZOLInfo label(0, static_cast<int>(kEvent), &link.comm);
  ASSERT_EQ(label.ZOLImport("<zol_label type=\"leader\"/>"), TRUE);
  label.Import(static_cast<int>(kRun));
  RunInfo info;
  info.Leader = "";
  Deliver(label.GetView(), info);
  EXPECT_EQ(label.ZOLExport(), "<zol_label type=\"leader\"></zol_label>");
}

TEST_F(ZOLInfoData, ImportCreatesTheRunInformationViewOfTheRunAndAsksForIt) {
  CZOLInfo label(0, static_cast<int>(kEvent), &link.comm);
  ASSERT_EQ(label.ZOLImport("<zol_label type=\"leader\"/>"), TRUE);
  label.Import(static_cast<int>(kRun));
  ASSERT_NE(label.GetView(), nullptr);
  EXPECT_EQ(label.GetView()->GetName(), "lgView_RunInfo");
  EXPECT_EQ(label.GetView()->GetParameters().GetString("UniqueID"), std::to_string(kRun));
  EXPECT_EQ(label.GetView()->IsPrivate(), FALSE);
  EXPECT_EQ(label.GetView()->IsGrouped(), FALSE);
  EXPECT_EQ(label.GetView()->GetObservers(), std::vector<CRMViewObserver*>{&label});
  const std::vector<WORD> sent = link.module.DataManagerIDs();
  EXPECT_EQ(std::count(sent.begin(), sent.end(), kMsgViewConnect), 1);
}

TEST_F(ZOLInfoData, ImportOfMinusOneDoesNothing) {
  CZOLInfo label(0, static_cast<int>(kEvent), &link.comm);
  label.Import(-1);
  EXPECT_EQ(label.GetView(), nullptr);
  EXPECT_TRUE(link.comm.GetViews().empty());
}

TEST_F(ZOLInfoData, ImportOfAnotherRunLeavesTheOldView) {
  CZOLInfo label(0, static_cast<int>(kEvent), &link.comm);
  ASSERT_EQ(label.ZOLImport("<zol_label type=\"runname\"/>"), TRUE);
  label.Import(static_cast<int>(kRun));
  CRMView* first = label.GetView();
  Deliver(first);
  label.Import(static_cast<int>(kOtherRun));
  ASSERT_NE(label.GetView(), first);
  EXPECT_EQ(label.GetView()->GetParameters().GetString("UniqueID"), std::to_string(kOtherRun));
  EXPECT_EQ(label.GetSubjects(), std::vector<CRMView*>{label.GetView()});
  // Until the new view delivers, the label shows its canonical tag again.
  EXPECT_EQ(label.ZOLExport(), "<zol_label type=\"runname\">&lt;zol_labeltype=\"runname\"/&gt;</zol_label>");
}

TEST_F(ZOLInfoData, RaceTimeAndTimeToGoAreFormattedAndOtherColumnsShowTheirCellText) {
  CZOLInfo race(0, static_cast<int>(kEvent), &link.comm);
  CZOLInfo toGo(1, static_cast<int>(kEvent), &link.comm);
  CZOLInfo leader(2, static_cast<int>(kEvent), &link.comm);
  ASSERT_EQ(race.ZOLImport("<zol_label type=\"racetime\"/>"), TRUE);
  ASSERT_EQ(toGo.ZOLImport("<zol_label type=\"timetogo\"/>"), TRUE);
  ASSERT_EQ(leader.ZOLImport("<zol_label type=\"leader\"/>"), TRUE);
  race.Import(static_cast<int>(kRun));
  toGo.Import(static_cast<int>(kRun));
  leader.Import(static_cast<int>(kRun));
  // The three share one view.
  EXPECT_EQ(race.GetView(), toGo.GetView());
  EXPECT_EQ(race.GetView(), leader.GetView());
  RunInfo info;
  info.RaceTime = 90 * kSecond + 500000;
  info.TimeToGo = 300 * kSecond;
  Deliver(race.GetView(), info);
  EXPECT_EQ(race.ZOLExport(), "<zol_label type=\"racetime\">0:01:30</zol_label>");
  EXPECT_EQ(toGo.ZOLExport(), "<zol_label type=\"timetogo\">5:00</zol_label>");
  EXPECT_EQ(leader.ZOLExport(), "<zol_label type=\"leader\">Ann</zol_label>");
}

TEST_F(ZOLInfoData, TimetogoOnARunWithNoTimeLimitShowsWhatFormatTimeGivesForTheNullTime) {
  ASSERT_EQ(page.Initialize(&link.comm, kEvent, "", kRun, "<zol><zol_label type=\"timetogo\"/></zol>"), TRUE);
  RunInfo info;
  info.TimeToGo = KVTTIME_NULL;
  Deliver(FirstLabel(page)->GetView(), info);
  EXPECT_EQ(Wire(page), WireOf("<zol_label type=\"timetogo\">" + FormatTime(KVTTIME_NULL, 1, 0) + "</zol_label>"));
}

TEST_F(ZOLInfoData, FlagLabelShowsNoneForAnUnknownFlagAndFinishForSpecialTwoWhateverTheFlag) {
  CZOLInfo flag(0, static_cast<int>(kEvent), &link.comm);
  ASSERT_EQ(flag.ZOLImport("<zol_label type=\"flag\"/>"), TRUE);
  flag.Import(static_cast<int>(kRun));
  RunInfo info;
  info.Flag = 9;
  info.Special = 0;
  Deliver(flag.GetView(), info);
  EXPECT_EQ(flag.ZOLExport(), "<zol_label type=\"flag\">none</zol_label>");
  info.Flag = 2;
  Modify(flag.GetView(), info);
  EXPECT_EQ(flag.ZOLExport(), "<zol_label type=\"flag\">yellow</zol_label>");
  for (DWORD any : {0u, 1u, 4u, 9u}) {
    info.Flag = any;
    info.Special = 2;
    Modify(flag.GetView(), info);
    EXPECT_EQ(flag.ZOLExport(), "<zol_label type=\"flag\">finish</zol_label>") << "flag " << any;
  }
}

TEST_F(ZOLInfoData, ViewWithoutARowShowsADash) {
  CZOLInfo label(0, static_cast<int>(kEvent), &link.comm);
  ASSERT_EQ(label.ZOLImport("<zol_label type=\"leader\"/>"), TRUE);
  label.Import(static_cast<int>(kRun));
  link.Apply(ViewEncoder::ViewStructure(label.GetView()->GetViewID(), RunInfoColumns()));
  link.Apply(
      ViewEncoder::AllRows(label.GetView()->GetViewID(), ViewEncoder::ColumnTypes(RunInfoColumns()), ViewRowBlock()));
  EXPECT_EQ(label.ZOLExport(), "<zol_label type=\"leader\">-</zol_label>");
}

TEST_F(ZOLInfoData, ColumnThatTheViewLacksShowsTheCanonicalTag) {
  CZOLInfo label(0, static_cast<int>(kEvent), &link.comm);
  ASSERT_EQ(label.ZOLImport("<zol_label type=\"bestlapby\"/>"), TRUE);
  label.Import(static_cast<int>(kRun));
  Deliver(label.GetView());
  EXPECT_EQ(label.ZOLExport(), "<zol_label type=\"bestlapby\">&lt;zol_labeltype=\"bestlapby\"/&gt;</zol_label>");
}

TEST_F(ZOLInfoData, LabelKeepsItsLastValueWhenItsViewGoesWithTheDataManager) {
  CZOLInfo label(0, static_cast<int>(kEvent), &link.comm);
  ASSERT_EQ(label.ZOLImport("<zol_label type=\"leader\"/>"), TRUE);
  label.Import(static_cast<int>(kRun));
  Deliver(label.GetView());
  link.comm.OnModifyModule(kDataManagerClass, 1, LocalComputerForTests(), FALSE);
  EXPECT_EQ(label.GetView(), nullptr);
  // Not the label's tag: a page written meanwhile keeps what its clients have.
  EXPECT_EQ(label.ZOLExport(), "<zol_label type=\"leader\">Ann</zol_label>");
}

TEST_F(ZOLInfoData, CellTextIsEscapedByTheWriteOut) {
  CZOLInfo label(0, static_cast<int>(kEvent), &link.comm);
  ASSERT_EQ(label.ZOLImport("<zol_label type=\"leader\"/>"), TRUE);
  label.Import(static_cast<int>(kRun));
  RunInfo info;
  info.Leader = "A&B <C>";
  Deliver(label.GetView(), info);
  EXPECT_EQ(label.ZOLExport(), "<zol_label type=\"leader\">A&amp;B &lt;C&gt;</zol_label>");
}

TEST_F(ZOLInfoData, LateReaderOfAFilledViewGetsItsValueAtOnce) {
  CZOLInfo first(0, static_cast<int>(kEvent), &link.comm);
  ASSERT_EQ(first.ZOLImport("<zol_label type=\"leader\"/>"), TRUE);
  first.Import(static_cast<int>(kRun));
  Deliver(first.GetView());
  CountingInfoObserver observer;
  CZOLInfo late(1, static_cast<int>(kEvent), &link.comm);
  observer.Attach(&late);
  ASSERT_EQ(late.ZOLImport("<zol_label type=\"runname\"/>"), TRUE);
  late.Import(static_cast<int>(kRun));
  EXPECT_EQ(observer.Labels, std::vector<CZOLInfo*>{&late});
  EXPECT_EQ(late.ZOLExport(), "<zol_label type=\"runname\">Final</zol_label>");
}

// ---------------------------------------------------------------------------------------
// Notifications

TEST_F(ZOLInfoData, ObserversAreToldOnlyWhenTheExportChanges) {
  CountingInfoObserver observer;
  CZOLInfo label(0, static_cast<int>(kEvent), &link.comm);
  observer.Attach(&label);
  ASSERT_EQ(label.ZOLImport("<zol_label type=\"leader\"/>"), TRUE);
  label.Import(static_cast<int>(kRun));
  RunInfo info;
  Deliver(label.GetView(), info);
  EXPECT_EQ(observer.Labels.size(), 1u);
  info.RaceTime += kSecond;
  Modify(label.GetView(), info);
  EXPECT_EQ(observer.Labels.size(), 1u) << "the leader did not change";
  info.Leader = "Bea";
  Modify(label.GetView(), info);
  EXPECT_EQ(observer.Labels, (std::vector<CZOLInfo*>{&label, &label}));
}

TEST_F(ZOLInfoData, LabelWhoseValueComesBackUnchangedCausesNoExportOfThePage) {
  ASSERT_EQ(page.Initialize(&link.comm, kEvent, "", kRun, "<zol><zol_label type=\"leader\"/></zol>"), TRUE);
  EXPECT_EQ(page.GetWaitingLabels().size(), 1u);
  RunInfo info;
  Deliver(FirstLabel(page)->GetView(), info);
  EXPECT_TRUE(page.GetWaitingLabels().empty());
  ASSERT_TRUE(page.IsExportDue());
  ASSERT_TRUE(page.ExportIfDue());
  ASSERT_FALSE(page.IsExportDue());
  // The clock ticks on; the leader stays.
  info.RaceTime += kSecond;
  info.TimeOfDay += kSecond;
  Modify(FirstLabel(page)->GetView(), info);
  EXPECT_FALSE(page.IsExportDue());
  EXPECT_FALSE(page.ExportIfDue());
  info.Leader = "Bea";
  Modify(FirstLabel(page)->GetView(), info);
  EXPECT_TRUE(page.IsExportDue());
  EXPECT_EQ(Wire(page), WireOf("<zol_label type=\"leader\">Bea</zol_label>"));
}

TEST_F(ZOLInfoData, StructureOfAnotherViewIsNotTaken) {
  CZOLInfo label(0, static_cast<int>(kEvent), &link.comm);
  ASSERT_EQ(label.ZOLImport("<zol_label type=\"leader\"/>"), TRUE);
  label.Import(static_cast<int>(kRun));
  CViewHarness other("lgView_RunInfo");
  other.Structure({MakeColumn(kColumnString, "lgHeader_Leader")});
  label.OnNotifyStructure(other.View.get());
  EXPECT_EQ(label.ZOLExport(), "<zol_label type=\"leader\">&lt;zol_labeltype=\"leader\"/&gt;</zol_label>");
}

// ---------------------------------------------------------------------------------------
// What a browser sees

TEST_F(ZOLInfoData, BrowserSeesTheClockForTheFourClockLabelsAndNothingForOthers) {
  ASSERT_EQ(page.Initialize(&link.comm, kEvent, "", kRun,
                            "<zol>[<zol_label type=\"racetime\"/>|<zol_label type=\"flag\"/>|"
                            "<zol_label type=\"timeofday\"/>|<zol_label type=\"timetogo\"/>|"
                            "<zol_label type=\"leader\"/>|<zol_label type=\"tracklength\"/>|<i>x</i>]</zol>"),
            TRUE);
  CParameters clock;
  clock.Add("racetime", "0:12:00");
  clock.Add("flag", "green");
  clock.Add("timeofday", "13:00:00");
  clock.Add("timetogo", "5:00");
  EXPECT_EQ(page.HTMLExport(clock), "[0:12:00|green|13:00:00|5:00|||<i>x</i>]");
}

TEST(ZOLInfo, LabelWithoutATypeFailsToImport) {
  CZOLInfo label(0, -1, nullptr);
  EXPECT_EQ(label.ZOLImport("<zol_label>no type</zol_label>"), FALSE);
  EXPECT_EQ(label.ZOLExport(), "");
}

// ---------------------------------------------------------------------------------------
// The merge legend

TEST_F(ZOLInfoData, MergeLegendListsRunsAndMergesWithOneRunningNumberAndAnEmptyNameForAGoneMember) {
  CZOLInfo label(0, static_cast<int>(kEvent), &link.comm);
  EXPECT_EQ(label.GetMergeLegenda(kMerge),
            "<TABLE CLASS='MergeInfo'>\n"
            "<TR><TD COLSPAN='2'><B>Legenda</B></TD></TR>\n"
            "<TR><TD COLSPAN='2' BGCOLOR='black' HEIGHT='1'></TD></TR>\n"
            "<TR><TD>R1:</TD><TD>Final</TD></TR>\n"
            "<TR><TD>M2:</TD><TD>Semis</TD></TR>\n"
            "<TR><TD>R3:</TD><TD></TD></TR>\n"
            "</TABLE>\n");
  EXPECT_EQ(label.GetMergeLegenda(0x20000077), "");
  EXPECT_EQ(label.GetMergeLegenda(kRun), "");
  CZOLInfo unlinked(1, -1, nullptr);
  EXPECT_EQ(unlinked.GetMergeLegenda(kMerge), "");
}

TEST_F(ZOLInfoData, PageOfAMergeShowsTheLegendInItsMergeInfoLabel) {
  ASSERT_EQ(page.Initialize(&link.comm, kEvent, "", static_cast<int>(kInnerMerge),
                            "<zol><zol_label type=\"MERGEINFO\"/></zol>"),
            TRUE);
  ASSERT_NE(FirstLabel(page), nullptr);
  EXPECT_EQ(FirstLabel(page)->GetView(), nullptr);
  const std::string legend =
      "&lt;TABLE CLASS='MergeInfo'&gt;\n"
      "&lt;TR&gt;&lt;TD COLSPAN='2'&gt;&lt;B&gt;Legenda&lt;/B&gt;&lt;/TD&gt;&lt;/TR&gt;\n"
      "&lt;TR&gt;&lt;TD COLSPAN='2' BGCOLOR='black' HEIGHT='1'&gt;&lt;/TD&gt;&lt;/TR&gt;\n"
      "&lt;TR&gt;&lt;TD&gt;R1:&lt;/TD&gt;&lt;TD&gt;Heat 1&lt;/TD&gt;&lt;/TR&gt;\n"
      "&lt;/TABLE&gt;\n";
  EXPECT_EQ(Wire(page), WireOf("<zol_label type=\"MERGEINFO\">" + legend + "</zol_label>"));
}

TEST_F(ZOLInfoData, ImportOfARunTakesTheMergeLegendAway) {
  CZOLInfo label(0, static_cast<int>(kEvent), &link.comm);
  label.MergeConnect(kMerge);
  CZOLInfo again(1, static_cast<int>(kEvent), &link.comm);
  again.MergeConnect(kMerge);
  ASSERT_EQ(label.ZOLImport("<zol_label type=\"MERGEINFO\"/>"), TRUE);
  EXPECT_EQ(label.GetText(), label.GetMergeLegenda(kMerge));
  again.Import(static_cast<int>(kRun));
  EXPECT_EQ(again.ZOLImport("<zol_label type=\"MERGEINFO\"/>"), FALSE);
}
