// A site with live pages: the run change that reads the run-bound pages again, the tick
// that writes changed pages once, and a rebuild that keeps the site's root and event.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "distribution/PacketFormat.h"
#include "distribution/ZOLServer.h"
#include "site/ZOLServerInfo.h"
#include "site/ZOLServerPage.h"
#include "site/ZOLServerSite.h"
#include "site/ZOLServerTable.h"
#include "testing/LivePageSupport.h"
#include "testing/ModuleFixture.h"
#include "testing/StreamRecordingPort.h"

namespace {

constexpr DWORD kPracticeRun = 0x40000001;
constexpr DWORD kRaceRun = 0x40000002;

std::string Root(const TempDir& folder) { return folder.Path() + "/"; }

std::string TypedTable(const std::string& type) {
  return "<zol_table type=\"" + type + "\"><zol_rh type=\"position\"/><zol_rh type=\"name\"/>"
         "<zol_rr><zol_rd>1</zol_rd><zol_rd>sample</zol_rd></zol_rr></zol_table>";
}

// The last version of a page that the port was handed, as a client rebuilds it.
std::string LastReceived(const StreamRecordingPort& port, const std::string& name) {
  for (auto page = port.Received.Completed.rbegin(); page != port.Received.Completed.rend(); ++page) {
    if (page->Name == name) return std::string(page->Data.begin(), page->Data.end());
  }
  return "(no version of " + name + ")";
}

struct LiveSite : ::testing::Test {
  LiveSite() {
    data.AddRun(kPracticeRun, 0, false);
    data.AddRun(kRaceRun, 2, false);
    site = std::make_unique<CZOLServerSite>(1, &data.link.comm);
    site->SetParameter("name", "demo");
    site->PortAdd(&port);
  }
  ~LiveSite() override { site.reset(); }
  CZOLServerPage* Current() const { return site->GetCurrentPage(); }

  PackageScope scope;
  CLiveData data;
  TempDir folder;
  StreamRecordingPort port;
  std::unique_ptr<CZOLServerSite> site;
};

}  // namespace

TEST_F(LiveSite, RunChangeReadsTheRunBoundPagesAgainAndOnlyTheFittingTablesStay) {
  folder.Write("results/current.zol", "<zol>" + TypedTable("race") + TypedTable("practice") + "</zol>");
  site->Build(Root(folder), static_cast<int>(kLiveEventID), 1);
  data.AddRun(kRaceRun, 2, true);
  ASSERT_EQ(site->GetActiveRun()->UniqueID, kRaceRun);
  ASSERT_EQ(Current()->GetTables().size(), 1u);
  EXPECT_EQ(Current()->GetTables().begin()->second->GetType(), "race");

  CRMView* race = data.View("lgView_Results");
  ASSERT_NE(race, nullptr);
  EXPECT_EQ(race->GetParameters().GetString("UniqueID"), std::to_string(kRaceRun));
  data.Serve(race, ResultsColumns(), {ResultRow(1, 1, "7", "Ann", 3), ResultRow(2, 2, "9", "Bo", 3)});
  site->OnTimerEvent();
  const std::string raceVersion = LastReceived(port, "current.zol");
  EXPECT_NE(raceVersion.find("<zol_table type=\"race\" >"), std::string::npos) << raceVersion;
  EXPECT_LT(raceVersion.find(">Ann<"), raceVersion.find(">Bo<"));

  data.AddRun(kPracticeRun, 0, true);
  ASSERT_EQ(site->GetActiveRun()->UniqueID, kPracticeRun);
  ASSERT_EQ(Current()->GetTables().size(), 1u);
  EXPECT_EQ(Current()->GetTables().begin()->second->GetType(), "practice");
  const auto views = data.Views("lgView_Results");
  ASSERT_EQ(views.size(), 1u);
  EXPECT_EQ(views[0]->GetParameters().GetString("UniqueID"), std::to_string(kPracticeRun));
  data.Serve(views[0], ResultsColumns(), {ResultRow(5, 1, "3", "Cy", 2)});
  site->OnTimerEvent();
  const std::string practiceVersion = LastReceived(port, "current.zol");
  EXPECT_EQ(practiceVersion.find("type=\"race\""), std::string::npos) << practiceVersion;
  EXPECT_NE(practiceVersion.find("<zol_table type=\"practice\" >"), std::string::npos) << practiceVersion;
  EXPECT_NE(practiceVersion.find(">Cy<"), std::string::npos);
  EXPECT_EQ(practiceVersion.find(">Ann<"), std::string::npos);
}

TEST_F(LiveSite, ManyChangesWithinOneSecondGiveOneNewVersionAtTheTick) {
  folder.Write("results/current.zol", "<zol>" + TypedTable("race") + "</zol>");
  site->Build(Root(folder), static_cast<int>(kLiveEventID), 1);
  data.AddRun(kRaceRun, 2, true);
  CRMView* race = data.View("lgView_Results");
  ASSERT_NE(race, nullptr);
  data.Serve(race, ResultsColumns(), {ResultRow(1, 1, "7", "Ann", 3), ResultRow(2, 2, "9", "Bo", 3)});
  site->OnTimerEvent();
  const std::size_t versionsBefore = port.Received.Completed.size();
  const DWORD key = Current()->GetPageKey();
  const auto updatesOf = [&] { return std::count(port.Updates.begin(), port.Updates.end(), key); };
  const auto before = updatesOf();
  for (int lap = 4; lap < 14; ++lap) {
    data.Modify(race->GetViewID(), ResultsColumns(), {ResultRow(lap % 2 == 0 ? 2 : 1, 1, "x", "Lead" + std::to_string(lap), lap)});
  }
  // Nothing goes out before the tick; then one version with the rows as they stand.
  EXPECT_EQ(updatesOf(), before);
  site->OnTimerEvent();
  EXPECT_EQ(updatesOf(), before + 1);
  EXPECT_GT(port.Received.Completed.size(), versionsBefore);
  const std::string version = LastReceived(port, "current.zol");
  EXPECT_NE(version.find(">Lead13<"), std::string::npos) << version;
  EXPECT_NE(version.find(">Lead12<"), std::string::npos);
  EXPECT_EQ(version.find(">Lead11<"), std::string::npos);
}

