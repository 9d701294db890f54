#include "site/xml/XmlScanner.h"

#include <cstdio>
#include <cstring>

#include "frame/KVTException.h"

namespace {

// A name starts with a letter, "_", ":" or any byte of a multibyte character.
bool IsNameStart(char c) {
  const unsigned char u = static_cast<unsigned char>(c);
  return (u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z') || u == '_' || u == ':' || u >= 0x80;
}

}  // namespace

CXmlScanner::CXmlScanner(const std::string& doc, DWORD begin, DWORD end)
    : m_doc(doc), m_pos(begin), m_end(end) {}

bool CXmlScanner::IsDelimiter(char c) {
  switch (c) {
    case ' ': case '\t': case '\n': case '\r': case '<': case '>': case '=':
    case '\\': case '/': case '?': case '!':
      return true;
    default:
      return false;
  }
}

DWORD CXmlScanner::NameLength(const std::string& doc, DWORD offset, DWORD end) {
  DWORD p = offset;
  while (p < end && !IsDelimiter(doc[p])) ++p;
  return p - offset;
}

XmlToken CXmlScanner::Fail(const char* format, const char* what, DWORD offset) {
  char text[160];
  std::snprintf(text, sizeof text, format, what, static_cast<int>(offset));
  m_error = text;
  m_pos = m_end;
  return XmlToken{};
}

DWORD CXmlScanner::FindCloser(DWORD from, const char* closer) const {
  const std::size_t found = m_doc.find(closer, from, std::strlen(closer));
  if (found == std::string::npos || found + std::strlen(closer) > m_end) return 0;
  return static_cast<DWORD>(found + std::strlen(closer));
}

DWORD CXmlScanner::SkipQuoted(DWORD quote) const {
  const void* match = std::memchr(m_doc.data() + quote + 1, m_doc[quote], m_end - quote - 1);
  if (match == nullptr) return 0;
  return static_cast<DWORD>(static_cast<const char*>(match) - m_doc.data()) + 1;
}

XmlToken CXmlScanner::Next() {
  return Guarded("CXmlScanner::Next()", [&] {
    if (m_pos >= m_end) return XmlToken{};
    if (m_doc[m_pos] != '<') {
      XmlToken text{XmlTokenKind::Text, m_pos, 0, m_pos, 0};
      const void* tag = std::memchr(m_doc.data() + m_pos, '<', m_end - m_pos);
      const DWORD stop =
          tag ? static_cast<DWORD>(static_cast<const char*>(tag) - m_doc.data()) : m_end;
      text.Length = text.NameLength = stop - m_pos;
      m_pos = stop;
      return text;
    }
    return ScanTag();
  });
}

XmlToken CXmlScanner::ScanTag() {
  const DWORD start = m_pos;
  const DWORD p = start + 1;
  if (p >= m_end) return Fail("%s at offset %d unterminated", "tag", start);
  const char c = m_doc[p];
  if (c == '/') return ScanEndTag(start);
  if (c == '?') {
    const DWORD stop = FindCloser(p + 1, "?>");
    if (stop == 0) return Fail("%s at offset %d unterminated", "Processing instruction", start);
    m_pos = stop;
    return XmlToken{XmlTokenKind::Instruction, start, stop - start, p + 1, stop - 2 - (p + 1)};
  }
  if (c == '!') {
    if (p + 1 >= m_end) return Fail("%s at offset %d unterminated", "tag", start);
    const char d = m_doc[p + 1];
    if (d == '-') {
      if (p + 2 >= m_end) return Fail("%s at offset %d unterminated", "Comment", start);
      if (m_doc[p + 2] != '-') return Fail("Incorrect %s at offset %d", "comment tag", p + 2);
      const DWORD stop = FindCloser(p + 3, "-->");
      if (stop == 0) return Fail("%s at offset %d unterminated", "Comment", start);
      m_pos = stop;
      return XmlToken{XmlTokenKind::Comment, start, stop - start, p + 3, stop - 3 - (p + 3)};
    }
    if (d == '[') {
      const DWORD stop = FindCloser(p + 2, "]]>");
      if (stop == 0) return Fail("%s at offset %d unterminated", "CDATA Section", start);
      // The inner text begins behind "<![CDATA[" when it is spelled so.
      DWORD inner = p + 2;
      static const char kOpen[] = "CDATA[";
      if (stop - 3 - inner >= sizeof kOpen - 1 &&
          m_doc.compare(inner, sizeof kOpen - 1, kOpen) == 0)
        inner += sizeof kOpen - 1;
      m_pos = stop;
      return XmlToken{XmlTokenKind::CData, start, stop - start, inner, stop - 3 - inner};
    }
    if (d == 'D') return ScanDoctype(start);
    return Fail("Incorrect %s at offset %d", "! tag", p + 1);
  }
  if (!IsNameStart(c)) return Fail("Incorrect %s at offset %d", "tag name character", p);
  return ScanStartTag(start);
}

XmlToken CXmlScanner::ScanStartTag(DWORD start) {
  return ScanElementTag(XmlTokenKind::StartTag, start, start + 1, "Element tag");
}

XmlToken CXmlScanner::ScanEndTag(DWORD start) {
  return ScanElementTag(XmlTokenKind::EndTag, start, start + 2, "Element end tag");
}

XmlToken CXmlScanner::ScanElementTag(XmlTokenKind kind, DWORD start, DWORD nameOffset, const char* what) {
  XmlToken tag{kind, start, 0, nameOffset, 0};
  tag.NameLength = NameLength(m_doc, tag.NameOffset, m_end);
  DWORD p = tag.NameOffset + tag.NameLength;
  while (p < m_end) {
    const char c = m_doc[p];
    if (c == '>') {
      if (kind == XmlTokenKind::StartTag && m_doc[p - 1] == '/') tag.Kind = XmlTokenKind::EmptyTag;
      m_pos = p + 1;
      tag.Length = m_pos - start;
      return tag;
    }
    if (c == '"' || c == '\'') {
      p = SkipQuoted(p);
      if (p == 0) break;
    } else {
      ++p;
    }
  }
  return Fail("%s at offset %d unterminated", what, start);
}

XmlToken CXmlScanner::ScanDoctype(DWORD start) {
  bool inSubset = false;
  DWORD p = start + 2;
  while (p < m_end) {
    const char c = m_doc[p];
    if (c == '"' || c == '\'') {
      p = SkipQuoted(p);
      if (p == 0) break;
      continue;
    }
    if (!inSubset) {
      if (c == '[') {
        inSubset = true;
      } else if (c == '>') {
        m_pos = p + 1;
        return XmlToken{XmlTokenKind::Doctype, start, m_pos - start, start + 2, p - (start + 2)};
      }
      ++p;
      continue;
    }
    if (c == ']') {
      inSubset = false;
    } else if (c == '<' && p + 2 < m_end && m_doc[p + 1] == '!') {
      const char kind = m_doc[p + 2];
      if (kind == '-') {
        p = FindCloser(p + 2, "-->");
        if (p == 0) break;
        continue;
      }
      if (kind == 'E' || kind == 'A' || kind == 'N') {
        // A declaration of the internal subset: up to its ">", quoted strings skipped.
        p += 3;
        while (p < m_end && m_doc[p] != '>') {
          if (m_doc[p] == '"' || m_doc[p] == '\'') {
            p = SkipQuoted(p);
            if (p == 0) break;
          } else {
            ++p;
          }
        }
        if (p == 0 || p >= m_end) break;
      }
    }
    ++p;
  }
  return Fail("%s at offset %d unterminated", "Doctype", start);
}
