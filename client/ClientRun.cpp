#include "client/ClientRun.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "client/ClientSession.h"
#include "client/ClientSources.h"
#include "frame/KVTException.h"
#include "frame/platform/Time.h"

namespace zolclient {

namespace {

std::atomic<bool> StopRequested{false};
static_assert(std::atomic<bool>::is_always_lock_free);

// How long one read may wait, so that stop conditions are looked at often enough.
constexpr int kTurnMilliseconds = 100;

}  // namespace

void RequestClientStop() { StopRequested.store(true); }

int RunClient(const ClientOptions& options, std::ostream& out, std::ostream& err) {
  return Guarded("RunClient()", [&] {
    CClientSession session(options.PacketSize, options.OutputFolder, out, err, options.MaxBytes);
    std::string error;
    if (!session.Prepare(error)) {
      err << "zolclient: " << error << std::endl;
      return kExitFailed;
    }
    std::unique_ptr<CByteSource> source = OpenByteSource(options, err, error);
    if (!source) {
      err << "zolclient: " << error << std::endl;
      return kExitFailed;
    }
    const std::uint64_t start = platform::MonotonicMilliseconds();
    const std::uint64_t limit = static_cast<std::uint64_t>(options.TimeoutSeconds * 1000.0);
    // A datagram larger than a packet must still be seen whole to be counted as wrong.
    std::vector<BYTE> buffer(source->IsDatagram() ? 65536 : 16384);
    unsigned connections = source->Connections();
    int status = kExitDone;
    while (!StopRequested.load()) {
      if (options.UntilComplete > 0 && session.DistinctCompletePages() >= options.UntilComplete) break;
      if (options.UntilSitesComplete && session.AllSitesComplete()) break;
      int wait = kTurnMilliseconds;
      if (limit > 0) {
        const std::uint64_t elapsed = platform::MonotonicMilliseconds() - start;
        if (elapsed >= limit) {
          if (options.UntilComplete > 0) {
            err << "zolclient: " << session.DistinctCompletePages() << " of " << options.UntilComplete
                << " pages complete when the time ran out" << std::endl;
            status = kExitFailed;
          }
          if (options.UntilSitesComplete) {
            for (const std::string& shortfall : session.SiteStates().Shortfalls()) {
              err << "zolclient: " << shortfall << " when the time ran out" << std::endl;
            }
            status = kExitFailed;
          }
          break;
        }
        wait = static_cast<int>(std::min<std::uint64_t>(limit - elapsed, kTurnMilliseconds));
        wait = std::max(wait, 1);
      }
      const long got = source->Read(buffer.data(), buffer.size(), wait);
      if (source->Connections() != connections) {
        connections = source->Connections();
        session.OnNewConnection();
      }
      if (got <= 0) continue;
      if (source->IsDatagram()) {
        session.OnDatagram(buffer.data(), static_cast<std::size_t>(got));
      } else {
        session.OnStreamBytes(buffer.data(), static_cast<std::size_t>(got));
      }
    }
    if (options.Stats) out << session.StatsText() << std::flush;
    return status;
  });
}

}  // namespace zolclient
