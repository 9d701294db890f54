// A results view of 2,000 rows and 25 columns: decoding the all-rows message, and a
// modify message of one row (decode and sort), each against reading the same bytes into
// plain values with the byte buffer.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

#include "data/DataTestSupport.h"
#include "views/RMCell.h"
#include "views/RMView.h"
#include "views/ViewEncoder.h"

namespace {

constexpr int kRows = 2000;

class CCountingObserver : public CRMViewObserver {
 public:
  void OnNotifyData(int type, CRMView* view) override { Count += static_cast<std::size_t>(type) + view->GetRowCount(); }
  std::size_t Count = 0;
};

std::vector<CColumn> ResultColumns() {
  const std::vector<std::pair<BYTE, const char*>> layout = {
      {kColumnDWord, "lgHeader_Pos"},        {kColumnString, "lgHeader_No"},     {kColumnString, "lgHeader_Name"},
      {kColumnString, "lgHeader_Class"},     {kColumnInteger, "lgHeader_Laps"},  {kColumnKVTTime, "lgHeader_Time"},
      {kColumnKVTDiff, "lgHeader_Gap"},      {kColumnKVTDiff, "lgHeader_Diff"},  {kColumnKVTTime, "lgHeader_BestTm"},
      {kColumnInteger, "lgHeader_BestLap"},  {kColumnKVTTime, "lgHeader_LastTm"}, {kColumnDouble, "lgHeader_Speed"},
      {kColumnDouble, "lgHeader_BestSpeed"}, {kColumnString, "lgHeader_Points"}, {kColumnTransponder, "lgHeader_Tx"},
      {kColumnString, "lgHeader_Team"},      {kColumnString, "lgHeader_Nat"},    {kColumnString, "lgHeader_Car"},
      {kColumnDWord, "lgHeader_ClassPos"},   {kColumnKVTTime, "lgHeader_S1"},    {kColumnKVTTime, "lgHeader_S2"},
      {kColumnKVTTime, "lgHeader_S3"},       {kColumnDate, "lgHeader_Date"},     {kColumnInteger, "lgHeader_Pits"},
      {kColumnString, "lgHeader_Status"}};
  std::vector<CColumn> columns;
  for (const auto& [type, key] : layout) {
    CColumn column;
    column.Type = type;
    column.Key = key;
    column.Title = key;
    columns.push_back(column);
  }
  return columns;
}

ViewRowValues ResultRow(const std::vector<CColumn>& columns, DWORD id, DWORD position) {
  ViewRowValues row;
  row.RowID = id;
  row.Cells.resize(columns.size());
  for (std::size_t c = 0; c < columns.size(); ++c) {
    ViewCellValue& cell = row.Cells[c];
    cell.Dword = c == 0 ? position : id + static_cast<DWORD>(c);
    cell.Integer = static_cast<int>(id % 97);
    cell.Real = 150.0 + id * 0.01;
    cell.Text = columns[c].Key == "lgHeader_No" ? std::to_string(id) : "Text " + std::to_string(id * 7 + c);
    cell.Time = 60000000LL * (id % 50) + static_cast<KVTTIME>(c) * 1000;
    cell.Transponders = {100000 + id};
  }
  return row;
}

// A view fed through the link: structure and all rows, sorted on the position column.
struct CResultsView {
  CResultsView() : columns(ResultColumns()), types(ViewEncoder::ColumnTypes(columns)) {
    view = link.comm.CreateView("lgView_Results", FALSE, CParameters(), FALSE);
    view->SetSortColumn("lgHeader_Pos", TRUE);
    observer.Attach(view);
    link.Apply(ViewEncoder::ViewStructure(view->GetViewID(), columns));
  }
  ViewRowBlock AllRowsBlock() const {
    ViewRowBlock block;
    for (int i = 0; i < kRows; ++i) block.Rows.push_back(ResultRow(columns, static_cast<DWORD>(i), kRows - i));
    return block;
  }

