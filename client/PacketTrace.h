// zolclient --trace: one line per checked packet and one per completed page, for anyone who
// wants to see what a server sends without a capture tool. The formats are fixed (README,
// docs/protocol.md):
//   packet site S page P level L number N of T version H.L checksum CCCC good bytes B
//   packet bad checksum CCCC bytes B          (also: bad end mark, bad header)
//   page site S page P level L version H.L complete packets T bytes D PATH/NAME
// N is the packet number as it stands in the packet (twelve bits, so a page of more than
// 4096 packets counts from 0 again); T is ? until the page's last packet, which shows the
// count of packets of that version, rounds of numbers past 4096 counted. CCCC is the
// checksum the packet carries, in hex; B the packet's size; D the size of the page's data.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <ostream>

#include "client/PacketScanner.h"
#include "client/PageAssembler.h"
#include "frame/Types.h"

namespace zolclient {

class CPacketTrace {
 public:
  explicit CPacketTrace(std::ostream& out) : Out(out) {}

  // A block the scanner checked; `packet` is filled when `state` is Good.
  void OnBlock(const BYTE* block, std::size_t size, CPacketScanner::BlockState state, const ScannedPacket& packet);
  void OnPage(const ReceivedPage& page);

 private:
  // Where the packets of one page stand, to count the rounds of packet numbers.
  struct PageCount {
    BYTE High = 0;
    BYTE Low = 0;
    bool HasPrevious = false;
    DWORD PreviousNumber = 0;
    bool PreviousWasLast = false;
    std::uint64_t Round = 0;
    std::uint64_t Packets = 0;  // the count of the version, once its last packet came
  };

  std::ostream& Out;
  std::map<DWORD, PageCount> Pages;
};

}  // namespace zolclient
