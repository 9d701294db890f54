// A seeded replay: a snapshot of 2,000 competitors over 10 runs, then 100,000 incremental
// messages drawn at random (passings, competitor changes, runs with the active bit moving,
// merge rows, side records). The generator keeps its own model of the data manager's
// store; at the end the replica must equal it field for field.
#include <gtest/gtest.h>

#include <algorithm>

#include "data/DataEncoder.h"
#include "data/DataTestSupport.h"
#include "data/RecordEquality.h"

namespace {

class CReplayGenerator {
 public:
  explicit CReplayGenerator(unsigned seed) : Maker(seed), Model(MakeModel(Maker, 1, 2, 10, 2, 200)) {
    for (auto& [id, run] : Model->Runs) {
      run->Flags &= static_cast<WORD>(~(kRunActive | kRunDeleted | kRunHasPassings));
      RunIDs.push_back(id);
    }
    for (auto& [id, merge] : Model->Merges) MergeIDs.push_back(id);
  }

  // The messages that bring every run's passing list live: bit 2 up, then down.
  void OpenPassingLists(CLiveLink& link) {
    for (auto& [id, run] : Model->Runs) {
      run->Flags |= kRunHasPassings;
      Send(link, DataEncoder::ModifyRun(*run));
      run->Flags &= static_cast<WORD>(~kRunHasPassings);
      Send(link, DataEncoder::ModifyRun(*run));
    }
  }

  void Step(CLiveLink& link) {
    const unsigned roll = Maker.Random() % 100;
    if (roll < 45) {
      AddPassings(link);
    } else if (roll < 58) {
      ModifyPassings(link);
    } else if (roll < 66) {
      ChangeCompetitors(link);
    } else if (roll < 78) {
      ChangeRun(link);
    } else if (roll < 95) {
      ChangeMergeRows(link);
    } else {
      ChangeTxTranslation(link);
    }
  }

  void Send(CLiveLink& link, CModuleMessage* message) {
    link.Apply(message);
    ++Sent;
  }

  CRun* PickRun() { return Model->Runs.at(RunIDs[Maker.Random() % RunIDs.size()]); }

  void AddPassings(CLiveLink& link) {
    CRun* run = PickRun();
    const BOOL basis = (run->Flags & kRunSecondTimeBasis) != 0;
    std::vector<const CBasePassing*> batch;
    const unsigned count = 1 + Maker.Random() % 4;
    for (unsigned i = 0; i < count; ++i) {
      auto* passing = new CBasePassing(NextPassingID++);
      Maker.Fill(*passing);
      passing->CalculateTimeOfDay(basis);
      run->Passings->Passings[passing->UniqueID] = passing;
      PassingIDs[run->UniqueID].push_back(passing->UniqueID);
      batch.push_back(passing);
    }
    Send(link, DataEncoder::AddPassings(run->UniqueID, batch));
  }

  void ModifyPassings(CLiveLink& link) {
    CRun* run = PickRun();
    const auto& ids = PassingIDs[run->UniqueID];
    if (ids.empty()) return AddPassings(link);
    const BOOL basis = (run->Flags & kRunSecondTimeBasis) != 0;
    CBasePassing* passing = run->Passings->Passings.at(ids[Maker.Random() % ids.size()]);
    Maker.Fill(*passing);
    passing->CalculateTimeOfDay(basis);
    Send(link, DataEncoder::ModifyPassings(run->UniqueID, {passing}));
  }

  void ChangeCompetitors(CLiveLink& link) {
    CRun* run = PickRun();
    CBaseCompetitorContainer& container = *run->Competitors;
    const unsigned what = Maker.Random() % 10;
    if (what < 7 && !container.Competitors.empty()) {
      std::vector<const CBaseCompetitor*> changed;
      for (int i = 0; i < 2; ++i) {
        auto at = container.Competitors.begin();
        std::advance(at, Maker.Random() % container.Competitors.size());
        if (std::find(changed.begin(), changed.end(), at->second) != changed.end()) continue;
        Maker.Fill(*at->second);
        at->second->Transponders[0] = 100000 + Maker.Random() % 300;
        at->second->TransponderLabels = {{at->second->Transponders[0], Maker.Text("label")}};
        changed.push_back(at->second);
      }
      container.UpdateTransponderMap();
      Send(link, DataEncoder::ModifyCompetitors(run->UniqueID, changed));
    } else if (what < 9) {
      auto* competitor = new CBaseCompetitor;
      Maker.Fill(*competitor);
      competitor->UniqueID = NextCompetitorID++;
      container.Competitors[competitor->UniqueID] = competitor;
      container.UpdateTransponderMap();
      Send(link, DataEncoder::AddCompetitors(run->UniqueID, {competitor}));
    } else if (!container.Competitors.empty()) {
      auto at = container.Competitors.begin();
      std::advance(at, Maker.Random() % container.Competitors.size());
      const DWORD id = at->first;
      // The replica rebuilds its transponder map before the competitor goes.
      container.UpdateTransponderMap();
      delete at->second;
      container.Competitors.erase(at);
      Send(link, DataEncoder::RemoveCompetitors(run->UniqueID, {id}));
    }
  }

