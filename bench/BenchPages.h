// Pages for the port benchmarks.
#pragma once

#include <memory>
#include <vector>

#include "distribution/OutputPage.h"

// A page of 11,000 bytes that hardly compress: 100 packets of 128 bytes.
inline std::unique_ptr<COutputPage> HundredPacketPage() {
  auto page = std::make_unique<COutputPage>(1, 3, 1, 10, "", "fan.bin");
  std::vector<BYTE> data(11000);
  unsigned value = 1;
  for (auto& b : data) b = static_cast<BYTE>((value = value * 1103515245u + 12345u) >> 16);
  page->SetData(data);
  page->BuildPackets();
  return page;
}
