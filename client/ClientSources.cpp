#include "client/ClientSources.h"

#include <algorithm>
#include <cstdint>
#include <sstream>
#include <utility>
#include <vector>

#include "client/Recording.h"
#include "frame/KVTException.h"
#include "frame/platform/NetworkNames.h"
#include "frame/platform/SerialLine.h"
#include "frame/platform/Sockets.h"
#include "frame/platform/Time.h"

namespace zolclient {

namespace {

std::string SecondsText(double seconds) {
  std::ostringstream text;
  text << seconds << " s";
  return text.str();
}

// Sleeps until `until` (monotonic milliseconds) or for `timeout`, whichever is shorter.
void WaitUntil(std::uint64_t until, int timeoutMilliseconds) {
  const std::uint64_t now = platform::MonotonicMilliseconds();
  if (until <= now) return;
  const std::uint64_t wait = std::min<std::uint64_t>(until - now, static_cast<std::uint64_t>(timeoutMilliseconds));
  platform::SleepMilliseconds(static_cast<unsigned>(wait));
}

class CTcpSource : public CByteSource {
 public:
  CTcpSource(const ClientOptions& options, std::ostream& err)
      : Host(options.Host), Port(options.Port), Pause(options.ReconnectPauseSeconds), Err(err) {}
  ~CTcpSource() override { platform::CloseSocket(Socket); }

  long Read(BYTE* buffer, std::size_t size, int timeoutMilliseconds) override {
    return Guarded("CTcpSource::Read()", [&]() -> long {
      if (Socket == platform::kNoSocket) {
        if (platform::MonotonicMilliseconds() < NextAttempt) {
          WaitUntil(NextAttempt, timeoutMilliseconds);
          return 0;
        }
        if (!Connect()) return 0;
      }
      if (!platform::WaitReadable(Socket, static_cast<long>(timeoutMilliseconds) * 1000)) return 0;
      const long got = platform::ReceiveSome(Socket, buffer, size);
      if (got > 0) return got;
      platform::CloseSocket(Socket);
      Socket = platform::kNoSocket;
      Err << "zolclient: connection to " << Host << ":" << Port << " lost; reconnecting in "
          << SecondsText(Pause) << std::endl;
      PlanNextAttempt();
      return 0;
    });
  }
  bool IsDatagram() const override { return false; }
  unsigned Connections() const override { return Made; }

 private:
  bool Connect() {
    std::string address;
    if (!platform::ResolveIPv4Host(Host, address)) {
      Err << "zolclient: cannot resolve " << Host << "; trying again in " << SecondsText(Pause) << std::endl;
      PlanNextAttempt();
      return false;
    }
    Socket = platform::TcpConnect(address, Port);
    if (Socket == platform::kNoSocket) {
      Err << "zolclient: cannot connect to " << Host << ":" << Port << "; trying again in " << SecondsText(Pause)
          << std::endl;
      PlanNextAttempt();
      return false;
    }
    ++Made;
    Err << "zolclient: connected to " << Host << ":" << Port << std::endl;
    return true;
  }
  void PlanNextAttempt() {
    NextAttempt = platform::MonotonicMilliseconds() + static_cast<std::uint64_t>(Pause * 1000.0);
  }

  std::string Host;
  std::uint16_t Port;
  double Pause;
  std::ostream& Err;
  int Socket = platform::kNoSocket;
  std::uint64_t NextAttempt = 0;
  unsigned Made = 0;
};

class CUdpSource : public CByteSource {
 public:
  explicit CUdpSource(int socket) : Socket(socket) {}
  ~CUdpSource() override { platform::CloseSocket(Socket); }

  long Read(BYTE* buffer, std::size_t size, int timeoutMilliseconds) override {
    return Guarded("CUdpSource::Read()", [&]() -> long {
      if (!platform::WaitReadable(Socket, static_cast<long>(timeoutMilliseconds) * 1000)) return 0;
      const long got = platform::ReceiveDatagram(Socket, buffer, size);
      // An empty datagram carries nothing and is passed over.
      return got < 0 ? 0 : got;
    });
  }
  bool IsDatagram() const override { return true; }
  unsigned Connections() const override { return 1; }

