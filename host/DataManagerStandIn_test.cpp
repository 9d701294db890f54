#include "host/DataManagerStandIn.h"

#include <gtest/gtest.h>

#include <map>
#include <set>

#include "data/DataTestSupport.h"
#include "data/RecordEquality.h"
#include "testing/ViewTestSupport.h"
#include "views/RMCell.h"

namespace {

// Carries every message the module sent to the stand-in and delivers its replies, until
// nothing is left to carry.
void Pump(CTestModule& module, CRMComm& comm, CDataManagerStandIn& standIn, std::size_t& carried) {
  while (carried < module.Target.Sent.size()) {
    CModuleMessage& sent = *module.Target.Sent[carried++];
    if (sent.TargetClass != kDataManagerClass) continue;
    sent.Reset();
    for (CModuleMessage* reply : standIn.OnMessage(sent)) {
      EXPECT_EQ(reply->Class, kDataManagerClass);
      Deliver(comm, reply);
    }
  }
}

constexpr KVTTIME kSecond = CRaceSimulation::kSecond;
constexpr DWORD kPractice = 0x40000001;
constexpr DWORD kQualifying = 0x40000002;

// True when the module's cell holds the value the stand-in computed.
bool CellHolds(const CRMCell& cell, BYTE type, const ViewCellValue& value) {
  switch (type) {
    case 0:
    case 6:
    case 7: return static_cast<DWORD>(cell) == value.Dword;
    case 1: return static_cast<int>(cell) == value.Integer;
    case 2: return static_cast<double>(cell) == value.Real;
    case 3: return std::string(static_cast<const char*>(cell)) == value.Text;
    case 4:
    case 5: return static_cast<KVTTIME>(cell) == value.Time;
    case 8: return cell.GetTransponders() != nullptr && *cell.GetTransponders() == value.Transponders;
    default: return false;
  }
}

// The module's mirror of a view holds exactly the rows the stand-in computes now.
void ExpectMirrors(const CRMView& view, const RaceViews::Request& request, const CRaceSimulation& meeting) {
  const std::vector<ViewRowValues> expected = RaceViews::Rows(request, meeting);
  const std::vector<CColumn> columns = RaceViews::Columns(request.Name);
  ASSERT_EQ(view.GetRowCount(), expected.size()) << request.Name;
  std::map<DWORD, const CRMViewRow*> held;
  for (const CRMViewRow* row : view.GetSortedRows()) held[row->RowID] = row;
  for (const ViewRowValues& row : expected) {
    ASSERT_EQ(held.count(row.RowID), 1u) << request.Name << " row " << row.RowID;
    for (std::size_t i = 0; i < columns.size(); ++i) {
      const CRMCell* cell = held[row.RowID]->CellGetAt(i);
      ASSERT_NE(cell, nullptr);
      EXPECT_TRUE(CellHolds(*cell, columns[i].Type, row.Cells[i])) << request.Name << " row " << row.RowID << " "
                                                                    << columns[i].Key;
    }
  }
}

// The example race connected to a module's link, the data loaded, the views listed.
struct ConnectedStandIn {
  ConnectedStandIn() : standIn(1, LocalComputerForTests()), comm(&module), observer(&log) {
    std::string error;
    EXPECT_TRUE(standIn.LoadRaceFile(std::string(ZOL_SOURCE_DIR) + "/examples/race.json", error)) << error;
    observer.Attach(&comm);
    comm.Initialize(0);
    comm.OnModifyModule(standIn.GetClass(), standIn.GetInstance(), standIn.GetComputer(), TRUE);
    Pump(module, comm, standIn, carried);
  }
  // Plays `time` of race and hands everything the stand-in sends to the link; the IDs
  // of those messages.
  std::vector<WORD> Play(KVTTIME time) {
    std::vector<WORD> ids;
    for (CModuleMessage* message : standIn.AdvanceRaceTime(time)) {
      ids.push_back(message->ID);
      Deliver(comm, message);
    }
    Pump(module, comm, standIn, carried);
    return ids;
  }
  CRMView* Open(const std::string& name, CParameters parameters, CLoggingViewObserver& viewer) {
    CRMView* view = comm.CreateView(name, FALSE, parameters, FALSE);
    viewer.Attach(view);
    Pump(module, comm, standIn, carried);
    return view;
  }

