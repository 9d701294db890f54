// The TCP port: one thread serves the listening socket and every connected client. Each
// client keeps its own queue of the page versions it still has to get, by reference to
// packets that the port copied once for all of them. Readiness comes from the system's
// poll for any number of clients: a client is written to whenever it takes data, each
// with all it takes of its queue in one call, at most kMostBytesPerTurn per turn and in
// turn with the others, so that clients that never read cannot shut out the others.
#pragma once

#include <cstdint>
#include <mutex>
#include <semaphore>
#include <string>
#include <unordered_map>
#include <vector>

#include "distribution/OutputPort.h"
#include "distribution/SharedPacketQueue.h"
#include "frame/platform/ReadinessPoll.h"

class CZOLTCPIPSocket : public CZOLOutputPort {
 public:
  // `address` in network byte order, `peerPort` in host order.
  CZOLTCPIPSocket(DWORD id, int socket, DWORD address, std::uint16_t peerPort = 0);
  // Empties the queue and closes the connection without waiting for the peer: bytes that
  // are still on their way are dropped.
  ~CZOLTCPIPSocket() override;

  void LoadSettings(CIniFile& ini, const std::string& section) override;
  void SaveSettings(CIniFile& ini, const std::string& section) override;
  void Start() override {}
  void SendPacket(const BYTE* packet) override;
  // Queues a copy of the page made for this client alone; the port shares one instead.
  void UpdatePage(DWORD key, BYTE sequence, const PacketBlocks& packets) override;
  void ClearAllPackets(DWORD siteNumber) override;
  std::size_t GetQueueLength() override;
  // A client's row in the overview of stream clients names its address and port.
  std::string GetConnectionName() const override { return "Client " + GetPeerText(); }

  // Queues the page version unless a version of that page still waits.
  void QueueVersion(const SharedPageVersion& version);
  enum class WriteResult { Drained, Blocked, More, Failed };
  // Sends queued bytes while the socket takes them, `mostBytes` at most: Drained when
  // the queue is empty, Blocked when the socket takes no more now, More when the limit
  // was reached, Failed when the connection broke (it is then marked not connected).
  WriteResult Write(std::size_t mostBytes = SIZE_MAX);

  int IsConnected() const { return Connected.load(); }
  DWORD GetAddress() const { return Address; }
  std::uint16_t GetPeerPort() const { return PeerPort; }
  // "192.0.2.7:40212".
  std::string GetPeerText() const;
  int GetHandle() const { return Handle; }
  // The server thread's own: the socket took data when last tried or told so since.
  bool Writable = false;
  // The server thread's own: the client's name in the readiness poll.
  std::uint64_t Token = 0;

 private:
  // Marks the connection broken and logs it.
  WriteResult Fail();

  std::atomic<int> Connected{1};
  DWORD Address = 0;
  std::uint16_t PeerPort = 0;
  // Under QueueMutex.
  CSharedPacketQueue Waiting;
};

class CZOLTCPIPServer : public CZOLOutputPort {
 public:
  static constexpr DWORD kDefaultMaxClients = 256;
  // One client's share of a turn; the next client then has its turn.
  static constexpr std::size_t kMostBytesPerTurn = 64 * 1024;
  // How long the thread waits for readiness when nothing is to be written.
  static constexpr int kIdleWaitMilliseconds = 50;
  // Open files the process keeps for other things than this port's clients: the module's
  // files, other ports, the web server and its clients, the data manager link.
  static constexpr std::uint64_t kFilesForOthers = 64;
  // The line that says a port's maxclients cannot be reached under the open-files limit
  // `fileLimit`; empty when it can.
  static std::string MaxClientsBeyondFileLimit(DWORD port, DWORD maxClients, std::uint64_t fileLimit);

  explicit CZOLTCPIPServer(DWORD id);
  ~CZOLTCPIPServer() override;

  void LoadSettings(CIniFile& ini, const std::string& section) override;
  void SaveSettings(CIniFile& ini, const std::string& section) override;
  // Starts the thread; returns at once, whether or not the listen will work.
  void Start() override;
  void Stop() override;
  void Run() override;
  void UpdatePage(DWORD key, BYTE sequence, const PacketBlocks& packets) override;
  void ClearAllPackets(DWORD siteNumber) override;
  void DetermineDataRate() override;
  // No row of its own: the rows of the connected clients.
  std::string GetStatisticsAsHTML() override;
  std::string GetSettingsAsHTML() override;
  std::string CheckPost(const CKVTHttpRequest& request) override;
  BOOL ProcessPost(CKVTHttpRequest& request) override;
  void SendPacket(const BYTE* packet) override { (void)packet; }

  BOOL StartListen();
  void StopListen();
  // Accepts every connection that waits.
  void AcceptConnections();

  DWORD GetPort() const { return Port; }
  void SetPort(DWORD port) { Port = port; }
  DWORD GetMaxClients() const { return MaxClients; }
  int IsListening() const { return Listening.load(); }
  std::size_t GetClientCount();
  // Sum of the clients' rates and queued bytes, for the overview.
  DWORD GetClientsDataRate();

 private:
  // Takes a client out of Clients (under the lock) and deletes it; the server thread's.
  void RemoveClient(CZOLTCPIPSocket* client);
  // One turn for each client that takes data and has some queued, starting where the
  // last turn stopped; true when some client has more to write at once.
  bool WriteTurn();

  DWORD Port = 51000;
  // Connections beyond this many are accepted and closed at once.
  DWORD MaxClients = kDefaultMaxClients;
  std::atomic<int> Listening{0};
  int ListenSocket = -1;
  std::vector<CZOLTCPIPSocket*> Clients;
  // The server thread's own: clients by their token in the readiness poll.
  std::unordered_map<std::uint64_t, CZOLTCPIPSocket*> ClientsByToken;
  std::uint64_t NextToken = 1;
  // Where the next turn starts; the server thread's own.
  std::size_t NextWriter = 0;
  platform::CReadinessPoll Poll;
  std::counting_semaphore<100000> ThreadEnded{0};
  // Guards every change and every walk of Clients that another thread may meet.
  std::mutex ClientsMutex;
};
