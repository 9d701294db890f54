#include "data/Competitor.h"

#include <gtest/gtest.h>

#include "data/DataEncoder.h"
#include "data/DataTestSupport.h"
#include "data/Passing.h"

namespace {

CBaseCompetitor* NewCompetitor(DWORD id, std::vector<DWORD> transponders) {
  auto* competitor = new CBaseCompetitor;
  competitor->UniqueID = id;
  competitor->Transponders = std::move(transponders);
  return competitor;
}

}  // namespace

TEST(Competitors, TransponderMapSkipsZeroAndAllOnesAndMasksTheTypeBits) {
  CBaseCompetitorContainer container;
  container.Competitors[1] = NewCompetitor(1, {0, 0xFFFFFFFF, 0x20000005});
  container.UpdateTransponderMap();
  EXPECT_EQ(container.Transponders, (std::map<DWORD, DWORD>{{5, 1}}));
}

TEST(Competitors, SharedNumberGoesToTheLowerIDWhicheverCameFirst) {
  CBaseCompetitorContainer container;
  container.Competitors[9] = NewCompetitor(9, {77});
  container.UpdateTransponderMap();
  EXPECT_EQ(container.FindTransponder(77), 9u);
  container.Competitors[4] = NewCompetitor(4, {0x40000000 | 77});
  container.UpdateTransponderMap();
  EXPECT_EQ(container.FindTransponder(77), 4u);
}

TEST(Competitors, GetTransponderBeyondTheCountGivesZero) {
  CBaseCompetitor competitor;
  competitor.Transponders = {0xE0000011, 12};
  EXPECT_EQ(competitor.GetTransponder(0, FALSE), 0x11u);
  EXPECT_EQ(competitor.GetTransponder(0, TRUE), 0xE0000011u);
  EXPECT_EQ(competitor.GetTransponder(2, FALSE), 0u);
  // A negative index is never sent; here it reads as beyond the count.
  EXPECT_EQ(competitor.GetTransponder(-1, FALSE), 0u);
}

TEST(Competitors, FullNameFromFirstAndLastName) {
  CBaseCompetitor competitor;
  competitor.FirstName = "Ada";
  competitor.BuildFullName();
  EXPECT_EQ(competitor.FullName, "Ada");
  competitor.FirstName = "";
  competitor.LastName = "Lovelace";
  competitor.BuildFullName();
  EXPECT_EQ(competitor.FullName, "Lovelace");
  competitor.FirstName = "Ada";
  competitor.BuildFullName();
  EXPECT_EQ(competitor.FullName, "Ada Lovelace");
}

TEST(Competitors, ToStringJoinsTheFieldsWithTabs) {
  CBaseCompetitor competitor;
  competitor.Number = "7";
  competitor.Text3 = "t3";
  competitor.Text2 = "t2";
  competitor.Class = "A";
  competitor.Transponders = {123};
  competitor.FirstName = "Ada";
  competitor.LastName = "L";
  competitor.FieldValues = {"x", "y"};
  EXPECT_EQ(competitor.ToString(), "7\tt3\tt2\tA\t123\t0\tAda\tL\tx\ty\r\n");
}

namespace {

struct CPassingReports : CPassingOwner {
  void OnAddPassings(const std::vector<CBasePassing*>& passings) override { Added += passings.size(); }
  void OnModifyPassings(const std::vector<CBasePassing*>& passings) override { Modified += passings.size(); }
  std::size_t Added = 0;
  std::size_t Modified = 0;
};

}  // namespace

TEST(Passings, ModifyWithAnUnknownIDAddsThePassingAndReportsItAsAdded) {
  CPassingReports owner;
  CPassingList list(nullptr, &owner);
  CBasePassing passing(5);
  passing.RawTime = 100;
  std::unique_ptr<CModuleMessage> message(DataEncoder::ModifyPassings(0x40000001, {&passing}));
  DWORD run = 0;
  *message >> run;
  list.ModifyPassings(*message);
  EXPECT_EQ(owner.Added, 1u);
  EXPECT_EQ(owner.Modified, 0u);
  ASSERT_EQ(list.Passings.count(5), 1u);
  message->Reset();
  *message >> run;
  list.ModifyPassings(*message);
  EXPECT_EQ(owner.Modified, 1u);
}

