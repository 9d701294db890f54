#include "site/ZOLServerInfo.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "data/DataEncoder.h"
#include "data/DataTestSupport.h"
#include "frame/Clock.h"
#include "frame/TTBuffer.h"
#include "frame/TimeText.h"
#include "site/ZOLInfo.h"
#include "site/ZOLServerSite.h"
#include "testing/ModuleFixture.h"
#include "testing/StreamRecordingPort.h"
#include "testing/ViewTestSupport.h"
#include "views/RMComm.h"
#include "views/RMView.h"
#include "views/ViewEncoder.h"

namespace {

struct InfoRecord {
  DWORD BuildTime = 0;
  CParameters Clock;
  bool HasSite = false;
  CParameters Site;
};

InfoRecord Decode(const COutputPage& page) {
  const std::vector<BYTE>& data = page.GetData();
  CTTBuffer buffer(0);
  buffer.Assign(data.data(), data.size());
  InfoRecord record;
  buffer >> record.BuildTime;
  record.Clock.BufferToParameters(buffer);
  record.Site.BufferToParameters(buffer);
  record.HasSite = record.Site.GetCount() > 0;
  EXPECT_EQ(buffer.GetRemaining(), 0u) << "bytes behind the record";
  return record;
}

struct InfoPage : ::testing::Test {
  void SetUp() override {
    site.SetParameter("name", "demo");
    site.SetParameter("width", "800");
    site.SetParameter("height", "600");
    site.PortAdd(&port);
    site.Build(folder.Path() + "/", -1, 1);
  }
  PackageScope scope;
  TempDir folder;
  StreamRecordingPort port;
  CZOLServerSite site{2, nullptr};
};

}  // namespace

TEST_F(InfoPage, IsPageZeroAtLevelZeroWithRepeatOneAndNoName) {
  const CZOLServerInfo* info = site.GetInfoPage();
  EXPECT_EQ(site.GetPages().at(0), info);
  EXPECT_EQ(info->GetPageKey(), (2u << 18));
  EXPECT_EQ(info->GetRepeat(), 1u);
  EXPECT_EQ(info->GetFilename(), "");
  EXPECT_EQ(info->GetIsTemplate(), 0u);
}

TEST_F(InfoPage, NeverRepeatsByTheCarousel) {
  for (int tick = 0; tick < 5; ++tick) EXPECT_FALSE(site.GetInfoPage()->ShouldRepeat());
}

TEST_F(InfoPage, FirstExportHoldsBuildTimeClockAndTheSitesParameters) {
  site.GetInfoPage()->ZOLExport();
  const InfoRecord record = Decode(*site.GetInfoPage());
  EXPECT_EQ(record.BuildTime, site.GetBuildTime());
  std::vector<std::string> keys;
  for (const auto& [key, value] : record.Clock.GetEntries()) keys.push_back(key);
  EXPECT_EQ(keys, (std::vector<std::string>{"flag", "racetime", "timeofday", "timetogo"}));
  // Without a run there is no race time, no time to go and no flag.
  EXPECT_EQ(record.Clock.GetString("racetime"), FormatTime(KVTTIME_NULL, 0, 0));
  EXPECT_EQ(record.Clock.GetString("timetogo"), FormatTime(KVTTIME_NULL, 0, 0));
  EXPECT_EQ(record.Clock.GetString("flag"), "none");
  EXPECT_FALSE(record.Clock.GetString("timeofday").empty());
  EXPECT_NE(record.Clock.GetString("timeofday"), FormatTime(KVTTIME_NULL, 0, 0));
  // The first export follows no earlier one, whose second counts as 0.
  ASSERT_TRUE(record.HasSite);
  EXPECT_EQ(record.Site.GetString("name"), "demo");
  EXPECT_EQ(record.Site.GetString("width"), "800");
  EXPECT_EQ(record.Site.GetString("height"), "600");
  EXPECT_EQ(record.Site.GetString("pagecount"), "1");
  EXPECT_EQ(record.Clock, site.GetClockParameters());
}

TEST_F(InfoPage, SiteParametersGoAlongOnlyWhenThePreviousExportsSecondIsAMultipleOfFive) {
  site.GetInfoPage()->ZOLExport();
  for (int exportCount = 0; exportCount < 3; ++exportCount) {
    const DWORD previous = site.GetInfoPage()->GetLastSecond();
    site.GetInfoPage()->ZOLExport();
    EXPECT_EQ(Decode(*site.GetInfoPage()).HasSite, previous % 5 == 0) << "previous second " << previous;
  }
}

TEST_F(InfoPage, ContentHasNoClosingZeroByte) {
  site.GetInfoPage()->ZOLExport();
  // The record decodes to its very end; a text page would end in a zero byte.
  const InfoRecord record = Decode(*site.GetInfoPage());
  EXPECT_TRUE(record.HasSite);
  EXPECT_GT(site.GetInfoPage()->GetPackets().size(), 0u);
}

