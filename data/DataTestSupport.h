// Test support for the replica: a module whose sends are collected, a link that is
// brought live on a store built in the test, and records filled from a seed.
#pragma once

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "data/BaseDataComm.h"
#include "data/DataEncoder.h"
#include "data/RMData.h"
#include "frame/BaseModule.h"
#include "frame/Package.h"
#include "views/RMComm.h"

class CCollectingTarget : public CSendTarget {
 public:
  void SendFunction(CModuleMessage* message) override { Sent.emplace_back(message); }
  std::vector<WORD> IDs(WORD targetClass) const {
    std::vector<WORD> ids;
    for (const auto& message : Sent) {
      if (message->TargetClass == targetClass) ids.push_back(message->ID);
    }
    return ids;
  }
  std::vector<std::unique_ptr<CModuleMessage>> Sent;
};

class CTestModule : public CBaseModule {
 public:
  CTestModule() { SendTarget = &Target; }
  int ProcessMessage(CModuleMessage* message) override {
    (void)message;
    return 0;
  }
  // The messages sent to the data manager (class 5), by ID, in order.
  std::vector<WORD> DataManagerIDs() const { return Target.IDs(kDataManagerClass); }
  std::vector<WORD> HostIDs() const { return Target.IDs(kHostClass); }
  CCollectingTarget Target;
};

// Hands one message (owned) to the link.
inline void Deliver(CRMComm& comm, CModuleMessage* message) {
  std::unique_ptr<CModuleMessage> owned(message);
  owned->Reset();
  comm.ProcessMessage(owned.get());
}

// Observer of the link that writes down what it hears.
class CLoggingCommObserver : public CRMCommObserver {
 public:
  explicit CLoggingCommObserver(std::vector<std::string>* log, std::string name = "o")
      : Log(log), Name(std::move(name)) {}
  void OnConnect() override { Log->push_back(Name + ":connect"); }
  void OnDisconnect() override { Log->push_back(Name + ":disconnect"); }
  void OnAllData() override { Log->push_back(Name + ":alldata"); }
  void OnActiveRunChanged(CRun* run) override {
    Log->push_back(Name + ":active:" + (run == nullptr ? std::string("null") : std::to_string(run->UniqueID)));
  }
  void OnBackupCreated() override { Log->push_back(Name + ":backup"); }
  std::vector<std::string>* Log;
  std::string Name;
};

// Records with every field set from a seeded generator, so that a round trip that loses
// or swaps a field shows.
class CSampleMaker {
 public:
  explicit CSampleMaker(unsigned seed) : Random(seed) {}

  DWORD Dword() { return static_cast<DWORD>(Random()); }
  WORD Word() { return static_cast<WORD>(Random()); }
  BYTE Byte() { return static_cast<BYTE>(Random()); }
  int Int() { return static_cast<int>(Random()); }
  KVTTIME Time() { return static_cast<KVTTIME>((static_cast<std::uint64_t>(Random()) << 32) | Random()); }
  double Real() { return static_cast<double>(Random() % 1000000) / 7.0; }
  std::string Text(const char* stem) { return std::string(stem) + "-" + std::to_string(Random() % 100000); }
  std::vector<std::string> Texts(const char* stem, int count) {
    std::vector<std::string> values;
    for (int i = 0; i < count; ++i) values.push_back(Text(stem));
    return values;
  }

