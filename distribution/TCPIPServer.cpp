#include "distribution/TCPIPServer.h"

#include <cstdio>

#include "distribution/ZOLServer.h"
#include "frame/IniFile.h"
#include "frame/KVTException.h"
#include "frame/Package.h"
#include "frame/platform/ErrorText.h"
#include "frame/platform/Sockets.h"
#include "frame/platform/Time.h"

namespace {

std::string Format(const char* format, auto... values) {
  char text[256];
  std::snprintf(text, sizeof text, format, values...);
  return text;
}

}  // namespace

// ---- CZOLTCPIPSocket ----------------------------------------------------------------

CZOLTCPIPSocket::CZOLTCPIPSocket(DWORD id, int socket, DWORD address, std::uint16_t peerPort)
    : CZOLOutputPort(id), Address(address), PeerPort(peerPort) {
  TypeName = "TCP/IP";
  Handle = socket;
  PacketsPerBurst = 1;
  Running.store(1);
}

CZOLTCPIPSocket::~CZOLTCPIPSocket() {
  Running.store(0);
  CZOLOutputPort::Stop();
  WriteLog(Format("Closing and removing socket (Handle = 0x04%X).", static_cast<unsigned>(Handle)));
  // A client that does not read would hold an orderly close up for as long as the linger
  // lasts, and the server closes its clients one after the other.
  platform::CloseWithoutWaiting(Handle);
  Handle = -1;
}

std::string CZOLTCPIPSocket::GetPeerText() const {
  return platform::DottedAddress(Address) + ":" + std::to_string(PeerPort);
}

void CZOLTCPIPSocket::LoadSettings(CIniFile& ini, const std::string& section) { (void)ini, (void)section; }
void CZOLTCPIPSocket::SaveSettings(CIniFile& ini, const std::string& section) { (void)ini, (void)section; }
void CZOLTCPIPSocket::SendPacket(const BYTE* packet) { (void)packet; }

void CZOLTCPIPSocket::Send(const BYTE* buffer, std::size_t length) {
  while (length > 0) {
    const std::size_t part = length < 4096 ? length : 4096;
    const long sent = platform::SendSome(Handle, buffer, part);
    if (sent < 0) ThrowKVT("send");
    buffer += sent;
    length -= static_cast<std::size_t>(sent);
  }
}

void CZOLTCPIPSocket::Write() {
  Guarded("CZOLTCPIPSocket::Write()", [&] {
    for (;;) {
      if (!platform::WaitWritable(Handle, 0)) break;
      BYTE* packet = PopPacket();
      if (packet == nullptr) break;
      try {
        Send(packet, PacketSize);
      } catch (CKVTException* e) {
        delete e;
        Connected.store(0);
        Running.store(0);
        WriteLog(Format("Send failed (Handle = 0x%x).", static_cast<unsigned>(Handle)));
      } catch (...) {
        Connected.store(0);
        Running.store(0);
        WriteLog(Format("Send failed (Handle = 0x%x).", static_cast<unsigned>(Handle)));
      }
      delete[] packet;
      CountPacketSent();
    }
  });
}

// ---- CZOLTCPIPServer ----------------------------------------------------------------

CZOLTCPIPServer::CZOLTCPIPServer(DWORD id) : CZOLOutputPort(id) {
  TypeName = "Network [unicast]";
  Type = 2;
}

CZOLTCPIPServer::~CZOLTCPIPServer() {
  Stop();
  JoinThread();
}

void CZOLTCPIPServer::LoadSettings(CIniFile& ini, const std::string& section) {
  Guarded("CZOLTCPIPServer::LoadSettings()", [&] {
    ini.Read(section, "port", Port, 51000);
    // Taken only above 0: a port that admits nobody is of no use.
    ini.Read(section, "maxclients", MaxClients, kDefaultMaxClients);
    if (MaxClients == 0) MaxClients = kDefaultMaxClients;
  });
}

void CZOLTCPIPServer::SaveSettings(CIniFile& ini, const std::string& section) {
  Guarded("CZOLTCPIPServer::SaveSettings()", [&] {
    ini.Write(section, "ID", ID);
    ini.Write(section, "port", Port);
    ini.Write(section, "maxclients", MaxClients);
  });
}

