#include "frame/platform/RandomBytes.h"

#include <gtest/gtest.h>

#include <sys/resource.h>

#include <set>

#include "frame/platform/OpenFileLimit.h"

TEST(PlatformRandom, HexHasTwoDigitsPerByteAndDiffersEachTime) {
  std::set<std::string> seen;
  for (int i = 0; i < 50; ++i) {
    const std::string hex = platform::RandomHex(16);
    ASSERT_EQ(hex.size(), 32u);
    EXPECT_EQ(hex.find_first_not_of("0123456789abcdef"), std::string::npos) << hex;
    seen.insert(hex);
  }
  EXPECT_EQ(seen.size(), 50u);
  EXPECT_EQ(platform::RandomHex(0), "");
}

TEST(PlatformRandom, BytesAreNotAllTheSame) {
  unsigned char buffer[256] = {};
  ASSERT_TRUE(platform::RandomBytes(buffer, sizeof buffer));
  std::set<unsigned char> values(buffer, buffer + sizeof buffer);
  // 256 random bytes with fewer than 100 distinct values would be astonishing.
  EXPECT_GT(values.size(), 100u);
}

TEST(PlatformOpenFileLimit, RaisedToTheHardLimit) {
  struct rlimit before {};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  const std::uint64_t now = platform::RaiseOpenFileLimit();
  struct rlimit after {};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &after), 0);
  EXPECT_EQ(after.rlim_cur, after.rlim_max);
  EXPECT_EQ(now, after.rlim_cur == RLIM_INFINITY ? UINT64_MAX : static_cast<std::uint64_t>(after.rlim_cur));
  EXPECT_GE(after.rlim_cur, before.rlim_cur);
}