  void Fill(CBaseField& f) {
    f.FieldName = Text("name");
    f.FieldText = Text("text");
    f.FieldSize = Int();
    f.FieldType = Byte();
    f.FieldByte1 = Byte();
    f.FieldParam = Int();
    f.FieldByte2 = Byte();
    f.FieldChoices = Texts("choice", 3);
  }
  void Fill(CBaseTrack& t) {
    t.Tag = Dword();
    t.Flags = Byte() & 0xFE;
    t.Name = Text("track");
    t.Name2 = Text("track2");
    t.Length = Real();
    t.Value2 = Real();
    t.TrackParam1 = Dword();
    t.TrackParam2 = Dword();
    t.TrackParam3 = Byte();
    t.TrackParam4 = Dword();
    t.FieldValues = Texts("tv", 2);
  }
  void Fill(CBaseTimeline& t) {
    t.Flags = Byte();
    t.Name = Text("line");
    t.TimelineParam1 = Dword();
    t.TimelineParam2 = Byte();
    t.Order = Byte();
    t.Position = Real();
  }
  void Fill(CBaseSection& s) {
    s.Flags = Byte();
    s.Name = Text("section");
    s.Name2 = Text("section2");
    s.Length = Real();
    s.StartTimeline = Byte();
    s.EndTimeline = Byte();
    s.Order = Byte();
  }
  void Fill(CBaseTrackRecord& r) {
    r.RecordType = Byte();
    r.Title = Text("title");
    r.RecordTime = Time();
    r.Time2 = Time();
    r.Note = Text("note");
  }
  void Fill(CBaseEvent& e) {
    e.Tag = Dword();
    e.Flags = Byte() & 0xFE;
    e.TrackID = Dword();
    e.ParentID = kNoParent;
    e.Name = Text("event");
    e.Name2 = Text("event2");
    e.Name3 = Text("event3");
    e.StartDate = Dword();
    e.EndDate = Dword();
    e.EventParam = Dword();
    e.FieldValues = Texts("ev", 2);
  }
  // The run's Flags as the replica keeps them: bit 4 set, no delete, active or passing bits.
  void Fill(CBaseRun& r) {
    r.Tag = Dword();
    r.Flags = static_cast<WORD>((Word() & ~(kRunDeleted | kRunActive | kRunHasPassings)) | kRunLocal);
    r.EventID = Dword();
    r.Name = Text("run");
    r.RunParam1 = Dword();
    r.RunParam2 = Word();
    r.StartTime = Time();
    r.EndTime = Time();
    r.RunType = Byte() % 3;
    r.Name2 = Text("run2");
    r.RunParam3 = Dword();
    r.RunParam4 = Dword();
    r.FieldValues = Texts("rv", 2);
    // A parameter block merges into the table, so a refill merges too.
    r.Parameters.Add("UniqueID", std::to_string(Dword()));
    r.Parameters.Add(Text("key"), Text("value"));
  }
  void Fill(CBaseRange& r) {
    r.RangeFirst = Dword();
    r.RangeLast = Dword();
    r.RangeValue = Dword();
  }
  void Fill(CBaseAnnouncement& a) {
    a.AnnouncementParam = Dword();
    a.AnnouncementType = Byte();
    a.Text = Text("announcement");
  }
  void Fill(CBaseMerge& m) {
    m.Tag = Dword();
    m.Flags = Byte() & 0xFE;
    m.EventID = Dword();
    m.Name = Text("merge");
    m.MergeType = Byte();
    m.IDs = {Dword() | 0x40000000, Dword() | 0x20000000};
    m.Parameters.Add(Text("key"), Text("value"));
  }
  void Fill(CBaseCompetitor& c) {
    c.Number = std::to_string(Random() % 1000);
    c.Text1 = Text("t1");
    c.Transponders = {Dword(), Dword()};
    c.TransponderLabels = {{c.Transponders[0], Text("label")}};
    c.FieldValues = Texts("cv", 3);
    c.Status = Byte();
    c.Text2 = Text("t2");
    c.Class = Text("class");
    c.Word1 = Word();
    c.Byte1 = Byte();
    c.Text3 = Text("t3");
    c.FirstName = Text("first");
    c.LastName = Text("last");
    c.Value1 = Real();
    c.Time1 = Time();
    c.Count1 = Int();
    c.Time2 = Time();
    c.Value2 = Real();
    c.Count2 = Int();
    c.Time3 = Time();
    c.Count3 = Int();
    c.Time4 = Time();
    c.BuildFullName();
  }
  void Fill(CBaseMergeCell& c) {
    c.CellID = Dword();
    c.CellWord = Word();
    c.CellTime1 = Time();
    c.CellCount1 = Int();
    c.CellValue1 = Real();
    c.CellTime2 = Time();
    c.CellCount2 = Int();
    c.CellValue2 = Real();
    c.CellCount3 = Int();
    c.CellTime3 = Time();
    c.CellValue3 = Real();
    c.Number = Text("n");
    c.Text3 = Text("t3");
    c.Text2 = Text("t2");
    c.FirstName = Text("first");
    c.LastName = Text("last");
    c.Class = Text("class");
    c.Value1 = Real();
    c.Text1 = Text("t1");
    c.Transponders = {Dword(), Dword(), Dword()};
    c.FieldValues = Texts("fv", 2);
    c.BuildFullName();
  }
  void Fill(CBaseMergeRow& r, int cells) {
    r.RowWord = Word();
    r.RowByte = Byte();
    r.RowTime1 = Time();
    r.RowTime2 = Time();
    Fill(*r.MainCell);
    for (CBaseMergeCell* cell : r.Cells) delete cell;
    r.Cells.clear();
    for (int i = 0; i < cells; ++i) {
      auto* cell = new CBaseMergeCell;
      Fill(*cell);
      r.Cells.push_back(cell);
    }
  }
  // A passing whose TimeOfDay is what the replica computes on the first basis.
  void Fill(CBasePassing& p) {
    p.PassingType = Byte();
    p.Transponder = Dword();
    p.Word1 = Word();
    p.Word2 = Word();
    p.Byte1 = Byte();
    p.Byte2 = Byte();
    p.Byte3 = Byte();
    p.Dword1 = Dword();
    p.Byte4 = Byte();
    p.Dword2 = Dword();
    p.Dword3 = Dword();
    p.RawTime = Time() & 0xFFFFFFFFFFLL;
    p.CorrectedTime = Time() & 0xFFFFFFFFFFLL;
    p.DayOffset = Time() & 0xFFFFFFFFLL;
    p.CalculateTimeOfDay(FALSE);
  }
  void Fill(CBaseTxTranslation& t) { t.Text = Text("tx"); }
  void Fill(CBaseChampionship& c) {
    c.Name = Text("champ");
    c.ChampionshipType = Byte();
    c.Text2 = Text("c2");
    c.Text3 = Text("c3");
  }