TEST(Passings, SecondTimeBasisWithoutACorrectedTimeGivesTimeOfDayZero) {
  CBasePassing passing(1);
  passing.RawTime = 1000;
  passing.CorrectedTime = 0;
  passing.DayOffset = 86400000000LL;
  passing.CalculateTimeOfDay(TRUE);
  EXPECT_EQ(passing.TimeOfDay, 0);
  passing.CalculateTimeOfDay(FALSE);
  EXPECT_EQ(passing.TimeOfDay, 86400000000LL + 1000);
  passing.CorrectedTime = 0x1FFFFFFFFLL;
  passing.CalculateTimeOfDay(TRUE);
  EXPECT_EQ(passing.TimeOfDay, 86400000000LL + 0x1FFFFFFFFLL);
}

TEST(Passings, ListWithoutOwnerReadsNothing) {
  CPassingList list(nullptr, nullptr);
  CBasePassing passing(1);
  std::unique_ptr<CModuleMessage> message(DataEncoder::AddPassings(0xFFFFFFFF, {&passing}));
  DWORD run = 0;
  *message >> run;
  list.AddPassings(*message);
  EXPECT_EQ(message->GetPosition(), 4u);
  EXPECT_TRUE(list.Passings.empty());
}

namespace {

struct CCompetitorsLog : CCompetitorsObserver {
  void OnSubjectNotify(BYTE kind, CCompetitorsSubject* subject) override {
    (void)subject;
    Kinds.push_back(kind);
  }
  std::vector<int> Kinds;
};

}  // namespace

TEST(Competitors, ModifyWhoseSecondIDIsUnknownChangesTheFirstLeavesTheRestAndTellsNobody) {
  CLiveLink link;
  CBaseDataComm model;
  auto* event = new Cevent(nullptr);
  event->UniqueID = 0x80000001;
  auto* one = NewCompetitor(1, {11});
  one->Number = "1";
  event->Competitors->Competitors[1] = one;
  auto* three = NewCompetitor(3, {33});
  three->Number = "3";
  event->Competitors->Competitors[3] = three;
  model.Events[event->UniqueID] = event;
  link.Apply(DataEncoder::Snapshot(model));
  Cevent* stored = link.Store().FindEvent(0x80000001);
  CCompetitorsLog log;
  log.Attach(static_cast<CCompetitorsSubject*>(stored));

  CBaseCompetitor first;
  first.UniqueID = 1;
  first.Number = "1b";
  first.Transponders = {12};
  CBaseCompetitor unknown;
  unknown.UniqueID = 2;
  CBaseCompetitor third;
  third.UniqueID = 3;
  third.Number = "3b";
  std::unique_ptr<CModuleMessage> message(DataEncoder::ModifyCompetitors(0x80000001, {&first, &unknown, &third}));
  message->Reset();
  link.Data().ProcessMessage(*message);
  EXPECT_EQ(stored->Competitors->Competitors.at(1)->Number, "1b");
  EXPECT_EQ(stored->Competitors->Competitors.at(3)->Number, "3");
  EXPECT_LT(message->GetPosition(), message->GetFilled()) << "the rest of the message is left unread";
  EXPECT_TRUE(log.Kinds.empty());
  EXPECT_EQ(stored->Competitors->FindTransponder(11), 1u) << "the transponder map is not rebuilt";
}

TEST(Competitors, RemoveRebuildsTheMapBeforeTheCompetitorGoesAndStillNotifiesWhenEmpty) {
  CLiveLink link;
  CBaseDataComm model;
  auto* run = new CRun(nullptr);
  run->UniqueID = 0x40000001;
  run->Competitors->Competitors[1] = NewCompetitor(1, {11});
  model.Runs[run->UniqueID] = run;
  link.Apply(DataEncoder::Snapshot(model));
  CRun* stored = link.Store().FindRun(0x40000001);
  CCompetitorsLog log;
  log.Attach(static_cast<CCompetitorsSubject*>(stored));
  link.Apply(DataEncoder::RemoveCompetitors(0x40000001, {1}));
  EXPECT_TRUE(stored->Competitors->Competitors.empty());
  EXPECT_EQ(stored->Competitors->FindTransponder(11), 1u);
  link.Apply(DataEncoder::RemoveCompetitors(0x40000001, {}));
  EXPECT_EQ(log.Kinds, (std::vector<int>{3, 3}));
  EXPECT_EQ(stored->Competitors->FindTransponder(11), 0xFFFFFFFFu);
}

