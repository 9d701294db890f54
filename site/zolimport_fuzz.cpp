// Fuzz target: any bytes given to a template page as its content must import without an
// exception, and the page must then export a well-framed wire text and a browser text.
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>

#include "frame/KVTException.h"
#include "frame/Parameters.h"
#include "site/ZOLServerPage.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  try {
    const std::string text(reinterpret_cast<const char*>(data), size);
    CZOLServerPage page(1, 9, 1, 5, "f/", "fuzz.zol");
    if (!text.empty() && page.Initialize(nullptr, 0, "", -1, text) != TRUE) __builtin_trap();
    page.ZOLExport();
    const std::vector<BYTE>& wire = page.GetData();
    if (page.GetChunks().empty()) {
      if (!wire.empty()) __builtin_trap();
    } else {
      if (wire.empty() || wire.back() != 0) __builtin_trap();
      static const std::string kStart = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n<zol";
      if (std::string(wire.begin(), wire.begin() + static_cast<long>(kStart.size())) != kStart) __builtin_trap();
    }
    // Every link belongs to an include that was kept.
    if (page.GetLinks().size() != page.GetIncludes().size()) __builtin_trap();
    std::deque<std::string> queue;
    page.AddLinksToQueue(queue);
    if (queue.size() != page.GetLinks().size()) __builtin_trap();
    (void)page.HTMLExport(CParameters());
  } catch (CKVTException* e) {
    delete e;
    __builtin_trap();
  }
  return 0;
}
