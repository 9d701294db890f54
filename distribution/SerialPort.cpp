#include "distribution/SerialPort.h"

#include "distribution/ZOLServer.h"
#include "frame/IniFile.h"
#include "frame/KVTException.h"
#include "frame/Package.h"
#include "frame/platform/SerialLine.h"

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
      options += ">COM" + std::to_string(i);
    }
    ComPortOptions = options.empty() ? "<OPTION VALUE='0'>None" : options;
  });
}

BOOL CZOLSerialPort::OpenPort() {
  return Guarded("CZOLSerialPort::OpenPort()", [&]() -> BOOL {
    InfoLine1 = "COM " + std::to_string(ComPort);
    InfoLine2 = "Baudrate: " + std::to_string(BaudRate);
    ClosePort();
    if (ComPort == 0) return FALSE;  // "None": there is no COM0
    Handle = platform::OpenSerialForWriting(DeviceOf(ComPort));
    if (Handle < 0) {
      Handle = -1;
      return FALSE;
    }
    if (!platform::ConfigureSerialLine(Handle, BaudRate, Parity, DataBits, StopBits)) return FALSE;
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
    std::size_t written = 0;
    while (written < PacketSize) {
      const long n = platform::WriteSerial(Handle, packet + written, PacketSize - written);
      if (n <= 0) break;
      written += static_cast<std::size_t>(n);
    }
  });
}
