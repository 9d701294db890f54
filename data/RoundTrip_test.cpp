// Every record body and every message of the protocol goes through the encoder and the
// replica's decoder and comes back equal in every field.
#include <gtest/gtest.h>

#include "data/DataEncoder.h"
#include "data/DataTestSupport.h"
#include "data/RecordEquality.h"

using RecordEquality::Compare;
using RecordEquality::CompareStores;

namespace {

template <class Record, class Write, class Read>
std::string RoundTrip(const Record& original, Record& decoded, Write write, Read read) {
  CTTBuffer buffer(16);
  write(buffer, original);
  buffer << static_cast<DWORD>(0xC0FFEE);  // a sentinel: the decoder must stop right before it
  buffer.Reset();
  read(buffer, decoded);
  DWORD sentinel = 0;
  buffer >> sentinel;
  if (sentinel != 0xC0FFEE) return "decoder out of step with the encoder";
  return Compare(original, decoded);
}

}  // namespace

TEST(RecordRoundTrip, EveryRecordBodyComesBackEqual) {
  CSampleMaker maker(11);
  {
    CBaseField a, b;
    maker.Fill(a);
    EXPECT_EQ(RoundTrip(a, b, DataEncoder::WriteFieldBody, [](CTTBuffer& m, CBaseField& r) { r.MessageToField(m); }), "");
  }
  {
    CBaseTrack a, b;
    maker.Fill(a);
    EXPECT_EQ(RoundTrip(a, b, DataEncoder::WriteTrackBody, [](CTTBuffer& m, CBaseTrack& r) { r.MessageToTrack(m); }), "");
  }
  {
    CBaseTimeline a, b;
    maker.Fill(a);
    b.UniqueID = a.UniqueID;
    EXPECT_EQ(RoundTrip(a, b, DataEncoder::WriteTimelineBody, [](CTTBuffer& m, CBaseTimeline& r) { r.MessageToTimeLine(m); }), "");
  }
  {
    CBaseSection a, b;
    maker.Fill(a);
    EXPECT_EQ(RoundTrip(a, b, DataEncoder::WriteSectionBody, [](CTTBuffer& m, CBaseSection& r) { r.MessageToSection(m); }), "");
  }
  {
    CBaseTrackRecord a, b;
    maker.Fill(a);
    EXPECT_EQ(RoundTrip(a, b, DataEncoder::WriteTrackRecordBody, [](CTTBuffer& m, CBaseTrackRecord& r) { r.MessageToTrackRecord(m); }), "");
  }
  {
    Cevent a(nullptr), b(nullptr);
    maker.Fill(a);
    b.UniqueID = a.UniqueID;
    EXPECT_EQ(RoundTrip<CBaseEvent>(a, b, DataEncoder::WriteEventBody, [](CTTBuffer& m, CBaseEvent& r) { r.MessageToEvent(m); }), "");
  }
  {
    CRun a(nullptr), b(nullptr);
    maker.Fill(a);
    b.UniqueID = a.UniqueID;
    EXPECT_EQ(RoundTrip<CBaseRun>(a, b, DataEncoder::WriteRunBody, [](CTTBuffer& m, CBaseRun& r) { r.MessageToRun(m); }), "");
  }
  {
    CBaseRange a, b;
    maker.Fill(a);
    EXPECT_EQ(RoundTrip(a, b, DataEncoder::WriteRangeBody, [](CTTBuffer& m, CBaseRange& r) { r.MessageToRange(m); }), "");
  }
  {
    CBaseAnnouncement a, b;
    maker.Fill(a);
    EXPECT_EQ(RoundTrip(a, b, DataEncoder::WriteAnnouncementBody, [](CTTBuffer& m, CBaseAnnouncement& r) { r.MessageToAnnouncement(m); }), "");
  }
  {
    CMerge a(nullptr), b(nullptr);
    maker.Fill(a);
    EXPECT_EQ(RoundTrip<CBaseMerge>(a, b, DataEncoder::WriteMergeBody, [](CTTBuffer& m, CBaseMerge& r) { r.MessageToMerge(m); }), "");
  }
  {
    CBaseCompetitor a, b;
    maker.Fill(a);
    b.UniqueID = a.UniqueID;
    EXPECT_EQ(RoundTrip(a, b, DataEncoder::WriteCompetitorBody, [](CTTBuffer& m, CBaseCompetitor& r) { r.MessageToCompetitor(m); }), "");
  }
  {
    CBasePassing a(42), b(42);
    maker.Fill(a);
    EXPECT_EQ(RoundTrip(a, b, DataEncoder::WritePassingBody, [](CTTBuffer& m, CBasePassing& r) { r.MessageToPassing(m); }), "");
  }
  {
    CBaseTxTranslation a, b;
    maker.Fill(a);
    EXPECT_EQ(RoundTrip(a, b, DataEncoder::WriteTxTranslationBody, [](CTTBuffer& m, CBaseTxTranslation& r) { r.MessageToTxTranslation(m); }), "");
  }
  {
    CBaseChampionship a, b;
    maker.Fill(a);
    EXPECT_EQ(RoundTrip(a, b, DataEncoder::WriteChampionshipBody, [](CTTBuffer& m, CBaseChampionship& r) { r.MessageToChampionship(m); }), "");
  }
}

