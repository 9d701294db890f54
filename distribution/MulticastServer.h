// The multicast port: each packet goes out as one UDP datagram to a group.
#pragma once

#include "distribution/OutputPort.h"

class CZOLMulticastServer : public CZOLOutputPort {
 public:
  explicit CZOLMulticastServer(DWORD id);
  ~CZOLMulticastServer() override;

  void LoadSettings(CIniFile& ini, const std::string& section) override;
  void SaveSettings(CIniFile& ini, const std::string& section) override;
  BOOL OpenServerSocket();
  void CloseServerSocket();
  void Start() override;
  void Stop() override;
  std::string GetSettingsAsHTML() override;
  std::string CheckPost(const CKVTHttpRequest& request) override;
  BOOL ProcessPost(CKVTHttpRequest& request) override;
  void SendPacket(const BYTE* packet) override;

  const std::string& GetAddress() const { return Address; }
  DWORD GetPort() const { return Port; }
  void SetAddress(const std::string& address) { Address = address; }
  void SetPort(DWORD port) { Port = port; }

 private:
  std::string Address = "239.254.1.2";
  DWORD Port = 7125;
};
