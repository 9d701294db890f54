// The data root: the connection states, the snapshot and the incremental dispatch.
#include "data/Data.h"

#include <gtest/gtest.h>

#include "data/DataEncoder.h"
#include "data/DataTestSupport.h"
#include "data/RecordEquality.h"
#include "frame/Package.h"
#include "testing/KVTCatch.h"

namespace {

constexpr DWORD kRemote = 0x0A0000FE;

struct Link : ::testing::Test {
  void SetUp() override {
    observer.Attach(&comm);
    comm.Initialize(0);
  }
  CData& Store() { return *comm.GetData()->GetData(); }
  void Report(DWORD computer, BOOL present, DWORD instance = 1) {
    comm.OnModifyModule(kDataManagerClass, instance, computer, present);
  }
  // A local data manager connects and sends a snapshot holding event 0x80000001.
  void GoLiveWithOneEvent() {
    Report(LocalComputerForTests(), TRUE);
    Deliver(comm, DataEncoder::Connected());
    CBaseDataComm model;
    auto* event = new Cevent(nullptr);
    event->UniqueID = 0x80000001;
    model.Events[event->UniqueID] = event;
    Deliver(comm, DataEncoder::Snapshot(model));
  }
  std::vector<WORD> ToDataManager() const { return module.DataManagerIDs(); }
  std::vector<WORD> ToHost() const { return module.HostIDs(); }

  CTestModule module;
  CRMComm comm{&module};
  std::vector<std::string> log;
  CLoggingCommObserver observer{&log};
};

}  // namespace

TEST_F(Link, WalksThroughWaitingConnectingLoadingAndLive) {
  EXPECT_EQ(Store().GetState(), EDataLinkState::Waiting);
  EXPECT_EQ(ToHost(), (std::vector<WORD>{kMsgEnableWaiting}));
  Report(LocalComputerForTests(), TRUE);
  EXPECT_EQ(Store().GetState(), EDataLinkState::Connecting);
  ASSERT_EQ(ToDataManager(), (std::vector<WORD>{0}));
  // The connect message carries the connect parameter as an int.
  CModuleMessage& connect = *module.Target.Sent.back();
  EXPECT_EQ(connect.GetFilled(), 4u);
  EXPECT_EQ(connect.TargetInstance, 1u);
  EXPECT_EQ(module.ConnectedClass, kDataManagerClass);

  Deliver(comm, DataEncoder::Connected());
  EXPECT_EQ(Store().GetState(), EDataLinkState::Loading);
  EXPECT_EQ(ToDataManager(), (std::vector<WORD>{0, 2}));
  EXPECT_TRUE(Store().Connected);
  EXPECT_EQ(log, (std::vector<std::string>{"o:connect"}));

  Deliver(comm, DataEncoder::Snapshot(CBaseDataComm()));
  EXPECT_EQ(Store().GetState(), EDataLinkState::Live);
  EXPECT_EQ(ToDataManager(), (std::vector<WORD>{0, 2, kMsgAllViews}));
  EXPECT_EQ(log, (std::vector<std::string>{"o:connect"})) << "observers wait for the view list";

  auto* views = DataEncoder::NewMessage(kMsgAllViews);
  *views << 1 << std::string("lgView_Results");
  Deliver(comm, views);
  EXPECT_EQ(log, (std::vector<std::string>{"o:connect", "o:alldata"}));
  EXPECT_EQ(comm.GetViewNames(), (std::vector<std::string>{"lgView_Results"}));
}

TEST_F(Link, AllViewsReplyAlsoTellsTheActiveRun) {
  Report(LocalComputerForTests(), TRUE);
  Deliver(comm, DataEncoder::Connected());
  CBaseDataComm model;
  auto* run = new CRun(nullptr);
  run->UniqueID = 0x40000003;
  run->Flags = kRunActive | kRunLocal;
  model.Runs[run->UniqueID] = run;
  Deliver(comm, DataEncoder::Snapshot(model));
  log.clear();
  auto* views = DataEncoder::NewMessage(kMsgAllViews);
  *views << 0;
  Deliver(comm, views);
  EXPECT_EQ(log, (std::vector<std::string>{"o:alldata", "o:active:1073741827"}));
}

