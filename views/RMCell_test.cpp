// The typed cells: wire forms, ready-made texts, conversions and empty clones.
#include "views/RMCell.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstring>
#include <ctime>
#include <memory>

#include "data/DataEncoder.h"
#include "data/DataTestSupport.h"
#include "frame/TimeText.h"
#include "testing/KVTCatch.h"
#include "views/RMStringCell.h"
#include "views/RMTransponderCell.h"
#include "views/RMValueCells.h"
#include "testing/ViewTestSupport.h"
#include "views/ViewEncoder.h"

namespace {

// Writes one cell's wire form for a column type and reads it into `cell`.
void Feed(CRMCell& cell, BYTE type, const ViewCellValue& value) {
  CTTBuffer buffer(64);
  ViewEncoder::WriteCell(buffer, type, value);
  buffer.SetPosition(0);
  cell.MessageToCell(buffer);
  EXPECT_EQ(buffer.GetRemaining(), 0u) << "the cell reads its whole wire form";
}

// A race time cell whose text a test can overwrite, to see whether a message remakes it.
class CMarkedTimeCell : public CRMKVTTimeCell {
 public:
  void Mark(const char* text) { SetText(text); }
};

std::unique_ptr<CRMCell> Cell(BYTE type) { return std::unique_ptr<CRMCell>(NewCellOfType(type, nullptr)); }

}  // namespace

TEST(RMCell, EachColumnTypeMakesItsCellClassAndTypesAboveEightMakeNone) {
  EXPECT_NE(dynamic_cast<CRMDWordCell*>(Cell(kColumnDWord).get()), nullptr);
  EXPECT_NE(dynamic_cast<CRMIntegerCell*>(Cell(kColumnInteger).get()), nullptr);
  EXPECT_NE(dynamic_cast<CRMDoubleCell*>(Cell(kColumnDouble).get()), nullptr);
  EXPECT_NE(dynamic_cast<CRMStringCell*>(Cell(kColumnString).get()), nullptr);
  EXPECT_NE(dynamic_cast<CRMKVTTimeCell*>(Cell(kColumnKVTTime).get()), nullptr);
  EXPECT_NE(dynamic_cast<CRMKVTDiffCell*>(Cell(kColumnKVTDiff).get()), nullptr);
  EXPECT_NE(dynamic_cast<CRMDateCell*>(Cell(kColumnDate).get()), nullptr);
  EXPECT_NE(dynamic_cast<CRMDateTimeCell*>(Cell(kColumnDateTime).get()), nullptr);
  EXPECT_NE(dynamic_cast<CRMTransponderCell*>(Cell(kColumnTransponder).get()), nullptr);
  EXPECT_EQ(Cell(9), nullptr);
  EXPECT_EQ(Cell(255), nullptr);
}

TEST(RMCell, TextBuffersHaveTheSizesOfTheirClasses) {
  const std::size_t sizes[] = {12, 12, 32, 16, 25, 20, 128, 128, 256};
  for (BYTE type = 0; type <= 8; ++type) EXPECT_EQ(Cell(type)->GetTextBufferSize(), sizes[type]) << int(type);
}

TEST(RMCell, DWordCellShowsNoValueAsDashAndOthersAsUnsignedNumbers) {
  CRMDWordCell cell;
  ViewCellValue none = DwordValue(0xFFFFFFFF);
  none.Option = 7;
  Feed(cell, kColumnDWord, none);
  EXPECT_STREQ(cell.GetText(), "-");
  EXPECT_EQ(cell.Option, 7);
  Feed(cell, kColumnDWord, DwordValue(0xFFFFFFFE));
  EXPECT_STREQ(cell.GetText(), "4294967294");
  EXPECT_EQ(static_cast<DWORD>(cell), 0xFFFFFFFEu);
  Feed(cell, kColumnDWord, DwordValue(42));
  EXPECT_STREQ(cell.GetText(), "42");
  EXPECT_EQ(static_cast<int>(cell), 42);
  EXPECT_EQ(static_cast<KVTTIME>(cell), 0);
  EXPECT_EQ(static_cast<double>(cell), 0.0);
}

