// zoldatamanager: the data manager stand-in in a process of its own. It connects to the
// data manager link of a zolhost, plays the race of a JSON file and speaks to the module
// in frames: each frame it receives is answered as the stand-in answers the message, and
// at the stand-in's clock it sends what the race brings. Both sides send a keep-alive
// frame when they have sent nothing else for 2 s, and a zolhost silent for 10 s is lost.
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
constexpr int kKeepAliveIntervalMilliseconds = 2000;
constexpr int kSilenceTimeoutMilliseconds = 10000;
// Short, so that a signal during an attempt still ends the program at once.
constexpr int kConnectTimeoutMilliseconds = 1000;
constexpr int kReconnectPauseMilliseconds = 1000;

// Exit statuses.
constexpr int kExitLinkFailed = 1;  // cannot connect, or zolhost sent a bad frame
constexpr int kExitRefused = 3;     // zolhost turned this data manager away
constexpr int kExitLost = 4;        // zolhost closed the link, fell silent or took no data

struct Options {
  std::string Address;
  std::uint16_t Port = 0;
  std::string RaceFile;
  RacePlayOptions Race;
  std::string CodePage = "CP1252";
  bool Verbose = false;
  bool Help = false;
  bool Reconnect = false;
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
         "  --code-page NAME     code page the race file's text is sent in; give zolhost's\n"
         "                       --code-page (default CP1252; UTF-8 keeps every character)\n"
         "  --reconnect          when the link cannot be made, is refused or is lost, try\n"
         "                       again every second instead of exiting\n"
         "  --verbose            one line per frame in and out, with ID and payload size\n"
         "  --help               show this text\n"
         "\n"
         "Exit status (with --reconnect only 0 and 2):\n"
         "  0  after SIGINT or SIGTERM\n"
         "  1  the link cannot be made, or zolhost sent a bad frame\n"
         "  2  bad arguments, or a race file that cannot be read\n"
         "  3  zolhost refused the link: another data manager holds it\n"
         "  4  zolhost was lost: it closed the link, sent nothing for 10 s or took no data\n"
         "     for 5 s\n";
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
    } else if (argument == "--reconnect") {
      options.Reconnect = true;
    } else if (argument == "--connect") {
      if (!value()) return false;
      if (!ParseAddressAndPort(text, options.Address, options.Port)) {
        error = "bad --connect '" + text + "': expected ADDR:PORT, an IPv4 address and a port from 1 to 65535";
        return false;
      }
    } else if (argument == "--race") {
      if (!value()) return false;
      options.RaceFile = text;
    } else if (argument == "--code-page") {
      if (!value()) return false;
      if (text.empty()) {
        error = "bad --code-page '': expected a code page name such as CP1252 or UTF-8";
        return false;
      }
      options.CodePage = text;
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

using Clock = std::chrono::steady_clock;

// How a link ended: the line that says why and the exit status it gives.
struct LinkEnd {
  std::string Line;
  int Status = kExitLinkFailed;
};

// The conversations with zolhost, one link after the other, on a thread of their own.
// Ends the main thread's wait by a termination signal when the program is to exit.
class CConversation {
 public:
  CConversation(const Options& options, CDataManagerPeer& peer) : Settings(options), Peer(peer) {}

  void Run() {
    const std::string where = Settings.Address + ":" + std::to_string(Settings.Port);
    std::string lastLine;
    while (!Stopping) {
      LinkEnd end;
      const int socket = platform::TcpConnectWithin(Settings.Address, Settings.Port, kConnectTimeoutMilliseconds);
      if (socket < 0) {
        end = {"cannot connect to zolhost at " + where, kExitLinkFailed};
      } else {
        Say("connected to " + where + ", plays " + Settings.RaceFile);
        lastLine.clear();
        end = Converse(socket);
        // The orderly close: zolhost reads the end of the stream after the last frame.
        platform::ShutdownDrainClose(socket);
        ForgetTheModule();
      }
      if (Stopping) return;
      if (!Settings.Reconnect) {
        Say(end.Line);
        ExitStatus = end.Status;
        EndedByLink = true;
        platform::RaiseTermination();
        return;
      }
      // One line per change, not one per attempt while zolhost stays away.
      if (end.Line != lastLine) Say(end.Line + "; trying again every second");
      lastLine = end.Line;
      Pause(kReconnectPauseMilliseconds);
    }
  }

  void Stop() { Stopping = true; }
  // The exit status once the conversation ended by itself.
  int Status() const { return ExitStatus.load(); }
  bool Ended() const { return EndedByLink.load(); }

 private:
  LinkEnd Converse(int socket) {
    const auto interval = std::chrono::milliseconds(Peer.PeerTimerInterval());
    auto nextClock = Clock::now() + interval;
    auto lastHeard = Clock::now();
    linkframe::CFrameDecoder decoder;
    std::vector<BYTE> chunk(64 * 1024);
    LinkEnd end;
    // The first frame at once: zolhost lets a connection go that sends none within 5 s.
    if (!Send(socket, linkframe::KeepAliveFrame(), "keep-alive", end)) return end;
    while (!Stopping) {
      const auto untilClock = std::chrono::duration_cast<std::chrono::microseconds>(nextClock - Clock::now()).count();
      const long wait = untilClock < 0 ? 0 : (untilClock > 100000 ? 100000 : static_cast<long>(untilClock));
      if (platform::WaitReadable(socket, wait)) {
        const long got = platform::ReceiveSome(socket, chunk.data(), chunk.size());
        if (got == 0) {
          return {decoder.InsideFrame() ? "zolhost closed the link inside a frame" : "zolhost closed the link", kExitLost};
        }
        if (got < 0) return {"the link to zolhost broke", kExitLost};
        lastHeard = Clock::now();
        decoder.Feed(chunk.data(), static_cast<std::size_t>(got));
        linkframe::Frame frame;
        while (true) {
          const auto result = decoder.Next(frame);
          if (result == linkframe::CFrameDecoder::Result::NeedMore) break;
          if (result == linkframe::CFrameDecoder::Result::Error) {
            return {"zolhost sent a bad frame: " + decoder.Error(), kExitLinkFailed};
          }
          if (Settings.Verbose) {
            Say("frame in: id " + Hex(frame.ID) + ", " + std::to_string(frame.Payload.size()) + " bytes");
          }
          if (frame.ID == linkframe::kRefusedID) {
            return {"zolhost refused the link: another data manager is connected to it", kExitRefused};
          }
          if (frame.ID == linkframe::kKeepAliveID) continue;
          std::unique_ptr<CModuleMessage> message(linkframe::ToMessage(frame));
          if (!SendAll(socket, Peer.Receive(*message), end)) return end;
        }
      }
      if (Clock::now() - lastHeard >= std::chrono::milliseconds(kSilenceTimeoutMilliseconds)) {
        return {"zolhost lost: nothing came for " + std::to_string(kSilenceTimeoutMilliseconds / 1000) + " s", kExitLost};
      }
      if (Clock::now() >= nextClock) {
        nextClock += interval;
        if (nextClock < Clock::now()) nextClock = Clock::now() + interval;
        if (!SendAll(socket, Peer.OnPeerTimer(), end)) return end;
      }
      if (Clock::now() - LastSent >= std::chrono::milliseconds(kKeepAliveIntervalMilliseconds) &&
          !Send(socket, linkframe::KeepAliveFrame(), "keep-alive", end)) {
        return end;
      }
    }
    return end;
  }

  // Sends each message as a frame and frees it; false once the link broke, with `end` set.
  bool SendAll(int socket, std::vector<CModuleMessage*> messages, LinkEnd& end) {
    bool ok = true;
    for (CModuleMessage* raw : messages) {
      std::unique_ptr<CModuleMessage> message(raw);
      if (ok) ok = Send(socket, linkframe::Encode(*message), "message", end);
    }
    return ok;
  }

  bool Send(int socket, const std::vector<BYTE>& frame, const char* what, LinkEnd& end) {
    if (Settings.Verbose) {
      const unsigned id = static_cast<unsigned>(frame[4]) | static_cast<unsigned>(frame[5]) << 8;
      Say("frame out: id " + Hex(id) + ", " + std::to_string(frame.size() - linkframe::kHeaderBytes) + " bytes (" +
          what + ")");
    }
    const auto result = platform::SendAllWithin(socket, frame.data(), frame.size(), kWriteTimeoutMilliseconds);
    if (result == platform::SendAllResult::Sent) {
      LastSent = Clock::now();
      return true;
    }
    // A write fails when zolhost has closed the link (or reset it while closing): the
    // same end as when the read side sees it.
    end = result == platform::SendAllResult::TimedOut
              ? LinkEnd{"zolhost took no data for " + std::to_string(kWriteTimeoutMilliseconds / 1000) + " s; link closed",
                        kExitLost}
              : LinkEnd{"zolhost closed the link (a write failed)", kExitLost};
    return false;
  }

  // After a link ends the stand-in is as after the module's disconnect: it sends nothing
  // until the next zolhost asks it to connect.
  void ForgetTheModule() {
    CModuleMessage disconnect(1, kDataManagerClass, 0, 0);
    for (CModuleMessage* reply : Peer.Receive(disconnect)) delete reply;
  }

  // Waits before the next attempt; the race clock goes on meanwhile and a stop ends it.
  void Pause(int milliseconds) {
    const auto until = Clock::now() + std::chrono::milliseconds(milliseconds);
    while (!Stopping && Clock::now() < until) {
      std::this_thread::sleep_for(std::chrono::milliseconds(Peer.PeerTimerInterval()));
      for (CModuleMessage* message : Peer.OnPeerTimer()) delete message;
    }
  }

  const Options& Settings;
  CDataManagerPeer& Peer;
  Clock::time_point LastSent = Clock::now();
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
  peer.GetStandIn().SetCodePage(options.CodePage);
  if (!peer.LoadRace(options.RaceFile, error)) {
    Say(error);
    return 2;
  }
  // With --verbose only: a refused or failed start stays one line.
  if (const std::size_t lost = peer.GetStandIn().NamesLosingCharacters(); lost > 0 && options.Verbose) {
    Say(std::to_string(lost) + (lost == 1 ? " name" : " names") + " of the race file lost characters that code page " +
        options.CodePage + " cannot hold (shown as \"?\"); --code-page UTF-8 keeps them");
  }
  CConversation conversation(options, peer);
  std::thread worker([&] { conversation.Run(); });
  const int signal = platform::WaitForTerminationSignal();
  conversation.Stop();
  worker.join();
  if (conversation.Ended()) return conversation.Status();
  Say("signal " + std::to_string(signal) + ", stopping");
  return 0;
}