TEST_F(Link, DisconnectMessageClearsEverythingAndAsksForTheModulesAgain) {
  CSampleMaker maker(51);
  auto model = MakeModel(maker, 1, 2, 2, 1, 3);
  Report(LocalComputerForTests(), TRUE);
  Deliver(comm, DataEncoder::Connected());
  Deliver(comm, DataEncoder::Snapshot(*model));
  ASSERT_FALSE(Store().Runs.empty());
  log.clear();
  Deliver(comm, DataEncoder::Disconnected());
  EXPECT_EQ(log, (std::vector<std::string>{"o:disconnect"}));
  EXPECT_TRUE(Store().Tracks.empty());
  EXPECT_TRUE(Store().Events.empty());
  EXPECT_TRUE(Store().Runs.empty());
  EXPECT_TRUE(Store().Merges.empty());
  EXPECT_TRUE(Store().TxTranslations.empty());
  EXPECT_TRUE(Store().Championships.empty());
  EXPECT_TRUE(Store().FieldVectors[0].empty());
  EXPECT_EQ(Store().ActiveRun, nullptr);
  EXPECT_EQ(Store().GetState(), EDataLinkState::Waiting);
  EXPECT_FALSE(Store().Connected);
  EXPECT_EQ(ToHost().back(), kMsgGetAllModules);
  EXPECT_EQ(module.ConnectedComputer, kNoComputer);

  // A data manager reported again is connected anew.
  Report(LocalComputerForTests(), TRUE, 2);
  EXPECT_EQ(ToDataManager().back(), 0);
  EXPECT_EQ(module.ConnectedInstance, 2u);
  EXPECT_EQ(Store().GetState(), EDataLinkState::Connecting);
}

TEST_F(Link, LocalDataManagerDisplacesARemoteOneWithoutAskingForModules) {
  Report(kRemote, TRUE);
  Deliver(comm, DataEncoder::Connected());
  CSampleMaker maker(52);
  Deliver(comm, DataEncoder::Snapshot(*MakeModel(maker, 1, 1, 1, 0, 1)));
  ASSERT_EQ(module.ConnectedComputer, kRemote);
  const std::size_t before = module.Target.Sent.size();
  log.clear();
  Report(LocalComputerForTests(), TRUE, 7);
  std::vector<WORD> after;
  std::vector<DWORD> computers;
  for (std::size_t i = before; i < module.Target.Sent.size(); ++i) {
    const auto& message = module.Target.Sent[i];
    if (message->TargetClass == kDataManagerClass) {
      after.push_back(message->ID);
      computers.push_back(message->TargetComputer);
    }
    EXPECT_NE(message->ID == kMsgGetAllModules && message->TargetClass == kHostClass, true);
  }
  EXPECT_EQ(after, (std::vector<WORD>{1, 0}));
  EXPECT_EQ(computers, (std::vector<DWORD>{kRemote, LocalComputerForTests()}));
  EXPECT_EQ(log, (std::vector<std::string>{"o:disconnect"}));
  EXPECT_TRUE(Store().Runs.empty());
  EXPECT_EQ(module.ConnectedComputer, LocalComputerForTests());
  EXPECT_EQ(module.ConnectedInstance, 7u);
}

TEST_F(Link, RemoteDataManagerNeverDisplacesALocalOnePresentOrGone) {
  Report(LocalComputerForTests(), TRUE);
  Deliver(comm, DataEncoder::Connected());
  const std::size_t before = module.Target.Sent.size();
  log.clear();
  Report(kRemote, TRUE, 3);
  Report(kRemote, FALSE, 3);
  EXPECT_EQ(module.Target.Sent.size(), before);
  EXPECT_TRUE(log.empty());
  EXPECT_EQ(module.ConnectedComputer, LocalComputerForTests());
  EXPECT_EQ(Store().GetState(), EDataLinkState::Loading);
}