TEST(RMCell, IntegerCellShowsSignedNumbersAndGivesThemAsDwordAndInt) {
  CRMIntegerCell cell;
  Feed(cell, kColumnInteger, IntegerValue(-17));
  EXPECT_STREQ(cell.GetText(), "-17");
  EXPECT_EQ(static_cast<int>(cell), -17);
  EXPECT_EQ(static_cast<DWORD>(cell), static_cast<DWORD>(-17));
}

TEST(RMCell, DoubleCellShowsThreeDecimalsAndZeroAsDash) {
  CRMDoubleCell cell;
  Feed(cell, kColumnDouble, RealValue(12.3456));
  EXPECT_STREQ(cell.GetText(), "12.346");
  EXPECT_DOUBLE_EQ(static_cast<double>(cell), 12.3456);
  Feed(cell, kColumnDouble, RealValue(0.0));
  EXPECT_STREQ(cell.GetText(), "-");
}

TEST(RMCell, DoubleCellOfMinusZeroShowsDash) {
  CRMDoubleCell cell;
  Feed(cell, kColumnDouble, RealValue(5.0));
  Feed(cell, kColumnDouble, RealValue(-0.0));
  EXPECT_STREQ(cell.GetText(), "-");
  EXPECT_TRUE(std::signbit(static_cast<double>(cell))) << "the value itself is kept";
}

TEST(RMCell, IntConversionOfDoubleDateAndStringCellsIsZero) {
  CRMDoubleCell real;
  Feed(real, kColumnDouble, RealValue(99.5));
  CRMDateCell date;
  Feed(date, kColumnDate, DwordValue(1700000000));
  CRMStringCell text;
  Feed(text, kColumnString, TextValue("123"));
  EXPECT_EQ(static_cast<int>(real), 0);
  EXPECT_EQ(static_cast<int>(date), 0);
  EXPECT_EQ(static_cast<int>(text), 0);
  EXPECT_EQ(static_cast<DWORD>(date), 1700000000u) << "a date gives its value as a DWORD";
  EXPECT_EQ(static_cast<DWORD>(text), 0u);
}

TEST(RMCell, StringCellOfFifteenBytesStaysInItsFirstBuffer) {
  CRMStringCell cell;
  const char* first = cell.GetText();
  Feed(cell, kColumnString, TextValue(std::string(15, 'a')));
  EXPECT_EQ(cell.GetText(), first);
  EXPECT_EQ(cell.GetCapacity(), 16u);
  EXPECT_EQ(std::string(cell.GetText()), std::string(15, 'a'));
}

TEST(RMCell, StringCellOfSixteenBytesGetsABufferOfSeventeen) {
  CRMStringCell cell;
  Feed(cell, kColumnString, TextValue(std::string(16, 'b')));
  EXPECT_EQ(cell.GetCapacity(), 17u);
  EXPECT_EQ(cell.GetTextBufferSize(), 17u);
  EXPECT_EQ(std::string(cell.GetText()), std::string(16, 'b'));
  // A shorter text later keeps the larger buffer.
  const char* grown = cell.GetText();
  Feed(cell, kColumnString, TextValue("x"));
  EXPECT_EQ(cell.GetText(), grown);
  EXPECT_STREQ(cell.GetText(), "x");
}

TEST(RMCell, RaceTimeCellStartsAtNoTimeAndShowsTheCompactTimeWithThreeDecimals) {
  CRMKVTTimeCell cell;
  EXPECT_EQ(static_cast<KVTTIME>(cell), KVTTIME_NULL);
  EXPECT_STREQ(cell.GetText(), "-.---");
  Feed(cell, kColumnKVTTime, TimeValue(83456789));
  EXPECT_STREQ(cell.GetText(), "1:23.456");
  EXPECT_EQ(static_cast<KVTTIME>(cell), 83456789);
}

