#include "client/ClientRun.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "client/ClientSession.h"
#include "client/ClientSources.h"
#include "client/MqttPublisher.h"
#include "client/MqttSource.h"
#include "client/Recording.h"
#include "client/ViewerServer.h"
#include "frame/KVTException.h"
#include "frame/platform/Paths.h"
#include "frame/platform/Time.h"

namespace zolclient {

namespace {

std::atomic<bool> StopRequested{false};
static_assert(std::atomic<bool>::is_always_lock_free);

// How long one read may wait, so that stop conditions are looked at often enough.
constexpr int kTurnMilliseconds = 100;

// --record: every read and every new connection of the source, with the time it came.
class CReadRecorder {
 public:
  CReadRecorder(CRecordingWriter* writer, std::ostream& err)
      : Writer(writer), Err(err), Start(platform::MonotonicMicroseconds()) {}
  void NewConnection() {
    if (Writer == nullptr) return;
    Writer->WriteNewConnection(Elapsed());
    TellFailure();
  }
  void Data(const BYTE* data, std::size_t length) {
    if (Writer == nullptr) return;
    Writer->WriteData(Elapsed(), data, length);
    TellFailure();
  }

 private:
  std::uint64_t Elapsed() const { return platform::MonotonicMicroseconds() - Start; }
  void TellFailure() {
    const std::string failure = Writer->TakeFailure();
    if (!failure.empty()) Err << "zolclient: " << failure << std::endl;
  }

