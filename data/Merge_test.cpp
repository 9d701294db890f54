#include "data/Merge.h"

#include <gtest/gtest.h>

#include "data/DataEncoder.h"
#include "data/DataTestSupport.h"

namespace {

struct CRowsLog : CMergeRowsObserver {
  void OnSubjectNotify(BYTE kind, CMergeRowsSubject* subject) override {
    Kinds.push_back(kind);
    auto* merge = dynamic_cast<CMerge*>(subject);
    for (CBaseMergeRow* row : merge->RemovedRows) RemovedNumbers.push_back(row->MainCell->Number);
  }
  std::vector<int> Kinds;
  std::vector<std::string> RemovedNumbers;
};

struct Merges : ::testing::Test {
  void SetUp() override {
    CBaseDataComm model;
    AddTrackAndEventGroup(model);
    auto* merge = new CMerge(nullptr);
    merge->UniqueID = 0x20000001;
    merge->EventID = 0x80000002;
    model.Merges[merge->UniqueID] = merge;
    link.Apply(DataEncoder::Snapshot(model));
    rows.Attach(static_cast<CMergeRowsSubject*>(Merge()));
  }
  CMerge* Merge() { return link.Store().FindMerge(0x20000001); }
  static std::unique_ptr<CBaseMergeRow> Row(DWORD key, const std::string& number) {
    auto row = std::make_unique<CBaseMergeRow>();
    row->UniqueID = key;
    row->MainCell->Number = number;
    return row;
  }
  CLiveLink link;
  CRowsLog rows;
};

}  // namespace

TEST_F(Merges, IDGetHeadOfAMergeWithoutSourcesIsTheEndMark) {
  EXPECT_EQ(Merge()->IDGetHead(), 0xFFFFFFFFu);
}

TEST_F(Merges, IDWalkGivesTheSourcesInWireOrder) {
  CMerge merge(nullptr);
  merge.UniqueID = 0x20000001;
  merge.EventID = 0x80000002;
  merge.IDs = {0x40000002, 0x20000005};
  link.Apply(DataEncoder::ModifyMerge(merge));
  EXPECT_EQ(Merge()->IDGetHead(), 0x40000002u);
  EXPECT_EQ(Merge()->IDGetNext(), 0x20000005u);
  EXPECT_EQ(Merge()->IDGetNext(), 0xFFFFFFFFu);
}

TEST_F(Merges, EmptyModifyOfRowsTellsNobodyAndEmptyRemoveStillTells) {
  link.Apply(DataEncoder::ModifyMergeRows(0x20000001, {}));
  EXPECT_TRUE(rows.Kinds.empty());
  link.Apply(DataEncoder::RemoveMergeRows(0x20000001, {}));
  EXPECT_EQ(rows.Kinds, (std::vector<int>{3}));
}

TEST_F(Merges, RemovedRowIsReadableDuringItsRemovalNotice) {
  auto row = Row(4, "44");
  link.Apply(DataEncoder::AddMergeRows(0x20000001, {row.get()}));
  link.Apply(DataEncoder::RemoveMergeRows(0x20000001, {4}));
  EXPECT_EQ(rows.Kinds, (std::vector<int>{1, 3}));
  EXPECT_EQ(rows.RemovedNumbers, (std::vector<std::string>{"44"}));
  EXPECT_TRUE(Merge()->Rows.empty());
  EXPECT_TRUE(Merge()->RowList.empty());
}

TEST_F(Merges, AddingARowUnderAKnownKeyKeepsTheOldRowInTheRowList) {
  auto first = Row(4, "first");
  auto second = Row(4, "second");
  link.Apply(DataEncoder::AddMergeRows(0x20000001, {first.get()}));
  CBaseMergeRow* old = Merge()->Rows.at(4);
  link.Apply(DataEncoder::AddMergeRows(0x20000001, {second.get()}));
  ASSERT_EQ(Merge()->RowList.size(), 2u);
  EXPECT_EQ(Merge()->RowList[0], old);
  EXPECT_EQ(old->MainCell->Number, "first");
  EXPECT_EQ(Merge()->Rows.at(4)->MainCell->Number, "second");
}