TEST(RMCell, SecondMessageWithTheSameTimeLeavesTheTextUntouched) {
  CMarkedTimeCell cell;
  Feed(cell, kColumnKVTTime, TimeValue(83456789));
  cell.Mark("marked");
  Feed(cell, kColumnKVTTime, TimeValue(83456789));
  EXPECT_STREQ(cell.GetText(), "marked");
  Feed(cell, kColumnKVTTime, TimeValue(1000000));
  EXPECT_STREQ(cell.GetText(), FormatTime(1000000, TRUE, 3).c_str());
}

TEST(RMCell, GapCellShowsTheGapWithPlusAndThreeDecimals) {
  CRMKVTDiffCell cell;
  EXPECT_STREQ(cell.GetText(), FormatGap(KVTTIME_NULL, TRUE, TRUE, 3).c_str());
  Feed(cell, kColumnKVTDiff, TimeValue(2500000));
  EXPECT_STREQ(cell.GetText(), FormatGap(2500000, TRUE, TRUE, 3).c_str());
  EXPECT_EQ(std::string(cell.GetText()).substr(0, 1), "+");
}

TEST(RMCell, DateCellsShowTheLocalDateAndLeaveTheProcessLocaleAlone) {
  std::setlocale(LC_ALL, "C");
  const std::time_t moment = 1700000000;
  tm parts{};
  localtime_r(&moment, &parts);
  CRMDateCell date;
  Feed(date, kColumnDate, DwordValue(static_cast<DWORD>(moment)));
  CRMDateTimeCell dateTime;
  Feed(dateTime, kColumnDateTime, DwordValue(static_cast<DWORD>(moment)));
  EXPECT_FALSE(std::string(date.GetText()).empty());
  EXPECT_GT(std::strlen(dateTime.GetText()), std::strlen(date.GetText())) << "the date-time shows the time too";
  EXPECT_STREQ(std::setlocale(LC_ALL, nullptr), "C");
  CRMDoubleCell real;
  Feed(real, kColumnDouble, RealValue(1.5));
  EXPECT_STREQ(real.GetText(), "1.500") << "numbers keep the decimal point";
}

TEST(RMCell, TransponderListOfOneHundredTwoHundredOneHundredShowsTwoEntries) {
  CRMTransponderCell cell(nullptr);
  Feed(cell, kColumnTransponder, TranspondersValue({100, 200, 100}));
  EXPECT_EQ(std::string(cell.GetText()), TransponderToString(100) + ", " + TransponderToString(200));
  EXPECT_EQ(cell.GetTransponders()->size(), 3u) << "the list keeps the repeat";
  EXPECT_EQ(static_cast<DWORD>(cell), 100u);
}

TEST(RMCell, TransponderCellWithAnEmptyListGivesZeroAndAnEmptyText) {
  CRMTransponderCell cell(nullptr);
  EXPECT_EQ(static_cast<DWORD>(cell), 0u);
  Feed(cell, kColumnTransponder, TranspondersValue({7}));
  Feed(cell, kColumnTransponder, TranspondersValue({}));
  EXPECT_EQ(static_cast<DWORD>(cell), 0u);
  EXPECT_STREQ(cell.GetText(), "");
}

TEST(RMCell, TransponderCellShowsTranslatedNamesAndKeepsItsTextWhenNothingChanged) {
  CLiveLink link;
  link.Apply(DataEncoder::Snapshot(CBaseDataComm()));
  CBaseTxTranslation record;
  record.UniqueID = 200;
  record.Text = "Pace Car";
  link.Apply(DataEncoder::AddTxTranslation(record));
  CRMTransponderCell cell(link.comm.GetData());
  Feed(cell, kColumnTransponder, TranspondersValue({100, 200}));
  EXPECT_EQ(std::string(cell.GetText()), TransponderToString(100) + ", Pace Car");
  // The same list again leaves the text as it was, even though the name has changed since.
  record.Text = "Safety Car";
  link.Apply(DataEncoder::ModifyTxTranslation(record));
  Feed(cell, kColumnTransponder, TranspondersValue({100, 200}));
  EXPECT_EQ(std::string(cell.GetText()), TransponderToString(100) + ", Pace Car");
  Feed(cell, kColumnTransponder, TranspondersValue({200}));
  EXPECT_STREQ(cell.GetText(), "Safety Car");
}