BOOL CZOLTCPIPServer::StartListen() {
  return Guarded("CZOLTCPIPServer::StartListen()", [&]() -> BOOL {
    InfoLine1 = Format("Port: %lu", static_cast<unsigned long>(Port));
    const CPackage* package = GetPackage();
    InfoLine2 = "IP: " + platform::DottedAddress(package != nullptr ? package->LocalAddress : 0);
    // A number beyond 16 bits would be cut to another port; 0 would let the system pick one.
    if (Port == 0 || Port > 65535) {
      SetFailureReason(Format("TCP port number %lu is not from 1 to 65535", static_cast<unsigned long>(Port)));
      return FALSE;
    }
    ListenSocket = platform::OpenTcpSocket();
    if (ListenSocket < 0) {
      SetFailureReason("cannot open a TCP socket: " + platform::ErrorText(platform::LastError()));
      return FALSE;
    }
    // Connections closed by a stop linger on the port for a while; a restart must not
    // wait for them. (Two listeners on one port are still refused.)
    platform::SetReuseAddress(ListenSocket, true);
    // A failed bind is a failed listen: listening on an unbound socket would pick some
    // other port by itself.
    const bool bound = platform::BindAnyAddress(ListenSocket, static_cast<std::uint16_t>(Port));
    if (!bound || !platform::Listen(ListenSocket, kListenBacklog)) {
      const int error = platform::LastError();
      platform::ShutdownDrainClose(ListenSocket);
      ListenSocket = -1;
      SetFailureReason(Format("cannot listen on TCP port %lu: ", static_cast<unsigned long>(Port)) +
                       platform::ErrorText(error));
      return FALSE;
    }
    SetFailureReason("");
    return TRUE;
  });
}

void CZOLTCPIPServer::StopListen() {
  Guarded("CZOLTCPIPServer::StopListen()", [&] {
    platform::ShutdownDrainClose(ListenSocket);
    ListenSocket = -1;
  });
}

void CZOLTCPIPServer::Start() {
  Guarded("CZOLTCPIPServer::Start()", [&] {
    // Listening goes up before the thread starts, so that a Stop that follows at once
    // waits for the thread. A server that is already up is left as it is.
    int listening = 0;
    if (!Listening.compare_exchange_strong(listening, 1)) return;
    WriteLog(Format("Starting TCP/IP server (Port %d).", static_cast<int>(Port)));
    StartThread();
  });
}

void CZOLTCPIPServer::Stop() {
  Guarded("CZOLTCPIPServer::Stop()", [&] {
    int listening = 1;
    if (!Listening.compare_exchange_strong(listening, 0)) return;
    ThreadEnded.acquire();
    JoinThread();
    WriteLog("Stopping TCP/IP server.");
  });
}

void CZOLTCPIPServer::Run() {
  Guarded("CZOLTCPIPServer::Run()", [&] {
    if (!StartListen()) {
      // The port stays not running. Only a Stop that is already waiting gets a release.
      Running.store(0);
      int listening = 1;
      if (!Listening.compare_exchange_strong(listening, 0)) ThreadEnded.release();
      return;
    }
    Running.store(1);
    std::vector<int> writers;
    std::vector<CZOLTCPIPSocket*> writerClients;
    std::vector<bool> writable;
    while (Listening.load() != 0) {
      writers.clear();
      writerClients.clear();
      // Only clients with something queued are written to, so they make the write set.
      // It holds at most kMaxWriters; the pass starts looking where the last one stopped,
      // so with n clients waiting each is in the set at least once in every
      // ceil(n / kMaxWriters) passes, however many of the others never take a byte.
      const std::size_t count = Clients.size();
      const std::size_t start = count == 0 ? 0 : NextWriter % count;
      std::size_t looked = 0;
      for (; looked < count && writers.size() < kMaxWriters; ++looked) {
        CZOLTCPIPSocket* client = Clients[(start + looked) % count];
        if (client->GetQueuedBytes() == 0) continue;
        writers.push_back(client->GetHandle());
        writerClients.push_back(client);
      }
      NextWriter = count == 0 ? 0 : (start + looked) % count;
      bool listenReadable = false;
      const int ready =
          platform::WaitListenAndWriters(ListenSocket, writers, kPassLimitMicroseconds, listenReadable, writable);
      if (ready < 0) break;
      if (ready == 0) continue;
      if (listenReadable) AcceptConnection();
      for (std::size_t w = 0; w < writerClients.size(); ++w) {
        CZOLTCPIPSocket* client = writerClients[w];
        if (!writable[w] || client->GetQueuedBytes() == 0) continue;
        client->Write();
        if (client->IsConnected() == 0) RemoveClient(client);
      }
      platform::SleepMilliseconds(1);
    }
    std::vector<CZOLTCPIPSocket*> leaving;
    {
      std::lock_guard<std::mutex> lock(ClientsMutex);
      leaving.swap(Clients);
    }
    for (CZOLTCPIPSocket* client : leaving) delete client;
    StopListen();
    Running.store(0);
    ThreadEnded.release();
  });
}