  CDataManagerStandIn standIn;
  CTestModule module;
  CRMComm comm;
  std::vector<std::string> log;
  CLoggingCommObserver observer;
  std::size_t carried = 0;
};

CParameters Unique(DWORD id) {
  CParameters parameters;
  parameters.Add("UniqueID", id);
  return parameters;
}

}  // namespace

TEST(DataManagerStandIn, ExampleRaceReachesTheReplicaThroughConnectAndSnapshot) {
  CDataManagerStandIn standIn(1, LocalComputerForTests());
  std::string error;
  ASSERT_TRUE(standIn.LoadRaceFile(std::string(ZOL_SOURCE_DIR) + "/examples/race.json", error)) << error;

  CTestModule module;
  CRMComm comm(&module);
  std::vector<std::string> log;
  CLoggingCommObserver observer(&log);
  observer.Attach(&comm);
  comm.Initialize(0);
  comm.OnModifyModule(standIn.GetClass(), standIn.GetInstance(), standIn.GetComputer(), TRUE);
  std::size_t carried = 0;
  Pump(module, comm, standIn, carried);

  EXPECT_TRUE(standIn.IsConnected());
  EXPECT_EQ(log, (std::vector<std::string>{"o:connect", "o:alldata", "o:active:1073741825"}));
  CData& store = *comm.GetData()->GetData();
  EXPECT_EQ(RecordEquality::CompareStores(standIn.GetModel(), store), "");
  ASSERT_EQ(store.Tracks.size(), 1u);
  EXPECT_EQ(store.Tracks.begin()->second->Name, "Riverside Ring");
  EXPECT_EQ(store.Tracks.begin()->second->SortedSections.size(), 3u);
  ASSERT_EQ(store.Runs.size(), 3u);
  CRun* race = store.FindRun(0x40000003);  // the race, last of the meeting
  ASSERT_NE(race, nullptr);
  EXPECT_EQ(race->Track, store.FindTrack(1));
  EXPECT_EQ(race->Competitors->Competitors.size(), 8u);
  EXPECT_EQ(race->Competitors->FindTransponder(4403302), 3u);
  EXPECT_EQ(comm.GetData()->GetTxTranslation(4409999)->Text, "Guest");
  EXPECT_EQ(comm.GetViewNames(), RaceViews::Names());
}

TEST(DataManagerStandIn, OtherMessagesGetNoReplyAndDisconnectIsNoted) {
  CDataManagerStandIn standIn(1, 0);
  CModuleMessage connect(0, kDataManagerClass, 1, 0);
  auto replies = standIn.OnMessage(connect);
  ASSERT_EQ(replies.size(), 1u);
  EXPECT_EQ(replies[0]->ID, 0);
  EXPECT_EQ(replies[0]->TargetClass, kZolServerClass);
  delete replies[0];
  CModuleMessage disconnect(1, kDataManagerClass, 1, 0);
  EXPECT_TRUE(standIn.OnMessage(disconnect).empty());
  EXPECT_FALSE(standIn.IsConnected());
  CModuleMessage view(0x8021, kDataManagerClass, 1, 0);
  EXPECT_TRUE(standIn.OnMessage(view).empty());
}

TEST(DataManagerStandIn, BadRaceTextIsRefusedWithAReason) {
  CDataManagerStandIn standIn(1, 0);
  std::string error;
  EXPECT_FALSE(standIn.LoadRaceText("{ \"runs\": [ { \"name\": 3 } ", error));
  EXPECT_NE(error.find("race file"), std::string::npos);
  EXPECT_FALSE(standIn.LoadRaceText("[1, 2]", error));
  EXPECT_FALSE(standIn.LoadRaceFile("/nonexistent/race.json", error));
  EXPECT_NE(error.find("cannot read"), std::string::npos);
}

