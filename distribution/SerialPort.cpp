#include "distribution/SerialPort.h"

#include <algorithm>
#include <chrono>

#include "distribution/ZOLServer.h"
#include "frame/IniFile.h"
#include "frame/KVTException.h"
#include "frame/Package.h"
#include "frame/platform/ErrorText.h"
#include "frame/platform/SerialLine.h"
#include "frame/platform/Time.h"
#include "web/HTMLText.h"

namespace {

std::string DeviceOf(DWORD comPort) {
  const CPackage* package = GetPackage();
  if (package != nullptr) return package->ComPortDevice(static_cast<int>(comPort));
  return CPackage().ComPortDevice(static_cast<int>(comPort));
}

}  // namespace

CZOLSerialPort::CZOLSerialPort(DWORD id) : CZOLOutputPort(id) {
  TypeName = "Serial";
  Type = 1;
  PacketsPerBurst = 20;
  GetCOMPorts();
}

CZOLSerialPort::~CZOLSerialPort() {
  Stop();
  ClosePort();  // left open by a failed open
}

void CZOLSerialPort::LoadSettings(CIniFile& ini, const std::string& section) {
  Guarded("CZOLSerialPort::LoadSettings()", [&] {
    ini.Read(section, "port", ComPort, 1);
    ini.Read(section, "baudrate", BaudRate, 115200);
  });
}

void CZOLSerialPort::SaveSettings(CIniFile& ini, const std::string& section) {
  Guarded("CZOLSerialPort::SaveSettings()", [&] {
    ini.Write(section, "ID", ID);
    ini.Write(section, "port", ComPort);
    ini.Write(section, "baudrate", BaudRate);
  });
}

void CZOLSerialPort::GetCOMPorts() {
  Guarded("CZOLSerialPort::GetCOMPorts()", [&] {
    std::string options;
    for (int i = 1; i <= kHighestComPort; ++i) {
      bool listed = false;
      if (static_cast<DWORD>(i) == ComPort) {
        listed = true;  // it may be open here, and can't be opened twice
      } else {
        platform::SerialOpenResult result = platform::SerialOpenResult::NotPresent;
        const int device = platform::OpenSerialForReadWrite(DeviceOf(static_cast<DWORD>(i)), result);
        platform::CloseSerial(device);
        listed = result == platform::SerialOpenResult::Opened;
      }
      if (!listed) continue;
      options += "<OPTION VALUE='" + std::to_string(i) + "'";
      if (static_cast<DWORD>(i) == ComPort) options += " SELECTED";
      std::string label = "COM";
      label += std::to_string(i);
      label += " (";
      label += DeviceOf(static_cast<DWORD>(i));
      label += ")";
      options += ">";
      options += HtmlText(label);
    }
    ComPortOptions = options.empty() ? "<OPTION VALUE='0'>None" : options;
  });
}

BOOL CZOLSerialPort::OpenPort() {
  return Guarded("CZOLSerialPort::OpenPort()", [&]() -> BOOL {
    const std::string device = DeviceOf(ComPort);
    InfoLine1 = "COM " + std::to_string(ComPort) + " (" + device + ")";
    InfoLine2 = "Baudrate: " + std::to_string(BaudRate);
    ClosePort();
    if (ComPort == 0) {  // "None": there is no COM0
      SetFailureReason("no serial line chosen");
      return FALSE;
    }
    Handle = platform::OpenSerialForWriting(device);
    if (Handle < 0) {
      const int error = platform::LastError();
      Handle = -1;
      SetFailureReason("cannot open " + device + " (COM" + std::to_string(ComPort) + "): " + platform::ErrorText(error));
      return FALSE;
    }
    if (!platform::ConfigureSerialLine(Handle, BaudRate, Parity, DataBits, StopBits)) {
      SetFailureReason("cannot set " + device + " (COM" + std::to_string(ComPort) + ") to " + std::to_string(BaudRate) +
                       " baud");
      return FALSE;
    }
    SetFailureReason("");
    // The frame of one byte on the line: a start bit, the data bits, a parity bit if any
    // and the stop bits (one and a half taken as two, as the line does).
    LineRate = BaudRate;
    LineBitsPerByte = 1u + DataBits + (Parity != 0 ? 1u : 0u) + (StopBits == 0 ? 1u : 2u);
    platform::PurgeSerialOutput(Handle);
    return TRUE;
  });
}