 private:
  int Socket;
};

class CSerialSource : public CByteSource {
 public:
  CSerialSource(const ClientOptions& options, int device, std::ostream& err)
      : DeviceName(options.Device), Baud(options.BaudRate), Pause(options.ReconnectPauseSeconds), Err(err),
        Device(device) {}
  ~CSerialSource() override { platform::CloseSerial(Device); }

  long Read(BYTE* buffer, std::size_t size, int timeoutMilliseconds) override {
    return Guarded("CSerialSource::Read()", [&]() -> long {
      if (Device == platform::kNoDevice) {
        if (platform::MonotonicMilliseconds() < NextAttempt) {
          WaitUntil(NextAttempt, timeoutMilliseconds);
          return 0;
        }
        if (!Reopen()) return 0;
      }
      const std::uint64_t before = platform::MonotonicMilliseconds();
      const long got = platform::ReadSerial(Device, buffer, size, timeoutMilliseconds);
      if (got > 0) return got;
      // Nothing read although the wait ended early: the line hung up.
      const bool hungUp =
          got < 0 || (timeoutMilliseconds > 20 &&
                      platform::MonotonicMilliseconds() - before < static_cast<std::uint64_t>(timeoutMilliseconds / 2));
      if (!hungUp) return 0;
      platform::CloseSerial(Device);
      Device = platform::kNoDevice;
      Err << "zolclient: serial line " << DeviceName << " lost; opening it again in " << SecondsText(Pause)
          << std::endl;
      NextAttempt = platform::MonotonicMilliseconds() + static_cast<std::uint64_t>(Pause * 1000.0);
      return 0;
    });
  }
  bool IsDatagram() const override { return false; }
  unsigned Connections() const override { return Opened; }

 private:
  bool Reopen() {
    Device = platform::OpenSerialForReading(DeviceName);
    if (Device != platform::kNoDevice && !platform::ConfigureSerialLine(Device, Baud, 0, 8, 0)) {
      platform::CloseSerial(Device);
      Device = platform::kNoDevice;
    }
    if (Device == platform::kNoDevice) {
      NextAttempt = platform::MonotonicMilliseconds() + static_cast<std::uint64_t>(Pause * 1000.0);
      return false;
    }
    ++Opened;
    Err << "zolclient: serial line " << DeviceName << " open again" << std::endl;
    return true;
  }

  std::string DeviceName;
  std::uint32_t Baud;
  double Pause;
  std::ostream& Err;
  int Device;
  std::uint64_t NextAttempt = 0;
  unsigned Opened = 1;
};

// Plays a recording back: each record when its time has come, the times divided by the
// speed (0: at once). Connections go up at the recorded new-connection records, so that
// the session starts the stream afresh where the live one did.
class CReplaySource : public CByteSource {
 public:
  CReplaySource(std::unique_ptr<CRecordingReader> reader, double speed, std::ostream& err)
      : Reader(std::move(reader)), Speed(speed), Err(err) {}

  long Read(BYTE* buffer, std::size_t size, int timeoutMilliseconds) override {
    return Guarded("CReplaySource::Read()", [&]() -> long {
      const std::uint64_t now = platform::MonotonicMicroseconds();
      if (!Started) {
        Start = now;
        Started = true;
      }
      const std::uint64_t deadline = now + static_cast<std::uint64_t>(std::max(timeoutMilliseconds, 0)) * 1000u;
      while (true) {
        if (Given < Pending.size()) return GivePending(buffer, size);
        if (!HaveNext && !TakeNext()) return 0;
        const std::uint64_t due = DueAt(Next.Microseconds);
        const std::uint64_t current = platform::MonotonicMicroseconds();
        if (due > current) {
          if (current >= deadline) return 0;
          const std::uint64_t wait = std::min<std::uint64_t>(std::min(due, deadline) - current, 1000000u);
          platform::SleepMicroseconds(static_cast<unsigned>(wait));
          continue;
        }
        HaveNext = false;
        if (Next.Kind == RecordKind::NewConnection) {
          ++Made;
          continue;
        }
        Pending = std::move(Next.Bytes);
        Given = 0;
      }
    });
  }
  bool IsDatagram() const override { return Reader->IsDatagram(); }
  unsigned Connections() const override { return Made; }
  bool Finished() const override { return Ended && Given >= Pending.size(); }