TEST(DataManagerStandIn, ServedViewsStayMirroredThroughChangedRowsOnlyAsTheRaceGoesOn) {
  ConnectedStandIn link;
  std::vector<std::string> viewLog;
  CLoggingViewObserver results(&viewLog, "results");
  CLoggingViewObserver info(&viewLog, "info");
  CLoggingViewObserver laps(&viewLog, "laps");
  CParameters byBest = Unique(kPractice);
  byBest.Add("SortType", 1);
  CRMView* resultsView = link.Open(RaceViews::kResults, byBest, results);
  CRMView* infoView = link.Open(RaceViews::kRunInfo, Unique(kPractice), info);
  CRMView* lapsView = link.Open(RaceViews::kLapTimes, Unique(kPractice), laps);
  ASSERT_EQ(resultsView->GetColumnCount(), RaceViews::Columns(RaceViews::kResults).size());
  const CRaceSimulation& meeting = *link.standIn.GetMeeting();
  ExpectMirrors(*resultsView, {RaceViews::kResults, kPractice, 1}, meeting);

  const std::size_t field = meeting.Race().Competitors.size();
  std::set<WORD> seen;
  bool partialModify = false;
  for (int second = 0; second < 240; ++second) {
    const std::size_t before = viewLog.size();
    for (WORD id : link.Play(kSecond)) seen.insert(id);
    ExpectMirrors(*resultsView, {RaceViews::kResults, kPractice, 1}, meeting);
    ExpectMirrors(*infoView, {RaceViews::kRunInfo, kPractice, -1}, meeting);
    ExpectMirrors(*lapsView, {RaceViews::kLapTimes, kPractice, -1}, meeting);
    for (std::size_t i = before; i < viewLog.size(); ++i) {
      // "results:data:2:changed=1,4:..." names the rows a modify carried.
      if (viewLog[i].rfind("results:data:2:changed=", 0) != 0) continue;
      const std::string changed = viewLog[i].substr(23, viewLog[i].find(':', 23) - 23);
      const auto rows = static_cast<std::size_t>(std::count(changed.begin(), changed.end(), ',') + 1);
      partialModify = partialModify || rows < field;
    }
  }
  // The run information ticks with the clock, rows change and lap rows are added.
  EXPECT_EQ(seen, (std::set<WORD>{0x8025, 0x8026}));
  EXPECT_TRUE(partialModify) << "a modify carries only the rows that changed";
  const CRMCell* elapsed = infoView->GetSortedRows().front()->CellGetAt(
      static_cast<DWORD>(infoView->ColumnFind("lgHeader_ElapsedTime")));
  EXPECT_EQ(static_cast<KVTTIME>(*elapsed), (240 * kSecond - CRaceSimulation::kFirstStartDelay));

  // Released, a view hears nothing more; the data manager's release comes back at once.
  results.Detach(resultsView, TRUE);
  Pump(link.module, link.comm, link.standIn, link.carried);
  const std::size_t sent = link.module.Target.Sent.size();
  ASSERT_EQ(link.module.Target.Sent.back()->ID, 0x8022);
  EXPECT_EQ(link.comm.GetViews().count(0u), 0u) << "the view is gone once the data manager let it go";
  for (WORD id : link.Play(5 * kSecond)) EXPECT_TRUE(id == 0x8025 || id == 0x8026) << id;
  EXPECT_EQ(link.module.Target.Sent.size(), sent);
}

