// The link to the data manager as the views see it: sharing of views, routing of the view
// and lap row messages by ID, and what a lost data manager leaves behind.
#include "views/RMComm.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "data/DataEncoder.h"
#include "data/DataTestSupport.h"
#include "testing/KVTCatch.h"
#include "testing/LogCapture.h"
#include "testing/ViewTestSupport.h"
#include "views/RMLapView.h"
#include "views/RMView.h"
#include "views/ViewEncoder.h"

namespace {

constexpr DWORD kRun = 0x40000001;
constexpr DWORD kOtherRun = 0x40000002;
const char* const kResults = "lgView_Results";

CParameters UniqueID(DWORD id) {
  CParameters parameters;
  parameters.Add("UniqueID", id);
  return parameters;
}

std::vector<CColumn> TwoColumns() { return {MakeColumn(1, "lgHeader_Pos"), MakeColumn(3, "lgHeader_Name")}; }

ViewRowBlock TwoRows() {
  ViewRowBlock block;
  block.Rows.push_back(MakeRowValues(1, {IntegerValue(2), TextValue("Bea")}));
  block.Rows.push_back(MakeRowValues(2, {IntegerValue(1), TextValue("Ann")}));
  return block;
}

bool TrailHas(const CKVTException& error, const std::string& label) {
  const auto& trail = error.GetTrail();
  return std::find(trail.begin(), trail.end(), label) != trail.end();
}

// Counts lap view notifications by kind: "all", "add", "modify", "remove", "clear".
class CLapCounter : public CRMLapViewObserver {
 public:
  explicit CLapCounter(std::vector<std::string>* log) : Log(log) {}
  void OnAllRows(CRMLapView* view) override {
    (void)view;
    Log->push_back("all");
  }
  void OnRowAdded(CRMLapView* view, CRMLapViewRow* row) override {
    (void)view;
    (void)row;
    Log->push_back("add");
  }
  void OnRowsModified(CRMLapView* view, const std::vector<CRMLapViewRow*>& rows) override {
    (void)view;
    (void)rows;
    Log->push_back("modify");
  }
  void OnRowRemoved(CRMLapView* view, CRMLapViewRow* row) override {
    (void)view;
    (void)row;
    Log->push_back("remove");
  }
  void OnCleared(CRMLapView* view) override {
    (void)view;
    Log->push_back("clear");
  }
  std::vector<std::string>* Log;
};

// Runs a test's check when the link reports the data manager gone.
class CDisconnectProbe : public CRMCommObserver {
 public:
  void OnDisconnect() override {
    if (Check) Check();
  }
  std::function<void()> Check;
};

CRMLapViewRow LapRow(DWORD id, KVTTIME time) {
  CRMLapViewRow row;
  row.RowID = id;
  row.PassingTime = time;
  return row;
}

// A live link whose replica holds two runs, both with their passing lists open.
struct LinkWithViews : ::testing::Test {
  LinkWithViews() {
    CBaseDataComm model;
    for (DWORD id : {kRun, kOtherRun}) AddOpenRun(model, id);
    link.Apply(DataEncoder::Snapshot(model));
    link.Apply(ViewEncoder::AllViews({kResults, "lgView_LapTimes"}));
  }

  CRMComm& Comm() { return link.comm; }
  // The requests of that ID that the module sent, read back.
  std::vector<ViewRequest> Sent(WORD id) {
    std::vector<ViewRequest> requests;
    for (const auto& message : link.module.Target.Sent) {
      if (message->ID != id) continue;
      message->Reset();
      requests.push_back(ViewEncoder::ReadViewRequest(*message));
    }
    return requests;
  }
  std::size_t SentCount() const { return link.module.Target.Sent.size(); }
  // Brings a view live: structure and two rows.
  void Feed(DWORD viewID) {
    link.Apply(ViewEncoder::ViewStructure(viewID, TwoColumns()));
    link.Apply(ViewEncoder::AllRows(viewID, ViewEncoder::ColumnTypes(TwoColumns()), TwoRows()));
  }