TEST_F(Link, ConnectedDataManagerGoingAwayDisconnectsAndOtherClassesAreIgnored) {
  comm.OnModifyModule(kWebServerClass, 1, LocalComputerForTests(), TRUE);
  EXPECT_TRUE(ToDataManager().empty());
  Report(LocalComputerForTests(), TRUE);
  Report(LocalComputerForTests(), TRUE);
  EXPECT_EQ(ToDataManager(), (std::vector<WORD>{0})) << "the same computer again is ignored";
  Report(LocalComputerForTests(), FALSE);
  EXPECT_EQ(log, (std::vector<std::string>{"o:disconnect"}));
  EXPECT_EQ(ToHost().back(), kMsgGetAllModules);
}

TEST_F(Link, SecondSnapshotReplacesRecordsAndAddsSideRecordsOverTheOldOnes) {
  Report(LocalComputerForTests(), TRUE);
  Deliver(comm, DataEncoder::Connected());
  CSampleMaker maker(53);
  auto first = MakeModel(maker, 2, 2, 2, 1, 2);
  Deliver(comm, DataEncoder::Snapshot(*first));
  CRun* oldRun = Store().FindRun(0x40000001);
  (void)oldRun;
  auto second = MakeModel(maker, 1, 1, 1, 1, 1);
  // The second list keeps Tx translation 5001 and championship 1 under their keys, with
  // new text, and has one entry under a new key; the other old entries stay.
  for (auto& [key, record] : second->TxTranslations) delete record;
  second->TxTranslations.clear();
  auto* tx = new CBaseTxTranslation;
  tx->UniqueID = 5001;
  tx->Text = "new";
  second->TxTranslations[5001] = tx;
  auto* other = new CBaseTxTranslation;
  other->UniqueID = 9999;
  second->TxTranslations[9999] = other;
  for (auto& [key, record] : second->Championships) delete record;
  second->Championships.clear();
  auto* champ = new CBaseChampionship;
  champ->UniqueID = 1;
  champ->Name = "renamed";
  second->Championships[1] = champ;
  Deliver(comm, DataEncoder::Snapshot(*second));

  EXPECT_EQ(RecordEquality::CompareMaps("Tracks", second->Tracks, Store().Tracks), "");
  EXPECT_EQ(RecordEquality::CompareMaps("Events", second->Events, Store().Events), "");
  EXPECT_EQ(RecordEquality::CompareMaps("Runs", second->Runs, Store().Runs), "");
  EXPECT_EQ(RecordEquality::CompareMaps("Merges", second->Merges, Store().Merges), "");
  for (int kind = 0; kind < 4; ++kind) {
    EXPECT_EQ(RecordEquality::CompareVectors("Fields", second->FieldVectors[kind], Store().FieldVectors[kind]), "");
  }
  EXPECT_EQ(Store().TxTranslations.size(), 4u);
  EXPECT_EQ(Store().TxTranslations.at(5001)->Text, "new");
  EXPECT_EQ(Store().TxTranslations.at(5002)->Text, first->TxTranslations.at(5002)->Text);
  EXPECT_EQ(Store().Championships.size(), 3u);
  EXPECT_EQ(Store().Championships.at(1)->Name, "renamed");
  EXPECT_EQ(Store().Championships.at(2)->Name, first->Championships.at(2)->Name);
}

namespace {

struct CRangeWatchingRun : CRun {
  CRangeWatchingRun(CBaseModule* module, CData* store) : CRun(module), Store(store) {}
  void OnRemoveRange(CBaseRange* range) override {
    (void)range;
    UpdatedRunsDuringRemove = Store->UpdatedRuns.size();
  }
  CData* Store;
  std::size_t UpdatedRunsDuringRemove = 99;
};

}  // namespace

