#include "site/FlagText.h"

#include <gtest/gtest.h>

TEST(FlagText, FlagNamesWithoutASpecialFlag) {
  EXPECT_EQ(FlagToString(0, 0), "warmup");
  EXPECT_EQ(FlagToString(1, 0), "green");
  EXPECT_EQ(FlagToString(2, 0), "yellow");
  EXPECT_EQ(FlagToString(3, 0), "yellownc");
  EXPECT_EQ(FlagToString(4, 0), "red");
}

TEST(FlagText, UnknownFlagWithoutSpecialIsNone) { EXPECT_EQ(FlagToString(9, 0), "none"); }

TEST(FlagText, SpecialFlagWinsWhateverTheFlag) {
  for (DWORD flag : {0u, 1u, 4u, 9u}) {
    EXPECT_EQ(FlagToString(flag, 1), "white");
    EXPECT_EQ(FlagToString(flag, 2), "finish");
    EXPECT_EQ(FlagToString(flag, 3), "cold");
    EXPECT_EQ(FlagToString(flag, 4), "none");
  }
}
