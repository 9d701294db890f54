// The serial port: packets are written to a COM port; the COM number is mapped to a
// device by the host's package.
#pragma once

#include "distribution/OutputPort.h"

class CZOLSerialPort : public CZOLOutputPort {
 public:
  static constexpr int kHighestComPort = 15;

  explicit CZOLSerialPort(DWORD id);
  ~CZOLSerialPort() override;

  void LoadSettings(CIniFile& ini, const std::string& section) override;
  void SaveSettings(CIniFile& ini, const std::string& section) override;
  // Builds ComPortOptions: the ports that are present and free, for the settings form.
  void GetCOMPorts();
  BOOL OpenPort();
  void ClosePort();
  void Start() override;
  void Stop() override;
  void SendPacket(const BYTE* packet) override;

  DWORD GetComPort() const { return ComPort; }
  DWORD GetBaudRate() const { return BaudRate; }
  BYTE GetParity() const { return Parity; }
  BYTE GetDataBits() const { return DataBits; }
  BYTE GetStopBits() const { return StopBits; }
  const std::string& GetComPortOptions() const { return ComPortOptions; }
  void SetComPort(DWORD comPort) { ComPort = comPort; }
  void SetBaudRate(DWORD baudRate) { BaudRate = baudRate; }
  int GetHandle() const { return Handle; }

 private:
  DWORD ComPort = 0;
  DWORD BaudRate = 115200;
  BYTE Parity = 0;
  BYTE DataBits = 8;
  BYTE StopBits = 0;
  std::string ComPortOptions;
};
