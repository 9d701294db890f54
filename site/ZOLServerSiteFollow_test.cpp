// Pages that follow the active run, and a site whose data manager goes and comes back.
// Every page read without a run of its own whose tables ask for the active run moves to
// the next run with the run-bound pages, included pages and pages found through links
// among them. While the data manager is away no template page gets a new version, and a
// page whose tables or labels wait for their first data is held back from the wire.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "distribution/PacketFormat.h"
#include "site/ZOLServerPage.h"
#include "site/ZOLServerSite.h"
#include "testing/LivePageSupport.h"
#include "testing/ModuleFixture.h"
#include "testing/StreamRecordingPort.h"

namespace {

constexpr DWORD kPracticeRun = 0x40000001;
constexpr DWORD kQualifyingRun = 0x40000002;
constexpr DWORD kRaceRun = 0x40000003;

const char kIndex[] =
    "<zol><zol_include file=\"header.zol\" path=\"pages/\"/><zol_include file=\"track.zol\" path=\"pages/\"/></zol>";
// A table first: it binds the page, and so its labels, to the active run.
const char kHeader[] = "<zol><zol_table type=\"none\"/><p><zol_label type=\"runname\"/></p></zol>";
const char kTrack[] = "<zol><zol_include file=\"summary.zol\" path=\"../results/\"/></zol>";
const char kSummary[] =
    "<zol><zol_table type=\"results\"><zol_rh type=\"name\"/><zol_rr><zol_rd>-</zol_rd></zol_rr></zol_table></zol>";

std::vector<CColumn> RunInfoColumns() { return {MakeColumn(kColumnString, "lgHeader_Run", "Run")}; }
std::vector<CColumn> NameColumns() { return {MakeColumn(kColumnString, "lgHeader_Name", "Name")}; }

struct FollowingSite : ::testing::Test {
  FollowingSite() {
    folder.Write("index.zol", kIndex);
    folder.Write("pages/header.zol", kHeader);
    folder.Write("pages/track.zol", kTrack);
    folder.Write("results/summary.zol", kSummary);
    site = std::make_unique<CZOLServerSite>(1, &data.link.comm);
    site->SetParameter("name", "demo");
    site->PortAdd(&port);
  }
  ~FollowingSite() override { site.reset(); }

  // The view of that name bound to `runId`, or null.
  CRMView* ViewOf(const std::string& name, DWORD runId) const {
    for (CRMView* view : data.Views(name)) {
      if (view->GetParameters().GetString("UniqueID") == std::to_string(runId)) return view;
    }
    return nullptr;
  }
  // The data manager answers the run's views: its name, and one competitor in the results.
  void ServeRun(DWORD runId, const std::string& runName, const std::string& leader) {
    CRMView* info = ViewOf("lgView_RunInfo", runId);
    ASSERT_NE(info, nullptr) << runName;
    data.Serve(info, RunInfoColumns(), {MakeRowValues(1, {TextValue(runName)})});
    CRMView* results = ViewOf("lgView_Results", runId);
    ASSERT_NE(results, nullptr) << runName;
    data.Serve(results, NameColumns(), {MakeRowValues(1, {TextValue(leader)})});
  }
  // The last version of a page handed to the port, as a client rebuilds it.
  std::string LastReceived(const std::string& name) const {
    for (auto page = port.Received.Completed.rbegin(); page != port.Received.Completed.rend(); ++page) {
      if (page->Name == name) return std::string(page->Data.begin(), page->Data.end());
    }
    return "(no version of " + name + ")";
  }
  std::size_t VersionsOf(const std::string& name) const {
    return static_cast<std::size_t>(std::count_if(port.Received.Completed.begin(), port.Received.Completed.end(),
                                                  [&](const ReceivedPage& page) { return page.Name == name; }));
  }
  CZOLServerPage* Page(const std::string& path, const std::string& file) const {
    return dynamic_cast<CZOLServerPage*>(site->PageFind(path, file));
  }
  void Disconnect() { data.link.comm.OnModifyModule(kDataManagerClass, 1, LocalComputerForTests(), FALSE); }

