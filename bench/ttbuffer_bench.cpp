// Writing and reading a 10,000-row message through CTTBuffer, against a plain memcpy of
// the same bytes in and out.
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

#include "frame/TTBuffer.h"

namespace {

constexpr int kRows = 10000;

struct Row {
  DWORD Id;
  int Position;
  KVTTIME Time;
  double Speed;
  std::string Name;
};

const std::vector<Row>& Rows() {
  static const std::vector<Row> rows = [] {
    std::vector<Row> made;
    made.reserve(kRows);
    for (int i = 0; i < kRows; ++i) {
      made.push_back(Row{static_cast<DWORD>(0x80000000u + i), i + 1, 3600000000LL + i * 1234567LL, 150.0 + i * 0.01,
                         "Competitor " + std::to_string(i)});
    }
    return made;
  }();
  return rows;
}

void WriteRows(CTTBuffer& buffer) {
  buffer << kRows;
  for (const Row& row : Rows()) buffer << row.Id << row.Position << row.Time << row.Speed << row.Name;
}

void BM_TTBufferRows(benchmark::State& state) {
  std::size_t bytes = 0;
  for (auto _ : state) {
    CTTBuffer buffer(1024);
    WriteRows(buffer);
    bytes = buffer.GetFilled();
    buffer.Reset();
    int count = 0;
    buffer >> count;
    Row row{};
    KVTTIME sum = 0;
    for (int i = 0; i < count; ++i) {
      buffer >> row.Id >> row.Position >> row.Time >> row.Speed >> row.Name;
      sum += row.Time + row.Position + static_cast<KVTTIME>(row.Name.size());
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytes) * 2);
}
BENCHMARK(BM_TTBufferRows);

void BM_TTBufferRows_Baseline(benchmark::State& state) {
  CTTBuffer message(1024);
  WriteRows(message);
  const std::vector<BYTE> source(message.GetData(), message.GetData() + message.GetFilled());
  std::vector<BYTE> block(source.size());
  std::vector<BYTE> back(source.size());
  for (auto _ : state) {
    std::memcpy(block.data(), source.data(), source.size());
    benchmark::ClobberMemory();
    std::memcpy(back.data(), block.data(), block.size());
    benchmark::DoNotOptimize(back.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(source.size()) * 2);
}
BENCHMARK(BM_TTBufferRows_Baseline);

}  // namespace