TEST(DataManagerStandIn, TheActiveRunMovesOnWithMessage66AndTheSnapshotFollows) {
  ConnectedStandIn link;
  EXPECT_EQ(link.comm.GetData()->GetActiveRun()->UniqueID, kPractice);
  std::vector<WORD> ids;
  for (int minute = 0; minute < 12 && link.standIn.GetMeeting()->ActiveRun() == 0; ++minute) {
    for (WORD id : link.Play(60 * kSecond)) ids.push_back(id);
  }
  ASSERT_EQ(link.standIn.GetMeeting()->ActiveRun(), 1u);
  EXPECT_EQ(std::count(ids.begin(), ids.end(), WORD{66}), 2);
  EXPECT_EQ(link.comm.GetData()->GetActiveRun()->UniqueID, kQualifying);
  EXPECT_FALSE(link.standIn.GetModel().Runs.at(kPractice)->IsActive());
  EXPECT_TRUE(link.standIn.GetModel().Runs.at(kQualifying)->IsActive());
  EXPECT_EQ(link.log.back(), "o:active:1073741826");
}

TEST(DataManagerStandIn, AnnouncementsAreAddedAndTheOldestRemovedOnceTheBoardIsFull) {
  ConnectedStandIn link;
  std::vector<std::string> viewLog;
  CLoggingViewObserver board(&viewLog, "board");
  CRMView* view = link.Open(RaceViews::kAnnouncements, Unique(0x80000001), board);
  std::set<WORD> seen;
  for (int minute = 0; minute < 40; ++minute) {
    for (WORD id : link.Play(60 * kSecond)) seen.insert(id);
  }
  ASSERT_GT(link.standIn.GetMeeting()->Announcements().size(), RaceViews::kAnnouncementRows);
  EXPECT_TRUE(seen.count(0x8025));
  EXPECT_TRUE(seen.count(0x8027));
  ExpectMirrors(*view, {RaceViews::kAnnouncements, 0x80000001, -1}, *link.standIn.GetMeeting());
}

TEST(DataManagerStandIn, AViewItDoesNotServeIsNotAnsweredAndNothingIsSentBeforeTheConnect) {
  CDataManagerStandIn standIn(1, 0);
  std::string error;
  ASSERT_TRUE(standIn.LoadRaceFile(std::string(ZOL_SOURCE_DIR) + "/examples/race.json", error)) << error;
  // Not connected: the race goes on, nothing goes out.
  EXPECT_TRUE(standIn.AdvanceRaceTime(600 * kSecond).empty());
  CModuleMessage request(0x8021, kDataManagerClass, 1, 0);
  request << std::string("lgView_Nothing") << DWORD{3};
  CParameters().ParametersToBuffer(request);
  request.Reset();
  EXPECT_TRUE(standIn.OnMessage(request).empty());
}

TEST(DataManagerStandIn, TheRaceHoldsWhileTheDataManagerStandsStillInsteadOfJumpingOn) {
  // A stopped or starved process: the clock comes 12 s late. The race moves on by one
  // second at most, as if the stand-in had held its clock meanwhile.
  CDataManagerStandIn standIn(1, LocalComputerForTests());
  std::string error;
  ASSERT_TRUE(standIn.LoadRaceFile(std::string(ZOL_SOURCE_DIR) + "/examples/race.json", error)) << error;
  const auto dropAll = [](std::vector<CModuleMessage*> messages) {
    for (CModuleMessage* message : messages) delete message;
  };
  const auto start = std::chrono::steady_clock::time_point{} + std::chrono::hours(1);
  dropAll(standIn.OnClock(start));
  const KVTTIME before = standIn.GetMeeting()->Now();
  dropAll(standIn.OnClock(start + std::chrono::milliseconds(100)));
  EXPECT_EQ(standIn.GetMeeting()->Now() - before, kSecond / 10);
  const KVTTIME beforeStall = standIn.GetMeeting()->Now();
  dropAll(standIn.OnClock(start + std::chrono::milliseconds(100) + std::chrono::seconds(12)));
  EXPECT_EQ(standIn.GetMeeting()->Now() - beforeStall, kSecond);
  // Then on at the usual pace.
  const KVTTIME afterStall = standIn.GetMeeting()->Now();
  dropAll(standIn.OnClock(start + std::chrono::milliseconds(200) + std::chrono::seconds(12)));
  EXPECT_EQ(standIn.GetMeeting()->Now() - afterStall, kSecond / 10);
}