  PackageScope scope;
  CLiveData data;
  TempDir folder;
  StreamRecordingPort port;
  std::unique_ptr<CZOLServerSite> site;
};

}  // namespace

TEST_F(FollowingSite, HeaderAndSummaryFoundThroughIncludesShowEachRunInTurn) {
  data.AddRun(kPracticeRun, 0, true);
  site->Build(folder.Path() + "/", static_cast<int>(kLiveEventID), 1);
  ASSERT_NE(Page("pages/", "header.zol"), nullptr);
  ASSERT_NE(Page("results/", "summary.zol"), nullptr);
  EXPECT_TRUE(Page("pages/", "header.zol")->FollowsActiveRun());
  EXPECT_TRUE(Page("results/", "summary.zol")->FollowsActiveRun());
  EXPECT_FALSE(Page("", "index.zol")->FollowsActiveRun());

  const struct {
    DWORD Id;
    BYTE Type;
    const char* Name;
    const char* Leader;
  } runs[] = {{kPracticeRun, 0, "Free Practice", "Ann"}, {kQualifyingRun, 1, "Qualifying", "Bo"},
              {kRaceRun, 2, "Race 1", "Cy"}};
  for (const auto& run : runs) {
    if (run.Id != kPracticeRun) data.AddRun(run.Id, run.Type, true);
    ASSERT_EQ(site->GetActiveRun()->UniqueID, run.Id);
    ServeRun(run.Id, run.Name, run.Leader);
    site->OnTimerEvent();
    const std::string header = LastReceived("header.zol");
    const std::string summary = LastReceived("summary.zol");
    EXPECT_NE(header.find(std::string(">") + run.Name + "<"), std::string::npos) << run.Name << "\n" << header;
    EXPECT_NE(summary.find(std::string(">") + run.Leader + "<"), std::string::npos) << run.Name << "\n" << summary;
    EXPECT_EQ(Page("pages/", "header.zol")->GetRunId(), static_cast<int>(run.Id));
    EXPECT_EQ(Page("results/", "summary.zol")->GetRunId(), static_cast<int>(run.Id));
  }
}

TEST_F(FollowingSite, PageReadWhileNoRunWasActiveTakesTheFirstActiveRun) {
  site->Build(folder.Path() + "/", static_cast<int>(kLiveEventID), 1);
  EXPECT_TRUE(Page("results/", "summary.zol")->GetTables().empty());
  data.AddRun(kRaceRun, 2, true);
  ServeRun(kRaceRun, "Race 1", "Cy");
  site->OnTimerEvent();
  EXPECT_NE(LastReceived("summary.zol").find(">Cy<"), std::string::npos) << LastReceived("summary.zol");
  EXPECT_NE(LastReceived("header.zol").find(">Race 1<"), std::string::npos) << LastReceived("header.zol");
}

TEST_F(FollowingSite, PageWaitingForItsFirstDataIsHeldBackFromTheWireUntilItComes) {
  data.AddRun(kRaceRun, 2, true);
  site->Build(folder.Path() + "/", static_cast<int>(kLiveEventID), 1);
  const CZOLServerPage* header = Page("pages/", "header.zol");
  ASSERT_TRUE(header->IsWaiting());
  site->OnTimerEvent();
  site->OnTimerEvent();
  // Neither the label's tag nor an empty table reached the port.
  EXPECT_EQ(VersionsOf("header.zol"), 0u);
  EXPECT_EQ(VersionsOf("summary.zol"), 0u);
  EXPECT_TRUE(site->IsHeld(header));
  EXPECT_GE(VersionsOf("index.zol"), 1u);
  ServeRun(kRaceRun, "Race 1", "Cy");
  site->OnTimerEvent();
  EXPECT_FALSE(site->IsHeld(header));
  EXPECT_EQ(VersionsOf("header.zol"), 1u);
  EXPECT_NE(LastReceived("header.zol").find(">Race 1<"), std::string::npos) << LastReceived("header.zol");
  EXPECT_NE(LastReceived("summary.zol").find(">Cy<"), std::string::npos) << LastReceived("summary.zol");
}