namespace {

// Notes which competitors the container reports as removed when it tells its observers.
struct CRemovedLog : CCompetitorsObserver {
  explicit CRemovedLog(const CBaseCompetitorContainer& container) : Container(container) {}
  void OnSubjectNotify(BYTE kind, CCompetitorsSubject* subject) override {
    (void)subject;
    if (kind != 3) return;
    for (const CBaseCompetitor* competitor : Container.Removed) RemovedIDs.push_back(competitor->UniqueID);
  }
  const CBaseCompetitorContainer& Container;
  std::vector<DWORD> RemovedIDs;
};

}  // namespace

TEST(Competitors, RemoveNamingTheSameCompetitorTwiceRemovesAndReportsItOnce) {
  CLiveLink link;
  CBaseDataComm model;
  auto* run = new CRun(nullptr);
  run->UniqueID = 0x40000001;
  run->Competitors->Competitors[1] = NewCompetitor(1, {11});
  run->Competitors->Competitors[2] = NewCompetitor(2, {22});
  model.Runs[run->UniqueID] = run;
  link.Apply(DataEncoder::Snapshot(model));
  CRun* stored = link.Store().FindRun(0x40000001);
  CRemovedLog log(*stored->Competitors);
  log.Attach(static_cast<CCompetitorsSubject*>(stored));
  link.Apply(DataEncoder::RemoveCompetitors(0x40000001, {1, 7, 1}));
  EXPECT_EQ(log.RemovedIDs, (std::vector<DWORD>{1}));
  ASSERT_EQ(stored->Competitors->Competitors.size(), 1u);
  EXPECT_EQ(stored->Competitors->Competitors.begin()->first, 2u);
  EXPECT_TRUE(stored->Competitors->Removed.empty());
}

TEST(Competitors, LabelsAreKeptOnlyWhenNotEmptyUnderTheRawValue) {
  CBaseCompetitor source;
  source.Transponders = {0x20000005, 6};
  source.TransponderLabels = {{0x20000005, "helmet"}};
  CTTBuffer buffer(16);
  DataEncoder::WriteCompetitorBody(buffer, source);
  buffer.Reset();
  CBaseCompetitor decoded;
  decoded.MessageToCompetitor(buffer);
  EXPECT_EQ(decoded.TransponderLabels, (std::map<DWORD, std::string>{{0x20000005, "helmet"}}));
  EXPECT_EQ(decoded.Transponders, (std::vector<DWORD>{0x20000005, 6}));
}

// A removal whose notice failed keeps its competitors and leaves nothing on the list of
// removed ones, so that the next removal of the same competitor frees it once.
TEST(Competitors, RemoveWhoseNoticeFailedLeavesNothingForTheNextRemove) {
  struct CFailingNotice : CCompetitorsObserver {
    void OnSubjectNotify(BYTE kind, CCompetitorsSubject*) override {
      if (kind != 3 || !Fail) return;
      Fail = false;
      throw new CKVTException("notice", "the observer failed");
    }
    bool Fail = true;
  };
  CLiveLink link;
  CFailingNotice failing;
  CBaseDataComm model;
  auto* run = new CRun(nullptr);
  run->UniqueID = 0x40000001;
  run->Competitors->Competitors[1] = NewCompetitor(1, {11});
  run->Competitors->Competitors[2] = NewCompetitor(2, {22});
  model.Runs[run->UniqueID] = run;
  link.Apply(DataEncoder::Snapshot(model));
  CRun* stored = link.Store().FindRun(0x40000001);
  CRemovedLog log(*stored->Competitors);
  log.Attach(static_cast<CCompetitorsSubject*>(stored));
  failing.Attach(static_cast<CCompetitorsSubject*>(stored));
  try {
    link.Apply(DataEncoder::RemoveCompetitors(0x40000001, {1}));
    ADD_FAILURE() << "the failed notice did not reach the caller";
  } catch (CKVTException* e) {
    delete e;
  }
  ASSERT_TRUE(stored->Competitors->Removed.empty());
  ASSERT_EQ(stored->Competitors->Competitors.size(), 2u);
  log.RemovedIDs.clear();
  link.Apply(DataEncoder::RemoveCompetitors(0x40000001, {1}));
  EXPECT_EQ(log.RemovedIDs, (std::vector<DWORD>{1}));
  ASSERT_EQ(stored->Competitors->Competitors.size(), 1u);
  EXPECT_EQ(stored->Competitors->Competitors.begin()->first, 2u);
  EXPECT_TRUE(stored->Competitors->Removed.empty());
}