  // The all-passings timing line goes to the captured log, not to the test output.
  LogCapturePackage quietLog;
  InstalledPackage quietScope{&quietLog};
  CLiveLink link;
  std::vector<std::string> log;
};

struct ViewConnection : LinkWithViews {};
struct RMComm : LinkWithViews {};

}  // namespace

// ---------------------------------------------------------------------------------------
// Sharing

TEST_F(ViewConnection, EqualNameAndParametersShareOneViewAndALateObserverGetsTheStateWithoutAMessage) {
  CRMView* first = Comm().CreateView(kResults, FALSE, UniqueID(kRun), FALSE);
  CRMView* second = Comm().CreateView(kResults, FALSE, UniqueID(kRun), FALSE);
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first, second);
  EXPECT_EQ(Comm().GetViews().size(), 1u);
  EXPECT_TRUE(Sent(kMsgViewConnect).empty()) << "creating a view sends nothing";

  CLoggingViewObserver a(&log, "a");
  a.Attach(first);
  ASSERT_EQ(Sent(kMsgViewConnect).size(), 1u);
  EXPECT_EQ(Sent(kMsgViewConnect)[0].Name, kResults);
  EXPECT_EQ(Sent(kMsgViewConnect)[0].ViewID, first->GetViewID());
  EXPECT_TRUE(Sent(kMsgViewConnect)[0].Parameters == UniqueID(kRun));
  Feed(first->GetViewID());
  log.clear();

  const std::size_t before = SentCount();
  CRMView* third = Comm().CreateView(kResults, FALSE, UniqueID(kRun), FALSE);
  EXPECT_EQ(third, first);
  CLoggingViewObserver b(&log, "b");
  b.Attach(third);
  EXPECT_EQ(SentCount(), before) << "no second view request";
  EXPECT_EQ(log, (std::vector<std::string>{"b:structure", "b:data:0:changed=:removed=:sorted=1,2"}))
      << "the late observer alone gets the present state";
}

TEST_F(ViewConnection, EqualNameWithOneDifferentParameterValueMakesASecondViewWithTheNextId) {
  CRMView* first = Comm().CreateView(kResults, FALSE, UniqueID(kRun), FALSE);
  CRMView* second = Comm().CreateView(kResults, FALSE, UniqueID(kOtherRun), FALSE);
  ASSERT_NE(first, second);
  EXPECT_EQ(first->GetViewID(), 0u);
  EXPECT_EQ(second->GetViewID(), 1u);
  EXPECT_EQ(Comm().GetNextViewID(), 2u);
  EXPECT_EQ(Comm().GetViews().at(1), second);
  // A further parameter is a difference too.
  CParameters more = UniqueID(kRun);
  more.Add("SortType", 1);
  CRMView* third = Comm().CreateView(kResults, FALSE, more, FALSE);
  EXPECT_EQ(third->GetViewID(), 2u);
  EXPECT_EQ(Comm().CreateView(kResults, FALSE, UniqueID(kOtherRun), FALSE), second);
}

TEST_F(ViewConnection, NameIsComparedByteForByteAndGroupedMustBeEqual) {
  CRMView* first = Comm().CreateView(kResults, FALSE, UniqueID(kRun), FALSE);
  EXPECT_NE(Comm().CreateView("lgview_Results", FALSE, UniqueID(kRun), FALSE), first);
  EXPECT_NE(Comm().CreateView("lgView_Results ", FALSE, UniqueID(kRun), FALSE), first);
  CRMView* grouped = Comm().CreateView(kResults, FALSE, UniqueID(kRun), TRUE);
  EXPECT_NE(grouped, first);
  EXPECT_TRUE(grouped->IsGrouped());
  EXPECT_EQ(Comm().CreateView(kResults, FALSE, UniqueID(kRun), TRUE), grouped);
  EXPECT_EQ(Comm().GetViews().size(), 4u);
}

TEST_F(ViewConnection, PrivateViewIsNeverShared) {
  CRMView* own = Comm().CreateView(kResults, TRUE, UniqueID(kRun), FALSE);
  CRMView* another = Comm().CreateView(kResults, TRUE, UniqueID(kRun), FALSE);
  EXPECT_NE(own, another);
  EXPECT_TRUE(own->IsPrivate());
  CRMView* shared = Comm().CreateView(kResults, FALSE, UniqueID(kRun), FALSE);
  EXPECT_NE(shared, own);
  EXPECT_NE(shared, another);
  EXPECT_EQ(shared->GetViewID(), 2u);
  // A private request does not take the shared view either.
  CRMView* third = Comm().CreateView(kResults, TRUE, UniqueID(kRun), FALSE);
  EXPECT_NE(third, shared);
  EXPECT_EQ(third->GetViewID(), 3u);
}