void CZOLTCPIPServer::RemoveClient(CZOLTCPIPSocket* client) {
  for (std::size_t i = 0; i < Clients.size(); ++i) {
    if (Clients[i] != client) continue;
    {
      std::lock_guard<std::mutex> lock(ClientsMutex);
      Clients.erase(Clients.begin() + static_cast<std::ptrdiff_t>(i));
    }
    // The turn stays with the client it was at, which has moved up by one.
    if (i < NextWriter) --NextWriter;
    break;
  }
  delete client;
}

void CZOLTCPIPServer::AcceptConnection() {
  Guarded("CZOLTCPIPServer::AcceptConnection()", [&] {
    std::uint32_t address = 0;
    std::uint16_t peerPort = 0;
    const int socket = platform::AcceptConnectionFrom(ListenSocket, address, peerPort);
    if (socket < 0) return;
    // Every client holds a copy of the queue, so idle connections must not pile up. Only
    // this thread changes Clients, so it reads the count without the lock.
    if (Clients.size() >= MaxClients) {
      WriteLog(Format("Refusing connection (Handle = 0x%x, IP = %s): %u clients connected, the most this port takes.",
                      static_cast<unsigned>(socket), platform::DottedAddress(address).c_str(),
                      static_cast<unsigned>(Clients.size())));
      platform::CloseWithoutWaiting(socket);
      return;
    }
    WriteLog(Format("Accepting Connection (Handle = 0x%x, IP = %s).", static_cast<unsigned>(socket),
                    platform::DottedAddress(address).c_str()));
    platform::SetKeepAlive(socket, false);
    // The close of a client sets the linger again (CloseWithoutWaiting), so this one
    // second never holds the server up.
    platform::SetLinger(socket, true, 1);
    auto* client = new CZOLTCPIPSocket(ID, socket, address, peerPort);
    std::lock_guard<std::mutex> lock(ClientsMutex);
    Clients.push_back(client);
  });
}

void CZOLTCPIPServer::UpdatePage(DWORD key, BYTE sequence, const PacketBlocks& packets) {
  Guarded("CZOLTCPIPServer::UpdatePage()", [&] {
    std::lock_guard<std::mutex> lock(ClientsMutex);
    for (CZOLTCPIPSocket* client : Clients) client->UpdatePage(key, sequence, packets);
  });
}

void CZOLTCPIPServer::ClearAllPackets(DWORD siteNumber) {
  Guarded("CZOLTCPIPServer::ClearAllPackets()", [&] {
    std::lock_guard<std::mutex> lock(ClientsMutex);
    for (CZOLTCPIPSocket* client : Clients) client->ClearAllPackets(siteNumber);
  });
}

void CZOLTCPIPServer::DetermineDataRate() {
  Guarded("CZOLTCPIPServer::DetermineDataRate()", [&] {
    std::lock_guard<std::mutex> lock(ClientsMutex);
    for (CZOLTCPIPSocket* client : Clients) client->DetermineDataRate();
  });
}

std::size_t CZOLTCPIPServer::GetClientCount() {
  std::lock_guard<std::mutex> lock(ClientsMutex);
  return Clients.size();
}

DWORD CZOLTCPIPServer::GetClientsDataRate() {
  std::lock_guard<std::mutex> lock(ClientsMutex);
  DWORD sum = 0;
  for (CZOLTCPIPSocket* client : Clients) sum += client->GetDataRate();
  return sum;
}
