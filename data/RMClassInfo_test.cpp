#include "data/RMClassInfo.h"

#include <gtest/gtest.h>

#include "data/DataEncoder.h"
#include "data/DataTestSupport.h"

namespace {

CBaseCompetitor* Carrier(DWORD id, const std::string& className, int count1) {
  auto* competitor = new CBaseCompetitor;
  competitor->UniqueID = id;
  competitor->LastName = "ClassCompetitor";
  competitor->Class = className;
  competitor->Count1 = count1;
  return competitor;
}

struct ClassPositions : ::testing::Test {
  void SetUp() override {
    CBaseDataComm model;
    auto* event = new Cevent(nullptr);
    event->UniqueID = kClassEventID;
    event->Competitors->Competitors[1] = Carrier(1, "Zero", 0);
    event->Competitors->Competitors[2] = Carrier(2, "Pro", 1);
    auto* firstNameOnly = new CBaseCompetitor;
    firstNameOnly->UniqueID = 3;
    firstNameOnly->FirstName = "ClassCompetitor";
    firstNameOnly->Class = "Fake";
    firstNameOnly->Count1 = 5;
    event->Competitors->Competitors[3] = firstNameOnly;
    model.Events[event->UniqueID] = event;
    link.Apply(DataEncoder::Snapshot(model));
  }
  CRMClassInfo& Info() { return *link.Data().GetClassInfo(); }
  CLiveLink link;
};

}  // namespace

TEST_F(ClassPositions, CarrierWithCountZeroIsIgnoredAndCountOneGivesPositionZero) {
  EXPECT_EQ(Info().ClassPositions.count("Zero"), 0u);
  ASSERT_EQ(Info().ClassPositions.count("Pro"), 1u);
  EXPECT_EQ(Info().ClassPositions.at("Pro"), 0);
}

TEST_F(ClassPositions, ClassCompetitorByFirstNameOnlyIsNoCarrier) {
  EXPECT_EQ(Info().ClassPositions.count("Fake"), 0u);
}

TEST_F(ClassPositions, KindThreeOrMinusOneHasNoEffect) {
  Cevent* event = link.Store().FindEvent(kClassEventID);
  event->Competitors->Competitors[2]->Count1 = 9;
  Info().OnAddCompetitor(3, event);
  Info().OnAddCompetitor(-1, event);
  EXPECT_EQ(Info().ClassPositions.at("Pro"), 0);
  Info().OnAddCompetitor(2, event);
  EXPECT_EQ(Info().ClassPositions.at("Pro"), 8);
}

TEST_F(ClassPositions, AddedCarrierIsHeardThroughTheEventsCompetitorSubject) {
  std::unique_ptr<CBaseCompetitor> carrier(Carrier(7, "Junior", 3));
  link.Apply(DataEncoder::AddCompetitors(kClassEventID, {carrier.get()}));
  ASSERT_EQ(Info().ClassPositions.count("Junior"), 1u);
  EXPECT_EQ(Info().ClassPositions.at("Junior"), 2);
}

TEST(ClassPositionsAlone, InitializeWithNoEventDoesNothing) {
  CRMClassInfo info;
  info.Initialize(nullptr);
  EXPECT_TRUE(info.Subjects.empty());
  EXPECT_TRUE(info.ClassPositions.empty());
}