TEST_F(ViewConnection, ViewThatLostItsLastObserverIsNoLongerFound) {
  CRMView* first = Comm().CreateView(kResults, FALSE, UniqueID(kRun), FALSE);
  {
    CLoggingViewObserver a(&log, "a");
    a.Attach(first);
  }
  EXPECT_EQ(Sent(kMsgViewDisconnect).size(), 1u);
  EXPECT_EQ(Comm().GetViews().size(), 1u) << "the view waits for the data manager's answer";
  CRMView* second = Comm().CreateView(kResults, FALSE, UniqueID(kRun), FALSE);
  EXPECT_NE(second, first);
  EXPECT_EQ(second->GetViewID(), 1u);
}

TEST_F(ViewConnection, ViewIdZeroIsValidAndTheFirstViewHasIt) {
  CRMView* view = Comm().CreateView(kResults, FALSE, UniqueID(kRun), FALSE);
  EXPECT_EQ(view->GetViewID(), 0u);
  EXPECT_EQ(Comm().GetViews().begin()->first, 0u);
  CLoggingViewObserver a(&log, "a");
  a.Attach(view);
  ASSERT_EQ(Sent(kMsgViewConnect).size(), 1u);
  EXPECT_EQ(Sent(kMsgViewConnect)[0].ViewID, 0u);
  link.Apply(ViewEncoder::ViewStructure(0, TwoColumns()));
  EXPECT_EQ(view->GetColumnCount(), 2u);
  EXPECT_EQ(log, (std::vector<std::string>{"a:structure"}));
}

// ---------------------------------------------------------------------------------------
// Routing

TEST_F(ViewConnection, Message0x8023IsNotAViewMessageAndGoesToTheReplica) {
  CRMView* view = Comm().CreateView(kResults, FALSE, UniqueID(kRun), FALSE);
  CLoggingViewObserver a(&log, "a");
  a.Attach(view);
  // A structure for view 0 under 0x8023 is not read as one.
  CModuleMessage* structure = ViewEncoder::ViewStructure(0, TwoColumns());
  structure->ID = 0x8023;
  EXPECT_EQ(CatchKVT([&] { link.Apply(structure); }), nullptr);
  EXPECT_EQ(view->GetColumnCount(), 0u);
  EXPECT_TRUE(log.empty());
  // Without payload it passes the replica quietly; a view handler would have failed at
  // the view ID, as 0x8021 does.
  EXPECT_EQ(CatchKVT([&] { link.Apply(DataEncoder::NewMessage(0x8023)); }), nullptr);
  auto error = CatchKVT([&] { link.Apply(DataEncoder::NewMessage(kMsgViewConnect)); });
  ASSERT_NE(error, nullptr);
  EXPECT_TRUE(TrailHas(*error, "CRMComm::OnViewConnect()"));
}

