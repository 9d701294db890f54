// Sets the module-wide packet size (and delay) for one test and puts them back after.
#pragma once

#include "distribution/ZOLServer.h"

class PacketSizeScope {
 public:
  explicit PacketSizeScope(DWORD size, DWORD delay = 1) : OldSize(PacketSize), OldDelay(PacketDelay) {
    PacketSize = size;
    PacketDelay = delay;
  }
  ~PacketSizeScope() {
    PacketSize = OldSize;
    PacketDelay = OldDelay;
  }
  PacketSizeScope(const PacketSizeScope&) = delete;
  PacketSizeScope& operator=(const PacketSizeScope&) = delete;

 private:
  DWORD OldSize;
  DWORD OldDelay;
};
