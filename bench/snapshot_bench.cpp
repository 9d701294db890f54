// Decoding a snapshot of 2,000 competitors over 10 runs, and batches of passings, each
// against a plain read of the same bytes.
#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <vector>

#include "data/DataEncoder.h"
#include "data/DataTestSupport.h"

namespace {

std::unique_ptr<CModuleMessage> SnapshotMessage() {
  CSampleMaker maker(7);
  auto model = MakeModel(maker, 1, 2, 10, 2, 200);
  return std::unique_ptr<CModuleMessage>(DataEncoder::Snapshot(*model));
}

// Reads the bytes as plainly as possible: eight at a time into a running sum.
std::uint64_t PlainRead(const BYTE* data, DWORD size) {
  std::uint64_t sum = 0;
  DWORD at = 0;
  for (; at + 8 <= size; at += 8) {
    std::uint64_t word;
    std::memcpy(&word, data + at, 8);
    sum += word;
  }
  for (; at < size; ++at) sum += data[at];
  return sum;
}

void BM_SnapshotDecode(benchmark::State& state) {
  auto message = SnapshotMessage();
  for (auto _ : state) {
    CLiveLink link;
    message->Reset();
    link.comm.ProcessMessage(message.get());
    benchmark::DoNotOptimize(link.Store().Runs.size());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * message->GetFilled());
}
BENCHMARK(BM_SnapshotDecode)->Unit(benchmark::kMillisecond);

void BM_SnapshotDecode_Baseline(benchmark::State& state) {
  auto message = SnapshotMessage();
  for (auto _ : state) {
    // The baseline also brings a link up, so that only the decoding differs.
    CLiveLink link;
    benchmark::DoNotOptimize(PlainRead(message->GetData(), message->GetFilled()));
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * message->GetFilled());
}
BENCHMARK(BM_SnapshotDecode_Baseline)->Unit(benchmark::kMillisecond);

// A live run whose passing list takes batches of `count` passings, each batch under new IDs.
struct CPassingBench {
  explicit CPassingBench(int count) {
    CBaseDataComm model;
    auto* run = new CRun(nullptr);
    run->UniqueID = 0x40000001;
    run->Flags = kRunLocal | kRunHasPassings;
    model.Runs[run->UniqueID] = run;
    link.Apply(DataEncoder::Snapshot(model));
    run->Flags = kRunLocal;
    link.Apply(DataEncoder::ModifyRun(*run));
    CSampleMaker maker(9);
    std::vector<std::unique_ptr<CBasePassing>> passings;
    std::vector<const CBasePassing*> batch;
    for (int i = 0; i < count; ++i) {
      passings.push_back(std::make_unique<CBasePassing>(static_cast<DWORD>(i)));
      maker.Fill(*passings.back());
      batch.push_back(passings.back().get());
    }
    message.reset(DataEncoder::AddPassings(0x40000001, batch));
  }
  CLiveLink link;
  std::unique_ptr<CModuleMessage> message;
};

// Each iteration adds the batch to the run and then clears the list again, so that the
// same IDs do not pile up as overwritten passings; the clearing is part of the time.
void BM_PassingBatch(benchmark::State& state) {
  CPassingBench bench(static_cast<int>(state.range(0)));
  CPassingList& list = *bench.link.Store().FindRun(0x40000001)->Passings;
  for (auto _ : state) {
    bench.message->Reset();
    bench.link.comm.ProcessMessage(bench.message.get());
    list.Clear();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_PassingBatch)->Arg(10)->Arg(1000);

void BM_PassingBatch_Baseline(benchmark::State& state) {
  CPassingBench bench(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    benchmark::DoNotOptimize(PlainRead(bench.message->GetData(), bench.message->GetFilled()));
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_PassingBatch_Baseline)->Arg(10)->Arg(1000);

}  // namespace