TEST(DataStore, RemoveRangeLeavesUpdatedRunsAloneYetTakesTheActiveRunStep) {
  CTestModule module;
  CDataOwner owner;
  CData data(&module, &owner, nullptr);
  auto* run = new CRangeWatchingRun(&module, &data);
  CRun source(nullptr);
  source.UniqueID = 0x40000001;
  source.Flags = kRunActive;
  source.Ranges.push_back(new CBaseRange);
  std::unique_ptr<CModuleMessage> add(DataEncoder::AddRun(source));
  data.OnAddRun(run, *add);
  data.ClearAllUpdated();
  std::unique_ptr<CModuleMessage> range(DataEncoder::AddRange(0x40000001, CBaseRange()));
  data.ProcessDataManagerMessage(*range);
  data.ActiveRun = nullptr;
  std::unique_ptr<CModuleMessage> remove(DataEncoder::RemoveRange(0x40000001, 0));
  data.ProcessDataManagerMessage(*remove);
  EXPECT_EQ(run->UpdatedRunsDuringRemove, 0u);
  EXPECT_EQ(data.ActiveRun, run);
  EXPECT_TRUE(run->Ranges.empty());
}

TEST_F(Link, DefaultRunWithTheActiveBitIsBothDefaultAndActive) {
  Report(LocalComputerForTests(), TRUE);
  Deliver(comm, DataEncoder::Connected());
  CBaseDataComm model;
  auto* run = new CRun(nullptr);
  run->UniqueID = 0x40000001;
  run->Name = kDefaultRunName;
  run->Flags = kRunActive;
  model.Runs[run->UniqueID] = run;
  auto* track = new CTrack(nullptr);
  track->UniqueID = 3;
  track->Name = kDefaultTrackName;
  model.Tracks[3] = track;
  Deliver(comm, DataEncoder::Snapshot(model));
  EXPECT_EQ(Store().DefaultRun, Store().FindRun(0x40000001));
  EXPECT_EQ(Store().ActiveRun, Store().FindRun(0x40000001));
  EXPECT_EQ(Store().DefaultTrack, Store().FindTrack(3));
  EXPECT_EQ(comm.GetData()->GetActiveRun(), Store().ActiveRun);
}

TEST_F(Link, CompetitorMessageWithAnOwnerWithoutKindBitIsDropped) {
  GoLiveWithOneEvent();
  CBaseCompetitor competitor;
  competitor.UniqueID = 1;
  auto* message = DataEncoder::AddCompetitors(0x00000001, {&competitor});
  EXPECT_EQ(CatchKVT([&] { Deliver(comm, message); }), nullptr);
  EXPECT_TRUE(Store().FindEvent(0x80000001)->Competitors->Competitors.empty());
}

TEST_F(Link, IncrementalMessagesEndWithTheUpdatedVectorsEmptyButASnapshotLeavesThem) {
  Report(LocalComputerForTests(), TRUE);
  Deliver(comm, DataEncoder::Connected());
  CSampleMaker maker(54);
  Deliver(comm, DataEncoder::Snapshot(*MakeModel(maker, 1, 1, 2, 1, 1)));
  EXPECT_EQ(Store().UpdatedRuns.size(), 2u);
  EXPECT_EQ(Store().UpdatedTracks.size(), 1u);
  Deliver(comm, DataEncoder::BackupCreated());
  EXPECT_TRUE(Store().UpdatedRuns.empty());
  EXPECT_TRUE(Store().UpdatedTracks.empty());
  EXPECT_TRUE(Store().UpdatedMerges.empty());
}

TEST_F(Link, AllDataSeenStaysAfterADisconnectSoALateObserverHearsAllDataAtOnce) {
  Report(LocalComputerForTests(), TRUE);
  Deliver(comm, DataEncoder::Connected());
  Deliver(comm, DataEncoder::Snapshot(CBaseDataComm()));
  Deliver(comm, DataEncoder::Disconnected());
  std::vector<std::string> late;
  CLoggingCommObserver second(&late, "late");
  second.Attach(&comm);
  EXPECT_EQ(late, (std::vector<std::string>{"late:alldata"}));
}