TEST(RecordRoundTrip, MergeRowWithCellsComesBackEqual) {
  CSampleMaker maker(12);
  CBaseMergeRow a;
  maker.Fill(a, 3);
  a.UniqueID = 77;
  CTTBuffer buffer(16);
  a.MergeRowToMessage(buffer);
  buffer.Reset();
  CBaseMergeRow b;
  buffer >> b.UniqueID;
  b.MessageToMergeRow(buffer);
  EXPECT_EQ(Compare(a, b), "");
  EXPECT_EQ(buffer.GetRemaining(), 0u);
}

TEST(RecordRoundTrip, MergeCellCountsTranspondersAsIntAndFieldValuesAsDword) {
  CBaseMergeCell cell;
  cell.Transponders = {1, 2};
  cell.FieldValues = {"x"};
  CTTBuffer buffer(16);
  cell.MergeCellToMessage(buffer);
  // The fixed part: DWORD, WORD, then 8+4+8+8+4+8+4+8+8 bytes, six strings of 4, a double, a string of 4.
  const DWORD fixed = 4 + 2 + 8 + 4 + 8 + 8 + 4 + 8 + 4 + 8 + 8 + 6 * 4 + 8 + 4;
  buffer.SetPosition(fixed);
  int transponders = 0;
  buffer >> transponders;
  EXPECT_EQ(transponders, 2);
  DWORD skip = 0;
  buffer >> skip >> skip;
  DWORD values = 0;
  buffer >> values;
  EXPECT_EQ(values, 1u);
}

TEST(MessageRoundTrip, SnapshotRebuildsTheWholeStore) {
  CSampleMaker maker(21);
  auto model = MakeModel(maker, 2, 3, 4, 2, 5);
  CLiveLink link;
  link.Apply(DataEncoder::Snapshot(*model));
  EXPECT_EQ(CompareStores(*model, link.Store()), "");
  EXPECT_EQ(link.Store().GetState(), EDataLinkState::Live);
}

TEST(MessageRoundTrip, ListMessagesReplaceTheirKindWithoutCompetitorsOrAnnouncements) {
  CSampleMaker maker(22);
  auto model = MakeModel(maker, 2, 3, 4, 2, 5);
  CLiveLink link;
  link.Apply(DataEncoder::TrackList(*model));
  link.Apply(DataEncoder::EventList(*model));
  link.Apply(DataEncoder::RunList(*model));
  link.Apply(DataEncoder::MergeList(*model));
  CData& store = link.Store();
  EXPECT_EQ(RecordEquality::CompareMaps("Tracks", model->Tracks, store.Tracks), "");
  ASSERT_EQ(store.Events.size(), 3u);
  ASSERT_EQ(store.Runs.size(), 4u);
  ASSERT_EQ(store.Merges.size(), 2u);
  for (auto& [id, run] : store.Runs) {
    EXPECT_TRUE(run->Competitors->Competitors.empty());
    EXPECT_TRUE(run->Announcements->Announcements.empty());
    EXPECT_EQ(RecordEquality::CompareVectors("Ranges", model->Runs[id]->Ranges, run->Ranges), "");
    EXPECT_EQ(run->Name, model->Runs[id]->Name);
  }
  for (auto& [id, merge] : store.Merges) {
    EXPECT_EQ(RecordEquality::CompareMaps("Rows", model->Merges[id]->Rows, merge->Rows), "");
  }
}

