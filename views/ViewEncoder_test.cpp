// The data manager's side of every view message, read back through the module's own
// decoders field for field.
#include "views/ViewEncoder.h"

#include <gtest/gtest.h>

#include <memory>

#include "data/DataEncoder.h"
#include "data/DataTestSupport.h"
#include "testing/ViewTestSupport.h"
#include "views/RMCell.h"
#include "views/RMLapView.h"
#include "views/RMView.h"

namespace {

// One column of every type, with sizes and options that differ.
std::vector<CColumn> EveryColumnType() {
  std::vector<CColumn> columns;
  for (BYTE type = 0; type <= 8; ++type) {
    CColumn column = MakeColumn(type, "lgHeader_Key" + std::to_string(type), "Title " + std::to_string(type));
    column.Size = 10 * type - 3;
    column.Option = static_cast<BYTE>(0x40 + type);
    columns.push_back(column);
  }
  return columns;
}

ViewRowValues SampleRow(CSampleMaker& maker, DWORD id) {
  ViewRowValues row;
  row.RowID = id;
  row.GroupID = maker.Dword() % 4;
  row.Status = maker.Word();
  row.Cells.resize(9);
  for (ViewCellValue& cell : row.Cells) {
    cell.Dword = maker.Dword() % 0xFFFFFFF0u;
    cell.Integer = maker.Int();
    cell.Real = maker.Real() + 0.5;
    cell.Text = maker.Text("text");
    cell.Time = maker.Time() % (KVTTIME_DAY * 3);
    cell.Transponders = {maker.Dword() % 1000000u, maker.Dword() % 1000000u};
    cell.Option = maker.Byte();
  }
  return row;
}

// Every field of a decoded row against what was encoded.
void ExpectRowEquals(const CRMViewRow& row, const ViewRowValues& values, const std::vector<BYTE>& types) {
  EXPECT_EQ(row.RowID, values.RowID);
  EXPECT_EQ(row.GroupID, values.GroupID);
  EXPECT_EQ(row.Status, values.Status);
  ASSERT_EQ(row.Cells.size(), types.size());
  for (std::size_t c = 0; c < types.size(); ++c) {
    const CRMCell& cell = *row.Cells[c];
    const ViewCellValue& value = values.Cells[c];
    SCOPED_TRACE("column type " + std::to_string(types[c]));
    EXPECT_EQ(cell.Option, value.Option);
    switch (types[c]) {
      case kColumnDWord:
      case kColumnDate:
      case kColumnDateTime:
        EXPECT_EQ(static_cast<DWORD>(cell), value.Dword);
        break;
      case kColumnInteger:
        EXPECT_EQ(static_cast<int>(cell), value.Integer);
        break;
      case kColumnDouble:
        EXPECT_EQ(static_cast<double>(cell), value.Real);
        break;
      case kColumnString:
        EXPECT_EQ(std::string(cell.GetText()), value.Text);
        break;
      case kColumnKVTTime:
      case kColumnKVTDiff:
        EXPECT_EQ(static_cast<KVTTIME>(cell), value.Time);
        break;
      case kColumnTransponder:
        EXPECT_EQ(*cell.GetTransponders(), value.Transponders);
        break;
      default:
        FAIL();
    }
  }
}

struct ViewRoundTrip : ::testing::Test {
  void SetUp() override {
    view = link.comm.CreateView("lgView_Results", FALSE, CParameters(), FALSE);
    observer.Attach(view);
    link.Apply(ViewEncoder::ViewStructure(view->GetViewID(), columns));
  }
  ViewRowBlock Block(DWORD first, int count) {
    ViewRowBlock block;
    block.Groups = {{1, maker.Text("group")}, {3, maker.Text("group")}};
    for (int i = 0; i < count; ++i) block.Rows.push_back(SampleRow(maker, first + static_cast<DWORD>(i)));
    return block;
  }
  void ExpectInView(const ViewRowBlock& block) {
    EXPECT_EQ(view->GetGroupNames(), block.Groups);
    for (const ViewRowValues& values : block.Rows) {
      auto found = view->GetRowMap().find(values.RowID);
      ASSERT_NE(found, view->GetRowMap().end()) << values.RowID;
      ExpectRowEquals(*found->second, values, types);
    }
  }

