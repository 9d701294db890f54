#include "frame/Clock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <string>
#include <vector>

#include "testing/ZoneSetting.h"

namespace {

// Whole seconds of the precise system clock. (time() reads a coarse clock that can still
// show the last second for a few milliseconds after the precise one has moved on.)
long long SystemSeconds() {
  return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch()).count();
}

// The clock's readings against the system clock read around them; a second may tick in
// between.
void ExpectClockMatchesCorrection(int correction) {
  const auto before = SystemSeconds();
  const auto local = static_cast<long long>(GetTimeOfDay());
  const KVTTIME kvt = GetKVTTimeOfDay();
  const auto after = SystemSeconds();
  EXPECT_GE(local, before - correction);
  EXPECT_LE(local, after - correction);
  EXPECT_GE(kvt / 1000000, before - correction);
  EXPECT_LE(kvt / 1000000, after - correction);
  EXPECT_EQ(kvt % 1000, 0) << "the resolution is one millisecond";
}

}  // namespace

TEST(Clock, UniversalZoneHasNoCorrection) {
  CZoneSetting zone("UTC0");
  EXPECT_EQ(GetTimezoneCorrection(), 0);
  ExpectClockMatchesCorrection(0);
}

TEST(Clock, ZoneEastOfGreenwichHasNegativeCorrection) {
  CZoneSetting zone("XYZ-3");
  EXPECT_EQ(GetTimezoneCorrection(), -3 * 3600);
  ExpectClockMatchesCorrection(-3 * 3600);
}

TEST(Clock, ZoneWestOfGreenwichHasPositiveCorrection) {
  CZoneSetting zone("ABC+4:30");
  EXPECT_EQ(GetTimezoneCorrection(), 4 * 3600 + 1800);
  ExpectClockMatchesCorrection(4 * 3600 + 1800);
}

TEST(Clock, EasternZoneIncludesDaylightSavingInForce) {
  CZoneSetting zone("EST5EDT");
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  const int expected = local.tm_isdst > 0 ? 4 * 3600 : 5 * 3600;
  const int correction = GetTimezoneCorrection();
  EXPECT_EQ(correction, expected);
  ExpectClockMatchesCorrection(correction);
}

TEST(Clock, CentralEuropeanZoneIncludesDaylightSavingInForce) {
  CZoneSetting zone("CET-1CEST");
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  const int expected = local.tm_isdst > 0 ? -2 * 3600 : -3600;
  const int correction = GetTimezoneCorrection();
  EXPECT_EQ(correction, expected);
  ExpectClockMatchesCorrection(correction);
}

TEST(Clock, KvtTimeOfDayShowsTheLocalWallClock) {
  CZoneSetting zone("XYZ-3");
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  const KVTTIME kvt = GetKVTTimeOfDay();
  const long long secondOfDay = (kvt / 1000000) % 86400;
  const long long expected = local.tm_hour * 3600 + local.tm_min * 60 + local.tm_sec;
  // Allow for the second that may tick between the two readings.
  EXPECT_TRUE(secondOfDay == expected || secondOfDay == (expected + 1) % 86400) << secondOfDay << " " << expected;
}

TEST(NextToken, ListOfTwoTokensGivesBothThenEmptyResultWithDone) {
  std::string list = "a,b";
  BOOL done = TRUE;
  EXPECT_EQ(NextToken(list, ',', done), "a");
  EXPECT_EQ(done, FALSE);
  EXPECT_EQ(list, "b");
  EXPECT_EQ(NextToken(list, ',', done), "b");
  EXPECT_EQ(done, FALSE);
  EXPECT_EQ(list, "");
  EXPECT_EQ(NextToken(list, ',', done), "");
  EXPECT_EQ(done, TRUE);
}

TEST(NextToken, LastTokenLosesItsCarriageReturnAndLineFeed) {
  std::string list = "1;2\r\n";
  BOOL done = FALSE;
  EXPECT_EQ(NextToken(list, ';', done), "1");
  EXPECT_EQ(NextToken(list, ';', done), "2");
  EXPECT_EQ(done, FALSE);
  NextToken(list, ';', done);
  EXPECT_EQ(done, TRUE);
}

TEST(NextToken, OnlyTheFirstCarriageReturnAndLineFeedGo) {
  std::string list = "a\r\nb\r\n";
  BOOL done = FALSE;
  EXPECT_EQ(NextToken(list, ',', done), "ab\r\n");
}

TEST(NextToken, TokenBeforeASeparatorKeepsItsCarriageReturn) {
  std::string list = "x\r,y";
  BOOL done = FALSE;
  EXPECT_EQ(NextToken(list, ',', done), "x\r");
}

TEST(NextToken, EmptyTokensBetweenSeparatorsAreResults) {
  std::string list = ",a,,";
  BOOL done = FALSE;
  std::vector<std::string> tokens;
  while (true) {
    std::string token = NextToken(list, ',', done);
    if (done) break;
    tokens.push_back(token);
  }
  // The trailing separator leaves an empty list, which ends the walk.
  EXPECT_EQ(tokens, (std::vector<std::string>{"", "a", ""}));
}

TEST(NextToken, EmptyListIsDoneAtOnce) {
  std::string list;
  BOOL done = FALSE;
  EXPECT_EQ(NextToken(list, ',', done), "");
  EXPECT_EQ(done, TRUE);
}