  CLiveLink link;
  std::vector<CColumn> columns;
  std::vector<BYTE> types;
  CRMView* view = nullptr;
  CCountingObserver observer;
};

// Reads a row block into plain values with the byte buffer, by the column types: the
// least any decoder of these bytes must do.
std::size_t PlainReadRowBlock(CTTBuffer& message, const std::vector<BYTE>& types) {
  std::size_t sum = 0;
  DWORD viewID = 0;
  DWORD groups = 0;
  message >> viewID >> groups;
  for (DWORD g = 0; g < groups; ++g) {
    DWORD id = 0;
    std::string name;
    message >> id >> name;
  }
  DWORD rows = 0;
  message >> rows;
  std::vector<ViewRowValues> values(rows);
  for (ViewRowValues& row : values) {
    message >> row.RowID >> row.GroupID >> row.Status;
    row.Cells.resize(types.size());
    for (std::size_t c = 0; c < types.size(); ++c) {
      ViewCellValue& cell = row.Cells[c];
      switch (types[c]) {
        case kColumnDWord:
        case kColumnDate:
        case kColumnDateTime:
          message >> cell.Dword;
          break;
        case kColumnInteger:
          message >> cell.Integer;
          break;
        case kColumnDouble:
          message >> cell.Real;
          break;
        case kColumnString:
          message >> cell.Text;
          break;
        case kColumnKVTTime:
        case kColumnKVTDiff:
          message >> cell.Time;
          break;
        default: {
          int count = 0;
          message >> count >> cell.Option;
          for (int i = 0; i < count; ++i) {
            DWORD transponder = 0;
            BYTE dropped = 0;
            message >> transponder >> dropped;
            cell.Transponders.push_back(transponder);
          }
          continue;
        }
      }
      message >> cell.Option;
    }
    sum += row.Cells.size();
  }
  return sum;
}

void BM_ViewAllRows(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    auto results = std::make_unique<CResultsView>();
    std::unique_ptr<CModuleMessage> message(
        ViewEncoder::AllRows(results->view->GetViewID(), results->types, results->AllRowsBlock()));
    message->Reset();
    state.ResumeTiming();
    results->link.comm.ProcessMessage(message.get());
    benchmark::DoNotOptimize(results->view->GetRowCount());
    state.PauseTiming();
    results.reset();
    state.ResumeTiming();
  }
}
BENCHMARK(BM_ViewAllRows)->Unit(benchmark::kMillisecond);

void BM_ViewAllRows_Baseline(benchmark::State& state) {
  CResultsView results;
  std::unique_ptr<CModuleMessage> message(
      ViewEncoder::AllRows(results.view->GetViewID(), results.types, results.AllRowsBlock()));
  for (auto _ : state) {
    message->Reset();
    benchmark::DoNotOptimize(PlainReadRowBlock(*message, results.types));
  }
}
BENCHMARK(BM_ViewAllRows_Baseline)->Unit(benchmark::kMillisecond);

// Two modify messages of one row from the middle, moving it to the top and back.
struct CModifyOneRow {
  CModifyOneRow() {
    std::unique_ptr<CModuleMessage> all(ViewEncoder::AllRows(results.view->GetViewID(), results.types,
                                                             results.AllRowsBlock()));
    all->Reset();
    results.link.comm.ProcessMessage(all.get());
    const DWORD id = kRows / 2;
    for (DWORD position : {DWORD{0}, static_cast<DWORD>(kRows - id)}) {
      ViewRowBlock block;
      block.Rows.push_back(ResultRow(results.columns, id, position));
      moves.emplace_back(ViewEncoder::ModifyRows(results.view->GetViewID(), results.types, block));
    }
  }
  CResultsView results;
  std::vector<std::unique_ptr<CModuleMessage>> moves;
};

void BM_ViewModifyOneRow(benchmark::State& state) {
  CModifyOneRow bench;
  std::size_t turn = 0;
  for (auto _ : state) {
    CModuleMessage& message = *bench.moves[turn++ % 2];
    message.Reset();
    bench.results.link.comm.ProcessMessage(&message);
  }
  benchmark::DoNotOptimize(bench.results.observer.Count);
  state.counters["rows"] = static_cast<double>(bench.results.view->GetRowCount());
}
BENCHMARK(BM_ViewModifyOneRow)->Unit(benchmark::kMicrosecond);

void BM_ViewModifyOneRow_Baseline(benchmark::State& state) {
  CModifyOneRow bench;
  std::size_t turn = 0;
  for (auto _ : state) {
    CModuleMessage& message = *bench.moves[turn++ % 2];
    message.Reset();
    benchmark::DoNotOptimize(PlainReadRowBlock(message, bench.results.types));
  }
}
BENCHMARK(BM_ViewModifyOneRow_Baseline)->Unit(benchmark::kMicrosecond);

}  // namespace