TEST_F(RMComm, EachMessageIdGoesWhereTheRoutingTableSays) {
  struct Case {
    WORD id;
    const char* handler;  // null: the replica, which drops an empty message quietly
  };
  const Case cases[] = {
      {0x7FFF, nullptr},
      {0x8000, "CRMComm::OnProcessLapRowMessage()"},
      {0x8001, "CRMComm::OnProcessLapRowMessage()"},
      {0x8002, "CRMComm::OnProcessLapRowMessage()"},
      {0x8003, nullptr},
      {0x801F, nullptr},
      {0x8020, "CRMComm::OnAllViews()"},
      {0x8021, "CRMComm::OnViewConnect()"},
      {0x8022, "CRMComm::OnViewDisconnect()"},
      {0x8023, nullptr},
      {0x8024, "CRMComm::OnProcessViewMessage()"},
      {0x8025, "CRMComm::OnProcessViewMessage()"},
      {0x8026, "CRMComm::OnProcessViewMessage()"},
      {0x8027, "CRMComm::OnProcessViewMessage()"},
      {0x8028, nullptr},
      {0xFFFF, nullptr},
  };
  for (const Case& c : cases) {
    auto error = CatchKVT([&] { link.Apply(DataEncoder::NewMessage(c.id)); });
    if (c.handler == nullptr) {
      EXPECT_EQ(error, nullptr) << std::hex << c.id << ": " << (error ? error->Describe() : "");
    } else {
      ASSERT_NE(error, nullptr) << std::hex << c.id;
      EXPECT_TRUE(TrailHas(*error, c.handler)) << std::hex << c.id << ": " << error->Describe();
      EXPECT_EQ(error->GetTrail().back(), "CRMComm::ProcessMessage()");
    }
  }
  EXPECT_EQ(link.Store().GetState(), EDataLinkState::Live) << "none of them reached the replica's own IDs";
}

TEST_F(ViewConnection, SecondAllViewsMessageGrowsTheNameListAndWalksTheObserversAgain) {
  CLoggingCommObserver observer(&log);
  observer.Attach(&Comm());
  log.clear();
  link.Apply(ViewEncoder::AllViews({"lgView_RunInfo"}));
  EXPECT_EQ(Comm().GetViewNames(), (std::vector<std::string>{kResults, "lgView_LapTimes", "lgView_RunInfo"}));
  EXPECT_EQ(log, (std::vector<std::string>{"o:alldata"}));
  link.Apply(ViewEncoder::AllViews({kResults}));
  EXPECT_EQ(Comm().GetViewNames(),
            (std::vector<std::string>{kResults, "lgView_LapTimes", "lgView_RunInfo", kResults}));
  EXPECT_EQ(log, (std::vector<std::string>{"o:alldata", "o:alldata"}));
}

TEST_F(RMComm, RowMessagesReachTheViewOfTheirIdOnly) {
  CRMView* zero = Comm().CreateView(kResults, FALSE, UniqueID(kRun), FALSE);
  CRMView* one = Comm().CreateView(kResults, FALSE, UniqueID(kOtherRun), FALSE);
  std::vector<std::string> other;
  CLoggingViewObserver a(&log, "a");
  CLoggingViewObserver b(&other, "b");
  a.Attach(zero);
  b.Attach(one);
  Feed(1);
  EXPECT_TRUE(log.empty());
  EXPECT_EQ(RowIDsOf(one->GetSortedRows()), (std::vector<DWORD>{1, 2}));
  const auto types = ViewEncoder::ColumnTypes(TwoColumns());
  ViewRowBlock added;
  added.Rows.push_back(MakeRowValues(3, {IntegerValue(3), TextValue("Cid")}));
  other.clear();
  link.Apply(ViewEncoder::AddRows(1, types, added));
  link.Apply(ViewEncoder::ModifyRows(1, types, added));
  link.Apply(ViewEncoder::RemoveRows(1, types, added));
  ASSERT_EQ(other.size(), 6u);
  EXPECT_EQ(other[1].substr(0, 9), "b:data:1:");
  EXPECT_EQ(other[3].substr(0, 9), "b:data:2:");
  EXPECT_EQ(other[5].substr(0, 9), "b:data:3:");
  EXPECT_TRUE(log.empty()) << "view 0 heard nothing";
}

TEST_F(RMComm, LapRowMessagesReachTheLapViewOfTheirRun) {
  CRMLapView* lapView = Comm().CreateLapView(link.Data().GetRun(kRun));
  CRMLapView* other = Comm().CreateLapView(link.Data().GetRun(kOtherRun));
  CLapCounter counter(&log);
  counter.Attach(lapView);
  CRMLapViewRow first = LapRow(1, 10);
  CRMLapViewRow second = LapRow(2, 20);
  link.Apply(ViewEncoder::AllPassings(kRun, {&first}));
  link.Apply(ViewEncoder::AddLapRow(kRun, second));
  second.PassingTime = 30;
  link.Apply(ViewEncoder::ModifyLapRows(kRun, {&second}));
  EXPECT_EQ(log, (std::vector<std::string>{"all", "add", "modify"}));
  EXPECT_EQ(lapView->GetRows().size(), 2u);
  EXPECT_TRUE(other->GetRowMap().empty());
}

