#include "site/xml/XmlDocument.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "frame/KVTException.h"
#include "site/xml/XmlScanner.h"
#include "site/xml/XmlText.h"
#include "site/xml/XmlTreeBuilder.h"

namespace {

// Offsets are words; a document must leave room to grow within them.
constexpr std::size_t kMaxDocument = 0x7FFFFFFF;

bool IsAnyName(const char* name) {
  return name == nullptr || name[0] == '\0' || (name[0] == '*' && name[1] == '\0');
}

}  // namespace

CXmlDocument::CXmlDocument(const char* text) {
  Guarded("CXmlDocument::CXmlDocument()", [&] {
    m_index.Reset(8);
    std::memset(&m_index[0], 0, sizeof(XmlElementRecord));
    if (text != nullptr) Parse(std::string(text));
  });
}

bool CXmlDocument::Parse(const std::string& text) {
  return Guarded("CXmlDocument::Parse()", [&] {
    m_doc = text;
    m_error.clear();
    ResetPosition();
    m_free = 0;
    m_used = 1;
    m_index.Reset(static_cast<DWORD>(std::min(m_doc.size(), kMaxDocument) / 64 + 8));
    XmlElementRecord& holder = m_index[0];
    std::memset(&holder, 0, sizeof holder);
    if (m_doc.empty()) {
      m_error = "Empty document";
      return false;
    }
    if (m_doc.size() > kMaxDocument) {
      m_error = "Document too long";
      return false;
    }

    CXmlTreeBuilder builder(m_doc, m_index, m_used, m_free);
    const DWORD root = builder.Build();
    if (root > 0) {
      m_index[0].Word[1] = static_cast<DWORD>(m_doc.size());
    } else {
      std::memset(&m_index[0], 0, sizeof(XmlElementRecord));
      m_used = 1;
      m_free = 0;
    }
    m_error = builder.ScannerError();
    if (!builder.BuilderError().empty()) {
      if (!m_error.empty()) m_error += ", ";
      m_error += builder.BuilderError();
    }
    return root > 0;
  });
}

void CXmlDocument::ResetPosition() {
  Guarded("CXmlDocument::ResetPosition()", [&] {
    m_parent = m_element = m_child = 0;
    m_nodeType = kElementNode;
    m_nodeOffset = m_nodeLength = 0;
  });
}

DWORD CXmlDocument::NameLength(DWORD element) const {
  const XmlElementRecord& record = m_index[element];
  return CXmlScanner::NameLength(m_doc, record.Offset() + 1, record.Offset() + record.Length());
}

bool CXmlDocument::NameMatches(DWORD element, const char* name) const {
  if (IsAnyName(name)) return true;
  const std::size_t wanted = std::strlen(name);
  const DWORD have = NameLength(element);
  if (wanted > have) return false;
  const char* tagName = m_doc.data() + m_index[element].Offset() + 1;
  if (std::memcmp(tagName, name, wanted) != 0) return false;
  return wanted == have || std::string_view(" =/[").find(tagName[wanted]) != std::string_view::npos;
}

DWORD CXmlDocument::FindSibling(DWORD start, const char* name) const {
  for (DWORD element = start; element != 0; element = m_index[element].NextSibling())
    if (NameMatches(element, name)) return element;
  return 0;
}

bool CXmlDocument::FindElement(const char* name) {
  return Guarded("CXmlDocument::FindElement()", [&] {
    DWORD parent = m_parent;
    DWORD element = m_element;
    if (name != nullptr && name[0] == '/') {
      parent = element = 0;
      ++name;
    }
    const DWORD start =
        element != 0 ? m_index[element].NextSibling() : m_index[parent].FirstChild();
    const DWORD found = FindSibling(start, name);
    if (found == 0) return false;
    m_parent = parent;
    m_element = found;
    m_child = 0;
    return true;
  });
}

bool CXmlDocument::FindChildElement(const char* name) {
  return Guarded("CXmlDocument::FindChildElement()", [&] {
    if (m_element == 0 && !FindElement()) return false;
    const DWORD start =
        m_child != 0 ? m_index[m_child].NextSibling() : m_index[m_element].FirstChild();
    const DWORD found = FindSibling(start, name);
    if (found == 0) return false;
    m_child = found;
    return true;
  });
}

bool CXmlDocument::IntoElement() {
  return Guarded("CXmlDocument::IntoElement()", [&] {
    if (m_element == 0) return false;
    m_parent = m_element;
    m_element = m_child;
    m_child = 0;
    return true;
  });
}

bool CXmlDocument::OutOfElement() {
  return Guarded("CXmlDocument::OutOfElement()", [&] {
    if (m_parent == 0) return false;
    m_child = m_element;
    m_element = m_parent;
    m_parent = m_index[m_parent].Parent();
    return true;
  });
}

std::string CXmlDocument::GetTagName() const {
  return Guarded("CXmlDocument::GetTagName()", [&]() -> std::string {
    switch (m_nodeType) {
      case kTextNode: return "#text";
      case kCDataNode: return "#cdata-section";
      case kCommentNode: return "#comment";
      default: break;
    }
    if (m_element == 0) return {};
    return m_doc.substr(m_index[m_element].Offset() + 1, NameLength(m_element));
  });
}

