#include "frame/platform/Time.h"

#include <gtest/gtest.h>

#include "testing/ZoneSetting.h"

TEST(PlatformTime, LocalOffsetFollowsTheZone) {
  const std::time_t moment = 1700000000;  // 2023-11-14: standard time in both zones below
  {
    CZoneSetting zone("UTC0");
    EXPECT_EQ(platform::LocalOffsetSeconds(moment), 0);
  }
  {
    CZoneSetting zone("EST5EDT");
    EXPECT_EQ(platform::LocalOffsetSeconds(moment), -5 * 3600);
    EXPECT_EQ(platform::LocalOffsetSeconds(1690000000), -4 * 3600);  // July: daylight time
  }
  {
    CZoneSetting zone("CET-1CEST");
    EXPECT_EQ(platform::LocalOffsetSeconds(moment), 3600);
    EXPECT_EQ(platform::LocalOffsetSeconds(1690000000), 7200);
  }
}

TEST(PlatformTime, WallTimeMillisecondsStayInRange) {
  const platform::WallTime now = platform::NowWallTime();
  EXPECT_GE(now.Milliseconds, 0);
  EXPECT_LE(now.Milliseconds, 999);
  EXPECT_GT(now.Seconds, 1600000000);
}

TEST(PlatformTime, MonotonicClockNeverGoesBack) {
  std::uint64_t last = platform::MonotonicMilliseconds();
  for (int i = 0; i < 1000; ++i) {
    const std::uint64_t now = platform::MonotonicMilliseconds();
    ASSERT_GE(now, last);
    last = now;
  }
}

TEST(PlatformTime, LocalTimestampHasDateAndTime) {
  CZoneSetting zone("UTC0");
  const std::string stamp = platform::LocalTimestamp();
  ASSERT_EQ(stamp.size(), 19u);
  EXPECT_EQ(stamp[4], '-');
  EXPECT_EQ(stamp[10], ' ');
  EXPECT_EQ(stamp[13], ':');
}
