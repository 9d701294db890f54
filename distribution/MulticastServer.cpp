#include "distribution/MulticastServer.h"

#include "distribution/ZOLServer.h"
#include "frame/IniFile.h"
#include "frame/KVTException.h"
#include "frame/platform/ErrorText.h"
#include "frame/platform/Sockets.h"

CZOLMulticastServer::CZOLMulticastServer(DWORD id) : CZOLOutputPort(id) {
  TypeName = "Network (multicast)";
  Type = 3;
  PacketsPerBurst = 3;
}

CZOLMulticastServer::~CZOLMulticastServer() {
  Stop();
  platform::CloseSocket(Handle);  // left open by a failed open
  Handle = -1;
}

void CZOLMulticastServer::LoadSettings(CIniFile& ini, const std::string& section) {
  Guarded("CZOLMulticastServer::LoadSettings()", [&] {
    ini.Read(section, "address", Address, "239.254.1.2");
    ini.Read(section, "port", Port, 7125);
  });
}

void CZOLMulticastServer::SaveSettings(CIniFile& ini, const std::string& section) {
  Guarded("CZOLMulticastServer::SaveSettings()", [&] {
    ini.Write(section, "ID", ID);
    ini.Write(section, "address", Address);
    ini.Write(section, "port", Port);
  });
}

BOOL CZOLMulticastServer::OpenServerSocket() {
  return Guarded("CZOLMulticastServer::OpenServerSocket()", [&]() -> BOOL {
    InfoLine1 = "Port: " + std::to_string(Port);
    InfoLine2 = "IP: " + Address;
    platform::CloseSocket(Handle);  // what a failed earlier open left behind
    Handle = -1;
    const std::string target = "multicast group " + Address + " port " + std::to_string(Port);
    if (!platform::IsMulticastAddress(Address)) {
      SetFailureReason("cannot send to " + target + ": " + Address + " is not an IPv4 multicast address");
      return FALSE;
    }
    if (Port == 0 || Port > 65535) {
      SetFailureReason("cannot send to " + target + ": the port number is not from 1 to 65535");
      return FALSE;
    }
    // Each step names itself in the reason; the error is read before anything else runs.
    const auto failed = [&](const char* step) {
      SetFailureReason("cannot send to " + target + ": " + step + ": " + platform::ErrorText(platform::LastError()));
      return FALSE;
    };
    Handle = platform::OpenUdpSocket();
    if (Handle < 0) return failed("no socket");
    if (!platform::BindAnyAddress(Handle, 0)) return failed("bind");
    if (!platform::JoinMulticastGroup(Handle, Address)) return failed("join");
    if (!platform::SetMulticastTtl(Handle, 2)) return failed("TTL");
    if (!platform::SetMulticastLoopback(Handle, false)) return failed("loopback");
    SetFailureReason("");
    return TRUE;
  });
}

void CZOLMulticastServer::CloseServerSocket() {
  Guarded("CZOLMulticastServer::CloseServerSocket()", [&] {
    platform::ShutdownDrainClose(Handle);
    Handle = -1;
  });
}

void CZOLMulticastServer::Start() {
  Guarded("CZOLMulticastServer::Start()", [&] {
    if (Running.load() != 0) return;  // already sending
    WriteLog("Starting multicast server (Address: " + Address + ", Port: " + std::to_string(Port) + ").");
    if (OpenServerSocket()) {
      Running.store(1);
      StartThread();
    }
  });
}

void CZOLMulticastServer::Stop() {
  Guarded("CZOLMulticastServer::Stop()", [&] {
    // The thread is stopped before the socket is closed, so that it never sends on a
    // closed (or reused) descriptor.
    const bool wasRunning = Running.load() != 0;
    CZOLOutputPort::Stop();
    if (wasRunning) CloseServerSocket();
  });
}

void CZOLMulticastServer::SendPacket(const BYTE* packet) {
  Guarded("CZOLMulticastServer::SendPacket()", [&] {
    if (Running.load() == 0) return;
    // A lost datagram is made good by the next turn of the page.
    platform::SendDatagram(Handle, packet, PacketSize, Address, static_cast<std::uint16_t>(Port));
  });
}
