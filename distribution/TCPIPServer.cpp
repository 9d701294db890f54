#include "distribution/TCPIPServer.h"

#include <cstdio>

#include "distribution/ZOLServer.h"
#include "frame/IniFile.h"
#include "frame/KVTException.h"
#include "frame/Package.h"
#include "frame/platform/ErrorText.h"
#include "frame/platform/OpenFileLimit.h"
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
  {
    std::lock_guard<std::mutex> lock(QueueMutex);
    Waiting.Clear();
  }
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

void CZOLTCPIPSocket::UpdatePage(DWORD key, BYTE sequence, const PacketBlocks& packets) {
  Guarded("CZOLTCPIPSocket::UpdatePage()", [&] {
    if (packets.empty()) return;
    QueueVersion(std::make_shared<const CSharedPageVersion>(key, sequence, packets, PacketSize));
  });
}

void CZOLTCPIPSocket::QueueVersion(const SharedPageVersion& version) {
  Guarded("CZOLTCPIPSocket::QueueVersion()", [&] {
    if (Running.load() == 0) return;
    std::lock_guard<std::mutex> lock(QueueMutex);
    if (!Waiting.Add(version)) return;
    PageSequences[version->GetKey()] = version->GetSequence();
    QueuedBytes.fetch_add(static_cast<int>(version->GetPacketCount() * version->GetPacketSize()));
  });
}

void CZOLTCPIPSocket::ClearAllPackets(DWORD siteNumber) {
  Guarded("CZOLTCPIPSocket::ClearAllPackets()", [&] {
    std::lock_guard<std::mutex> lock(QueueMutex);
    const int dropped = static_cast<int>(Waiting.DropSite(siteNumber));
    int queued = QueuedBytes.load();
    while (!QueuedBytes.compare_exchange_weak(queued, queued > dropped ? queued - dropped : 0)) {
    }
  });
}

std::size_t CZOLTCPIPSocket::GetQueueLength() {
  std::lock_guard<std::mutex> lock(QueueMutex);
  return Waiting.GetPacketCount();
}

CZOLTCPIPSocket::WriteResult CZOLTCPIPSocket::Fail() {
  Connected.store(0);
  Running.store(0);
  WriteLog(Format("Send failed (Handle = 0x%x).", static_cast<unsigned>(Handle)));
  return WriteResult::Failed;
}