TEST_F(Link, UnknownIDsAndKeysAreDroppedSilently) {
  Report(LocalComputerForTests(), TRUE);
  Deliver(comm, DataEncoder::Connected());
  CSampleMaker maker(55);
  auto model = MakeModel(maker, 1, 1, 1, 1, 1);
  Deliver(comm, DataEncoder::Snapshot(*model));
  for (WORD id : {WORD{4}, WORD{19}, WORD{44}, WORD{99}, WORD{200}, WORD{0x8003}, WORD{0x8023}, WORD{0x8028}}) {
    auto* message = DataEncoder::NewMessage(id);
    *message << 12345;
    EXPECT_EQ(CatchKVT([&] { Deliver(comm, message); }), nullptr) << id;
  }
  CBaseTrack track;
  track.UniqueID = 77;
  CRun run(nullptr);
  run.UniqueID = 0x40000077;
  CMerge merge(nullptr);
  merge.UniqueID = 0x20000077;
  Deliver(comm, DataEncoder::ModifyTrack(track));
  Deliver(comm, DataEncoder::ModifyRun(run));
  Deliver(comm, DataEncoder::ModifyMerge(merge));
  Deliver(comm, DataEncoder::RemoveTimeline(1, 200));
  Deliver(comm, DataEncoder::RemoveAnnouncement(0x40000001, 999));
  Deliver(comm, DataEncoder::RemoveChampionship(999));
  EXPECT_EQ(RecordEquality::CompareStores(*model, Store()), "");
}

TEST_F(Link, MessageThatEndsEarlyThrowsThroughTheGuardsAndKeepsWhatWasApplied) {
  GoLiveWithOneEvent();
  CBaseCompetitor a;
  a.UniqueID = 1;
  a.Number = "A";
  CBaseCompetitor b;
  b.UniqueID = 2;
  b.Number = "B";
  std::unique_ptr<CModuleMessage> full(DataEncoder::AddCompetitors(0x80000001, {&a, &b}));
  // Cut the message in the middle of the second competitor.
  auto* cut = DataEncoder::NewMessage(96);
  cut->Assign(full->GetData(), full->GetFilled() - 10);
  const std::size_t updatedBefore = Store().UpdatedEvents.size();
  auto error = CatchKVT([&] { Deliver(comm, cut); });
  ASSERT_NE(error, nullptr);
  const auto& trail = error->GetTrail();
  EXPECT_EQ(trail.front(), "CTTBuffer: read past the end of the message");
  EXPECT_NE(std::find(trail.begin(), trail.end(), "CCompetitorContainer::OnAddCompetitors()"), trail.end());
  EXPECT_NE(std::find(trail.begin(), trail.end(), "CData::ProcessDataManagerMessage()"), trail.end());
  EXPECT_EQ(trail.back(), "CRMComm::ProcessMessage()");
  const auto& competitors = Store().FindEvent(0x80000001)->Competitors->Competitors;
  ASSERT_EQ(competitors.size(), 1u);
  EXPECT_EQ(competitors.at(1)->Number, "A");
  // The updated vectors were not emptied: the message did not finish.
  EXPECT_EQ(Store().UpdatedEvents.size(), updatedBefore + 1);
}

TEST_F(Link, SnapshotThatEndsEarlyKeepsTheListsThatCameInFull) {
  Report(LocalComputerForTests(), TRUE);
  Deliver(comm, DataEncoder::Connected());
  CSampleMaker maker(56);
  auto model = MakeModel(maker, 2, 2, 2, 1, 2);
  std::unique_ptr<CModuleMessage> full(DataEncoder::Snapshot(*model));
  auto* cut = DataEncoder::NewMessage(2);
  cut->Assign(full->GetData(), full->GetFilled() - 20);
  EXPECT_NE(CatchKVT([&] { Deliver(comm, cut); }), nullptr);
  EXPECT_EQ(RecordEquality::CompareMaps("Tracks", model->Tracks, Store().Tracks), "");
  EXPECT_EQ(RecordEquality::CompareMaps("Runs", model->Runs, Store().Runs), "");
  EXPECT_NE(Store().GetState(), EDataLinkState::Live);
}

