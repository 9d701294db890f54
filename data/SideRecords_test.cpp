#include "data/SideRecords.h"

#include <gtest/gtest.h>

#include "data/DataEncoder.h"
#include "data/DataTestSupport.h"

namespace {

struct CChampionshipLog : CChampionshipsObserver {
  void OnSubjectNotify(BYTE kind, CBaseChampionship* record) override {
    Kinds.push_back(kind);
    Records.push_back(record);
    if (record != nullptr && Store != nullptr) {
      InMapDuringCall.push_back(Store->Championships.count(record->UniqueID) != 0);
      NamesDuringCall.push_back(record->Name);
    }
  }
  std::vector<int> Kinds;
  std::vector<CBaseChampionship*> Records;
  std::vector<bool> InMapDuringCall;
  std::vector<std::string> NamesDuringCall;
  CData* Store = nullptr;
};

struct CTxLog : CTxTranslationsObserver {
  void OnSubjectNotify(BYTE kind, CBaseTxTranslation* record) override {
    Kinds.push_back(kind);
    if (Store != nullptr) InMapDuringCall.push_back(Store->TxTranslations.count(record->UniqueID) != 0);
    TextsDuringCall.push_back(record->Text);
  }
  std::vector<int> Kinds;
  std::vector<bool> InMapDuringCall;
  std::vector<std::string> TextsDuringCall;
  CData* Store = nullptr;
};

}  // namespace

TEST(SideRecords, SnapshotWithChampionshipsNotifiesOnceWithKindZeroAndTxTranslationsNotNotAtAll) {
  CSampleMaker maker(41);
  auto model = MakeModel(maker, 1, 1, 1, 0, 1);
  CLiveLink link;
  CChampionshipLog champs;
  CTxLog tx;
  champs.Attach(&link.Store());
  tx.Attach(&link.Store());
  link.Apply(DataEncoder::Snapshot(*model));
  ASSERT_EQ(model->Championships.size(), 3u);
  EXPECT_EQ(champs.Kinds, (std::vector<int>{0}));
  EXPECT_EQ(champs.Records, (std::vector<CBaseChampionship*>{nullptr}));
  EXPECT_TRUE(tx.Kinds.empty());
  EXPECT_EQ(link.Store().TxTranslations.size(), 3u);
}

TEST(SideRecords, ModifyOfAnUnknownTxTranslationSendsNothing) {
  CLiveLink link;
  link.Apply(DataEncoder::Snapshot(CBaseDataComm()));
  CTxLog tx;
  tx.Attach(&link.Store());
  CBaseTxTranslation record;
  record.UniqueID = 1234;
  record.Text = "nobody";
  link.Apply(DataEncoder::ModifyTxTranslation(record));
  EXPECT_TRUE(tx.Kinds.empty());
  EXPECT_TRUE(link.Store().TxTranslations.empty());
}

TEST(SideRecords, RemovedTxTranslationAndChampionshipAreReadableDuringTheirRemovalNotice) {
  CLiveLink link;
  link.Apply(DataEncoder::Snapshot(CBaseDataComm()));
  CTxLog tx;
  tx.Store = &link.Store();
  tx.Attach(&link.Store());
  CChampionshipLog champs;
  champs.Store = &link.Store();
  champs.Attach(&link.Store());

  CBaseTxTranslation record;
  record.UniqueID = 55;
  record.Text = "Car 55";
  link.Apply(DataEncoder::AddTxTranslation(record));
  link.Apply(DataEncoder::RemoveTxTranslation(55));
  EXPECT_EQ(tx.Kinds, (std::vector<int>{1, 3}));
  EXPECT_EQ(tx.InMapDuringCall, (std::vector<bool>{true, false}));
  EXPECT_EQ(tx.TextsDuringCall.back(), "Car 55");

  CBaseChampionship champ;
  champ.UniqueID = 8;
  champ.Name = "Winter Cup";
  link.Apply(DataEncoder::AddChampionship(champ));
  link.Apply(DataEncoder::RemoveChampionship(8));
  EXPECT_EQ(champs.Kinds, (std::vector<int>{1, 3}));
  EXPECT_EQ(champs.InMapDuringCall, (std::vector<bool>{true, false}));
  EXPECT_EQ(champs.NamesDuringCall.back(), "Winter Cup");
  // The removed championship lives on after its notice.
  EXPECT_EQ(champs.Records.back()->Name, "Winter Cup");
}