  std::mt19937 Random;
};

// The computer that the module takes as its own.
// A track (ID 1) with a root event 0x80000001 on it and a group event 0x80000002 below
// the root: the smallest frame for runs and merges.
inline void AddTrackAndEventGroup(CBaseDataComm& model) {
  auto* track = new CTrack(nullptr);
  track->UniqueID = 1;
  model.Tracks[1] = track;
  auto* root = new Cevent(nullptr);
  root->UniqueID = 0x80000001;
  root->TrackID = 1;
  model.Events[root->UniqueID] = root;
  auto* group = new Cevent(nullptr);
  group->UniqueID = 0x80000002;
  group->ParentID = 0x80000001;
  model.Events[group->UniqueID] = group;
}

inline DWORD LocalComputerForTests() {
  const CPackage* package = GetPackage();
  return package != nullptr ? package->LocalAddress : 0;
}

// A link brought to the live state: initialised, connected to a local data manager,
// answered with message 0. Deliver a snapshot to finish loading.
struct CLiveLink {
  CLiveLink() {
    comm.Initialize(0);
    comm.OnModifyModule(kDataManagerClass, 1, LocalComputerForTests(), TRUE);
    Deliver(comm, DataEncoder::Connected());
  }
  CData& Store() { return *comm.GetData()->GetData(); }
  CRMData& Data() { return *comm.GetData(); }
  void Apply(CModuleMessage* message) { Deliver(comm, message); }

  CTestModule module;
  CRMComm comm{&module};
};