TEST(RecordRoundTrip, ComparisonNoticesAChangedField) {
  CSampleMaker maker(13);
  CBaseCompetitor a;
  maker.Fill(a);
  CBaseCompetitor b;
  maker.Fill(b);
  b = a;
  EXPECT_EQ(Compare(a, b), "");
  b.Time4 += 1;
  EXPECT_NE(Compare(a, b), "");
}

namespace {

// A live replica loaded from a model; each test changes the model, sends the matching
// message and checks that the two stores are equal again.
struct CMirror {
  explicit CMirror(unsigned seed) : maker(seed), model(MakeModel(maker, 2, 3, 4, 2, 5)) {
    link.Apply(DataEncoder::Snapshot(*model));
  }
  std::string Check() { return CompareStores(*model, link.Store()); }
  CSampleMaker maker;
  std::unique_ptr<CBaseDataComm> model;
  CLiveLink link;
};

}  // namespace

TEST(MessageRoundTrip, FieldMessagesAddModifyAndRemove) {
  CMirror m(31);
  auto* field = new CBaseField;
  m.maker.Fill(*field);
  m.model->FieldVectors[2].push_back(field);
  m.link.Apply(DataEncoder::AddField(2, *field));
  EXPECT_EQ(m.Check(), "");
  m.maker.Fill(*m.model->FieldVectors[1][0]);
  m.link.Apply(DataEncoder::ModifyField(1, 0, *m.model->FieldVectors[1][0]));
  EXPECT_EQ(m.Check(), "");
  delete m.model->FieldVectors[3][1];
  m.model->FieldVectors[3].erase(m.model->FieldVectors[3].begin() + 1);
  m.link.Apply(DataEncoder::RemoveField(3, 1));
  EXPECT_EQ(m.Check(), "");
}

TEST(MessageRoundTrip, TrackMessagesOfEveryKind) {
  CMirror m(32);
  auto* track = new CTrack(nullptr);
  m.maker.Fill(*track);
  track->UniqueID = 99;
  m.model->Tracks[99] = track;
  m.link.Apply(DataEncoder::AddTrack(*track));
  EXPECT_EQ(m.Check(), "");
  m.maker.Fill(*track);
  m.link.Apply(DataEncoder::ModifyTrack(*track));
  EXPECT_EQ(m.Check(), "");

  auto* line = new CTimeline;
  m.maker.Fill(*line);
  line->UniqueID = 4;
  track->Timelines[4] = line;
  m.link.Apply(DataEncoder::AddTimeline(99, *line));
  EXPECT_EQ(m.Check(), "");
  m.maker.Fill(*line);
  m.link.Apply(DataEncoder::ModifyTimeline(99, *line));
  EXPECT_EQ(m.Check(), "");

  auto* section = new CSection;
  m.maker.Fill(*section);
  section->UniqueID = 6;
  track->Sections[6] = section;
  m.link.Apply(DataEncoder::AddSection(99, *section));
  EXPECT_EQ(m.Check(), "");
  m.maker.Fill(*section);
  m.link.Apply(DataEncoder::ModifySection(99, *section));
  EXPECT_EQ(m.Check(), "");

  auto* record = new CBaseTrackRecord;
  m.maker.Fill(*record);
  record->UniqueID = 3;
  track->TrackRecords[3] = record;
  m.link.Apply(DataEncoder::AddTrackRecord(99, *record));
  EXPECT_EQ(m.Check(), "");
  m.maker.Fill(*record);
  m.link.Apply(DataEncoder::ModifyTrackRecord(99, *record));
  EXPECT_EQ(m.Check(), "");

  track->Timelines.erase(4);
  delete line;
  m.link.Apply(DataEncoder::RemoveTimeline(99, 4));
  track->Sections.erase(6);
  delete section;
  m.link.Apply(DataEncoder::RemoveSection(99, 6));
  track->TrackRecords.erase(3);
  delete record;
  m.link.Apply(DataEncoder::RemoveTrackRecord(99, 3));
  EXPECT_EQ(m.Check(), "");
}

TEST(MessageRoundTrip, EventMessagesAddAndModify) {
  CMirror m(33);
  auto* event = new Cevent(nullptr);
  m.maker.Fill(*event);
  event->UniqueID = 0x80000050;
  m.model->Events[event->UniqueID] = event;
  m.link.Apply(DataEncoder::AddEvent(*event));
  EXPECT_EQ(m.Check(), "");
  m.maker.Fill(*event);
  m.link.Apply(DataEncoder::ModifyEvent(*event));
  EXPECT_EQ(m.Check(), "");
}

