#include "data/Subjects.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "testing/KVTCatch.h"

namespace {

class RecordingCompetitorsObserver : public CCompetitorsObserver {
 public:
  explicit RecordingCompetitorsObserver(std::vector<std::string>* log, std::string name)
      : Log(log), Name(std::move(name)) {}
  void OnSubjectNotify(BYTE kind, CCompetitorsSubject* subject) override {
    (void)subject;
    Log->push_back(Name + ":" + std::to_string(kind));
    if (Throw) ThrowKVT("observer failed");
  }
  void OnSubjectRemoved(TSubject<CompetitorsTraits>* subject) override {
    (void)subject;
    Log->push_back(Name + ":removed");
  }
  std::vector<std::string>* Log;
  std::string Name;
  bool Throw = false;
};

}  // namespace

TEST(SubjectScheme, AttachTwiceWithTheSameSubjectLeavesOneEntryOnEachSide) {
  std::vector<std::string> log;
  CCompetitorsSubject subject;
  RecordingCompetitorsObserver observer(&log, "a");
  observer.Attach(&subject);
  observer.Attach(&subject);
  EXPECT_EQ(subject.Observers.size(), 1u);
  EXPECT_EQ(observer.Subjects.size(), 1u);
  EXPECT_TRUE(log.empty()) << "attaching does not call the observer";
}

TEST(SubjectScheme, NotificationWithNoObserversDoesNothingAndSetsNoCursor) {
  CCompetitorsSubject subject;
  subject.Cursor = 7;
  subject.CompetitorsNotify(1);
  EXPECT_EQ(subject.Cursor, 7u);
  EXPECT_EQ(subject.WalksStarted, 0u);
}

TEST(SubjectScheme, ObserversAreToldInOrderOfAttachment) {
  std::vector<std::string> log;
  CCompetitorsSubject subject;
  RecordingCompetitorsObserver a(&log, "a");
  RecordingCompetitorsObserver b(&log, "b");
  b.Attach(&subject);
  a.Attach(&subject);
  subject.CompetitorsNotify(2);
  EXPECT_EQ(log, (std::vector<std::string>{"b:2", "a:2"}));
}

TEST(SubjectScheme, ExceptionFromAnObserverEndsTheWalkWithTheNotifyNameInItsTrail) {
  std::vector<std::string> log;
  CCompetitorsSubject subject;
  RecordingCompetitorsObserver a(&log, "a");
  RecordingCompetitorsObserver b(&log, "b");
  a.Throw = true;
  a.Attach(&subject);
  b.Attach(&subject);
  auto error = CatchKVT([&] { subject.CompetitorsNotify(1); });
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->GetTrail().back(), "CCompetitorsSubject::CompetitorsNotify()");
  EXPECT_EQ(log, (std::vector<std::string>{"a:1"}));
}

TEST(SubjectScheme, SubjectDestructorTellsEachObserverAndEmptiesTheirLists) {
  std::vector<std::string> log;
  RecordingCompetitorsObserver a(&log, "a");
  {
    CCompetitorsSubject subject;
    a.Attach(&subject);
  }
  EXPECT_EQ(log, (std::vector<std::string>{"a:removed"}));
  EXPECT_TRUE(a.Subjects.empty());
}

TEST(SubjectScheme, ObserverDestructorLeavesTheSubject) {
  std::vector<std::string> log;
  CCompetitorsSubject subject;
  {
    RecordingCompetitorsObserver a(&log, "a");
    a.Attach(&subject);
    EXPECT_EQ(subject.Observers.size(), 1u);
  }
  EXPECT_TRUE(subject.Observers.empty());
  subject.CompetitorsNotify(1);
  EXPECT_TRUE(log.empty());
}

TEST(SubjectScheme, EveryFamilyCarriesItsOwnTrailNames) {
  EXPECT_STREQ(TracksTraits::NotifyName, "CTracksSubject::TracksNotify()");
  EXPECT_STREQ(MergeRowsTraits::RemoveName, "CMergeRowsSubject::RemoveSubject()");
  EXPECT_STREQ(CompetitorsTraits::AttachName, "CCompetitorsObserver::Attach()");
  EXPECT_STREQ(TrackTraits::NotifyName, "CTrackSubject::TrackNotify()");
}
