// A port without a thread that notes what its stream hands it: page updates with their
// versions, the pages those packets carry, and the drops of a site's packets.
#pragma once

#include <string>
#include <vector>

#include "distribution/OutputPort.h"
#include "distribution/ZOLServer.h"
#include "testing/PageReassembler.h"

class StreamRecordingPort : public CZOLOutputPort {
 public:
  StreamRecordingPort() : CZOLOutputPort(1) { Running = 1; }
  void LoadSettings(CIniFile&, const std::string&) override {}
  void SaveSettings(CIniFile&, const std::string&) override {}
  void Start() override {}
  void SendPacket(const BYTE*) override {}
  void UpdatePage(DWORD key, BYTE sequence, const PacketBlocks& packets) override {
    Updates.push_back(key);
    Sequences.push_back(sequence);
    for (const BYTE* block : packets) Received.FeedBlock(block);
  }
  void ClearAllPackets(DWORD siteNumber) override { Clears.push_back(siteNumber); }

  std::vector<DWORD> Updates;
  std::vector<BYTE> Sequences;
  std::vector<DWORD> Clears;
  // The page versions that the handed packets make, as a client would rebuild them.
  CTestReassembler Received{PacketSize};
};