TEST(RMCell, TransponderTextIsCutToItsBuffer) {
  CRMTransponderCell cell(nullptr);
  std::vector<DWORD> many;
  for (DWORD i = 0; i < 100; ++i) many.push_back(1000000 + i);
  Feed(cell, kColumnTransponder, TranspondersValue(many));
  EXPECT_EQ(std::strlen(cell.GetText()), 255u);
}

TEST(RMCell, TransponderCountTheMessageCannotHoldFailsBeforeAllocating) {
  CTTBuffer buffer(16);
  buffer << 2000000000 << static_cast<BYTE>(0) << static_cast<DWORD>(5) << static_cast<BYTE>(0);
  buffer.SetPosition(0);
  CRMTransponderCell cell(nullptr);
  EXPECT_NE(CatchKVT([&] { cell.MessageToCell(buffer); }), nullptr);
  EXPECT_TRUE(cell.GetTransponders()->empty());
  CTTBuffer negative(16);
  negative << -1 << static_cast<BYTE>(0);
  negative.SetPosition(0);
  EXPECT_NE(CatchKVT([&] { cell.MessageToCell(negative); }), nullptr);
}

TEST(RMCell, ClonesAreEmptyButTimesStartAtNoTimeAndTransponderCellsKeepTheirLink) {
  CRMDWordCell dword;
  ViewCellValue five = DwordValue(5);
  five.Option = 3;
  Feed(dword, kColumnDWord, five);
  std::unique_ptr<CRMCell> dwordClone(dword.Clone());
  EXPECT_NE(dynamic_cast<CRMDWordCell*>(dwordClone.get()), nullptr);
  EXPECT_EQ(static_cast<DWORD>(*dwordClone), 0u);
  EXPECT_EQ(dwordClone->Option, 0);
  EXPECT_STREQ(dwordClone->GetText(), "");

  CRMKVTTimeCell time;
  Feed(time, kColumnKVTTime, TimeValue(5000000));
  std::unique_ptr<CRMCell> timeClone(time.Clone());
  EXPECT_EQ(static_cast<KVTTIME>(*timeClone), KVTTIME_NULL);
  EXPECT_STREQ(timeClone->GetText(), "-.---");

  CRMKVTDiffCell gap;
  Feed(gap, kColumnKVTDiff, TimeValue(5000000));
  std::unique_ptr<CRMCell> gapClone(gap.Clone());
  EXPECT_EQ(static_cast<KVTTIME>(*gapClone), KVTTIME_NULL);

  CRMStringCell text;
  Feed(text, kColumnString, TextValue(std::string(40, 'z')));
  std::unique_ptr<CRMCell> textClone(text.Clone());
  EXPECT_STREQ(textClone->GetText(), "");
  EXPECT_EQ(textClone->GetTextBufferSize(), 16u);

  CLiveLink link;
  CRMTransponderCell transponder(link.comm.GetData());
  Feed(transponder, kColumnTransponder, TranspondersValue({1, 2}));
  std::unique_ptr<CRMCell> transponderClone(transponder.Clone());
  auto* typed = dynamic_cast<CRMTransponderCell*>(transponderClone.get());
  ASSERT_NE(typed, nullptr);
  EXPECT_EQ(typed->GetDataLink(), link.comm.GetData());
  EXPECT_TRUE(typed->GetTransponders()->empty());
}
