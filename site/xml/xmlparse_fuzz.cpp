// Fuzz target: any bytes given to the markup parser must parse or fail with a message,
// and everything the parser then finds must be readable and editable within the text.
#include <cstddef>
#include <cstdint>
#include <string>

#include "frame/KVTException.h"
#include "site/xml/XmlDocument.h"

namespace {

// Walks every element depth first, reading what can be read at each.
void WalkAll(CXmlDocument& doc, int depth) {
  if (depth > 200) return;
  while (doc.FindElement()) {
    (void)doc.GetTagName();
    (void)doc.GetAttribute("a");
    (void)doc.GetData();
    if (doc.FindChildElement()) {
      doc.IntoElement();
      doc.ResetPosition();
      return;
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  try {
    CXmlDocument doc;
    const std::string text(reinterpret_cast<const char*>(data), size);
    const bool parsed = doc.Parse(text);
    if (!parsed && doc.GetError().empty()) __builtin_trap();
    if (!parsed) {
      if (doc.FindElement() || doc.FindChildElement()) __builtin_trap();
      return 0;
    }

    // Visit every element once, in document order, through the position.
    unsigned visited = 0;
    if (!doc.FindElement()) __builtin_trap();
    for (;;) {
      ++visited;
      (void)doc.GetTagName();
      (void)doc.GetAttribute("id");
      (void)doc.GetData();
      if (doc.FindChildElement()) {
        doc.IntoElement();
        continue;
      }
      while (!doc.FindElement()) {
        if (!doc.OutOfElement()) goto walked;
      }
    }
  walked:
    if (visited != doc.GetElementCount()) __builtin_trap();

    // Edit every leaf, then the text must parse again into as many elements.
    doc.ResetPosition();
    doc.FindElement();
    for (;;) {
      if (doc.FindChildElement()) {
        doc.IntoElement();
        continue;
      }
      const std::string value = doc.GetData() + "]]>&<";
      if (doc.SetData(value, (visited & 1) != 0)) {
        if (doc.GetData() != value) __builtin_trap();
      } else if (doc.GetTagName().size() + 3 <= 0x3FF) {
        __builtin_trap();  // only an end tag too long for its field may refuse a leaf
      }
      while (!doc.FindElement()) {
        if (!doc.OutOfElement()) goto edited;
      }
    }
  edited:
    CXmlDocument again;
    const std::string edited = doc.GetDocument();
    if (!again.Parse(edited)) __builtin_trap();
    if (again.GetElementCount() != visited) __builtin_trap();
    WalkAll(again, 0);
  } catch (CKVTException* e) {
    delete e;
    __builtin_trap();
  }
  return 0;
}
