#include "frame/TimeText.h"

#include <gtest/gtest.h>

#include <string>

#include "frame/Package.h"

namespace {

constexpr KVTTIME kHour = 3600000000LL;

KVTTIME LapsGap(int laps) { return static_cast<KVTTIME>(static_cast<std::uint64_t>(laps) << 48); }

}  // namespace

TEST(FormatTime, NinetyAndAHalfSecondsCompactAndFull) {
  EXPECT_EQ(FormatTime(90500000, TRUE, 1), "1:30.5");
  EXPECT_EQ(FormatTime(90500000, FALSE, 1), "0:01:30.5");
}

TEST(FormatTime, FractionIsCutNotRounded) {
  EXPECT_EQ(FormatTime(59999999, TRUE, 2), "59.99");
  EXPECT_EQ(FormatTime(59999999, TRUE, 4), "59.9999");
  EXPECT_EQ(FormatTime(59999999, TRUE, 0), "59");
}

TEST(FormatTime, NegativeDurationHasMinusSign) {
  EXPECT_EQ(FormatTime(-1500000, TRUE, 1), "-1.5");
  EXPECT_EQ(FormatTime(-1500000, FALSE, 1), "-0:00:01.5");
}

TEST(FormatTime, AbsoluteMomentShowsItsTimeOfDay) {
  EXPECT_EQ(FormatTime(51 * KVTTIME_DAY + kHour, FALSE, 3), "1:00:00.000");
  // A moment of today: 2024-05-01 13:45:06.789 as local microseconds since 1970.
  const KVTTIME moment = 19844LL * KVTTIME_DAY + 13 * kHour + 45 * 60000000LL + 6789000;
  EXPECT_EQ(FormatTime(moment, FALSE, 2), "13:45:06.78");
}

TEST(FormatTime, ExactlyFiftyDaysIsStillADuration) {
  EXPECT_EQ(FormatTime(50 * KVTTIME_DAY, FALSE, 0), "1200:00:00");
  EXPECT_EQ(FormatTime(50 * KVTTIME_DAY, TRUE, 0), "1200:00:00");
}

TEST(FormatTime, HoursAreNotLimitedTo24) {
  EXPECT_EQ(FormatTime(30 * kHour + 5000000, TRUE, 0), "30:00:05");
}

TEST(FormatTime, CompactDropsZeroHoursAndMinutes) {
  EXPECT_EQ(FormatTime(5000000, TRUE, 0), "5");
  EXPECT_EQ(FormatTime(65000000, TRUE, 0), "1:05");
  EXPECT_EQ(FormatTime(kHour + 65000000, TRUE, 0), "1:01:05");
  EXPECT_EQ(FormatTime(0, TRUE, 1), "0.0");
  EXPECT_EQ(FormatTime(0, FALSE, 0), "0:00:00");
}

TEST(FormatTime, EachDecimalCountHasItsWidth) {
  const KVTTIME t = 1002345;  // 1.002345 s
  EXPECT_EQ(FormatTime(t, TRUE, 1), "1.0");
  EXPECT_EQ(FormatTime(t, TRUE, 2), "1.00");
  EXPECT_EQ(FormatTime(t, TRUE, 3), "1.002");
  EXPECT_EQ(FormatTime(t, TRUE, 4), "1.0023");
  EXPECT_EQ(FormatTime(t, TRUE, 5), "1");
  EXPECT_EQ(FormatTime(t, TRUE, -1), "1");
}

TEST(FormatTime, NullTimeHasFixedTexts) {
  EXPECT_EQ(FormatTime(KVTTIME_NULL, FALSE, 0), "--:--:--");
  EXPECT_EQ(FormatTime(KVTTIME_NULL, FALSE, 1), "--:--:--.-");
  EXPECT_EQ(FormatTime(KVTTIME_NULL, FALSE, 2), "--:--:--.--");
  EXPECT_EQ(FormatTime(KVTTIME_NULL, FALSE, 3), "--:--:--.---");
  EXPECT_EQ(FormatTime(KVTTIME_NULL, FALSE, 4), "--:--:--.----");
  EXPECT_EQ(FormatTime(KVTTIME_NULL, TRUE, 0), "-");
  EXPECT_EQ(FormatTime(KVTTIME_NULL, TRUE, 1), "-.-");
  EXPECT_EQ(FormatTime(KVTTIME_NULL, TRUE, 2), "-.--");
  EXPECT_EQ(FormatTime(KVTTIME_NULL, TRUE, 3), "-.---");
  EXPECT_EQ(FormatTime(KVTTIME_NULL, TRUE, 4), "-.----");
}