TEST_F(InfoPage, WithoutARunTheSitesTimerSendsANewVersionEverySecond) {
  port.Updates.clear();
  port.Sequences.clear();
  const DWORD key = site.GetInfoPage()->GetPageKey();
  for (int second = 0; second < 3; ++second) site.OnTimerEvent();
  std::vector<BYTE> versions;
  for (std::size_t i = 0; i < port.Updates.size(); ++i) {
    if (port.Updates[i] == key) versions.push_back(port.Sequences[i]);
  }
  ASSERT_EQ(versions.size(), 3u);
  EXPECT_NE(versions[0], versions[1]);
  EXPECT_NE(versions[1], versions[2]);
}

TEST_F(InfoPage, ItsUpdateReachesTheStreamAtOnceWithoutWaitingForATick) {
  site.GetInfoPage()->ZOLExport();
  port.Updates.clear();
  site.GetInfoPage()->NotifyPageUpdated();
  EXPECT_EQ(port.Updates, std::vector<DWORD>{site.GetInfoPage()->GetPageKey()});
  EXPECT_EQ(site.GetUpdatedPages().count(0), 0u);
}

TEST_F(InfoPage, BuildTimeOfARebuildIsSent) {
  site.Build(folder.Path() + "/", -1, 1);
  site.GetInfoPage()->ZOLExport();
  EXPECT_EQ(Decode(*site.GetInfoPage()).BuildTime, site.GetBuildTime());
  EXPECT_NEAR(static_cast<double>(site.GetBuildTime()), static_cast<double>(GetTimeOfDay()), 5.0);
}

// ---------------------------------------------------------------------------------------
// The clock of a run: page 0 bound to the run information view

namespace {

constexpr DWORD kRun = 0x40000001;
constexpr DWORD kOtherRun = 0x40000002;
constexpr KVTTIME kSecond = 1000000;

struct RunClock {
  KVTTIME TimeOfDay = (13 * 3600 + 45 * 60) * kSecond;
  KVTTIME RaceTime = 754 * kSecond;
  KVTTIME TimeToGo = 300 * kSecond;
  DWORD Flag = 2;
  DWORD Special = 0;
};

std::vector<CColumn> ClockColumns() {
  return {MakeColumn(kColumnString, "lgHeader_Run"),          MakeColumn(kColumnKVTTime, "lgHeader_TimeOfDay"),
          MakeColumn(kColumnKVTTime, "lgHeader_ElapsedTime"), MakeColumn(kColumnKVTDiff, "lgHeader_TimeToGo"),
          MakeColumn(kColumnDWord, "lgHeader_Flag"),          MakeColumn(kColumnDWord, "lgHeader_FlagSpecial")};
}

ViewRowBlock ClockRow(const RunClock& clock) {
  ViewRowBlock block;
  block.Rows.push_back(
      MakeRowValues(1, {TextValue("Final"), TimeValue(clock.TimeOfDay), TimeValue(clock.RaceTime),
                        TimeValue(clock.TimeToGo), DwordValue(clock.Flag), DwordValue(clock.Special)}));
  return block;
}

// A site on a live link whose replica holds two runs.
struct ZOLServerInfoRunView : ::testing::Test {
  void SetUp() override {
    CBaseDataComm model;
    AddOpenRun(model, kRun)->Name = "Final";
    AddOpenRun(model, kOtherRun)->Name = "Heat 1";
    link.Apply(DataEncoder::Snapshot(model));
    link.Apply(ViewEncoder::AllViews({"lgView_RunInfo"}));
    site = std::make_unique<CZOLServerSite>(2, &link.comm);
    site->SetParameter("name", "demo");
    site->PortAdd(&port);
    site->Build(folder.Path() + "/", -1, 1);
    port.Updates.clear();
  }
  void TearDown() override { site.reset(); }

  CZOLServerInfo& Info() { return *site->GetInfoPage(); }
  CRun* Run(DWORD id) { return link.Data().GetRun(id); }
  DWORD ViewID() { return Info().GetView()->GetViewID(); }
  void Deliver(const RunClock& clock, const std::vector<CColumn>& columns = ClockColumns()) {
    link.Apply(ViewEncoder::ViewStructure(ViewID(), columns));
    link.Apply(ViewEncoder::AllRows(ViewID(), ViewEncoder::ColumnTypes(columns), ClockRow(clock)));
  }
  void Modify(const RunClock& clock) {
    link.Apply(ViewEncoder::ModifyRows(ViewID(), ViewEncoder::ColumnTypes(ClockColumns()), ClockRow(clock)));
  }
  // How many versions of page 0 the stream was handed.
  std::size_t InfoUpdates() const {
    const DWORD key = site->GetInfoPage()->GetPageKey();
    return static_cast<std::size_t>(std::count(port.Updates.begin(), port.Updates.end(), key));
  }
  std::size_t ConnectRequests() const {
    const std::vector<WORD> sent = link.module.DataManagerIDs();
    return static_cast<std::size_t>(std::count(sent.begin(), sent.end(), kMsgViewConnect));
  }

