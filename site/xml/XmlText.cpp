#include "site/xml/XmlText.h"

#include <cstring>

#include "frame/KVTException.h"

namespace {

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// The reference "&#...;" at `text` (which starts with "&#"), decoded into `out`.
// Returns the length of the reference, or 0 when it is no valid one.
std::size_t DecodeNumeric(const char* text, std::size_t length, std::string& out) {
  constexpr std::size_t kMaxInner = 7;
  const void* semicolon = std::memchr(text, ';', length < 2 + kMaxInner + 1 ? length : 2 + kMaxInner + 1);
  if (semicolon == nullptr) return 0;
  const std::size_t end = static_cast<std::size_t>(static_cast<const char*>(semicolon) - text);
  std::size_t p = 2;
  const bool hex = p < end && (text[p] == 'x');
  if (hex) ++p;
  if (p == end) return 0;
  DWORD code = 0;
  for (; p < end; ++p) {
    const int digit = hex ? HexValue(text[p]) : (text[p] >= '0' && text[p] <= '9' ? text[p] - '0' : -1);
    if (digit < 0) return 0;
    code = code * (hex ? 16 : 10) + static_cast<DWORD>(digit);
  }
  if (code == 0 || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return 0;
  AppendUtf8(out, code);
  return end + 1;
}

struct NamedReference {
  const char* Text;
  std::size_t Length;
  char Character;
};

constexpr NamedReference kNamed[] = {
    {"&lt;", 4, '<'}, {"&amp;", 5, '&'}, {"&gt;", 4, '>'}, {"&apos;", 6, '\''}, {"&quot;", 6, '"'},
};

}  // namespace

void AppendUtf8(std::string& out, DWORD code) {
  if (code < 0x80) {
    out += static_cast<char>(code);
  } else if (code < 0x800) {
    out += static_cast<char>(0xC0 | (code >> 6));
    out += static_cast<char>(0x80 | (code & 0x3F));
  } else if (code < 0x10000) {
    out += static_cast<char>(0xE0 | (code >> 12));
    out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (code & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (code >> 18));
    out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (code & 0x3F));
  }
}

std::string XmlDecode(const char* text, std::size_t length) {
  return Guarded("XmlDecode()", [&] {
    std::string out;
    out.reserve(length);
    std::size_t p = 0;
    while (p < length) {
      const void* amp = std::memchr(text + p, '&', length - p);
      if (amp == nullptr) {
        out.append(text + p, length - p);
        break;
      }
      const std::size_t at = static_cast<std::size_t>(static_cast<const char*>(amp) - text);
      out.append(text + p, at - p);
      p = at;
      std::size_t used = 0;
      if (p + 1 < length && text[p + 1] == '#') {
        used = DecodeNumeric(text + p, length - p, out);
      } else {
        for (const NamedReference& named : kNamed) {
          if (length - p >= named.Length && std::memcmp(text + p, named.Text, named.Length) == 0) {
            out += named.Character;
            used = named.Length;
            break;
          }
        }
      }
      if (used == 0) {
        out += '&';
        used = 1;
      }
      p += used;
    }
    return out;
  });
}

std::string XmlEscape(const std::string& text, bool inAttribute) {
  return Guarded("XmlEscape()", [&] {
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
      switch (c) {
        case '<': out += "&lt;"; break;
        case '&': out += "&amp;"; break;
        case '>': out += "&gt;"; break;
        case '\'': if (inAttribute) out += "&apos;"; else out += c; break;
        case '"': if (inAttribute) out += "&quot;"; else out += c; break;
        default: out += c;
      }
    }
    return out;
  });
}

std::string XmlCData(const std::string& text) {
  return Guarded("XmlCData()", [&] {
    std::string out = "<![CDATA[";
    std::size_t p = 0;
    for (;;) {
      const std::size_t close = text.find("]]>", p);
      if (close == std::string::npos) break;
      out.append(text, p, close - p);
      out += "]]]]><![CDATA[>";
      p = close + 3;
    }
    out.append(text, p, std::string::npos);
    out += "]]>";
    return out;
  });
}