TEST_F(RMComm, RowMessagesForUnknownViewIdsAndLapKeysAreDroppedWithoutAWord) {
  CRMView* view = Comm().CreateView(kResults, FALSE, UniqueID(kRun), FALSE);
  CLoggingViewObserver a(&log, "a");
  a.Attach(view);
  Feed(0);
  CRMLapView* lapView = Comm().CreateLapView(link.Data().GetRun(kRun));
  std::vector<std::string> laps;
  CLapCounter counter(&laps);
  counter.Attach(lapView);
  log.clear();
  const std::size_t sent = SentCount();
  // Behind the unknown key comes what no handler could read: it must not be read.
  for (WORD id : {kMsgViewConnect, kMsgAllRows, kMsgAddRows, kMsgModifyRows, kMsgRemoveRows, kMsgAllPassings,
                  kMsgAddLapRow, kMsgModifyLapRows}) {
    auto* message = DataEncoder::NewMessage(id);
    *message << DWORD{0x40000099} << BYTE{1};
    auto error = CatchKVT([&] { link.Apply(message); });
    EXPECT_EQ(error, nullptr) << std::hex << id << ": " << (error ? error->Describe() : "");
  }
  EXPECT_EQ(SentCount(), sent);
  EXPECT_TRUE(log.empty());
  EXPECT_TRUE(laps.empty());
  EXPECT_EQ(view->GetColumnCount(), 2u);
  EXPECT_EQ(RowIDsOf(view->GetSortedRows()), (std::vector<DWORD>{1, 2}));
  EXPECT_EQ(Comm().GetViews().size(), 1u);
  EXPECT_EQ(Comm().GetLapViews().size(), 1u);
}

// ---------------------------------------------------------------------------------------
// View disconnect

TEST_F(ViewConnection, DisconnectForAnUnknownIdChangesNothingButItsStringIsStillRead) {
  for (DWORD i = 0; i < 8; ++i) Comm().CreateView(kResults, FALSE, UniqueID(i), FALSE);
  ASSERT_EQ(Comm().GetViews().size(), 8u);
  // The name is seven bytes long: taken for the ID, its length would name view 7.
  link.Apply(ViewEncoder::ViewDisconnect("unknown", 99));
  EXPECT_EQ(Comm().GetViews().size(), 8u);
  EXPECT_EQ(Comm().GetViews().count(7), 1u);
  link.Apply(ViewEncoder::ViewDisconnect("", 3));
  EXPECT_EQ(Comm().GetViews().size(), 7u);
  EXPECT_EQ(Comm().GetViews().count(3), 0u);

  // A name cut short: the message fails and nothing goes.
  auto* cut = DataEncoder::NewMessage(kMsgViewDisconnect);
  *cut << DWORD{100};
  const char bytes[] = "ab";
  cut->WriteBytes(bytes, 2);
  auto error = CatchKVT([&] { link.Apply(cut); });
  ASSERT_NE(error, nullptr);
  EXPECT_TRUE(TrailHas(*error, "CRMComm::OnViewDisconnect()"));
  EXPECT_EQ(Comm().GetViews().size(), 7u);
  EXPECT_EQ(Comm().GetNextViewID(), 8u);
}

TEST_F(ViewConnection, DisconnectForAKnownViewDestroysItAndLetsItsObserversGo) {
  CRMView* view = Comm().CreateView(kResults, FALSE, UniqueID(kRun), FALSE);
  auto observer = std::make_unique<CLoggingViewObserver>(&log, "a");
  observer->Attach(view);
  Feed(0);
  log.clear();
  link.Apply(ViewEncoder::ViewDisconnect(kResults, 0));
  EXPECT_TRUE(Comm().GetViews().empty());
  EXPECT_TRUE(observer->GetSubjects().empty());
  EXPECT_EQ(log, (std::vector<std::string>{"a:removed"}));
  const std::size_t sent = SentCount();
  observer.reset();
  EXPECT_EQ(SentCount(), sent) << "an observer without subjects sends nothing when it goes";
}

