// The serial port: packets are written to a COM port; the COM number is mapped to a
// device by the host's package.
#pragma once

#include <chrono>
#include <cstddef>

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
  std::string GetSettingsAsHTML() override;
  std::string CheckPost(const CKVTHttpRequest& request) override;
  BOOL ProcessPost(CKVTHttpRequest& request) override;
  // Drops what the driver still holds, writes the packet and waits until it is out on
  // the line, as long as the port runs and at most the port's write timeout.
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

  // The time `bytes` take on the line at the rate and frame it was opened with.
  std::chrono::microseconds LineTime(std::size_t bytes) const;

  // A packet's write may take twice its line time and this much more before the purge
  // before the next packet drops what the line has not taken.
  static constexpr std::chrono::milliseconds kWriteTimeoutAllowance{100};

 private:
  static constexpr std::chrono::microseconds kShortestPause{200};
  static constexpr std::chrono::microseconds kLongestPause{20000};

  // Returns once the written bytes are out, the write timeout has passed since
  // `started`, or the port is stopping.
  void WaitUntilSent(std::size_t bytes, std::chrono::steady_clock::time_point started);

  DWORD ComPort = 0;
  DWORD BaudRate = 115200;
  BYTE Parity = 0;
  BYTE DataBits = 8;
  BYTE StopBits = 0;
  std::string ComPortOptions;
  // The line as OpenPort set it, for the sending thread.
  DWORD LineRate = 0;
  DWORD LineBitsPerByte = 10;
};