  PackageScope scope;
  CLiveLink link;
  TempDir folder;
  StreamRecordingPort port;
  std::unique_ptr<CZOLServerSite> site;
};

}  // namespace

TEST_F(ZOLServerInfoRunView, FlagNameAndRaceTimeAreReadFromTheFedRunInformationView) {
  Info().RunConnect(Run(kRun));
  ASSERT_NE(Info().GetView(), nullptr);
  EXPECT_EQ(Info().GetView()->GetName(), "lgView_RunInfo");
  EXPECT_EQ(Info().GetView()->GetParameters().GetString("UniqueID"), std::to_string(kRun));
  RunClock clock;
  Deliver(clock);
  EXPECT_EQ(Info().GetFlagName(), "yellow");
  const InfoRecord record = Decode(Info());
  EXPECT_EQ(record.Clock.GetString("racetime"), "0:12:34");
  EXPECT_EQ(record.Clock.GetString("racetime"), FormatTime(clock.RaceTime, 0, 0));
  EXPECT_EQ(record.Clock.GetString("timetogo"), "0:05:00");
  EXPECT_EQ(record.Clock.GetString("timeofday"), "13:45:00");
  EXPECT_EQ(record.Clock.GetString("flag"), "yellow");
  EXPECT_EQ(record.Clock, Info().GetClockParameters());
}

TEST_F(ZOLServerInfoRunView, FlagNameReadsTheSpecialFlagFirst) {
  Info().RunConnect(Run(kRun));
  RunClock clock;
  clock.Flag = 9;
  clock.Special = 0;
  Deliver(clock);
  EXPECT_EQ(Info().GetFlagName(), "none");
  clock.Flag = 1;
  clock.Special = 2;
  Modify(clock);
  EXPECT_EQ(Info().GetFlagName(), "finish");
  EXPECT_EQ(Decode(Info()).Clock.GetString("flag"), "finish");
}

TEST_F(ZOLServerInfoRunView, PageIsExportedAndSentOnEveryChangeOfTheView) {
  Info().RunConnect(Run(kRun));
  RunClock clock;
  Deliver(clock);
  const std::size_t afterDelivery = InfoUpdates();
  EXPECT_GE(afterDelivery, 1u);
  for (int tick = 1; tick <= 3; ++tick) {
    clock.RaceTime += kSecond;
    Modify(clock);
    EXPECT_EQ(InfoUpdates(), afterDelivery + static_cast<std::size_t>(tick));
    EXPECT_EQ(Decode(Info()).Clock.GetString("racetime"), FormatTime(clock.RaceTime, 0, 0));
  }
  // A change that leaves the clock as it was is sent all the same.
  Modify(clock);
  EXPECT_EQ(InfoUpdates(), afterDelivery + 4);
}

TEST_F(ZOLServerInfoRunView, DrivenByTheRunOnlyOnceTheViewHasDeliveredSoTheTimerStopsThenAndNotBefore) {
  site->OnActiveRunChanged(Run(kRun));
  ASSERT_EQ(Info().GetRun(), Run(kRun));
  EXPECT_FALSE(Info().IsDrivenByRun());
  std::size_t before = InfoUpdates();
  site->OnTimerEvent();
  EXPECT_EQ(InfoUpdates(), before + 1) << "the view has not answered yet";
  Deliver(RunClock());
  EXPECT_TRUE(Info().IsDrivenByRun());
  before = InfoUpdates();
  site->OnTimerEvent();
  EXPECT_EQ(InfoUpdates(), before) << "the view's changes drive the clock now";
}

TEST_F(ZOLServerInfoRunView, RunConnectOfNullDetachesFromTheView) {
  Info().RunConnect(Run(kRun));
  CRMView* view = Info().GetView();
  Deliver(RunClock());
  ASSERT_EQ(view->GetObservers().size(), 1u);
  Info().RunConnect(nullptr);
  EXPECT_EQ(Info().GetRun(), nullptr);
  EXPECT_EQ(Info().GetView(), nullptr);
  EXPECT_FALSE(Info().IsDrivenByRun());
  EXPECT_TRUE(view->GetObservers().empty());
  EXPECT_TRUE(Info().GetSubjects().empty());
  // The page was the view's last reader, so the data manager is told.
  const std::vector<WORD> sent = link.module.DataManagerIDs();
  EXPECT_EQ(std::count(sent.begin(), sent.end(), kMsgViewDisconnect), 1);
  // Back to the time of day and no run's clock.
  EXPECT_EQ(Info().GetFlagName(), "none");
  Info().ZOLExport();
  const InfoRecord record = Decode(Info());
  EXPECT_EQ(record.Clock.GetString("racetime"), FormatTime(KVTTIME_NULL, 0, 0));
  EXPECT_EQ(record.Clock.GetString("flag"), "none");
  EXPECT_NE(record.Clock.GetString("timeofday"), FormatTime(KVTTIME_NULL, 0, 0));
}