// ---------------------------------------------------------------------------------------
// Loss of the data manager, clearing

TEST_F(ViewConnection, AfterDisconnectCreateViewForTheSameNameMakesANewViewWithANewId) {
  CRMView* before = Comm().CreateView(kResults, FALSE, UniqueID(kRun), FALSE);
  EXPECT_EQ(before->GetViewID(), 0u);
  Comm().OnDisconnect();
  EXPECT_TRUE(Comm().GetViews().empty());
  CRMView* after = Comm().CreateView(kResults, FALSE, UniqueID(kRun), FALSE);
  EXPECT_EQ(after->GetViewID(), 1u);
  EXPECT_EQ(Comm().GetViews().count(0), 0u);
  EXPECT_EQ(Comm().GetViews().at(1), after);
}

TEST_F(RMComm, LossOfTheDataManagerDestroysViewsAndClearsThenDestroysLapViews) {
  CRMView* view = Comm().CreateView(kResults, FALSE, UniqueID(kRun), FALSE);
  CRMView* other = Comm().CreateView(kResults, FALSE, UniqueID(kOtherRun), FALSE);
  auto reader = std::make_unique<CLoggingViewObserver>(&log, "a");
  auto both = std::make_unique<CLoggingViewObserver>(&log, "b");
  reader->Attach(view);
  both->Attach(view);
  both->Attach(other);
  Feed(0);
  CRMLapView* lapView = Comm().CreateLapView(link.Data().GetRun(kRun));
  CRMLapView* otherLapView = Comm().CreateLapView(link.Data().GetRun(kOtherRun));
  std::vector<std::string> laps;
  std::vector<std::string> otherLaps;
  auto lapReader = std::make_unique<CLapCounter>(&laps);
  auto otherLapReader = std::make_unique<CLapCounter>(&otherLaps);
  lapReader->Attach(lapView);
  otherLapReader->Attach(otherLapView);
  CRMLapViewRow row = LapRow(1, 10);
  link.Apply(ViewEncoder::AddLapRow(kRun, row));
  // The link's observers hear of the loss while the views still stand.
  CDisconnectProbe probe;
  std::size_t viewsWhenTold = 0;
  probe.Check = [&] { viewsWhenTold = Comm().GetViews().size(); };
  probe.Attach(&Comm());
  log.clear();
  laps.clear();
  const std::size_t sent = SentCount();

  link.Apply(DataEncoder::Disconnected());

  EXPECT_EQ(viewsWhenTold, 2u);
  EXPECT_TRUE(Comm().GetViews().empty());
  EXPECT_TRUE(Comm().GetLapViews().empty());
  EXPECT_EQ(laps, (std::vector<std::string>{"clear"}));
  EXPECT_EQ(otherLaps, (std::vector<std::string>{"clear"}));
  EXPECT_EQ(std::count(log.begin(), log.end(), "a:removed"), 1);
  EXPECT_EQ(std::count(log.begin(), log.end(), "b:removed"), 2);
  EXPECT_TRUE(reader->GetSubjects().empty());
  EXPECT_TRUE(both->GetSubjects().empty());
  EXPECT_EQ(Comm().GetViewNames().size(), 2u) << "the view names stay";
  EXPECT_EQ(Comm().GetNextViewID(), 2u);
  for (std::size_t i = sent; i < link.module.Target.Sent.size(); ++i) {
    EXPECT_NE(link.module.Target.Sent[i]->ID, kMsgViewDisconnect) << "destroyed views ask nothing of anybody";
  }

  CRMView* fresh = Comm().CreateView(kResults, FALSE, UniqueID(kRun), FALSE);
  EXPECT_EQ(fresh->GetViewID(), 2u);
  // Observers that outlive their views go without touching them.
  reader.reset();
  both.reset();
  lapReader.reset();
  otherLapReader.reset();
  EXPECT_TRUE(fresh->GetObservers().empty());
}