namespace {

// Detaches a chosen observer from inside its own callback.
struct CDetachingObserver : CLoggingCommObserver {
  CDetachingObserver(std::vector<std::string>* log, std::string name, CRMComm* comm)
      : CLoggingCommObserver(log, std::move(name)), Comm(comm) {}
  void OnConnect() override {
    CLoggingCommObserver::OnConnect();
    if (Victim != nullptr) Comm->Detach(Victim);
  }
  CRMComm* Comm;
  CRMCommObserver* Victim = nullptr;
};

}  // namespace

TEST(RMDataObservers, DetachOfAnEarlierObserverDuringAWalkKeepsThePosition) {
  CTestModule module;
  CRMComm comm(&module);
  std::vector<std::string> log;
  CLoggingCommObserver a(&log, "a");
  CDetachingObserver b(&log, "b", &comm);
  CLoggingCommObserver c(&log, "c");
  a.Attach(&comm);
  b.Attach(&comm);
  c.Attach(&comm);
  b.Victim = &a;
  comm.GetData()->OnConnect();
  EXPECT_EQ(log, (std::vector<std::string>{"a:connect", "b:connect", "c:connect"}));
}

TEST(RMDataObservers, DetachOfItselfDuringAWalkEndsTheWalkCleanly) {
  CTestModule module;
  CRMComm comm(&module);
  std::vector<std::string> log;
  CDetachingObserver a(&log, "a", &comm);
  CLoggingCommObserver b(&log, "b");
  a.Attach(&comm);
  b.Attach(&comm);
  a.Victim = &a;
  comm.GetData()->OnConnect();
  EXPECT_EQ(log, (std::vector<std::string>{"a:connect"}));
  EXPECT_EQ(comm.GetObservers(), (std::vector<CRMCommObserver*>{&b}));
}

TEST(RMDataObservers, DetachOfTheLastObserverDuringAWalkEndsIt) {
  CTestModule module;
  CRMComm comm(&module);
  std::vector<std::string> log;
  CLoggingCommObserver a(&log, "a");
  CDetachingObserver b(&log, "b", &comm);
  a.Attach(&comm);
  b.Attach(&comm);
  b.Victim = &b;
  comm.GetData()->OnConnect();
  EXPECT_EQ(log, (std::vector<std::string>{"a:connect", "b:connect"}));
  EXPECT_EQ(comm.GetData()->ObserverGetNext(), nullptr);
}

TEST(RMDataObservers, AttachDuringAWalkKeepsThePositionAndTheNewcomerIsReached) {
  CTestModule module;
  CRMComm comm(&module);
  std::vector<std::string> log;
  struct CAttaching : CLoggingCommObserver {
    using CLoggingCommObserver::CLoggingCommObserver;
    void OnConnect() override {
      CLoggingCommObserver::OnConnect();
      if (Newcomer != nullptr) Newcomer->Attach(Comm);
    }
    CRMComm* Comm = nullptr;
    CRMCommObserver* Newcomer = nullptr;
  };
  CAttaching a(&log, "a");
  CLoggingCommObserver b(&log, "b");
  CLoggingCommObserver late(&log, "late");
  a.Comm = &comm;
  a.Newcomer = &late;
  a.Attach(&comm);
  b.Attach(&comm);
  comm.GetData()->OnConnect();
  EXPECT_EQ(log, (std::vector<std::string>{"a:connect", "b:connect", "late:connect"}));
}

TEST(RMDataObservers, ObserverLeavesTheLinkWhenDestroyed) {
  CTestModule module;
  CRMComm comm(&module);
  std::vector<std::string> log;
  {
    CLoggingCommObserver a(&log, "a");
    a.Attach(&comm);
    a.Attach(&comm);
    EXPECT_EQ(comm.GetObservers().size(), 1u);
  }
  EXPECT_TRUE(comm.GetObservers().empty());
}
