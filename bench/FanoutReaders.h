// Thousands of loopback TCP readers for the fan-out benchmarks, in a process of their
// own: forked before a benchmark starts any thread, so that each side holds one socket
// per client and the readers' work does not count as the server's. One thread on the
// system's poll reads every socket, counts the bytes and notes when each had its first.
#pragma once

#include <benchmark/benchmark.h>

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

struct FanoutShared;

// What the readers do besides counting bytes.
struct ReaderOptions {
  // Check the packets of every reader and follow which page versions each completes.
  bool FollowPages = false;
  // Keep what the first reader receives, with the time of each read, while recording.
  bool RecordFirstReader = false;
};

// One read of the first reader: when it came (nanoseconds from the start of recording)
// and what it brought.
struct RecordedRead {
  std::int64_t AtNanoseconds = 0;
  std::vector<char> Bytes;
};

class ReaderProcess {
 public:
  ReaderProcess(std::uint16_t port, std::size_t count, ReaderOptions options = {});
  ~ReaderProcess();
  ReaderProcess(const ReaderProcess&) = delete;
  ReaderProcess& operator=(const ReaderProcess&) = delete;

  bool Started() const { return Shared != nullptr && Child > 0; }
  // Waits until every socket is connected; false after 60 s.
  bool WaitConnected();
  // Waits until `bytes` in all have come and every socket had a byte; false after
  // `seconds`.
  bool WaitFor(long long bytes, std::size_t count, double seconds = 60);
  long long Received() const;

  void StartRecording();
  std::vector<RecordedRead> StopRecording();

  struct Outcome {
    // Clients that had another number of bytes than asked for.
    std::size_t Uneven = 0;
    // With FollowPages: clients that lack, of some page, the newest version that any
    // client completed more than `settleSeconds` before the end, and anything newer.
    std::size_t Behind = 0;
    // Distinct pages and page versions that the clients completed.
    std::size_t Pages = 0;
    std::size_t Versions = 0;
    // Packets that failed their checks.
    std::size_t BadPackets = 0;
  };
  // Ends the reading process. `eachShouldHave` below 0 asks for no byte check.
  Outcome Finish(long long eachShouldHave, double settleSeconds = 0);

 private:
  int Read(std::uint16_t port, std::size_t count, ReaderOptions options);

  FanoutShared* Shared = nullptr;
  pid_t Child = -1;
};

// Raises the open-files limit of the process; false, with the benchmark skipped and told
// why, when it stays too low for a socket per client and some to spare.
bool EnoughFiles(benchmark::State& state, std::size_t clients);

// Resident memory of the process in bytes.
long long ResidentBytes(pid_t process = 0);
