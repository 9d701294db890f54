#include "data/Track.h"

#include <gtest/gtest.h>

#include "data/DataEncoder.h"
#include "data/DataTestSupport.h"

namespace {

struct Tracks : ::testing::Test {
  void SetUp() override {
    link.Apply(DataEncoder::Snapshot(CBaseDataComm()));
    CBaseTrack track;
    track.UniqueID = 1;
    track.Name = "Ring";
    link.Apply(DataEncoder::AddTrack(track));
  }
  CTrack& Track() { return *link.Store().FindTrack(1); }
  void AddTimeline(BYTE key, BYTE order) {
    CBaseTimeline line;
    line.UniqueID = key;
    line.Order = order;
    link.Apply(DataEncoder::AddTimeline(1, line));
  }
  CLiveLink link;
};

}  // namespace

TEST_F(Tracks, SortedTimelinesFollowOrderAlsoAfterAModifySwapsIt) {
  AddTimeline(10, 2);
  AddTimeline(11, 1);
  ASSERT_EQ(Track().SortedTimelines.size(), 2u);
  EXPECT_EQ(Track().SortedTimelines[0]->UniqueID, 11);
  EXPECT_EQ(Track().SortedTimelines[1]->UniqueID, 10);
  CBaseTimeline line;
  line.UniqueID = 10;
  line.Order = 0;
  link.Apply(DataEncoder::ModifyTimeline(1, line));
  line.UniqueID = 11;
  line.Order = 5;
  link.Apply(DataEncoder::ModifyTimeline(1, line));
  EXPECT_EQ(Track().SortedTimelines[0]->UniqueID, 10);
  EXPECT_EQ(Track().SortedTimelines[1]->UniqueID, 11);
}

TEST_F(Tracks, SectionStartingAtAMissingTimeline255KeepsANullStart) {
  AddTimeline(1, 0);
  CBaseSection section;
  section.UniqueID = 3;
  section.StartTimeline = 255;
  section.EndTimeline = 1;
  link.Apply(DataEncoder::AddSection(1, section));
  CSection* stored = Track().Sections.at(3);
  EXPECT_EQ(stored->Start, nullptr);
  EXPECT_EQ(stored->End, Track().Timelines.at(1));
  EXPECT_EQ(Track().Timelines.at(1)->EndingSections, (std::vector<CBaseSection*>{stored}));
}

TEST_F(Tracks, SectionAddedBeforeItsTimelinesStaysUnlinked) {
  CBaseSection section;
  section.UniqueID = 3;
  section.StartTimeline = 1;
  section.EndTimeline = 2;
  link.Apply(DataEncoder::AddSection(1, section));
  AddTimeline(1, 0);
  AddTimeline(2, 1);
  CSection* stored = Track().Sections.at(3);
  EXPECT_EQ(stored->Start, nullptr);
  EXPECT_EQ(stored->End, nullptr);
  EXPECT_TRUE(Track().Timelines.at(2)->EndingSections.empty());
}

TEST_F(Tracks, RemovedTimelineLeavesTheSectionKeysAndALaterModifyFindsNothing) {
  AddTimeline(1, 0);
  AddTimeline(2, 1);
  CBaseSection section;
  section.UniqueID = 3;
  section.StartTimeline = 1;
  section.EndTimeline = 2;
  link.Apply(DataEncoder::AddSection(1, section));
  CSection* stored = Track().Sections.at(3);
  ASSERT_NE(stored->Start, nullptr);
  link.Apply(DataEncoder::RemoveTimeline(1, 1));
  EXPECT_EQ(stored->Start, nullptr);
  EXPECT_EQ(stored->StartTimeline, 1);
  section.Name = "changed";
  link.Apply(DataEncoder::ModifySection(1, section));
  EXPECT_EQ(stored->Name, "changed");
  EXPECT_EQ(stored->Start, nullptr);
  EXPECT_EQ(stored->End, Track().Timelines.at(2));
}

TEST_F(Tracks, TrackRecordWithNoTimeSortsAfterEveryRealTime) {
  CBaseTrackRecord none;
  none.UniqueID = 1;
  none.RecordTime = KVTTIME_NULL;
  link.Apply(DataEncoder::AddTrackRecord(1, none));
  CBaseTrackRecord late;
  late.UniqueID = 2;
  late.RecordTime = 80000000000LL;
  link.Apply(DataEncoder::AddTrackRecord(1, late));
  CBaseTrackRecord early;
  early.UniqueID = 3;
  early.RecordTime = -5;
  link.Apply(DataEncoder::AddTrackRecord(1, early));
  const auto& sorted = Track().SortedTrackRecords;
  ASSERT_EQ(sorted.size(), 3u);
  EXPECT_EQ(sorted[0]->UniqueID, 3u);
  EXPECT_EQ(sorted[1]->UniqueID, 2u);
  EXPECT_EQ(sorted[2]->UniqueID, 1u);
}

namespace {

struct CTracksLog : CTracksObserver {
  void OnSubjectNotify(BYTE kind, CTrack* track) override { Kinds.push_back(kind), (void)track; }
  std::vector<int> Kinds;
};

}  // namespace

TEST_F(Tracks, ModifyReportsDeleteAsRemovalAndUndeleteAsAddition) {
  CTracksLog log;
  log.Attach(&link.Store());
  CBaseTrack track;
  track.UniqueID = 1;
  link.Apply(DataEncoder::ModifyTrack(track));
  track.Flags = 1;
  link.Apply(DataEncoder::ModifyTrack(track));
  track.Flags = 0;
  link.Apply(DataEncoder::ModifyTrack(track));
  EXPECT_EQ(log.Kinds, (std::vector<int>{2, 3, 1}));
  EXPECT_NE(link.Store().FindTrack(1), nullptr);
}