TEST_F(FollowingSite, LossOfTheDataManagerSendsWhatCameBeforeAndThenNoNewVersionUntilItReturns) {
  data.AddRun(kRaceRun, 2, true);
  site->Build(folder.Path() + "/", static_cast<int>(kLiveEventID), 1);
  ServeRun(kRaceRun, "Race 1", "Cy");
  site->OnTimerEvent();
  // A change comes and the data manager goes before the tick: the change still goes out,
  // with the labels' values.
  data.Modify(ViewOf("lgView_RunInfo", kRaceRun)->GetViewID(), RunInfoColumns(),
              {MakeRowValues(1, {TextValue("Race 1 final")})});
  const std::size_t headersBefore = VersionsOf("header.zol");
  Disconnect();
  EXPECT_TRUE(site->IsDataAway());
  EXPECT_EQ(VersionsOf("header.zol"), headersBefore + 1);
  EXPECT_NE(LastReceived("header.zol").find(">Race 1 final<"), std::string::npos) << LastReceived("header.zol");
  const BYTE headerVersion = Page("pages/", "header.zol")->GetSequenceLow();
  const BYTE summaryVersion = Page("results/", "summary.zol")->GetSequenceLow();
  std::map<DWORD, std::pair<BYTE, BYTE>> held;
  for (const ReceivedPage& page : port.Received.Completed) held[page.PageIdentity] = {page.SequenceHigh, page.SequenceLow};
  const std::size_t receivedBefore = port.Received.Completed.size();
  for (int tick = 0; tick < 5; ++tick) site->OnTimerEvent();
  EXPECT_EQ(Page("pages/", "header.zol")->GetSequenceLow(), headerVersion);
  EXPECT_EQ(Page("results/", "summary.zol")->GetSequenceLow(), summaryVersion);
  // The carousel goes on, the information page with its clock, the others as they were.
  EXPECT_GT(port.Received.Completed.size(), receivedBefore);
  for (std::size_t i = receivedBefore; i < port.Received.Completed.size(); ++i) {
    const ReceivedPage& page = port.Received.Completed[i];
    if (wire::PageNumber(page.PageIdentity) == 0) continue;
    const std::pair<BYTE, BYTE> version{page.SequenceHigh, page.SequenceLow};
    EXPECT_EQ(version, held[page.PageIdentity]) << "a new version of " << page.Name;
  }
  EXPECT_EQ(LastReceived("header.zol").find("&lt;zol_label"), std::string::npos) << LastReceived("header.zol");

  // A data manager connects with its snapshot and active run: the pages are read for it
  // and go out once its views answered.
  data.link.comm.OnModifyModule(kDataManagerClass, 1, LocalComputerForTests(), TRUE);
  data.link.Apply(DataEncoder::Connected());
  EXPECT_FALSE(site->IsDataAway());
  CBaseDataComm model;
  AddTrackAndEventGroup(model);
  AddLiveRun(model, kRaceRun, 2, kRunActive);
  data.link.Apply(DataEncoder::Snapshot(model));
  data.link.Apply(ViewEncoder::AllViews({"lgView_Results", "lgView_RunInfo"}));
  ASSERT_NE(site->GetActiveRun(), nullptr);
  site->OnTimerEvent();
  EXPECT_EQ(Page("pages/", "header.zol")->GetSequenceLow(), headerVersion);
  ServeRun(kRaceRun, "Race 1 again", "Di");
  site->OnTimerEvent();
  EXPECT_NE(LastReceived("header.zol").find(">Race 1 again<"), std::string::npos) << LastReceived("header.zol");
  EXPECT_NE(LastReceived("summary.zol").find(">Di<"), std::string::npos) << LastReceived("summary.zol");
}
