#include "data/Run.h"

#include <gtest/gtest.h>

#include "data/DataEncoder.h"
#include "data/DataTestSupport.h"
#include "testing/KVTCatch.h"

namespace {

struct CRunsLog : CRunsObserver {
  CRunsLog(std::vector<std::string>* log, CData* store) : Log(log), Store(store) {}
  void OnSubjectNotify(BYTE kind, CRun* run) override {
    Log->push_back("runs:" + std::to_string(kind) + ":" + std::to_string(run->UniqueID) +
                   " active=" + (Store->ActiveRun == nullptr ? std::string("null") : std::to_string(Store->ActiveRun->UniqueID)));
  }
  std::vector<std::string>* Log;
  CData* Store;
};

struct Runs : ::testing::Test {
  void SetUp() override {
    CBaseDataComm model;
    AddTrackAndEventGroup(model);
    link.Apply(DataEncoder::Snapshot(model));
    observer.Attach(&link.comm);
    runsLog.Attach(&link.Store());
  }
  static std::unique_ptr<CRun> MakeRun(DWORD id, WORD flags) {
    auto run = std::make_unique<CRun>(nullptr);
    run->UniqueID = id;
    run->EventID = 0x80000002;
    run->Flags = flags;
    return run;
  }
  CLiveLink link;
  std::vector<std::string> log;
  CLoggingCommObserver observer{&log};
  CRunsLog runsLog{&log, &link.Store()};
};

}  // namespace

TEST_F(Runs, RunAddedWithTheDeleteBitStillNotifiesAsAnAddition) {
  log.clear();
  link.Apply(DataEncoder::AddRun(*MakeRun(0x40000001, kRunDeleted)));
  EXPECT_EQ(log, (std::vector<std::string>{"runs:1:1073741825 active=null"}));
}

TEST_F(Runs, DeletingTheActiveRunTellsActiveChangedWithNullThenRemovalAndClearsThePointer) {
  link.Apply(DataEncoder::AddRun(*MakeRun(0x40000001, kRunActive)));
  ASSERT_EQ(link.Store().ActiveRun, link.Store().FindRun(0x40000001));
  log.clear();
  link.Apply(DataEncoder::ModifyRun(*MakeRun(0x40000001, kRunDeleted)));
  // The pointer still shows the old run while observers are told: the store steps after.
  EXPECT_EQ(log, (std::vector<std::string>{"o:active:null", "runs:3:1073741825 active=1073741825"}));
  EXPECT_EQ(link.Store().ActiveRun, nullptr);
  EXPECT_NE(link.Store().FindRun(0x40000001), nullptr);
}

TEST_F(Runs, ModifyOfTheActiveRunWithoutAChangeOfTheBitTellsActiveChangedAgain) {
  link.Apply(DataEncoder::AddRun(*MakeRun(0x40000001, kRunActive)));
  log.clear();
  auto run = MakeRun(0x40000001, kRunActive);
  run->RunType = 2;
  link.Apply(DataEncoder::ModifyRun(*run));
  link.Apply(DataEncoder::ModifyRun(*run));
  EXPECT_EQ(log, (std::vector<std::string>{"o:active:1073741825", "runs:2:1073741825 active=1073741825",
                                           "o:active:1073741825", "runs:2:1073741825 active=1073741825"}));
}

TEST_F(Runs, FlagsWithBitFourClearOnTheWireReadBackWithBitFourSet) {
  link.Apply(DataEncoder::AddRun(*MakeRun(0x40000001, 0)));
  EXPECT_EQ(link.Store().FindRun(0x40000001)->Flags, kRunLocal);
  CRun fresh(nullptr);
  EXPECT_EQ(fresh.Flags, kRunLocal | kRunFresh);
}

namespace {

struct CClearCountingRun : CRun {
  using CRun::CRun;
  void OnClearAllPassings() override { ++Clears; }
  int Clears = 0;
};

}  // namespace

TEST_F(Runs, FallingPassingBitClearsTheListEvenOfARunThatWasNeverLive) {
  CTestModule module;
  CDataOwner owner;
  CData data(&module, &owner, nullptr);
  auto* run = new CClearCountingRun(&module);
  std::unique_ptr<CModuleMessage> add(DataEncoder::AddRun(*MakeRun(0x40000001, kRunHasPassings)));
  data.OnAddRun(run, *add);
  run->Passings->Passings[1] = new CBasePassing(1);
  ASSERT_FALSE(run->PassingsLive);
  std::unique_ptr<CModuleMessage> modify(DataEncoder::ModifyRun(*MakeRun(0x40000001, 0)));
  data.ProcessDataManagerMessage(*modify);
  EXPECT_EQ(run->Clears, 1);
  EXPECT_TRUE(run->Passings->Passings.empty());
  EXPECT_TRUE(run->PassingsLive);
}

