// Rows of a view: cells cloned from the structure row, the row body, cell look-up.
#include "views/RMViewRow.h"

#include <gtest/gtest.h>

#include <memory>

#include "testing/KVTCatch.h"
#include "views/RMStringCell.h"
#include "views/RMValueCells.h"
#include "views/ViewEncoder.h"

namespace {

std::unique_ptr<CRMViewRow> StructureOf(const std::vector<BYTE>& types) {
  auto row = std::make_unique<CRMViewRow>(kNoRowID);
  for (BYTE type : types) row->Cells.push_back(NewCellOfType(type, nullptr));
  return row;
}

}  // namespace

TEST(RMViewRow, RowOfAViewWithNoColumnsReadsJustGroupAndStatus) {
  CRMViewRow row(4);
  CTTBuffer buffer(32);
  ViewRowValues values;
  values.GroupID = 9;
  values.Status = 0x1234;
  ViewEncoder::WriteRowBody(buffer, {}, values);
  buffer << static_cast<DWORD>(0xABCDEF01);
  buffer.SetPosition(0);
  row.MessageToViewRow(buffer);
  EXPECT_EQ(row.GroupID, 9u);
  EXPECT_EQ(row.Status, 0x1234);
  EXPECT_EQ(buffer.GetPosition(), 6u);
  EXPECT_EQ(row.CellGetAt(0), nullptr);
}

TEST(RMViewRow, AssignmentAppendsEmptyClonesOfTheOtherRowsCells) {
  auto structure = StructureOf({kColumnDWord, kColumnString, kColumnKVTTime});
  CRMViewRow row(1);
  row = *structure;
  ASSERT_EQ(row.Cells.size(), 3u);
  EXPECT_NE(row.Cells[0], structure->Cells[0]);
  EXPECT_NE(dynamic_cast<CRMDWordCell*>(row.CellGetAt(0)), nullptr);
  EXPECT_NE(dynamic_cast<CRMStringCell*>(row.CellGetAt(1)), nullptr);
  EXPECT_STREQ(row.TextAt(2), "-.---");
  row = *structure;
  EXPECT_EQ(row.Cells.size(), 6u) << "assignment appends";
}

TEST(RMViewRow, BodyFillsEveryCellInColumnOrder) {
  const std::vector<BYTE> types = {kColumnInteger, kColumnString, kColumnDouble};
  auto structure = StructureOf(types);
  CRMViewRow row(1);
  row = *structure;
  ViewRowValues values;
  values.Cells.resize(3);
  values.Cells[0].Integer = 3;
  values.Cells[1].Text = "Ann";
  values.Cells[2].Real = 2.25;
  CTTBuffer buffer(64);
  ViewEncoder::WriteRowBody(buffer, types, values);
  buffer.SetPosition(0);
  row.MessageToViewRow(buffer);
  EXPECT_STREQ(row.TextAt(0), "3");
  EXPECT_STREQ(row.TextAt(1), "Ann");
  EXPECT_STREQ(row.TextAt(2), "2.250");
  EXPECT_EQ(buffer.GetRemaining(), 0u);
}

TEST(RMViewRow, CellLookUpOutsideTheRowGivesNull) {
  auto row = StructureOf({kColumnDWord});
  EXPECT_NE(row->CellGetAt(0), nullptr);
  EXPECT_EQ(row->CellGetAt(1), nullptr);
  EXPECT_EQ(row->CellGetAt(0xFFFFFFFF), nullptr);
  EXPECT_STREQ(row->TextAt(5), "");
}

TEST(RMViewRow, BodyThatEndsEarlyThrowsWithTheRowsName) {
  auto row = StructureOf({kColumnDWord, kColumnDWord});
  CTTBuffer buffer(16);
  buffer << static_cast<DWORD>(1) << static_cast<WORD>(2) << static_cast<DWORD>(3);
  buffer.SetPosition(0);
  auto error = CatchKVT([&] { row->MessageToViewRow(buffer); });
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->GetTrail().back(), "CRMViewRow::MessageToViewRow()");
}
