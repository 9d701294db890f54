// zoldatamanager: the data manager stand-in in a process of its own. It connects to the
// data manager link of a zolhost, plays the race of a JSON file and speaks to the module
// in frames: each frame it receives is answered as the stand-in answers the message, and
// at the stand-in's clock it sends what the race brings.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "frame/platform/Interfaces.h"
#include "frame/platform/Signals.h"
#include "frame/platform/Sockets.h"
#include "host/DataManagerPeer.h"
#include "host/HostOptions.h"
#include "host/LinkFrame.h"

namespace {

constexpr int kWriteTimeoutMilliseconds = 5000;

struct Options {
  std::string Address;
  std::uint16_t Port = 0;
  std::string RaceFile;
  RacePlayOptions Race;
  bool Verbose = false;
  bool Help = false;
};

std::string Usage() {
  return "Usage: zoldatamanager --connect ADDR:PORT --race FILE [options]\n"
         "A data manager stand-in in a process of its own: connects to the data manager link\n"
         "of a zolhost (zolhost --data-manager-port PORT), plays the race described in FILE and\n"
         "answers the module's requests, until SIGINT or SIGTERM or until zolhost closes the link.\n"
         "\n"
         "Options:\n"
         "  --connect ADDR:PORT  the link of zolhost: an IPv4 address and a port (required)\n"
         "  --race FILE          the race to play (JSON, see examples/race.json; required)\n"
         "  --race-speed X       the race clock runs X times faster than real time\n"
         "                       (a number above 0; default 1)\n"
         "  --seed N             seeds the race: the same seed and file play the same meeting\n"
         "                       (0 to 4294967295; default 1)\n"
         "  --race-loop          start the meeting again after its last run\n"
         "  --verbose            one line per frame in and out, with ID and payload size\n"
         "  --help               show this text\n"
         "\n"
         "Exit status: 0 after a signal or when zolhost closes the link, 1 when the link\n"
         "cannot be made, zolhost sends a bad frame or takes no data for 5 s, 2 for bad\n"
         "arguments or a race file that cannot be read.\n";
}

bool Parse(const std::vector<std::string>& arguments, Options& options, std::string& error) {
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    std::string text;
    auto value = [&]() {
      if (i + 1 >= arguments.size()) {
        error = "option " + argument + " needs a value";
        return false;
      }
      text = arguments[++i];
      return true;
    };
    if (argument == "--help" || argument == "-h") {
      options.Help = true;
    } else if (argument == "--verbose" || argument == "-v") {
      options.Verbose = true;
    } else if (argument == "--race-loop") {
      options.Race.Loop = true;
    } else if (argument == "--connect") {
      if (!value()) return false;
      if (!ParseAddressAndPort(text, options.Address, options.Port)) {
        error = "bad --connect '" + text + "': expected ADDR:PORT, an IPv4 address and a port from 1 to 65535";
        return false;
      }
    } else if (argument == "--race") {
      if (!value()) return false;
      options.RaceFile = text;
    } else if (argument == "--race-speed") {
      if (!value()) return false;
      if (!ParseRaceSpeed(text, options.Race.Speed)) {
        error = "bad --race-speed '" + text + "': expected a number above 0";
        return false;
      }
    } else if (argument == "--seed") {
      if (!value()) return false;
      if (!ParseSeed(text, options.Race.Seed)) {
        error = "bad --seed '" + text + "': expected a whole number from 0 to 4294967295";
        return false;
      }
    } else {
      error = "unknown option '" + argument + "' (see --help)";
      return false;
    }
  }
  if (options.Help) return true;
  if (options.Port == 0) {
    error = "--connect ADDR:PORT is required (see --help)";
    return false;
  }
  if (options.RaceFile.empty()) {
    error = "--race FILE is required (see --help)";
    return false;
  }
  return true;
}

void Say(const std::string& line) { std::fprintf(stderr, "zoldatamanager: %s\n", line.c_str()); }

std::string Hex(unsigned value) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%04X", value);
  return text;
}

// The conversation with zolhost, on a thread of its own; ends the main thread's wait by a
// termination signal when the link ends.
class CConversation {
 public:
  CConversation(int socket, CDataManagerPeer& peer, bool verbose) : Socket(socket), Peer(peer), Verbose(verbose) {}