TEST(MessageRoundTrip, RunMessagesRangesAndAnnouncements) {
  CMirror m(34);
  auto* run = new CRun(nullptr);
  m.maker.Fill(*run);
  run->UniqueID = 0x40000050;
  m.model->Runs[run->UniqueID] = run;
  m.link.Apply(DataEncoder::AddRun(*run));
  EXPECT_EQ(m.Check(), "");
  m.maker.Fill(*run);
  m.link.Apply(DataEncoder::ModifyRun(*run));
  EXPECT_EQ(m.Check(), "");

  auto* range = new CBaseRange;
  m.maker.Fill(*range);
  run->Ranges.push_back(range);
  m.link.Apply(DataEncoder::AddRange(run->UniqueID, *range));
  EXPECT_EQ(m.Check(), "");
  m.maker.Fill(*range);
  m.link.Apply(DataEncoder::ModifyRange(run->UniqueID, 0, *range));
  EXPECT_EQ(m.Check(), "");
  run->Ranges.clear();
  delete range;
  m.link.Apply(DataEncoder::RemoveRange(run->UniqueID, 0));
  EXPECT_EQ(m.Check(), "");

  for (DWORD owner : {run->UniqueID, 0x20000001u}) {
    CAnnouncementContainer* container =
        owner == run->UniqueID ? run->Announcements : m.model->Merges[owner]->Announcements;
    auto* announcement = new CBaseAnnouncement;
    m.maker.Fill(*announcement);
    announcement->UniqueID = 31;
    container->Announcements[31] = announcement;
    m.link.Apply(DataEncoder::AddAnnouncement(owner, *announcement));
    EXPECT_EQ(m.Check(), "");
    m.maker.Fill(*announcement);
    m.link.Apply(DataEncoder::ModifyAnnouncement(owner, *announcement));
    EXPECT_EQ(m.Check(), "");
    container->Announcements.erase(31);
    delete announcement;
    m.link.Apply(DataEncoder::RemoveAnnouncement(owner, 31));
    EXPECT_EQ(m.Check(), "");
  }
}

TEST(MessageRoundTrip, MergeMessagesAndRows) {
  CMirror m(35);
  auto* merge = new CMerge(nullptr);
  m.maker.Fill(*merge);
  merge->UniqueID = 0x20000050;
  m.model->Merges[merge->UniqueID] = merge;
  m.link.Apply(DataEncoder::AddMerge(*merge));
  EXPECT_EQ(m.Check(), "");
  m.maker.Fill(*merge);
  m.link.Apply(DataEncoder::ModifyMerge(*merge));
  EXPECT_EQ(m.Check(), "");

  std::vector<const CBaseMergeRow*> rows;
  for (DWORD k = 1; k <= 2; ++k) {
    auto* row = new CBaseMergeRow;
    m.maker.Fill(*row, 2);
    row->UniqueID = k;
    merge->Rows[k] = row;
    merge->RowList.push_back(row);
    rows.push_back(row);
  }
  m.link.Apply(DataEncoder::AddMergeRows(merge->UniqueID, rows));
  EXPECT_EQ(m.Check(), "");
  m.maker.Fill(*merge->Rows[2], 4);
  m.link.Apply(DataEncoder::ModifyMergeRows(merge->UniqueID, {merge->Rows[2]}));
  EXPECT_EQ(m.Check(), "");
  CBaseMergeRow* gone = merge->Rows[1];
  merge->Rows.erase(1);
  merge->RowList.erase(std::find(merge->RowList.begin(), merge->RowList.end(), gone));
  delete gone;
  m.link.Apply(DataEncoder::RemoveMergeRows(merge->UniqueID, {1}));
  EXPECT_EQ(m.Check(), "");
}