  CSampleMaker maker{11};
  CLiveLink link;
  std::vector<CColumn> columns = EveryColumnType();
  std::vector<BYTE> types = ViewEncoder::ColumnTypes(columns);
  CRMView* view = nullptr;
  std::vector<std::string> log;
  CLoggingViewObserver observer{&log};
};

}  // namespace

TEST_F(ViewRoundTrip, ViewListReachesTheNameList) {
  link.Apply(ViewEncoder::AllViews({"lgView_Results", "lgView_LapTimes", "lgView_RunInfo"}));
  EXPECT_EQ(link.comm.GetViewNames(), (std::vector<std::string>{"lgView_Results", "lgView_LapTimes", "lgView_RunInfo"}));
}

TEST_F(ViewRoundTrip, StructureGivesEveryColumnFieldForField) {
  ASSERT_EQ(view->GetColumnCount(), columns.size());
  for (DWORD i = 0; i < columns.size(); ++i) {
    const CColumn* column = view->ColumnGetAt(i);
    ASSERT_NE(column, nullptr);
    EXPECT_EQ(column->Type, columns[i].Type);
    EXPECT_EQ(column->Title, columns[i].Title);
    EXPECT_EQ(column->Key, columns[i].Key);
    EXPECT_EQ(column->Size, columns[i].Size);
    EXPECT_EQ(column->Option, columns[i].Option);
  }
  ASSERT_NE(view->GetStructureRow(), nullptr);
  EXPECT_EQ(view->GetStructureRow()->Cells.size(), columns.size());
}

TEST_F(ViewRoundTrip, AllRowsAddAndModifyCarryGroupsAndEveryCell) {
  const ViewRowBlock all = Block(1, 5);
  link.Apply(ViewEncoder::AllRows(view->GetViewID(), types, all));
  ExpectInView(all);
  const ViewRowBlock added = Block(10, 3);
  link.Apply(ViewEncoder::AddRows(view->GetViewID(), types, added));
  ExpectInView(added);
  const ViewRowBlock modified = Block(2, 2);
  link.Apply(ViewEncoder::ModifyRows(view->GetViewID(), types, modified));
  ExpectInView(modified);
  EXPECT_EQ(view->GetRowMap().size(), 8u);
}

TEST_F(ViewRoundTrip, RemoveCarriesWholeRowsAndTakesThemOut) {
  link.Apply(ViewEncoder::AllRows(view->GetViewID(), types, Block(1, 4)));
  const ViewRowBlock removed = Block(2, 2);
  std::vector<ViewRowValues> seen;
  observer.AfterData = [&](int type, CRMView* v) {
    if (type != kNotifyRowsRemoved) return;
    for (const CRMViewRow* row : v->GetRemovedRows()) {
      for (const ViewRowValues& values : removed.Rows) {
        if (values.RowID == row->RowID) ExpectRowEquals(*row, values, types);
      }
      seen.push_back(ViewRowValues{});
    }
  };
  link.Apply(ViewEncoder::RemoveRows(view->GetViewID(), types, removed));
  EXPECT_EQ(seen.size(), 2u) << "the removed rows, read in full, are shown to the readers";
  EXPECT_EQ(view->GetRowMap().count(2), 0u);
  EXPECT_EQ(view->GetRowMap().count(3), 0u);
  EXPECT_EQ(view->GetRowMap().size(), 2u);
}