// A model store as the data manager holds it: `events` root events on the first track,
// `runs` runs spread over the events, each with competitors, ranges and announcements,
// merges over the runs, side records and fields.
inline std::unique_ptr<CBaseDataComm> MakeModel(CSampleMaker& maker, int tracks, int events, int runs, int merges,
                                                int competitorsPerRun) {
  auto model = std::make_unique<CBaseDataComm>();
  for (int kind = 0; kind < 4; ++kind) {
    for (int i = 0; i < 2; ++i) {
      auto* field = new CBaseField;
      maker.Fill(*field);
      model->FieldVectors[kind].push_back(field);
    }
  }
  for (int t = 0; t < tracks; ++t) {
    auto* track = new CTrack(nullptr);
    maker.Fill(*track);
    track->UniqueID = static_cast<DWORD>(t + 1);
    for (BYTE l = 0; l < 3; ++l) {
      auto* line = new CTimeline;
      maker.Fill(*line);
      line->UniqueID = l;
      track->Timelines[l] = line;
      track->SortedTimelines.push_back(line);
    }
    for (BYTE s = 0; s < 2; ++s) {
      auto* section = new CSection;
      maker.Fill(*section);
      section->UniqueID = s;
      track->Sections[s] = section;
      track->SortedSections.push_back(section);
    }
    auto* record = new CBaseTrackRecord;
    maker.Fill(*record);
    record->UniqueID = 7;
    track->TrackRecords[7] = record;
    track->SortedTrackRecords.push_back(record);
    model->Tracks[track->UniqueID] = track;
  }
  for (int e = 0; e < events; ++e) {
    auto* event = new Cevent(nullptr);
    maker.Fill(*event);
    event->UniqueID = 0x80000000u | static_cast<DWORD>(e + 1);
    event->TrackID = 1;
    for (int c = 0; c < 3; ++c) {
      auto* competitor = new CBaseCompetitor;
      maker.Fill(*competitor);
      competitor->UniqueID = static_cast<DWORD>(c + 1);
      event->Competitors->Competitors[competitor->UniqueID] = competitor;
    }
    event->Competitors->UpdateTransponderMap();
    model->Events[event->UniqueID] = event;
  }
  for (int r = 0; r < runs; ++r) {
    auto* run = new CRun(nullptr);
    maker.Fill(*run);
    run->UniqueID = 0x40000000u | static_cast<DWORD>(r + 1);
    run->EventID = 0x80000000u | static_cast<DWORD>(events > 0 ? r % events + 1 : 1);
    for (int g = 0; g < 2; ++g) {
      auto* range = new CBaseRange;
      maker.Fill(*range);
      run->Ranges.push_back(range);
    }
    for (int c = 0; c < competitorsPerRun; ++c) {
      auto* competitor = new CBaseCompetitor;
      maker.Fill(*competitor);
      competitor->UniqueID = static_cast<DWORD>(c + 1);
      competitor->Transponders = {static_cast<DWORD>(100000 + c), maker.Dword()};
      competitor->TransponderLabels.clear();
      run->Competitors->Competitors[competitor->UniqueID] = competitor;
    }
    run->Competitors->UpdateTransponderMap();
    for (DWORD a = 1; a <= 2; ++a) {
      auto* announcement = new CBaseAnnouncement;
      maker.Fill(*announcement);
      announcement->UniqueID = a;
      run->Announcements->Announcements[a] = announcement;
    }
    model->Runs[run->UniqueID] = run;
  }
  for (int m = 0; m < merges; ++m) {
    auto* merge = new CMerge(nullptr);
    maker.Fill(*merge);
    merge->UniqueID = 0x20000000u | static_cast<DWORD>(m + 1);
    merge->EventID = 0x80000001u;
    for (DWORD k = 1; k <= 3; ++k) {
      auto* row = new CBaseMergeRow;
      maker.Fill(*row, 2);
      row->UniqueID = k;
      merge->Rows[k] = row;
      merge->RowList.push_back(row);
    }
    auto* announcement = new CBaseAnnouncement;
    maker.Fill(*announcement);
    announcement->UniqueID = 9;
    merge->Announcements->Announcements[9] = announcement;
    model->Merges[merge->UniqueID] = merge;
  }
  for (DWORD x = 1; x <= 3; ++x) {
    auto* tx = new CBaseTxTranslation;
    maker.Fill(*tx);
    tx->UniqueID = 5000 + x;
    model->TxTranslations[tx->UniqueID] = tx;
    auto* champ = new CBaseChampionship;
    maker.Fill(*champ);
    champ->UniqueID = x;
    model->Championships[x] = champ;
  }
  return model;
}