TEST_F(LiveSite, BuildWithForceZeroAndANewRootHandsOnEveryTemplateWithItsText) {
  TempDir other;
  other.Write("results/current.zol", "<zol><p>second root</p></zol>");
  other.Write("index.zol", "<zol><p>index text</p></zol>");
  site->Build(Root(folder), -1, 1);
  const std::size_t clears = port.Clears.size();
  site->Build(Root(other), -1, 0);
  EXPECT_EQ(port.Clears.size(), clears);
  EXPECT_NE(LastReceived(port, "current.zol").find("<p>second root</p>"), std::string::npos)
      << LastReceived(port, "current.zol");
  EXPECT_NE(LastReceived(port, "index.zol").find("<p>index text</p>"), std::string::npos)
      << LastReceived(port, "index.zol");
}

namespace {

// A module with one site "demo" on `site/` below its application directory.
struct ServerWithSite : ::testing::Test {
  ServerWithSite() {
    scope.WriteSettings("[sites]\ncount=1\nsite0=demo\n[demo]\nroot=\\site\\\n");
    scope.Folder.Write("site/results/schedule.zol",
                       "<zol><zol_table type=\"schedule\"><zol_rh type=\"runname\"/><zol_rr><zol_rd/></zol_rr>"
                       "</zol_table></zol>");
    server = std::make_unique<CZOLServer>();
    server->Initialize();
  }
  // The data manager connects and sends its snapshot with a race run of the event group
  // as the active run, then its list of views.
  void Connect() {
    server->OnModifyModule(kDataManagerClass, 1, LocalComputerForTests(), 1);
    CRMComm& comm = *server->GetComm();
    Deliver(comm, DataEncoder::Connected());
    CBaseDataComm model;
    AddTrackAndEventGroup(model);
    AddLiveRun(model, kRaceRun, 2, kRunActive);
    Deliver(comm, DataEncoder::Snapshot(model));
    Deliver(comm, ViewEncoder::AllViews({"lgView_Results", "lgView_EventSchedule", "lgView_RunInfo"}));
  }
  void Disconnect() { server->OnModifyModule(kDataManagerClass, 1, LocalComputerForTests(), 0); }
  CZOLServerSite& Site() const { return *server->GetSites().at(0); }
  bool HasScheduleView() const {
    for (const auto& [id, view] : server->GetComm()->GetViews()) {
      if (view->GetName() == "lgView_EventSchedule" &&
          view->GetParameters().GetString("UniqueID") == std::to_string(kLiveEventID)) {
        return true;
      }
    }
    return false;
  }

  PackageScope scope;
  std::unique_ptr<CZOLServer> server;
};

}  // namespace

TEST_F(ServerWithSite, SnapshotKeepsTheEventOfTheActiveRunAndTheScheduleTableConnects) {
  Connect();
  EXPECT_EQ(Site().GetEventId(), static_cast<int>(kLiveEventID));
  EXPECT_EQ(Site().GetRootDir(), Site().GetRoot());
  EXPECT_TRUE(HasScheduleView());
  ASSERT_EQ(Site().GetSchedulePage()->GetTables().size(), 1u);
  EXPECT_NE(Site().GetSchedulePage()->GetTables().begin()->second->GetView(), nullptr);

  // A new connection brings a new snapshot; the site is rebuilt on the same root and event.
  Disconnect();
  Connect();
  EXPECT_EQ(Site().GetEventId(), static_cast<int>(kLiveEventID));
  EXPECT_TRUE(HasScheduleView());
}

TEST_F(ServerWithSite, LossOfTheDataManagerLetsGoOfTheRunAndTheTimerDrivesTheClockAgain) {
  Connect();
  ASSERT_NE(Site().GetActiveRun(), nullptr);
  ASSERT_NE(Site().GetInfoPage()->GetRun(), nullptr);
  Disconnect();
  EXPECT_EQ(Site().GetActiveRun(), nullptr);
  EXPECT_EQ(Site().GetInfoPage()->GetRun(), nullptr);
  EXPECT_FALSE(Site().GetInfoPage()->IsDrivenByRun());
  const BYTE version = Site().GetInfoPage()->GetSequenceLow();
  Site().OnTimerEvent();
  EXPECT_NE(Site().GetInfoPage()->GetSequenceLow(), version);
  // The next snapshot binds the site to its active run again.
  Connect();
  ASSERT_NE(Site().GetActiveRun(), nullptr);
  EXPECT_EQ(Site().GetActiveRun()->UniqueID, kRaceRun);
  EXPECT_EQ(Site().GetInfoPage()->GetRun(), Site().GetActiveRun());
}
