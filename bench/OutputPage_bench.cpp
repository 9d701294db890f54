// What the page build costs on top of the compression it cannot avoid, and the packet
// checksum against the cheapest pass over the same bytes.
#include <benchmark/benchmark.h>
#include <zlib.h>

#include <string>
#include <vector>

#include "distribution/OutputPage.h"
#include "distribution/PacketFormat.h"

namespace {

std::vector<BYTE> ResultText(std::size_t size) {
  std::vector<BYTE> out;
  out.reserve(size);
  int line = 0;
  while (out.size() < size) {
    ++line;
    const std::string row = "<tr><td>" + std::to_string(line) + "</td><td>Car " + std::to_string(line * 7 % 97) +
                            "</td><td>1:2" + std::to_string(line % 10) + "." + std::to_string(100 + line % 900) +
                            "</td><td>Rider " + std::to_string(line * 13 % 101) + "</td></tr>\n";
    out.insert(out.end(), row.begin(), row.end());
  }
  out.resize(size);
  return out;
}

void BM_BuildPackets(benchmark::State& state) {
  COutputPage page(1, 5, 1, 10, "results/", "live.zol");
  page.SetData(ResultText(static_cast<std::size_t>(state.range(0))));
  for (auto _ : state) {
    page.BuildPackets();
    benchmark::DoNotOptimize(page.GetPackets().data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_BuildPackets)->Arg(1024)->Arg(10240)->Arg(102400);

// The same page record through the same deflate call, and nothing else.
void BM_BuildPackets_Baseline(benchmark::State& state) {
  COutputPage page(1, 5, 1, 10, "results/", "live.zol");
  page.SetData(ResultText(static_cast<std::size_t>(state.range(0))));
  const std::vector<BYTE> record = page.MakePageRecord();
  std::vector<BYTE> out(2 * record.size() + 64);
  for (auto _ : state) {
    z_stream stream{};
    deflateInit2(&stream, -1, 8, 31, 8, 0);
    stream.next_in = const_cast<Bytef*>(record.data());
    stream.avail_in = static_cast<uInt>(record.size());
    stream.next_out = out.data();
    stream.avail_out = static_cast<uInt>(out.size());
    deflate(&stream, Z_FINISH);
    deflateEnd(&stream);
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_BuildPackets_Baseline)->Arg(1024)->Arg(10240)->Arg(102400);

void BM_Checksum(benchmark::State& state) {
  std::vector<BYTE> bytes(static_cast<std::size_t>(state.range(0)));
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<BYTE>(i * 31 + 5);
  for (auto _ : state) benchmark::DoNotOptimize(wire::PacketChecksum(bytes.data(), bytes.size()));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_Checksum)->Arg(128)->Arg(65536);

// A plain sum of the bytes: the cheapest pass that reads every byte once.
void BM_Checksum_Baseline(benchmark::State& state) {
  std::vector<BYTE> bytes(static_cast<std::size_t>(state.range(0)));
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<BYTE>(i * 31 + 5);
  for (auto _ : state) {
    unsigned sum = 0;
    for (BYTE b : bytes) {
      sum += b;
      benchmark::DoNotOptimize(sum);
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_Checksum_Baseline)->Arg(128)->Arg(65536);

}  // namespace