TEST_F(ZOLServerInfoRunView, RunConnectOfTheSameRunDoesNothing) {
  Info().RunConnect(Run(kRun));
  CRMView* view = Info().GetView();
  Info().RunConnect(Run(kRun));
  EXPECT_EQ(Info().GetView(), view);
  EXPECT_EQ(ConnectRequests(), 1u);
  EXPECT_EQ(Info().GetSubjects(), std::vector<CRMView*>{view});
}

TEST_F(ZOLServerInfoRunView, RunConnectOfAnotherRunMovesToThatRunsView) {
  Info().RunConnect(Run(kRun));
  CRMView* first = Info().GetView();
  Deliver(RunClock());
  Info().RunConnect(Run(kOtherRun));
  EXPECT_EQ(Info().GetRun(), Run(kOtherRun));
  ASSERT_NE(Info().GetView(), nullptr);
  EXPECT_NE(Info().GetView(), first);
  EXPECT_EQ(Info().GetView()->GetParameters().GetString("UniqueID"), std::to_string(kOtherRun));
  EXPECT_EQ(Info().GetSubjects(), std::vector<CRMView*>{Info().GetView()});
  EXPECT_FALSE(Info().IsDrivenByRun());
  EXPECT_EQ(Info().GetFlagName(), "none");
}

TEST_F(ZOLServerInfoRunView, MissingCellGivesTheNullTimeForTheTimeOfDayToo) {
  Info().RunConnect(Run(kRun));
  // A view without a time of day column.
  std::vector<CColumn> columns = ClockColumns();
  columns[1].Key = "lgHeader_Other";
  Deliver(RunClock(), columns);
  const InfoRecord record = Decode(Info());
  EXPECT_EQ(record.Clock.GetString("timeofday"), FormatTime(KVTTIME_NULL, 0, 0));
  EXPECT_EQ(record.Clock.GetString("racetime"), "0:12:34");
}

TEST_F(ZOLServerInfoRunView, ViewWithoutARowGivesThreeNullTimesAndNoFlag) {
  Info().RunConnect(Run(kRun));
  link.Apply(ViewEncoder::ViewStructure(ViewID(), ClockColumns()));
  link.Apply(ViewEncoder::AllRows(ViewID(), ViewEncoder::ColumnTypes(ClockColumns()), ViewRowBlock()));
  EXPECT_EQ(Info().GetFlagName(), "none");
  const InfoRecord record = Decode(Info());
  EXPECT_EQ(record.Clock.GetString("timeofday"), FormatTime(KVTTIME_NULL, 0, 0));
  EXPECT_EQ(record.Clock.GetString("racetime"), FormatTime(KVTTIME_NULL, 0, 0));
  EXPECT_EQ(record.Clock.GetString("timetogo"), FormatTime(KVTTIME_NULL, 0, 0));
  EXPECT_EQ(record.Clock.GetString("flag"), "none");
}

TEST_F(ZOLServerInfoRunView, StructureOfAnotherViewIsIgnored) {
  Info().RunConnect(Run(kRun));
  Deliver(RunClock());
  CViewHarness other("lgView_RunInfo");
  other.Structure({MakeColumn(kColumnDWord, "lgHeader_Other"), MakeColumn(kColumnDWord, "lgHeader_Flag")});
  Info().OnNotifyStructure(other.View.get());
  EXPECT_EQ(Info().GetFlagName(), "yellow");
}

TEST_F(ZOLServerInfoRunView, RunPageLabelsAndThePageShareOneViewOfTheRun) {
  CZOLServerPage page(2, 30, 2, 5, "", "p.zol");
  ASSERT_EQ(page.Initialize(&link.comm, -1, "", static_cast<int>(kRun), "<zol><zol_label type=\"flag\"/></zol>"), TRUE);
  Info().RunConnect(Run(kRun));
  ASSERT_EQ(page.GetLabels().size(), 1u);
  EXPECT_EQ(page.GetLabels().begin()->second->GetView(), Info().GetView());
  EXPECT_EQ(ConnectRequests(), 1u);
  Deliver(RunClock());
  page.ZOLExport();
  EXPECT_NE(page.GetDataAsString().find("<zol_label type=\"flag\">yellow</zol_label>"), std::string::npos);
  EXPECT_EQ(Info().GetFlagName(), "yellow");
}