TEST_F(Merges, MergeUnderAGroupHasNoTrackWhileARunUnderTheSameGroupHasOne) {
  EXPECT_EQ(Merge()->Event, link.Store().FindEvent(0x80000002));
  EXPECT_EQ(Merge()->Track, nullptr);
  CRun run(nullptr);
  run.UniqueID = 0x40000001;
  run.EventID = 0x80000002;
  link.Apply(DataEncoder::AddRun(run));
  EXPECT_EQ(link.Store().FindRun(0x40000001)->Track, link.Store().FindTrack(1));
}

TEST_F(Merges, CompetitorMessagesAddressedToAMergeAreDropped) {
  CBaseCompetitor competitor;
  competitor.UniqueID = 3;
  link.Apply(DataEncoder::AddCompetitors(0x20000001, {&competitor}));
  EXPECT_TRUE(rows.Kinds.empty());
  EXPECT_TRUE(Merge()->Rows.empty());
}

TEST_F(Merges, ModifyOfRowsStopsAtAnUnknownKeyAndTellsNobody) {
  auto row = Row(4, "a");
  link.Apply(DataEncoder::AddMergeRows(0x20000001, {row.get()}));
  auto changed = Row(4, "b");
  auto unknown = Row(9, "c");
  link.Apply(DataEncoder::ModifyMergeRows(0x20000001, {changed.get(), unknown.get()}));
  EXPECT_EQ(rows.Kinds, (std::vector<int>{1}));
  EXPECT_EQ(Merge()->Rows.at(4)->MainCell->Number, "b");
  EXPECT_EQ(Merge()->Rows.count(9), 0u);
}

TEST_F(Merges, RemoveNamingTheSameRowSeveralTimesRemovesAndReportsItOnce) {
  auto four = Row(4, "44");
  auto five = Row(5, "55");
  auto six = Row(6, "66");
  link.Apply(DataEncoder::AddMergeRows(0x20000001, {four.get(), five.get(), six.get()}));
  link.Apply(DataEncoder::RemoveMergeRows(0x20000001, {4, 4, 9, 5, 4, 5}));
  EXPECT_EQ(rows.RemovedNumbers, (std::vector<std::string>{"44", "55"}));
  ASSERT_EQ(Merge()->Rows.size(), 1u);
  EXPECT_EQ(Merge()->Rows.begin()->first, 6u);
  ASSERT_EQ(Merge()->RowList.size(), 1u);
  EXPECT_EQ(Merge()->RowList.front()->MainCell->Number, "66");
  EXPECT_TRUE(Merge()->RemovedRows.empty());
}

// A removal whose notice failed keeps its rows and leaves nothing on the list of removed
// rows: the next removal takes only the rows it names.
TEST_F(Merges, RemoveWhoseNoticeFailedLeavesNothingForTheNextRemove) {
  struct CFailingNotice : CMergeRowsObserver {
    void OnSubjectNotify(BYTE kind, CMergeRowsSubject*) override {
      if (kind != 3 || !Fail) return;
      Fail = false;
      throw new CKVTException("notice", "the observer failed");
    }
    bool Fail = true;
  } failing;
  auto four = Row(4, "44");
  auto five = Row(5, "55");
  link.Apply(DataEncoder::AddMergeRows(0x20000001, {four.get(), five.get()}));
  failing.Attach(static_cast<CMergeRowsSubject*>(Merge()));
  try {
    link.Apply(DataEncoder::RemoveMergeRows(0x20000001, {4}));
    ADD_FAILURE() << "the failed notice did not reach the caller";
  } catch (CKVTException* e) {
    delete e;
  }
  ASSERT_TRUE(Merge()->RemovedRows.empty());
  ASSERT_EQ(Merge()->Rows.size(), 2u);
  rows.RemovedNumbers.clear();
  link.Apply(DataEncoder::RemoveMergeRows(0x20000001, {5}));
  EXPECT_EQ(rows.RemovedNumbers, (std::vector<std::string>{"55"}));
  ASSERT_EQ(Merge()->Rows.size(), 1u);
  EXPECT_EQ(Merge()->Rows.begin()->first, 4u);
  EXPECT_EQ(Merge()->RowList.size(), 1u);
  failing.Detach(static_cast<CMergeRowsSubject*>(Merge()));
}
