#include "site/ElementEndScan.h"

#include "frame/KVTException.h"

std::size_t FindElementEnd(const std::string& text) {
  return Guarded("FindElementEnd()", [&]() -> std::size_t {
    long depth = 0;
    bool closing = false;
    const std::size_t length = text.size();
    for (std::size_t i = 0; i < length; ++i) {
      const char current = text[i];
      const char next = i + 1 < length ? text[i + 1] : '-';
      if (current == '<' && next == '/') {
        closing = true;
      } else if (current == '<') {
        ++depth;
      } else if ((current == '/' || closing) && next == '>') {
        closing = false;
        --depth;
        if (depth == 0) return i + 2;
      }
    }
    return std::string::npos;
  });
}