  void Run() {
    using Clock = std::chrono::steady_clock;
    const auto interval = std::chrono::milliseconds(Peer.PeerTimerInterval());
    auto nextClock = Clock::now() + interval;
    std::vector<BYTE> chunk(64 * 1024);
    while (!Stopping) {
      const auto untilClock = std::chrono::duration_cast<std::chrono::microseconds>(nextClock - Clock::now()).count();
      const long wait = untilClock < 0 ? 0 : (untilClock > 100000 ? 100000 : static_cast<long>(untilClock));
      if (platform::WaitReadable(Socket, wait)) {
        const long got = platform::ReceiveSome(Socket, chunk.data(), chunk.size());
        if (got == 0) {
          End(Decoder.InsideFrame() ? "zolhost closed the link inside a frame" : "zolhost closed the link", 0);
          return;
        }
        if (got < 0) {
          End("reading from zolhost failed", 1);
          return;
        }
        Decoder.Feed(chunk.data(), static_cast<std::size_t>(got));
        linkframe::Frame frame;
        while (true) {
          const auto result = Decoder.Next(frame);
          if (result == linkframe::CFrameDecoder::Result::NeedMore) break;
          if (result == linkframe::CFrameDecoder::Result::Error) {
            End("zolhost sent a bad frame: " + Decoder.Error(), 1);
            return;
          }
          if (Verbose) Say("frame in: id " + Hex(frame.ID) + ", " + std::to_string(frame.Payload.size()) + " bytes");
          std::unique_ptr<CModuleMessage> message(linkframe::ToMessage(frame));
          if (!SendAll(Peer.Receive(*message))) return;
        }
      }
      if (Clock::now() >= nextClock) {
        nextClock += interval;
        if (nextClock < Clock::now()) nextClock = Clock::now() + interval;
        if (!SendAll(Peer.OnPeerTimer())) return;
      }
    }
  }

  void Stop() { Stopping = true; }
  // The exit status once the conversation ended by itself.
  int Status() const { return ExitStatus.load(); }
  bool Ended() const { return EndedByLink.load(); }

 private:
  // Sends each message as a frame and frees it; false once the link broke.
  bool SendAll(std::vector<CModuleMessage*> messages) {
    bool ok = true;
    for (CModuleMessage* raw : messages) {
      std::unique_ptr<CModuleMessage> message(raw);
      if (!ok) continue;
      const std::vector<BYTE> frame = linkframe::Encode(*message);
      if (Verbose) Say("frame out: id " + Hex(message->ID) + ", " + std::to_string(message->GetFilled()) + " bytes");
      const auto result = platform::SendAllWithin(Socket, frame.data(), frame.size(), kWriteTimeoutMilliseconds);
      if (result != platform::SendAllResult::Sent) {
        // A write fails when zolhost has closed the link (or reset it while closing):
        // the same end as when the read side sees it.
        if (result == platform::SendAllResult::TimedOut) {
          End("zolhost took no data for 5 s; link closed", 1);
        } else {
          End("zolhost closed the link (a write failed)", 0);
        }
        ok = false;
      }
    }
    return ok;
  }

  void End(const std::string& line, int status) {
    Say(line);
    ExitStatus = status;
    EndedByLink = true;
    platform::RaiseTermination();
  }

  int Socket;
  CDataManagerPeer& Peer;
  bool Verbose;
  linkframe::CFrameDecoder Decoder;
  std::atomic<bool> Stopping{false};
  std::atomic<bool> EndedByLink{false};
  std::atomic<int> ExitStatus{0};
};

}  // namespace

int main(int argc, char** argv) {
  platform::BlockTerminationSignals();
  Options options;
  std::string error;
  if (!Parse(std::vector<std::string>(argv + 1, argv + argc), options, error)) {
    Say(error);
    return 2;
  }
  if (options.Help) {
    std::fputs(Usage().c_str(), stdout);
    return 0;
  }
  CDataManagerPeer peer(platform::LocalIPv4Address(), options.Race);
  if (!peer.LoadRace(options.RaceFile, error)) {
    Say(error);
    return 2;
  }
  const std::string where = options.Address + ":" + std::to_string(options.Port);
  const int socket = platform::TcpConnect(options.Address, options.Port);
  if (socket < 0) {
    Say("cannot connect to zolhost at " + where);
    return 1;
  }
  Say("connected to " + where + ", plays " + options.RaceFile);

  CConversation conversation(socket, peer, options.Verbose);
  std::thread worker([&] { conversation.Run(); });
  const int signal = platform::WaitForTerminationSignal();
  conversation.Stop();
  worker.join();
  // The orderly close: zolhost reads the end of the stream after the last frame.
  platform::ShutdownDrainClose(socket);
  if (conversation.Ended()) return conversation.Status();
  Say("signal " + std::to_string(signal) + ", stopping");
  return 0;
}