namespace {

struct CFieldOwnerLog : CDataOwner {
  void OnAddField(DWORD kind, CBaseField* field) override { Added.emplace_back(kind, field); }
  std::vector<std::pair<DWORD, CBaseField*>> Added;
};

}  // namespace

TEST(SideRecords, AddFieldNotifiesTheOwnerAndTheVectorGrows) {
  CTestModule module;
  CFieldOwnerLog owner;
  CData data(&module, &owner, nullptr);
  CBaseField field;
  field.FieldName = "Team";
  std::unique_ptr<CModuleMessage> message(DataEncoder::AddField(1, field));
  data.ProcessDataManagerMessage(*message);
  ASSERT_EQ(owner.Added.size(), 1u);
  EXPECT_EQ(owner.Added[0].first, 1u);
  ASSERT_EQ(data.FieldVectors[1].size(), 1u);
  EXPECT_EQ(owner.Added[0].second, data.FieldVectors[1][0]);
  EXPECT_EQ(data.FieldVectors[1][0]->FieldName, "Team");
}

TEST(SideRecords, AddFieldThroughTheLinkDoesNothingBeyondGrowingTheVector) {
  CLiveLink link;
  link.Apply(DataEncoder::Snapshot(CBaseDataComm()));
  std::vector<std::string> log;
  CLoggingCommObserver observer(&log);
  observer.Attach(&link.comm);
  log.clear();
  const std::size_t sent = link.module.Target.Sent.size();
  CBaseField field;
  link.Apply(DataEncoder::AddField(3, field));
  EXPECT_EQ(link.Store().FieldVectors[3].size(), 1u);
  EXPECT_TRUE(log.empty());
  EXPECT_EQ(link.module.Target.Sent.size(), sent);
}

TEST(SideRecords, AnnouncementAddUnderAKnownKeyKeepsTheOldRecordAlive) {
  struct COwner : CAnnouncementOwner {
    void AddAnnouncement() override { ++Adds; }
    void ModifyAnnouncement() override {}
    void RemoveAnnouncement() override {}
    int Adds = 0;
  } owner;
  CAnnouncementContainer container(nullptr, &owner);
  CBaseAnnouncement a;
  a.UniqueID = 4;
  a.Text = "first";
  std::unique_ptr<CModuleMessage> first(DataEncoder::AddAnnouncement(0x40000001, a));
  DWORD skip = 0;
  *first >> skip;
  container.ProcessMessage(*first);
  CBaseAnnouncement* old = container.Announcements[4];
  a.Text = "second";
  std::unique_ptr<CModuleMessage> second(DataEncoder::AddAnnouncement(0x40000001, a));
  *second >> skip;
  container.ProcessMessage(*second);
  EXPECT_EQ(owner.Adds, 2);
  EXPECT_EQ(container.Announcements[4]->Text, "second");
  EXPECT_EQ(old->Text, "first");
}

// A removal whose notice failed leaves the record where it was and nothing on the list of
// removed ones, so that a later removal of the same record takes it once.
TEST(SideRecords, AnnouncementRemoveWhoseNoticeFailedLeavesNothingForTheNextRemove) {
  struct COwner : CAnnouncementOwner {
    void AddAnnouncement() override {}
    void ModifyAnnouncement() override {}
    void RemoveAnnouncement() override {
      ++Removes;
      if (Fail) {
        Fail = false;
        throw new CKVTException("notice", "the observer failed");
      }
    }
    bool Fail = true;
    int Removes = 0;
  } owner;
  CAnnouncementContainer container(nullptr, &owner);
  CBaseAnnouncement a;
  a.UniqueID = 4;
  std::unique_ptr<CModuleMessage> add(DataEncoder::AddAnnouncement(0x40000001, a));
  DWORD skip = 0;
  *add >> skip;
  container.ProcessMessage(*add);
  const auto removeFour = [&] {
    std::unique_ptr<CModuleMessage> remove(DataEncoder::RemoveAnnouncement(0x40000001, 4));
    DWORD ownerID = 0;
    *remove >> ownerID;
    container.ProcessMessage(*remove);
  };
  try {
    removeFour();
    ADD_FAILURE() << "the failed notice did not reach the caller";
  } catch (CKVTException* e) {
    delete e;
  }
  ASSERT_TRUE(container.Removed.empty());
  ASSERT_EQ(container.Announcements.count(4), 1u);
  removeFour();
  EXPECT_EQ(owner.Removes, 2);
  EXPECT_TRUE(container.Announcements.empty());
  EXPECT_TRUE(container.Removed.empty());
}