  void ChangeRun(CLiveLink& link) {
    CRun* run = PickRun();
    if (Maker.Random() % 2 == 0) {
      // The active bit moves: off the old run, on to this one.
      if (CRun* old = ActiveRun(); old != nullptr && old != run) {
        old->Flags &= static_cast<WORD>(~kRunActive);
        Send(link, DataEncoder::ModifyRun(*old));
      }
      run->Flags |= kRunActive;
      Send(link, DataEncoder::ModifyRun(*run));
    } else {
      const WORD keep = run->Flags & (kRunActive | kRunDeleted);
      const DWORD event = run->EventID;
      Maker.Fill(*run);
      run->Flags = static_cast<WORD>((run->Flags & ~(kRunActive | kRunDeleted)) | keep);
      if (Maker.Random() % 8 == 0) run->Flags ^= kRunDeleted;
      run->EventID = event;
      Send(link, DataEncoder::ModifyRun(*run));
    }
  }

  CRun* ActiveRun() const {
    for (auto& [id, run] : Model->Runs) {
      if ((run->Flags & kRunActive) != 0) return run;
    }
    return nullptr;
  }

  void ChangeMergeRows(CLiveLink& link) {
    CMerge* merge = Model->Merges.at(MergeIDs[Maker.Random() % MergeIDs.size()]);
    const unsigned what = Maker.Random() % 3;
    if (what == 0 || merge->Rows.empty()) {
      auto* row = new CBaseMergeRow;
      Maker.Fill(*row, static_cast<int>(Maker.Random() % 3));
      row->UniqueID = NextRowID++;
      merge->Rows[row->UniqueID] = row;
      merge->RowList.push_back(row);
      Send(link, DataEncoder::AddMergeRows(merge->UniqueID, {row}));
    } else {
      auto at = merge->Rows.begin();
      std::advance(at, Maker.Random() % merge->Rows.size());
      CBaseMergeRow* row = at->second;
      if (what == 1) {
        Maker.Fill(*row, static_cast<int>(Maker.Random() % 3));
        Send(link, DataEncoder::ModifyMergeRows(merge->UniqueID, {row}));
      } else {
        const DWORD key = at->first;
        merge->Rows.erase(at);
        merge->RowList.erase(std::find(merge->RowList.begin(), merge->RowList.end(), row));
        delete row;
        Send(link, DataEncoder::RemoveMergeRows(merge->UniqueID, {key}));
      }
    }
  }

  void ChangeTxTranslation(CLiveLink& link) {
    const DWORD key = 7000 + Maker.Random() % 20;
    auto found = Model->TxTranslations.find(key);
    if (found == Model->TxTranslations.end()) {
      auto* record = new CBaseTxTranslation;
      Maker.Fill(*record);
      record->UniqueID = key;
      Model->TxTranslations[key] = record;
      Send(link, DataEncoder::AddTxTranslation(*record));
    } else if (Maker.Random() % 2 == 0) {
      Maker.Fill(*found->second);
      Send(link, DataEncoder::ModifyTxTranslation(*found->second));
    } else {
      delete found->second;
      Model->TxTranslations.erase(found);
      Send(link, DataEncoder::RemoveTxTranslation(key));
    }
  }

  CSampleMaker Maker;
  std::unique_ptr<CBaseDataComm> Model;
  std::vector<DWORD> RunIDs;
  std::vector<DWORD> MergeIDs;
  std::map<DWORD, std::vector<DWORD>> PassingIDs;
  DWORD NextPassingID = 1;
  DWORD NextCompetitorID = 10000;
  DWORD NextRowID = 1000;
  std::size_t Sent = 0;
};

}  // namespace

TEST(Replay, HundredThousandIncrementalMessagesLeaveTheReplicaEqualToTheGeneratorsModel) {
  CReplayGenerator generator(20261122);
  std::size_t competitors = 0;
  for (auto& [id, run] : generator.Model->Runs) competitors += run->Competitors->Competitors.size();
  ASSERT_EQ(competitors, 2000u);
  ASSERT_EQ(generator.Model->Runs.size(), 10u);

  CLiveLink link;
  link.Apply(DataEncoder::Snapshot(*generator.Model));
  ASSERT_EQ(RecordEquality::CompareStores(*generator.Model, link.Store()), "");
  generator.OpenPassingLists(link);

  std::size_t checkpoint = 25000;
  while (generator.Sent < 100000) {
    generator.Step(link);
    if (generator.Sent >= checkpoint) {
      ASSERT_EQ(RecordEquality::CompareStores(*generator.Model, link.Store()), "") << "after " << generator.Sent;
      checkpoint += 25000;
    }
  }
  EXPECT_EQ(RecordEquality::CompareStores(*generator.Model, link.Store()), "");
  CRun* active = generator.ActiveRun();
  ASSERT_NE(active, nullptr);
  ASSERT_NE(link.Store().ActiveRun, nullptr);
  EXPECT_EQ(link.Store().ActiveRun->UniqueID, active->UniqueID);
  std::size_t passings = 0;
  for (auto& [id, run] : link.Store().Runs) passings += run->Passings->Passings.size();
  EXPECT_GT(passings, 50000u);
}