TEST(MessageRoundTrip, CompetitorMessagesForEventsAndRuns) {
  CMirror m(36);
  for (DWORD owner : {0x80000001u, 0x40000002u}) {
    CBaseCompetitorContainer* container = (owner & 0x80000000u) != 0 ? m.model->Events[owner]->Competitors
                                                                       : m.model->Runs[owner]->Competitors;
    auto* competitor = new CBaseCompetitor;
    m.maker.Fill(*competitor);
    competitor->UniqueID = 500;
    container->Competitors[500] = competitor;
    container->UpdateTransponderMap();
    m.link.Apply(DataEncoder::AddCompetitors(owner, {competitor}));
    EXPECT_EQ(m.Check(), "");
    m.maker.Fill(*competitor);
    container->UpdateTransponderMap();
    m.link.Apply(DataEncoder::ModifyCompetitors(owner, {competitor}));
    EXPECT_EQ(m.Check(), "");
    // The replica rebuilds the transponder map before the removed competitor goes, so
    // its numbers stay in the map until the next rebuild.
    container->UpdateTransponderMap();
    container->Competitors.erase(500);
    delete competitor;
    m.link.Apply(DataEncoder::RemoveCompetitors(owner, {500}));
    EXPECT_EQ(m.Check(), "");
  }
}

TEST(MessageRoundTrip, PassingMessagesReachALiveRun) {
  CMirror m(37);
  CRun* run = m.model->Runs[0x40000001];
  // Bit 2 rises and falls: the replica's list of that run goes live.
  run->Flags |= kRunHasPassings;
  m.link.Apply(DataEncoder::ModifyRun(*run));
  run->Flags &= static_cast<WORD>(~kRunHasPassings);
  m.link.Apply(DataEncoder::ModifyRun(*run));
  ASSERT_TRUE(m.link.Store().FindRun(run->UniqueID)->PassingsLive);
  const BOOL basis = (run->Flags & kRunSecondTimeBasis) != 0;

  std::vector<const CBasePassing*> batch;
  for (DWORD id = 1; id <= 3; ++id) {
    auto* passing = new CBasePassing(id);
    m.maker.Fill(*passing);
    passing->CalculateTimeOfDay(basis);
    run->Passings->Passings[id] = passing;
    batch.push_back(passing);
  }
  m.link.Apply(DataEncoder::AddPassings(run->UniqueID, batch));
  EXPECT_EQ(m.Check(), "");
  m.maker.Fill(*run->Passings->Passings[2]);
  run->Passings->Passings[2]->CalculateTimeOfDay(basis);
  m.link.Apply(DataEncoder::ModifyPassings(run->UniqueID, {run->Passings->Passings[2]}));
  EXPECT_EQ(m.Check(), "");
  // All passings are not wanted here: the message changes nothing.
  CBasePassing extra(9);
  m.maker.Fill(extra);
  m.link.Apply(DataEncoder::AllPassings(run->UniqueID, {&extra}));
  EXPECT_EQ(m.Check(), "");
}

TEST(MessageRoundTrip, TxTranslationAndChampionshipMessages) {
  CMirror m(38);
  auto* tx = new CBaseTxTranslation;
  m.maker.Fill(*tx);
  tx->UniqueID = 777;
  m.model->TxTranslations[777] = tx;
  m.link.Apply(DataEncoder::AddTxTranslation(*tx));
  EXPECT_EQ(m.Check(), "");
  m.maker.Fill(*tx);
  m.link.Apply(DataEncoder::ModifyTxTranslation(*tx));
  EXPECT_EQ(m.Check(), "");
  m.model->TxTranslations.erase(777);
  delete tx;
  m.link.Apply(DataEncoder::RemoveTxTranslation(777));
  EXPECT_EQ(m.Check(), "");

  auto* champ = new CBaseChampionship;
  m.maker.Fill(*champ);
  champ->UniqueID = 40;
  m.model->Championships[40] = champ;
  m.link.Apply(DataEncoder::AddChampionship(*champ));
  EXPECT_EQ(m.Check(), "");
  m.maker.Fill(*champ);
  m.link.Apply(DataEncoder::ModifyChampionship(*champ));
  EXPECT_EQ(m.Check(), "");
  m.model->Championships.erase(40);
  delete champ;
  m.link.Apply(DataEncoder::RemoveChampionship(40));
  EXPECT_EQ(m.Check(), "");
}

TEST(MessageRoundTrip, BackupCreatedReachesTheObservers) {
  CMirror m(39);
  std::vector<std::string> log;
  CLoggingCommObserver observer(&log);
  observer.Attach(&m.link.comm);
  log.clear();
  m.link.Apply(DataEncoder::BackupCreated());
  EXPECT_EQ(log, (std::vector<std::string>{"o:backup"}));
}
