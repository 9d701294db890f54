#include "web/EditorText.h"

#include <cstdint>

bool IsUtf8Text(const std::string& text) {
  std::size_t i = 0;
  while (i < text.size()) {
    const auto lead = static_cast<unsigned char>(text[i]);
    std::size_t length = 0;
    std::uint32_t code = 0;
    if (lead == 0) return false;
    if (lead < 0x80) {
      ++i;
      continue;
    }
    if (lead >= 0xC2 && lead <= 0xDF) {
      length = 2;
      code = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
      length = 3;
      code = lead & 0x0F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
      length = 4;
      code = lead & 0x07;
    } else {
      return false;
    }
    if (i + length > text.size()) return false;
    for (std::size_t k = 1; k < length; ++k) {
      const auto next = static_cast<unsigned char>(text[i + k]);
      if ((next & 0xC0) != 0x80) return false;
      code = (code << 6) | (next & 0x3F);
    }
    // Overlong forms, UTF-16 surrogates and code points above U+10FFFF are no UTF-8.
    if ((length == 3 && code < 0x800) || (length == 4 && (code < 0x10000 || code > 0x10FFFF)) ||
        (code >= 0xD800 && code <= 0xDFFF)) {
      return false;
    }
    i += length;
  }
  return true;
}


LineEnds CountLineEnds(const std::string& text) {
  LineEnds counts;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\r') {
      if (i + 1 < text.size() && text[i + 1] == '\n') {
        ++counts.CrLf;
        ++i;
      } else {
        ++counts.Cr;
      }
    } else if (text[i] == '\n') {
      ++counts.Lf;
    }
  }
  return counts;
}

std::string WithLineEnds(const std::string& text, const std::string& lineEnd) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\r') {
      if (i + 1 < text.size() && text[i + 1] == '\n') ++i;
      out += lineEnd;
    } else if (text[i] == '\n') {
      out += lineEnd;
    } else {
      out += text[i];
    }
  }
  return out;
}