TEST_F(ViewRoundTrip, ViewRequestsOfTheModuleReadBackAsSent) {
  CParameters parameters;
  parameters.Add("UniqueID", static_cast<DWORD>(0x40000005));
  parameters.Add("SortType", 1);
  CRMView* other = link.comm.CreateView("lgView_LapTimes", FALSE, parameters, FALSE);
  std::vector<std::string> otherLog;
  CLoggingViewObserver reader(&otherLog);
  reader.Attach(other);
  CModuleMessage* connect = link.module.Target.Sent.back().get();
  ASSERT_EQ(connect->ID, kMsgViewConnect);
  connect->Reset();
  ViewRequest request = ViewEncoder::ReadViewRequest(*connect);
  EXPECT_EQ(request.Name, "lgView_LapTimes");
  EXPECT_EQ(request.ViewID, other->GetViewID());
  EXPECT_TRUE(request.Parameters == parameters);
  EXPECT_EQ(connect->GetRemaining(), 0u);

  reader.Detach(other, TRUE);
  CModuleMessage* disconnect = link.module.Target.Sent.back().get();
  ASSERT_EQ(disconnect->ID, kMsgViewDisconnect);
  disconnect->Reset();
  request = ViewEncoder::ReadViewRequest(*disconnect);
  EXPECT_EQ(request.Name, "lgView_LapTimes");
  EXPECT_EQ(request.Parameters.GetCount(), 0u);
}

TEST_F(ViewRoundTrip, ViewDisconnectFromTheDataManagerDestroysTheView) {
  const DWORD id = view->GetViewID();
  link.Apply(ViewEncoder::ViewDisconnect("lgView_Results", id));
  EXPECT_EQ(link.comm.GetViews().count(id), 0u);
  EXPECT_TRUE(observer.GetSubjects().empty());
}

TEST(LapRoundTrip, LapRowsCarryEveryField) {
  CLiveLink link;
  CSampleMaker maker(4);
  auto model = MakeModel(maker, 1, 1, 1, 0, 2);
  CRun* run = model->Runs.begin()->second;
  link.Apply(DataEncoder::Snapshot(*model));
  CRMLapView* lapView = link.comm.CreateLapView(link.comm.GetData()->GetRun(run->UniqueID));
  ASSERT_NE(lapView, nullptr);

  auto sample = [&](DWORD id, KVTTIME time) {
    auto row = std::make_unique<CRMLapViewRow>();
    row->RowID = id;
    row->CompetitorID = maker.Dword();
    row->SecondID = maker.Dword();
    row->Status = maker.Byte();
    row->Flags = maker.Dword() & ~0x1Cu;  // kind 0: an ordinary passing
    row->Word1 = maker.Word();
    row->Word2 = maker.Word();
    row->Byte3 = maker.Byte();
    row->Word4 = maker.Word();
    row->Word5 = maker.Word();
    row->Time1 = maker.Time();
    row->PassingTime = time;
    row->Time3 = maker.Time();
    row->Time4 = maker.Time();
    return row;
  };
  auto expectSame = [&](const CRMLapViewRow& sent) {
    auto found = lapView->GetRowMap().find(sent.RowID);
    ASSERT_NE(found, lapView->GetRowMap().end());
    const CRMLapViewRow& got = *found->second;
    EXPECT_EQ(got.CompetitorID, sent.CompetitorID);
    EXPECT_EQ(got.SecondID, sent.SecondID);
    EXPECT_EQ(got.Status, sent.Status);
    EXPECT_EQ(got.Flags, sent.Flags);
    EXPECT_EQ(got.Word1, sent.Word1);
    EXPECT_EQ(got.Word2, sent.Word2);
    EXPECT_EQ(got.Byte3, sent.Byte3);
    EXPECT_EQ(got.Word4, sent.Word4);
    EXPECT_EQ(got.Word5, sent.Word5);
    EXPECT_EQ(got.Time1, sent.Time1);
    EXPECT_EQ(got.PassingTime, sent.PassingTime);
    EXPECT_EQ(got.Time3, sent.Time3);
    EXPECT_EQ(got.Time4, sent.Time4);
  };

  auto first = sample(1, 1000);
  auto second = sample(2, 2000);
  link.Apply(ViewEncoder::AllPassings(run->UniqueID, {first.get(), second.get()}));
  expectSame(*first);
  expectSame(*second);
  auto third = sample(3, 3000);
  link.Apply(ViewEncoder::AddLapRow(run->UniqueID, *third));
  expectSame(*third);
  auto changed = sample(2, 2500);
  link.Apply(ViewEncoder::ModifyLapRows(run->UniqueID, {changed.get()}));
  expectSame(*changed);
  EXPECT_EQ(lapView->GetRows().size(), 3u);
}