void CZOLSerialPort::ClosePort() {
  Guarded("CZOLSerialPort::ClosePort()", [&] {
    if (Handle != -1) {
      platform::CloseSerial(Handle);
      Handle = -1;
    }
  });
}

void CZOLSerialPort::Start() {
  Guarded("CZOLSerialPort::Start()", [&] {
    if (Running.load() != 0) return;  // already sending
    if (!OpenPort()) return;
    WriteLog("Starting serial server (Port: COM" + std::to_string(ComPort) + ", Baudrate: " +
             std::to_string(BaudRate) + ").");
    Running.store(1);
    StartThread();
  });
}

void CZOLSerialPort::Stop() {
  Guarded("CZOLSerialPort::Stop()", [&] {
    // The thread goes first, so that it never writes to a closed (or reused) descriptor.
    const bool wasRunning = Running.load() != 0;
    CZOLOutputPort::Stop();
    if (wasRunning) ClosePort();
  });
}

void CZOLSerialPort::SendPacket(const BYTE* packet) {
  Guarded("CZOLSerialPort::SendPacket()", [&] {
    if (Running.load() == 0) return;
    // Whatever the driver still holds of the last packet is dropped: a slow line loses
    // the tail of a packet, not the head of the next.
    platform::PurgeSerialOutput(Handle);
    const auto started = std::chrono::steady_clock::now();
    std::size_t written = 0;
    while (written < PacketSize) {
      const long n = platform::WriteSerial(Handle, packet + written, PacketSize - written);
      if (n <= 0) break;
      written += static_cast<std::size_t>(n);
    }
    // A write here only hands the bytes to the driver; the packet has gone once they
    // are on the line, and only then may the next purge come.
    WaitUntilSent(written, started);
  });
}

std::chrono::microseconds CZOLSerialPort::LineTime(std::size_t bytes) const {
  if (LineRate == 0) return std::chrono::microseconds(0);
  return std::chrono::microseconds(static_cast<std::uint64_t>(bytes) * LineBitsPerByte * 1000000u / LineRate);
}

void CZOLSerialPort::WaitUntilSent(std::size_t bytes, std::chrono::steady_clock::time_point started) {
  using std::chrono::microseconds;
  using std::chrono::steady_clock;
  // The bytes are out when the driver holds none of them any more and the line has had
  // the time they take at its rate: a driver may hand them on faster than the line
  // carries them (a pseudo-terminal hands them on at once).
  const microseconds lineTime = LineTime(bytes);
  const steady_clock::time_point onTheLine = started + lineTime;
  const steady_clock::time_point timeout = started + 2 * lineTime + kWriteTimeoutAllowance;
  while (Running.load() != 0) {
    const long queued = platform::SerialOutputQueued(Handle);
    if (queued < 0) return;  // no line to watch
    const steady_clock::time_point now = steady_clock::now();
    if (queued == 0 && now >= onTheLine) return;
    if (now >= timeout) return;  // what is still held goes with the next purge
    microseconds pause = queued > 0 ? LineTime(static_cast<std::size_t>(queued))
                                    : std::chrono::duration_cast<microseconds>(onTheLine - now);
    // Short steps, so that Stop never waits for a slow or stuck line.
    pause = std::clamp(pause, kShortestPause, kLongestPause);
    platform::SleepMicroseconds(static_cast<unsigned>(pause.count()));
  }
}