TEST(FormatTime, NullTimeWithOtherDecimalsShowsLikeNoDecimals) {
  EXPECT_EQ(FormatTime(KVTTIME_NULL, FALSE, 7), "--:--:--");
  EXPECT_EQ(FormatTime(KVTTIME_NULL, TRUE, -2), "-");
}

TEST(FormatTime, MostNegativeValueDoesNotOverflow) {
  const std::string text = FormatTime(static_cast<KVTTIME>(0x8000000000000000ULL), FALSE, 0);
  EXPECT_EQ(text, "-2562047788:00:54");
}

TEST(FormatGap, LapGapsAndZeroGap) {
  SetModulePackage(nullptr);
  EXPECT_EQ(FormatGap(LapsGap(3), FALSE, TRUE, 1), "3 Laps");
  EXPECT_EQ(FormatGap(LapsGap(1), FALSE, TRUE, 1), "1 Lap");
  EXPECT_EQ(FormatGap(0, FALSE, TRUE, 1), "-");
}

TEST(FormatGap, NullGapIsADash) { EXPECT_EQ(FormatGap(KVTTIME_NULL, TRUE, FALSE, 3), "-"); }

TEST(FormatGap, TimeGapWithAndWithoutPlus) {
  EXPECT_EQ(FormatGap(1500000, TRUE, TRUE, 1), "+1.5");
  EXPECT_EQ(FormatGap(1500000, FALSE, TRUE, 1), "1.5");
  EXPECT_EQ(FormatGap(61000000, TRUE, FALSE, 0), "+0:01:01");
}

TEST(FormatGap, NegativeGapIsMinusAndTheTimeOfItsNegation) {
  EXPECT_EQ(FormatGap(-1500000, TRUE, TRUE, 1), "-1.5");
}

TEST(FormatGap, GapWithLapsAndTimeShowsTheTimeOnly) {
  EXPECT_EQ(FormatGap(LapsGap(2) + 2500000, TRUE, TRUE, 1), "+2.5");
}

TEST(FormatGap, LapCountIsKeptTo16Bits) {
  SetModulePackage(nullptr);
  EXPECT_EQ(FormatGap(LapsGap(0x7FFF), FALSE, TRUE, 0), "32767 Laps");
}

TEST(FormatGap, LapWordsComeFromThePackageLanguage) {
  CPackage package;
  package.Translations["lgHeader_Laps"] = "Runden";
  package.Translations["lgHeader_Lap"] = "Runde";
  SetModulePackage(&package);
  EXPECT_EQ(FormatGap(LapsGap(2), FALSE, TRUE, 0), "2 Runden");
  EXPECT_EQ(FormatGap(LapsGap(1), FALSE, TRUE, 0), "1 Runde");
  SetModulePackage(nullptr);
}

TEST(TransponderToString, CodeInTheNumberRangeShowsItsDigits) {
  EXPECT_EQ(TransponderToString(1234567), "1234567");
  EXPECT_EQ(TransponderToString(0), "0");
  EXPECT_EQ(TransponderToString(0x5FFFFFF), "100663295");
}

TEST(TransponderToString, TypeBitsAreIgnored) {
  EXPECT_EQ(TransponderToString(0xE0000000u | 1234567u), "1234567");
}

TEST(TransponderToString, HighRangeShowsLettersAndFiveDigits) {
  // p = 1: two letters, the lower one "F".
  EXPECT_EQ(TransponderToString(0x6000000 + 100000 + 42), "CF-00042");
  // p = 0: three letters "CCC", the leading "C" dropped.
  EXPECT_EQ(TransponderToString(0x6000000), "CC-00000");
  // p = 15: lowest digit 0, three letters "CFC", the leading "C" dropped.
  EXPECT_EQ(TransponderToString(0x6000000 + 15 * 100000 + 99999), "FC-99999");
  // p = 16 = 1 * 15 + 1: two letters "FF".
  EXPECT_EQ(TransponderToString(0x6000000 + 16 * 100000 + 7), "FF-00007");
  // p = 225 + 30 = 255: lowest digit 0, three letters from 1, 2, 0: "FGC".
  EXPECT_EQ(TransponderToString(0x6000000 + 255 * 100000 + 1), "FGC-00001");
}

TEST(DebugTrace, FormatsIntoALocalBufferAndSendsNothing) {
  SetDebugTraceSuppressed(FALSE);
  EXPECT_EQ(DebugTrace("Port %d: %s", 7, "up"), 10);
  EXPECT_EQ(DebugTrace("%s", std::string(5000, 'x').c_str()), 1023);
}

TEST(DebugTrace, SwitchStopsTheFormatting) {
  SetDebugTraceSuppressed(TRUE);
  EXPECT_EQ(DebugTrace("Port %d", 7), 0);
  SetDebugTraceSuppressed(FALSE);
  EXPECT_EQ(DebugTrace("Port %d", 7), 6);
}
