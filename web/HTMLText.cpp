#include "web/HTMLText.h"

#include <cstdarg>
#include <cstdio>
#include <vector>

std::string HTMLFormat(const char* format, ...) {
  va_list args;
  va_start(args, format);
  va_list count;
  va_copy(count, args);
  const int length = std::vsnprintf(nullptr, 0, format, count);
  va_end(count);
  if (length <= 0) {
    va_end(args);
    return std::string();
  }
  std::vector<char> text(static_cast<std::size_t>(length) + 1);
  std::vsnprintf(text.data(), text.size(), format, args);
  va_end(args);
  return std::string(text.data(), static_cast<std::size_t>(length));
}
