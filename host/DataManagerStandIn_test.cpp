#include "host/DataManagerStandIn.h"

#include <gtest/gtest.h>

#include "data/DataTestSupport.h"
#include "data/RecordEquality.h"

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
  EXPECT_EQ(log, (std::vector<std::string>{"o:connect", "o:alldata", "o:active:1073741827"}));
  CData& store = *comm.GetData()->GetData();
  EXPECT_EQ(RecordEquality::CompareStores(standIn.GetModel(), store), "");
  ASSERT_EQ(store.Tracks.size(), 1u);
  EXPECT_EQ(store.Tracks.begin()->second->Name, "Riverside Ring");
  EXPECT_EQ(store.Tracks.begin()->second->SortedSections.size(), 3u);
  ASSERT_EQ(store.Runs.size(), 3u);
  CRun* race = store.FindRun(0x40000003);
  ASSERT_NE(race, nullptr);
  EXPECT_EQ(race->Track, store.FindTrack(1));
  EXPECT_EQ(race->Competitors->Competitors.size(), 5u);
  EXPECT_EQ(race->Competitors->FindTransponder(4403302), 3u);
  EXPECT_EQ(comm.GetData()->GetTxTranslation(4409999)->Text, "Guest");
  EXPECT_EQ(comm.GetViewNames().size(), 3u);
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