TEST_F(Runs, LinkRunClearsPassingsThroughTheDataFacade) {
  link.Apply(DataEncoder::AddRun(*MakeRun(0x40000001, kRunHasPassings)));
  auto* run = dynamic_cast<CRMCRun*>(link.Store().FindRun(0x40000001));
  ASSERT_NE(run, nullptr);
  EXPECT_EQ(run->RMData, &link.Data());
  link.Apply(DataEncoder::ModifyRun(*MakeRun(0x40000001, 0)));
  EXPECT_TRUE(run->PassingsLive);
}

TEST_F(Runs, EventRootIsNullWhenTheParentIsMissingAndTheRunHasNoTrack) {
  Cevent orphan(nullptr);
  orphan.UniqueID = 0x80000009;
  orphan.ParentID = 0x80000077;
  link.Apply(DataEncoder::AddEvent(orphan));
  EXPECT_EQ(link.Data().EventGetRoot(link.Store().FindEvent(0x80000009)), nullptr);
  auto run = MakeRun(0x40000003, 0);
  run->EventID = 0x80000009;
  link.Apply(DataEncoder::AddRun(*run));
  CRun* stored = link.Store().FindRun(0x40000003);
  EXPECT_EQ(stored->Event, link.Store().FindEvent(0x80000009));
  EXPECT_EQ(stored->Track, nullptr);
}

TEST_F(Runs, ModifyRangeOnARunWithoutRangesFails) {
  link.Apply(DataEncoder::AddRun(*MakeRun(0x40000001, 0)));
  CBaseRange range;
  auto error = CatchKVT([&] { link.Apply(DataEncoder::ModifyRange(0x40000001, 0, range)); });
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->GetTrail().back(), "CRMComm::ProcessMessage()");
}

TEST_F(Runs, RunTypeThreeOrMoreIsNeitherPracticeQualifyNorRace) {
  auto run = MakeRun(0x40000001, 0);
  run->RunType = 3;
  link.Apply(DataEncoder::AddRun(*run));
  EXPECT_EQ(link.Store().FindRun(0x40000001)->RunType, 3);
  EXPECT_FALSE(RunTypeHasResults(3));
  EXPECT_FALSE(RunTypeHasResults(200));
  EXPECT_TRUE(RunTypeHasResults(0));
  EXPECT_TRUE(RunTypeHasResults(1));
  EXPECT_TRUE(RunTypeHasResults(2));
}

TEST_F(Runs, RunUnderAGroupFindsTheTrackOfItsRootEvent) {
  link.Apply(DataEncoder::AddRun(*MakeRun(0x40000001, 0)));
  EXPECT_EQ(link.Store().FindRun(0x40000001)->Track, link.Store().FindTrack(1));
}

TEST_F(Runs, PassingsOfARunAreDroppedUntilItsPassingBitFalls) {
  link.Apply(DataEncoder::AddRun(*MakeRun(0x40000001, kRunHasPassings)));
  CBasePassing passing(1);
  link.Apply(DataEncoder::AddPassings(0x40000001, {&passing}));
  CRun* run = link.Store().FindRun(0x40000001);
  EXPECT_TRUE(run->Passings->Passings.empty());
  link.Apply(DataEncoder::ModifyRun(*MakeRun(0x40000001, 0)));
  link.Apply(DataEncoder::AddPassings(0x40000001, {&passing}));
  EXPECT_EQ(run->Passings->Passings.size(), 1u);
  link.Apply(DataEncoder::AllPassings(0x40000001, {}));
  EXPECT_EQ(run->Passings->Passings.size(), 1u) << "all passings are never wanted here";
}

TEST_F(Runs, EventModifyReportsDeleteAsRemoval) {
  struct CEventsLog : CEventsObserver {
    void OnSubjectNotify(BYTE kind, Cevent* event) override { Kinds.push_back(kind), (void)event; }
    std::vector<int> Kinds;
  } events;
  events.Attach(&link.Store());
  Cevent event(nullptr);
  event.UniqueID = 0x80000001;
  event.TrackID = 1;
  event.Flags = 1;
  link.Apply(DataEncoder::ModifyEvent(event));
  event.Flags = 0;
  link.Apply(DataEncoder::ModifyEvent(event));
  EXPECT_EQ(events.Kinds, (std::vector<int>{3, 1}));
}

TEST_F(Runs, EventRootOfACircleOfParentsIsNull) {
  Cevent a(nullptr);
  a.UniqueID = 0x80000010;
  a.ParentID = 0x80000011;
  Cevent b(nullptr);
  b.UniqueID = 0x80000011;
  b.ParentID = 0x80000010;
  link.Apply(DataEncoder::AddEvent(a));
  link.Apply(DataEncoder::AddEvent(b));
  EXPECT_EQ(link.Data().EventGetRoot(link.Store().FindEvent(0x80000010)), nullptr);
}
