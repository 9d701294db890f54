#include "bench/FanoutReaders.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <map>
#include <new>
#include <set>
#include <thread>
#include <unordered_map>

#include "client/PacketScanner.h"
#include "distribution/PacketFormat.h"
#include "frame/platform/OpenFileLimit.h"
#include "frame/platform/ReadinessPoll.h"
#include "frame/platform/Sockets.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMostRecordedReads = 1 << 17;
constexpr std::size_t kMostRecordedBytes = 16 << 20;

std::int64_t NowNanoseconds() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch()).count();
}

}  // namespace

// Counters and the first reader's recording, in memory that both processes share.
struct FanoutShared {
  std::atomic<long long> Received{0};
  std::atomic<std::size_t> Reached{0};
  std::atomic<bool> Connected{false};
  std::atomic<bool> Failed{false};
  std::atomic<bool> Stop{false};
  // Set with Stop.
  std::atomic<long long> EachShouldHave{-1};
  std::atomic<long long> SettleNanoseconds{0};
  // Set by the reader before it ends.
  std::atomic<bool> OutcomeReady{false};
  ReaderProcess::Outcome Result;

  std::atomic<bool> Recording{false};
  std::atomic<std::int64_t> RecordStart{0};
  std::atomic<std::size_t> RecordedReads{0};
  std::size_t RecordedBytes = 0;  // the reader's own
  struct Read {
    std::int64_t At;
    std::uint32_t Offset;
    std::uint32_t Length;
  };
  Read Reads[kMostRecordedReads];
  char Bytes[kMostRecordedBytes];
};

namespace {

// Which versions of each page one client completed: a version counts when its packets
// came from the first to the last without a gap.
class PageFollower {
 public:
  // When each page version was first completed by any client, in nanoseconds.
  using FirstSeen = std::unordered_map<std::uint64_t, std::int64_t>;

  void Feed(const char* data, std::size_t length, FirstSeen& firstSeen, std::size_t& badPackets) {
    const auto before = Scanner.Counters();
    Scanner.Feed(reinterpret_cast<const BYTE*>(data), length,
                 [&](const zolclient::ScannedPacket& packet) { Take(packet, firstSeen); });
    const auto& after = Scanner.Counters();
    badPackets += static_cast<std::size_t>((after.BadChecksum - before.BadChecksum) +
                                           (after.BadEndMark - before.BadEndMark) +
                                           (after.BadHeader - before.BadHeader));
  }

  // The version of each page that this client completed last.
  const std::unordered_map<DWORD, std::uint64_t>& LastComplete() const { return Last; }

 private:
  struct Collecting {
    std::uint64_t Version = 0;
    DWORD Next = 0;
    bool Active = false;
  };

  void Take(const zolclient::ScannedPacket& packet, FirstSeen& firstSeen) {
    const DWORD page = packet.PacketID & wire::kPageIdentityMask;
    const std::uint64_t version = (std::uint64_t{page} << 32) | (DWORD{packet.SequenceHigh} << 6) |
                                  wire::SequenceLowOf(packet.PacketID);
    const DWORD number = wire::PacketNumber(packet.PacketID);
    Collecting& collecting = Pages[page];
    if (number == 0) {
      collecting = Collecting{version, 0, true};
    } else if (!collecting.Active || collecting.Version != version || collecting.Next != number) {
      collecting.Active = false;
      return;
    }
    collecting.Next = (number + 1) & 0xFFF;
    if (!packet.IsLast) return;
    collecting.Active = false;
    Last[page] = version;
    firstSeen.emplace(version, NowNanoseconds());
  }

  zolclient::CPacketScanner Scanner;
  std::unordered_map<DWORD, Collecting> Pages;
  std::unordered_map<DWORD, std::uint64_t> Last;
};

// Clients lacking, of some page, its newest version completed before `settledBy`.
std::size_t CountBehind(const std::vector<PageFollower>& followers, const PageFollower::FirstSeen& firstSeen,
                        std::int64_t settledBy) {
  std::map<DWORD, std::int64_t> newestSettled;
  for (const auto& [version, at] : firstSeen) {
    if (at > settledBy) continue;
    const auto page = static_cast<DWORD>(version >> 32);
    auto& newest = newestSettled[page];
    newest = std::max(newest, at);
  }
  std::size_t behind = 0;
  for (const PageFollower& follower : followers) {
    const auto& last = follower.LastComplete();
    const bool lacking = std::any_of(newestSettled.begin(), newestSettled.end(), [&](const auto& entry) {
      const auto found = last.find(entry.first);
      return found == last.end() || firstSeen.at(found->second) < entry.second;
    });
    if (lacking) ++behind;
  }
  return behind;
}

}  // namespace