 private:
  // Reads the next record; false (and the damage told once) at the end.
  bool TakeNext() {
    if (Ended) return false;
    if (Reader->Next(Next)) {
      HaveNext = true;
      return true;
    }
    Ended = true;
    if (!Reader->Damage().empty()) Err << "zolclient: " << Reader->Damage() << std::endl;
    return false;
  }
  long GivePending(BYTE* buffer, std::size_t size) {
    const std::size_t count = std::min(size, Pending.size() - Given);
    std::copy_n(Pending.begin() + static_cast<std::ptrdiff_t>(Given), count, buffer);
    // A datagram is given whole or, when the buffer is too small, cut as the system cuts one.
    Given = Reader->IsDatagram() ? Pending.size() : Given + count;
    return static_cast<long>(count);
  }
  std::uint64_t DueAt(std::uint64_t microseconds) const {
    if (Speed <= 0) return 0;
    // Far beyond any recording's length: the record is never due, and nothing overflows.
    const double offset = std::min(static_cast<double>(microseconds) / Speed, 1e18);
    return Start + static_cast<std::uint64_t>(offset);
  }

  std::unique_ptr<CRecordingReader> Reader;
  double Speed;
  std::ostream& Err;
  bool Started = false;
  std::uint64_t Start = 0;
  RecordedRead Next;
  bool HaveNext = false;
  bool Ended = false;
  std::vector<BYTE> Pending;
  std::size_t Given = 0;
  unsigned Made = 0;
};

}  // namespace

std::unique_ptr<CByteSource> OpenByteSource(const ClientOptions& options, std::ostream& err, std::string& error) {
  return Guarded("OpenByteSource()", [&]() -> std::unique_ptr<CByteSource> {
    switch (options.Transport) {
      case TransportKind::Tcp:
        return std::make_unique<CTcpSource>(options, err);
      case TransportKind::Udp: {
        int socket = platform::kNoSocket;
        if (platform::IsMulticastAddress(options.Host)) {
          std::string interfaceAddress;
          if (!options.Interface.empty()) {
            std::uint32_t parsed = 0;
            if (platform::ParseDottedAddress(options.Interface, parsed)) {
              interfaceAddress = options.Interface;
            } else if (!platform::InterfaceIPv4Address(options.Interface, interfaceAddress)) {
              error = "interface " + options.Interface + " has no IPv4 address";
              return nullptr;
            }
          }
          socket = platform::OpenMulticastReceiver(options.Host, options.Port, interfaceAddress);
          if (socket == platform::kNoSocket) {
            error = "cannot receive on " + options.Source + " (bind or group join failed)";
            return nullptr;
          }
        } else {
          socket = platform::OpenUdpSocket();
          if (socket != platform::kNoSocket && !platform::BindAnyAddress(socket, options.Port)) {
            platform::CloseSocket(socket);
            socket = platform::kNoSocket;
          }
          if (socket == platform::kNoSocket) {
            error = "cannot receive on " + options.Source + " (bind failed)";
            return nullptr;
          }
        }
        return std::make_unique<CUdpSource>(socket);
      }
      case TransportKind::Serial: {
        const int device = platform::OpenSerialForReading(options.Device);
        if (device == platform::kNoDevice) {
          error = "cannot open serial device " + options.Device;
          return nullptr;
        }
        if (!platform::ConfigureSerialLine(device, options.BaudRate, 0, 8, 0)) {
          platform::CloseSerial(device);
          error = "cannot set serial device " + options.Device + " to " + std::to_string(options.BaudRate) +
                  " baud, raw 8N1 (not a serial line, or a rate the driver refuses)";
          return nullptr;
        }
        return std::make_unique<CSerialSource>(options, device, err);
      }
      case TransportKind::Replay: {
        auto reader = std::make_unique<CRecordingReader>();
        if (!reader->Open(options.ReplayFile, error)) return nullptr;
        return std::make_unique<CReplaySource>(std::move(reader), options.ReplaySpeed, err);
      }
      case TransportKind::Mqtt:
        // A broker gives whole pages, not bytes: see CMqttPageSource.
        error = "an mqtt:// source gives pages, not bytes";
        return nullptr;
    }
    error = "unknown source";
    return nullptr;
  });
}

}  // namespace zolclient
