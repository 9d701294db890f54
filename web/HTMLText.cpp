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

std::string HtmlText(const std::string& value) {
  std::string escaped;
  escaped.reserve(value.size());
  for (char c : value) {
    switch (c) {
      case '&': escaped += "&amp;"; break;
      case '<': escaped += "&lt;"; break;
      case '>': escaped += "&gt;"; break;
      case '"': escaped += "&quot;"; break;
      case '\'': escaped += "&#39;"; break;
      default: escaped += c;
    }
  }
  return escaped;
}

std::string HtmlAttribute(const std::string& value) { return HtmlText(value); }

std::string HtmlTextArea(const std::string& value) { return HtmlText(value); }

std::string UrlQueryValue(const std::string& value) {
  static const char kHex[] = "0123456789ABCDEF";
  std::string encoded;
  for (char c : value) {
    const auto byte = static_cast<unsigned char>(c);
    const bool plain = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9') ||
                       byte == '-' || byte == '.' || byte == '_' || byte == '~';
    if (plain) {
      encoded += c;
    } else {
      encoded += '%';
      encoded += kHex[byte >> 4];
      encoded += kHex[byte & 0x0F];
    }
  }
  return encoded;
}

std::string ScriptString(const std::string& value) {
  static const char kHex[] = "0123456789ABCDEF";
  std::string escaped;
  for (char c : value) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\\' || c == '\'' || c == '"') {
      escaped += '\\';
      escaped += c;
    } else if (c == '<' || c == '>' || c == '&' || byte < 0x20) {
      escaped += "\\x";
      escaped += kHex[byte >> 4];
      escaped += kHex[byte & 0x0F];
    } else {
      escaped += c;
    }
  }
  return escaped;
}
