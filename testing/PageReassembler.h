// A receiver for tests, written from the reassembly rules of the packet stream: checks
// each block, collects the chunks of each page version, un-escapes, unpacks and reads
// the page record.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "frame/Types.h"

struct ReceivedPage {
  DWORD PageIdentity = 0;
  BYTE SequenceHigh = 0;
  BYTE SequenceLow = 0;
  std::string Path;
  std::string Name;
  DWORD IsTemplate = 0;
  std::vector<BYTE> Data;
  std::size_t Packets = 0;
};

class CTestReassembler {
 public:
  explicit CTestReassembler(std::size_t packetSize) : PacketSize(packetSize) {}

  // A byte stream (TCP, serial): blocks are found by their start mark.
  void FeedStream(const BYTE* data, std::size_t length);
  // One block of PacketSize bytes; false when it fails its checks and is dropped.
  bool FeedBlock(const BYTE* block);

  std::vector<ReceivedPage> Completed;
  std::size_t DroppedBlocks = 0;
  std::size_t BadPages = 0;  // complete but failed to unpack

 private:
  struct Collecting {
    BYTE SequenceHigh = 0;
    BYTE SequenceLow = 0;
    bool Started = false;
    DWORD LastNumber = 0;
    DWORD Epoch = 0;  // packet numbers wrap at 4096
    std::map<DWORD, std::vector<BYTE>> Chunks;
    bool HaveLast = false;
    DWORD LastIndex = 0;
  };
  void Finish(DWORD identity, Collecting& page);

  std::size_t PacketSize;
  std::vector<BYTE> Pending;
  std::map<DWORD, Collecting> Pages;
};