  CRecordingWriter* Writer;
  std::ostream& Err;
  std::uint64_t Start;
};

// True when `record` names the file `replay` reads: recording would empty it first.
bool SameFile(const std::string& record, const std::string& replay) {
  std::string recordReal;
  std::string replayReal;
  return platform::RealPath(record, recordReal) && platform::RealPath(replay, replayReal) && recordReal == replayReal;
}

}  // namespace

void RequestClientStop() { StopRequested.store(true); }

int RunClient(const ClientOptions& options, std::ostream& out, std::ostream& err) {
  return Guarded("RunClient()", [&] {
    CPacketTrace trace(out);
    CClientSession session(options.PacketSize, options.OutputFolder, out, err, options.MaxBytes);
    if (options.Trace) session.SetTrace(&trace);
    std::string error;
    if (!session.Prepare(error)) {
      err << "zolclient: " << error << std::endl;
      return kExitFailed;
    }
    if (!options.RecordFile.empty() && options.Transport == TransportKind::Replay &&
        SameFile(options.RecordFile, options.ReplayFile)) {
      err << "zolclient: --record " << options.RecordFile << " is the recording being played" << std::endl;
      return kExitFailed;
    }
    CViewerPages viewerPages;
    CViewerServer viewer(viewerPages);
    if (options.ServePort != 0) {
      if (!viewer.Start(options.ServeAddress, options.ServePort, error)) {
        err << "zolclient: " << error << std::endl;
        return kExitFailed;
      }
      session.AddListener(&viewerPages);
      err << "zolclient: viewer at http://" << options.ServeAddress << ":" << viewer.Port() << "/" << std::endl;
    }
    const auto brokerSettings = [&](const MqttAddress& address, bool withClientId) {
      MqttSettings settings;
      settings.Address = address;
      if (withClientId) settings.ClientId = options.MqttClientId;
      settings.Username = options.MqttUsername;
      settings.PasswordFile = options.MqttPasswordFile;
      settings.CaFile = options.MqttCaFile;
      settings.Qos = options.MqttQos;
      return settings;
    };
    std::unique_ptr<CMqttPublisher> publisher;
    if (options.MqttPublish) {
      publisher = std::make_unique<CMqttPublisher>(brokerSettings(options.MqttPublishAddress, true),
                                                   session.SiteStates(), options.MaxBytes);
      if (!publisher->Start(error)) {
        err << "zolclient: " << error << std::endl;
        return kExitFailed;
      }
      session.AddListener(publisher.get());
    }
    const auto tellPublisherNews = [&] {
      if (!publisher) return;
      for (const std::string& line : publisher->TakeNews()) err << line << std::endl;
    };
    // A broker source gives whole pages, not bytes.
    std::unique_ptr<CMqttPageSource> pageSource;
    std::unique_ptr<CByteSource> source;
    if (options.Transport == TransportKind::Mqtt) {
      pageSource = std::make_unique<CMqttPageSource>(brokerSettings(options.MqttSource, !options.MqttPublish),
                                                     options.MaxBytes);
      if (!pageSource->Start(error)) {
        err << "zolclient: " << error << std::endl;
        return kExitFailed;
      }
    } else {
      source = OpenByteSource(options, err, error);
      if (!source) {
        err << "zolclient: " << error << std::endl;
        return kExitFailed;
      }
    }
    std::unique_ptr<CRecordingWriter> writer;
    if (!options.RecordFile.empty()) {
      writer = std::make_unique<CRecordingWriter>();
      if (!source || !writer->Open(options.RecordFile, source->IsDatagram(), error)) {
        err << "zolclient: " << error << std::endl;
        return kExitFailed;
      }
    }
    CReadRecorder recorder(writer.get(), err);
    const std::uint64_t start = platform::MonotonicMilliseconds();
    const std::uint64_t limit = static_cast<std::uint64_t>(options.TimeoutSeconds * 1000.0);
    // A datagram larger than a packet must still be seen whole to be counted as wrong.
    std::vector<BYTE> buffer(source && source->IsDatagram() ? 65536 : 16384);
    unsigned connections = source ? source->Connections() : 0;
    int status = kExitDone;
    // Tells what the goal of --until-complete still lacks; false when there is no such goal.
    const auto tellShortfall = [&](const char* when) {
      if (options.UntilComplete > 0) {
        err << "zolclient: " << session.DistinctCompletePages() << " of " << options.UntilComplete
            << " pages complete " << when << std::endl;
      }
      if (options.UntilSitesComplete) {
        for (const std::string& shortfall : session.SiteStates().Shortfalls()) {
          err << "zolclient: " << shortfall << " " << when << std::endl;
        }
      }
      return options.UntilComplete > 0 || options.UntilSitesComplete;
    };
    while (!StopRequested.load()) {
      if (options.UntilComplete > 0 && session.DistinctCompletePages() >= options.UntilComplete) break;
      if (options.UntilSitesComplete && session.AllSitesComplete()) break;
      // A recording played to its end ends the run as a stop request does, unless its
      // pages are being shown: then they stay until the run is stopped or times out.
      tellPublisherNews();
      const bool finished = source && source->Finished();
      if (finished && options.ServePort == 0) {
        if (tellShortfall("when the recording ended")) status = kExitFailed;
        break;
      }
      int wait = kTurnMilliseconds;
      if (limit > 0) {
        const std::uint64_t elapsed = platform::MonotonicMilliseconds() - start;
        if (elapsed >= limit) {
          if (tellShortfall("when the time ran out")) status = kExitFailed;
          break;
        }
        wait = static_cast<int>(std::min<std::uint64_t>(limit - elapsed, kTurnMilliseconds));
        wait = std::max(wait, 1);
      }
      if (finished) {
        platform::SleepMilliseconds(wait);
        continue;
      }
      if (pageSource) {
        pageSource->Deliver(session, err, wait);
        continue;
      }
      const long got = source->Read(buffer.data(), buffer.size(), wait);
      if (source->Connections() != connections) {
        connections = source->Connections();
        session.OnNewConnection();
        recorder.NewConnection();
      }
      if (got <= 0) continue;
      recorder.Data(buffer.data(), static_cast<std::size_t>(got));
      if (source->IsDatagram()) {
        session.OnDatagram(buffer.data(), static_cast<std::size_t>(got));
      } else {
        session.OnStreamBytes(buffer.data(), static_cast<std::size_t>(got));
      }
    }
    tellPublisherNews();
    if (options.Stats) {
      out << session.StatsText();
      if (publisher) {
        const MqttPublishCounters c = publisher->Counters();
        out << "broker: pages published " << c.Pages << ", repeats passed over " << c.Repeats << ", topics cleared "
            << c.Clears << ", clocks published " << c.Clocks << ", published again after a reconnection "
            << c.Republished << ", not publishable " << c.Refused << "\n";
      }
      out << std::flush;
    }
    return status;
  });
}

}  // namespace zolclient