TEST_F(RMComm, ClearAllPassingsOfTheReplicaReachesTheLapViewOfThatRunWhichStaysInTheMap) {
  CRMLapView* firstLapView = Comm().CreateLapView(link.Data().GetRun(kRun));
  CRMLapView* lapView = Comm().CreateLapView(link.Data().GetRun(kOtherRun));
  std::vector<std::string> firstLaps;
  CLapCounter firstCounter(&firstLaps);
  CLapCounter counter(&log);
  firstCounter.Attach(firstLapView);
  counter.Attach(lapView);
  CRMLapViewRow row = LapRow(1, 10);
  link.Apply(ViewEncoder::AddLapRow(kRun, row));
  link.Apply(ViewEncoder::AddLapRow(kOtherRun, row));
  log.clear();
  firstLaps.clear();

  // The second run's passing bit falls: the run clears its passings.
  CRun changed(nullptr);
  changed.UniqueID = kOtherRun;
  changed.Flags = kRunLocal;
  link.Apply(DataEncoder::ModifyRun(changed));

  EXPECT_EQ(log, (std::vector<std::string>{"clear"}));
  EXPECT_TRUE(lapView->GetRows().empty());
  EXPECT_TRUE(lapView->GetRowMap().empty());
  EXPECT_EQ(Comm().GetLapViews().size(), 2u);
  EXPECT_EQ(Comm().GetLapViews().at(kOtherRun), lapView);
  EXPECT_TRUE(firstLaps.empty()) << "the other run's lap view is left alone";
  EXPECT_EQ(firstLapView->GetRows().size(), 1u);

  // Called for a run without a lap view, it does nothing.
  Comm().OnClearAllPassings(0x40000077);
  EXPECT_EQ(Comm().GetLapViews().size(), 2u);
  EXPECT_TRUE(firstLaps.empty());
  EXPECT_EQ(log.size(), 1u);
}

TEST_F(RMComm, ClearAllEmptiesTheNamesAndDestroysViewsAndLapViewsWithoutClearingPassings) {
  CRMView* view = Comm().CreateView(kResults, FALSE, UniqueID(kRun), FALSE);
  CLoggingViewObserver a(&log, "a");
  a.Attach(view);
  std::vector<std::string> laps;
  CLapCounter counter(&laps);
  counter.Attach(Comm().CreateLapView(link.Data().GetRun(kRun)));
  log.clear();
  Comm().ClearAll();
  EXPECT_TRUE(Comm().GetViewNames().empty());
  EXPECT_TRUE(Comm().GetViews().empty());
  EXPECT_TRUE(Comm().GetLapViews().empty());
  EXPECT_TRUE(laps.empty()) << "no clear notification";
  EXPECT_EQ(log, (std::vector<std::string>{"a:removed"}));
  EXPECT_TRUE(a.GetSubjects().empty());
  EXPECT_EQ(Comm().GetNextViewID(), 1u);
  EXPECT_EQ(Comm().CreateView(kResults, FALSE, UniqueID(kRun), FALSE)->GetViewID(), 1u);
}

TEST_F(RMComm, CreateLapViewMakesOneLapViewPerRun) {
  CRun* run = link.Data().GetRun(kRun);
  CRMLapView* lapView = Comm().CreateLapView(run);
  ASSERT_NE(lapView, nullptr);
  EXPECT_EQ(lapView->GetRun(), run);
  EXPECT_EQ(Comm().CreateLapView(run), lapView);
  EXPECT_EQ(Comm().GetLapViews().at(kRun), lapView);
  EXPECT_EQ(Comm().CreateLapView(nullptr), nullptr);
  EXPECT_EQ(Comm().GetLapViews().size(), 1u);
}

TEST_F(RMComm, ViewsAndObserversOutlivedByTheirObserversAreSafeWhenTheLinkGoes) {
  auto module = std::make_unique<CTestModule>();
  auto comm = std::make_unique<CRMComm>(module.get());
  CRMView* view = comm->CreateView(kResults, FALSE, UniqueID(kRun), FALSE);
  CLoggingViewObserver a(&log, "a");
  a.Attach(view);
  CRun run(nullptr);
  run.UniqueID = kRun;
  CLapCounter counter(&log);
  counter.Attach(comm->CreateLapView(&run));
  log.clear();
  comm.reset();
  EXPECT_EQ(log, (std::vector<std::string>{"a:removed"}));
  EXPECT_TRUE(a.GetSubjects().empty());
}