CZOLTCPIPSocket::WriteResult CZOLTCPIPSocket::Write(std::size_t mostBytes) {
  return Guarded("CZOLTCPIPSocket::Write()", [&]() -> WriteResult {
    if (Connected.load() == 0) return WriteResult::Failed;
    // One send takes a whole page, so a peer that has gone would only be noticed at the
    // page after; a look at the socket notices it now.
    if (platform::PeerHasClosed(Handle)) return Fail();
    std::lock_guard<std::mutex> lock(QueueMutex);
    std::size_t written = 0;
    platform::ByteSpan spans[platform::kMostSpansPerSend];
    while (!Waiting.IsEmpty()) {
      if (written >= mostBytes) return WriteResult::More;
      const std::size_t count = Waiting.NextSpans(spans, platform::kMostSpansPerSend);
      const long sent = platform::SendSpansWithoutWaiting(Handle, spans, count);
      if (sent < 0) return Fail();
      if (sent == 0) return WriteResult::Blocked;
      Waiting.Consume(static_cast<std::size_t>(sent));
      CountBytesSent(static_cast<int>(sent));
      written += static_cast<std::size_t>(sent);
    }
    return WriteResult::Drained;
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
    if (!bound || !platform::Listen(ListenSocket, platform::LargestListenBacklog())) {
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

std::string CZOLTCPIPServer::MaxClientsBeyondFileLimit(DWORD port, DWORD maxClients, std::uint64_t fileLimit) {
  if (fileLimit == 0 || fileLimit == UINT64_MAX || maxClients + kFilesForOthers <= fileLimit) return "";
  const std::uint64_t reachable = fileLimit > kFilesForOthers ? fileLimit - kFilesForOthers : 0;
  return Format("TCP port %lu: maxclients is %lu, but the open-files limit of %llu lets about %llu clients in; "
                "raise the limit (LimitNOFILE= in the systemd unit, ulimit -n) for more.",
                static_cast<unsigned long>(port), static_cast<unsigned long>(maxClients),
                static_cast<unsigned long long>(fileLimit), static_cast<unsigned long long>(reachable));
}

void CZOLTCPIPServer::Start() {
  Guarded("CZOLTCPIPServer::Start()", [&] {
    // Listening goes up before the thread starts, so that a Stop that follows at once
    // waits for the thread. A server that is already up is left as it is.
    int listening = 0;
    if (!Listening.compare_exchange_strong(listening, 1)) return;
    WriteLog(Format("Starting TCP/IP server (Port %d).", static_cast<int>(Port)));
    const std::string beyond = MaxClientsBeyondFileLimit(Port, MaxClients, platform::OpenFileLimit());
    if (!beyond.empty()) WriteLog(beyond);
    StartThread();
  });
}

void CZOLTCPIPServer::Stop() {
  Guarded("CZOLTCPIPServer::Stop()", [&] {
    int listening = 1;
    if (!Listening.compare_exchange_strong(listening, 0)) return;
    Poll.Wake();
    ThreadEnded.acquire();
    JoinThread();
    WriteLog("Stopping TCP/IP server.");
  });
}

void CZOLTCPIPServer::Run() {
  Guarded("CZOLTCPIPServer::Run()", [&] {
    if (!Poll.IsOpen() || !StartListen()) {
      if (!Poll.IsOpen()) SetFailureReason("cannot watch sockets: the system's poll did not open");
      // The port stays not running. Only a Stop that is already waiting gets a release.
      Running.store(0);
      int listening = 1;
      if (!Listening.compare_exchange_strong(listening, 0)) ThreadEnded.release();
      return;
    }
    // Connections are taken until none waits, so the listener must not block.
    platform::SetNonBlocking(ListenSocket, true);
    Poll.AddReader(ListenSocket, 0);
    Running.store(1);
    std::vector<platform::CReadinessPoll::Event> events;
    bool moreToWrite = false;
    while (Listening.load() != 0) {
      if (!Poll.Wait(moreToWrite ? 0 : kIdleWaitMilliseconds, events)) break;
      for (const auto& event : events) {
        if (event.Token == 0) {
          AcceptConnections();
        } else if (const auto found = ClientsByToken.find(event.Token); found != ClientsByToken.end()) {
          if (event.Writable) found->second->Writable = true;
        }
      }
      moreToWrite = WriteTurn();
    }
    std::vector<CZOLTCPIPSocket*> leaving;
    {
      std::lock_guard<std::mutex> lock(ClientsMutex);
      leaving.swap(Clients);
    }
    for (CZOLTCPIPSocket* client : leaving) {
      Poll.Remove(client->GetHandle());
      delete client;
    }
    ClientsByToken.clear();
    Poll.Remove(ListenSocket);
    StopListen();
    Running.store(0);
    ThreadEnded.release();
  });
}

bool CZOLTCPIPServer::WriteTurn() {
  return Guarded("CZOLTCPIPServer::WriteTurn()", [&]() -> bool {
    bool more = false;
    const std::size_t count = Clients.size();
    if (count == 0) return false;
    const std::size_t start = NextWriter % count;
    std::vector<CZOLTCPIPSocket*> failed;
    for (std::size_t looked = 0; looked < count; ++looked) {
      CZOLTCPIPSocket* client = Clients[(start + looked) % count];
      if (!client->Writable || client->GetQueuedBytes() == 0) continue;
      switch (client->Write(kMostBytesPerTurn)) {
        case CZOLTCPIPSocket::WriteResult::Drained: break;
        case CZOLTCPIPSocket::WriteResult::More: more = true; break;
        // The poll tells when it takes data again.
        case CZOLTCPIPSocket::WriteResult::Blocked: client->Writable = false; break;
        case CZOLTCPIPSocket::WriteResult::Failed: failed.push_back(client); break;
      }
    }
    // The next turn starts one further on, so that no client is always first.
    NextWriter = (start + 1) % count;
    for (CZOLTCPIPSocket* client : failed) RemoveClient(client);
    return more;
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
  ClientsByToken.erase(client->Token);
  Poll.Remove(client->GetHandle());
  delete client;
}

void CZOLTCPIPServer::AcceptConnections() {
  Guarded("CZOLTCPIPServer::AcceptConnections()", [&] {
    for (;;) {
      std::uint32_t address = 0;
      std::uint16_t peerPort = 0;
      const int socket = platform::AcceptConnectionFrom(ListenSocket, address, peerPort);
      if (socket < 0) return;
      // Every client holds a queue, so idle connections must not pile up. Only this
      // thread changes Clients, so it reads the count without the lock.
      if (Clients.size() >= MaxClients) {
        WriteLog(Format("Refusing connection (Handle = 0x%x, IP = %s): %u clients connected, the most this port takes.",
                        static_cast<unsigned>(socket), platform::DottedAddress(address).c_str(),
                        static_cast<unsigned>(Clients.size())));
        platform::CloseWithoutWaiting(socket);
        continue;
      }
      WriteLog(Format("Accepting Connection (Handle = 0x%x, IP = %s).", static_cast<unsigned>(socket),
                      platform::DottedAddress(address).c_str()));
      platform::SetKeepAlive(socket, false);
      // The close of a client sets the linger again (CloseWithoutWaiting), so this one
      // second never holds the server up.
      platform::SetLinger(socket, true, 1);
      auto* client = new CZOLTCPIPSocket(ID, socket, address, peerPort);
      client->Token = NextToken++;
      // A new socket takes data: the poll reports that at once.
      if (!Poll.AddWriter(socket, client->Token)) {
        WriteLog(Format("Closing connection (Handle = 0x%x): it cannot be watched.", static_cast<unsigned>(socket)));
        delete client;
        continue;
      }
      ClientsByToken[client->Token] = client;
      std::lock_guard<std::mutex> lock(ClientsMutex);
      Clients.push_back(client);
    }
  });
}

void CZOLTCPIPServer::UpdatePage(DWORD key, BYTE sequence, const PacketBlocks& packets) {
  Guarded("CZOLTCPIPServer::UpdatePage()", [&] {
    if (packets.empty()) return;
    // One copy for all clients, read by the server thread through the clients' queues.
    const auto version = std::make_shared<const CSharedPageVersion>(key, sequence, packets, PacketSize);
    {
      std::lock_guard<std::mutex> lock(ClientsMutex);
      for (CZOLTCPIPSocket* client : Clients) client->QueueVersion(version);
    }
    Poll.Wake();
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
