// A port without a thread that notes what its stream hands it: page updates with their
// versions, and the drops of a site's packets.
#pragma once

#include <string>
#include <vector>

#include "distribution/OutputPort.h"

class StreamRecordingPort : public CZOLOutputPort {
 public:
  StreamRecordingPort() : CZOLOutputPort(1) { Running = 1; }
  void LoadSettings(CIniFile&, const std::string&) override {}
  void SaveSettings(CIniFile&, const std::string&) override {}
  void Start() override {}
  void SendPacket(const BYTE*) override {}
  void UpdatePage(DWORD key, BYTE sequence, const PacketBlocks&) override {
    Updates.push_back(key);
    Sequences.push_back(sequence);
  }
  void ClearAllPackets(DWORD siteNumber) override { Clears.push_back(siteNumber); }

  std::vector<DWORD> Updates;
  std::vector<BYTE> Sequences;
  std::vector<DWORD> Clears;
};