std::string CXmlDocument::GetAttribute(const char* name) const {
  return Guarded("CXmlDocument::GetAttribute()", [&]() -> std::string {
    if (m_element == 0 || name == nullptr || name[0] == '\0') return {};
    const XmlElementRecord& record = m_index[m_element];
    const DWORD end = record.Offset() + record.StartTagLength() - 1;  // the ">"
    DWORD p = record.Offset() + 1 + NameLength(m_element);
    const std::string_view wanted(name);
    std::string_view pendingName;
    bool afterEquals = false;
    while (p < end) {
      if (CXmlScanner::IsSpace(m_doc[p])) {
        ++p;
        continue;
      }
      // One token: a quoted value, a run of name characters, or one delimiter.
      DWORD begin = p;
      DWORD stop;
      bool quoted = false;
      if (m_doc[p] == '"' || m_doc[p] == '\'') {
        const std::size_t close = m_doc.find(m_doc[p], p + 1);
        stop = close == std::string::npos || close > end ? end : static_cast<DWORD>(close);
        begin = p + 1;
        p = stop + 1;
        quoted = true;
      } else if (CXmlScanner::IsDelimiter(m_doc[p])) {
        stop = ++p;
      } else {
        while (p < end && !CXmlScanner::IsDelimiter(m_doc[p])) ++p;
        stop = p;
      }
      const std::string_view token(m_doc.data() + begin, stop - begin);
      if (!quoted && token == "=" && !pendingName.empty()) {
        afterEquals = true;
      } else if (afterEquals) {
        if (pendingName == wanted) return XmlDecode(token.data(), token.size());
        pendingName = {};
        afterEquals = false;
      } else {
        pendingName = quoted ? std::string_view() : token;
      }
    }
    return {};
  });
}

std::string CXmlDocument::GetData() const {
  return Guarded("CXmlDocument::GetData()", [&] {
    std::string data;
    if (m_element == 0) return data;
    const XmlElementRecord& record = m_index[m_element];
    if (record.FirstChild() != 0 || record.EndTagLength() == 0) return data;
    CXmlScanner scanner(m_doc, record.Offset() + record.StartTagLength(),
                        record.Offset() + record.Length() - record.EndTagLength());
    for (XmlToken token = scanner.Next(); token.Kind != XmlTokenKind::End; token = scanner.Next()) {
      if (token.Kind == XmlTokenKind::Text)
        data += XmlDecode(m_doc.data() + token.NameOffset, token.NameLength);
      else if (token.Kind == XmlTokenKind::CData)
        data.append(m_doc, token.NameOffset, token.NameLength);
    }
    return data;
  });
}

bool CXmlDocument::SetData(const std::string& text, bool asCData) {
  return Guarded("CXmlDocument::SetData()", [&] {
    if (m_element == 0) return false;
    XmlElementRecord& record = m_index[m_element];
    if (record.FirstChild() != 0) return false;
    const std::string content = asCData ? XmlCData(text) : XmlEscape(text, false);

    DWORD replaceAt, replaceLength, startTagLength = record.StartTagLength(),
                                    endTagLength = record.EndTagLength();
    std::string replacement;
    if (endTagLength == 0) {
      // "<name .../>" is opened: its "/>" becomes ">", and an end tag follows the content.
      // Every "/" directly before the ">" goes, so that the tag cannot read as empty again.
      const std::string endTag = "</" + GetTagName() + ">";
      if (endTag.size() > XmlElementRecord::kMaxEndTagLength) return false;
      const DWORD greaterThan = record.Offset() + startTagLength - 1;
      DWORD slashes = 0;
      while (m_doc[greaterThan - slashes - 1] == '/') ++slashes;
      replaceAt = greaterThan - slashes;
      replaceLength = slashes + 1;
      replacement = ">" + content + endTag;
      startTagLength -= slashes;
      endTagLength = static_cast<DWORD>(endTag.size());
    } else {
      replaceAt = record.Offset() + startTagLength;
      replaceLength = record.Length() - startTagLength - endTagLength;
      replacement = content;
    }
    const long long difference =
        static_cast<long long>(replacement.size()) - static_cast<long long>(replaceLength);
    if (static_cast<long long>(m_doc.size()) + difference > static_cast<long long>(kMaxDocument))
      return false;

    m_doc.replace(replaceAt, replaceLength, replacement);
    record.Word[1] = static_cast<DWORD>(record.Length() + difference);
    record.SetTagLengths(startTagLength, endTagLength);
    ShiftFollowing(m_element, difference);
    m_index[0].Word[1] = static_cast<DWORD>(m_doc.size());
    return true;
  });
}

void CXmlDocument::ShiftFollowing(DWORD element, long long difference) {
  for (DWORD node = element; node != 0;) {
    for (DWORD sibling = m_index[node].NextSibling(); sibling != 0;
         sibling = m_index[sibling].NextSibling())
      ShiftSubtree(sibling, difference);
    node = m_index[node].Parent();
    if (node != 0) m_index[node].Word[1] = static_cast<DWORD>(m_index[node].Length() + difference);
  }
}

void CXmlDocument::ShiftSubtree(DWORD top, long long difference) {
  DWORD node = top;
  for (;;) {
    m_index[node].Word[0] = static_cast<DWORD>(m_index[node].Offset() + difference);
    if (m_index[node].FirstChild() != 0) {
      node = m_index[node].FirstChild();
      continue;
    }
    while (node != top && m_index[node].NextSibling() == 0) node = m_index[node].Parent();
    if (node == top) return;
    node = m_index[node].NextSibling();
  }
}