ReaderProcess::ReaderProcess(std::uint16_t port, std::size_t count, ReaderOptions options) {
  void* memory = mmap(nullptr, sizeof(FanoutShared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) return;
  Shared = new (memory) FanoutShared;
  Child = fork();
  if (Child == 0) _exit(Read(port, count, options));
}

ReaderProcess::~ReaderProcess() {
  Finish(-1);
  if (Shared != nullptr) munmap(Shared, sizeof(FanoutShared));
}

ReaderProcess::Outcome ReaderProcess::Finish(long long eachShouldHave, double settleSeconds) {
  if (Shared == nullptr || Child <= 0) return {};
  Shared->EachShouldHave.store(eachShouldHave);
  Shared->SettleNanoseconds.store(static_cast<long long>(settleSeconds * 1e9));
  Shared->Stop.store(true);
  waitpid(Child, nullptr, 0);
  Child = -1;
  return Shared->OutcomeReady.load() ? Shared->Result : Outcome{};
}

bool ReaderProcess::WaitConnected() {
  const auto deadline = Clock::now() + std::chrono::seconds(60);
  while (!Shared->Connected.load()) {
    if (Clock::now() > deadline || Shared->Failed.load()) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

bool ReaderProcess::WaitFor(long long bytes, std::size_t count, double seconds) {
  const auto deadline = Clock::now() + std::chrono::duration<double>(seconds);
  while (Shared->Received.load() < bytes || Shared->Reached.load() < count) {
    if (Clock::now() > deadline || Shared->Failed.load()) return false;
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
  return true;
}

long long ReaderProcess::Received() const { return Shared->Received.load(); }

void ReaderProcess::StartRecording() {
  Shared->RecordedReads.store(0);
  Shared->RecordStart.store(NowNanoseconds());
  Shared->Recording.store(true);
}

std::vector<RecordedRead> ReaderProcess::StopRecording() {
  Shared->Recording.store(false);
  // The reader may be storing one more read.
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  std::vector<RecordedRead> reads;
  const std::size_t count = std::min(Shared->RecordedReads.load(), kMostRecordedReads);
  for (std::size_t i = 0; i < count; ++i) {
    const auto& read = Shared->Reads[i];
    reads.push_back({read.At, std::vector<char>(Shared->Bytes + read.Offset, Shared->Bytes + read.Offset + read.Length)});
  }
  return reads;
}

int ReaderProcess::Read(std::uint16_t port, std::size_t count, ReaderOptions options) {
  platform::RaiseOpenFileLimit();
  std::vector<int> sockets(count, -1);
  for (int& socket : sockets) {
    // The server may not listen yet.
    for (int attempt = 0; attempt < 2000 && socket < 0; ++attempt) {
      socket = platform::TcpConnect("127.0.0.1", port);
      if (socket < 0) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    if (socket < 0) {
      Shared->Failed.store(true);
      return 1;
    }
  }
  platform::CReadinessPoll poll;
  for (std::size_t i = 0; i < sockets.size(); ++i) poll.AddReader(sockets[i], i + 1);
  Shared->Connected.store(true);
  std::vector<bool> firstByte(count, false);
  std::vector<long long> bytes(count, 0);
  std::vector<PageFollower> followers(options.FollowPages ? count : 0);
  PageFollower::FirstSeen firstSeen;
  std::size_t badPackets = 0;
  std::vector<platform::CReadinessPoll::Event> events;
  std::vector<char> buffer(65536);
  while (!Shared->Stop.load()) {
    if (!poll.Wait(20, events)) break;
    for (const auto& event : events) {
      if (event.Token == platform::CReadinessPoll::kWakeToken || !event.Readable) continue;
      const std::size_t index = static_cast<std::size_t>(event.Token - 1);
      const long got = platform::ReceiveSome(sockets[index], buffer.data(), buffer.size());
      if (got <= 0) continue;
      const auto length = static_cast<std::size_t>(got);
      Shared->Received.fetch_add(got);
      bytes[index] += got;
      if (!firstByte[index]) {
        firstByte[index] = true;
        Shared->Reached.fetch_add(1);
      }
      if (options.FollowPages) followers[index].Feed(buffer.data(), length, firstSeen, badPackets);
      const std::size_t reads = Shared->RecordedReads.load();
      if (index == 0 && options.RecordFirstReader && Shared->Recording.load() && reads < kMostRecordedReads &&
          Shared->RecordedBytes + length <= kMostRecordedBytes) {
        std::memcpy(Shared->Bytes + Shared->RecordedBytes, buffer.data(), length);
        Shared->Reads[reads] = {NowNanoseconds() - Shared->RecordStart.load(),
                                static_cast<std::uint32_t>(Shared->RecordedBytes), static_cast<std::uint32_t>(length)};
        Shared->RecordedBytes += length;
        Shared->RecordedReads.store(reads + 1);
      }
    }
  }
  Outcome outcome;
  const long long each = Shared->EachShouldHave.load();
  if (each >= 0) {
    outcome.Uneven = static_cast<std::size_t>(
        std::count_if(bytes.begin(), bytes.end(), [each](long long got) { return got != each; }));
  }
  if (options.FollowPages) {
    outcome.Behind = CountBehind(followers, firstSeen, NowNanoseconds() - Shared->SettleNanoseconds.load());
    outcome.Versions = firstSeen.size();
    std::set<DWORD> pages;
    for (const auto& entry : firstSeen) pages.insert(static_cast<DWORD>(entry.first >> 32));
    outcome.Pages = pages.size();
    outcome.BadPackets = badPackets;
  }
  Shared->Result = outcome;
  Shared->OutcomeReady.store(true);
  for (int socket : sockets) platform::CloseSocket(socket);
  return 0;
}

bool EnoughFiles(benchmark::State& state, std::size_t clients) {
  const std::uint64_t limit = platform::RaiseOpenFileLimit();
  if (limit >= clients + 256) return true;
  state.SkipWithError(("the open-files limit of " + std::to_string(limit) + " is too low for " +
                       std::to_string(clients) + " clients; raise it with ulimit -n")
                          .c_str());
  return false;
}

long long ResidentBytes(pid_t process) {
  const std::string path = process > 0 ? "/proc/" + std::to_string(process) + "/statm" : "/proc/self/statm";
  long long pages = 0;
  long long resident = 0;
  if (std::FILE* statm = std::fopen(path.c_str(), "r")) {
    if (std::fscanf(statm, "%lld %lld", &pages, &resident) != 2) resident = 0;
    std::fclose(statm);
  }
  return resident * sysconf(_SC_PAGESIZE);
}
