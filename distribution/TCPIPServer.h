// The TCP port: one thread serves the listening socket and every connected client; each
// client is a small port of its own with a private queue, written as fast as its socket
// takes data. Each pass writes to at most kMaxWriters clients, and the passes take turns
// over the clients, so that clients that never read cannot shut out the others.
#pragma once

#include <mutex>
#include <semaphore>
#include <vector>

#include "distribution/OutputPort.h"

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
  // A client's row in the overview of stream clients names its address and port.
  std::string GetConnectionName() const override { return "Client " + GetPeerText(); }

  // Sends queued packets while the socket takes data.
  void Write();
  // Sends all bytes; throws when the socket fails.
  void Send(const BYTE* buffer, std::size_t length);

  int IsConnected() const { return Connected.load(); }
  DWORD GetAddress() const { return Address; }
  std::uint16_t GetPeerPort() const { return PeerPort; }
  // "192.0.2.7:40212".
  std::string GetPeerText() const;
  int GetHandle() const { return Handle; }

 private:
  std::atomic<int> Connected{1};
  DWORD Address = 0;
  std::uint16_t PeerPort = 0;
};

class CZOLTCPIPServer : public CZOLOutputPort {
 public:
  static constexpr int kListenBacklog = 10;
  static constexpr std::size_t kMaxWriters = 64;
  static constexpr long kPassLimitMicroseconds = 500;
  static constexpr DWORD kDefaultMaxClients = 256;

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
  void AcceptConnection();

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

  DWORD Port = 51000;
  // Connections beyond this many are accepted and closed at once.
  DWORD MaxClients = kDefaultMaxClients;
  std::atomic<int> Listening{0};
  int ListenSocket = -1;
  std::vector<CZOLTCPIPSocket*> Clients;
  // Where the next pass starts looking for clients to write to; the server thread's own.
  std::size_t NextWriter = 0;
  std::counting_semaphore<100000> ThreadEnded{0};
  // Guards every change and every walk of Clients that another thread may meet.
  std::mutex ClientsMutex;
};
