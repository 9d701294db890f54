#include "client/ZolRenderTree.h"

#include <algorithm>
#include <array>
#include <limits>

#include "frame/KVTException.h"
#include "site/xml/XmlScanner.h"
#include "site/xml/XmlText.h"

namespace zolclient {

namespace {

// A name from the page as a reason can quote it: at most 32 bytes.
std::string Quoted(std::string_view name) {
  constexpr std::size_t kLongest = 32;
  std::string out = "<";
  out.append(name.substr(0, kLongest));
  if (name.size() > kLongest) out += "...";
  out += '>';
  return out;
}

bool IsBlankText(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return CXmlScanner::IsSpace(c); });
}

bool EqualsIgnoringCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
           return lower(x) == lower(y);
         });
}

bool EndsAttributeName(char c) {
  return CXmlScanner::IsSpace(c) || c == '=' || c == '/' || c == '<' || c == '>' || c == '"' || c == '\'';
}

// An end tag as a reason quotes it.
std::string QuotedEnd(std::string_view name) {
  std::string slashed = "/";
  slashed += name;
  return Quoted(slashed);
}

}  // namespace

bool CZolPageTree::IsVoidElement(std::string_view name) {
  static constexpr std::array<std::string_view, 14> kVoid = {"area",  "base", "br",   "col",   "embed",
                                                             "hr",    "img",  "input", "link", "meta",
                                                             "param", "source", "track", "wbr"};
  return std::any_of(kVoid.begin(), kVoid.end(), [&](std::string_view known) { return EqualsIgnoringCase(name, known); });
}

bool CZolPageTree::Fail(std::string reason) {
  m_error = std::move(reason);
  m_nodes.clear();
  m_attributes.clear();
  m_open.clear();
  return false;
}

DWORD CZolPageTree::AddNode(const ZolNode& node) {
  const auto index = static_cast<DWORD>(m_nodes.size());
  m_nodes.push_back(node);
  OpenElement& parent = m_open.back();
  if (parent.LastChild == 0) {
    m_nodes[parent.Node].FirstChild = index;
  } else {
    m_nodes[parent.LastChild].NextSibling = index;
  }
  parent.LastChild = index;
  return index;
}

bool CZolPageTree::ReadAttributes(ZolNode& element, DWORD from, DWORD end) {
  const std::string& text = *m_text;
  element.FirstAttribute = static_cast<DWORD>(m_attributes.size());
  DWORD p = from;
  for (;;) {
    bool blankBefore = false;
    while (p < end && CXmlScanner::IsSpace(text[p])) {
      ++p;
      blankBefore = true;
    }
    if (p >= end) break;
    const DWORD at = p;
    const auto failAt = [&](const char* what) {
      std::string reason = what;
      reason += " in " + Quoted(Name(element));
      reason += " at offset " + std::to_string(at);
      return Fail(std::move(reason));
    };
    if (!blankBefore) return failAt("attributes not apart");
    ZolAttribute attribute;
    attribute.NameOffset = p;
    while (p < end && !EndsAttributeName(text[p])) ++p;
    attribute.NameLength = p - attribute.NameOffset;
    if (attribute.NameLength == 0) return failAt("bad attribute syntax");
    attribute.ValueOffset = p;
    DWORD q = p;
    while (q < end && CXmlScanner::IsSpace(text[q])) ++q;
    if (q < end && text[q] == '=') {
      ++q;
      while (q < end && CXmlScanner::IsSpace(text[q])) ++q;
      if (q >= end || (text[q] != '"' && text[q] != '\'')) return failAt("attribute value without quotes");
      const std::size_t close = text.find(text[q], q + 1);
      if (close == std::string::npos || close >= end) return failAt("attribute value not closed");
      attribute.ValueOffset = q + 1;
      attribute.ValueLength = static_cast<DWORD>(close) - attribute.ValueOffset;
      p = static_cast<DWORD>(close) + 1;
    }
    if (m_nodes.size() + m_attributes.size() >= kMaxParts) {
      return Fail("more than " + std::to_string(kMaxParts) + " elements, texts and attributes");
    }
    m_attributes.push_back(attribute);
  }
  element.AttributeCount = static_cast<DWORD>(m_attributes.size()) - element.FirstAttribute;
  return true;
}

bool CZolPageTree::Parse(const std::string& text) {
  return Guarded("CZolPageTree::Parse()", [&] {
    m_text = &text;
    m_nodes.clear();
    m_attributes.clear();
    m_open.clear();
    m_error.clear();
    if (text.size() >= std::numeric_limits<DWORD>::max()) return Fail("the page is too long");
    CXmlScanner scanner(text, 0, static_cast<DWORD>(text.size()));
    for (;;) {
      const XmlToken token = scanner.Next();
      const bool inRoot = !m_open.empty();
      switch (token.Kind) {
        case XmlTokenKind::End:
          if (!scanner.Error().empty()) return Fail(scanner.Error());
          if (m_nodes.empty()) return Fail("no zol root element");
          return Fail("element " + Quoted(Name(m_nodes[m_open.back().Node])) + " not ended");
        case XmlTokenKind::Instruction:
        case XmlTokenKind::Doctype:
        case XmlTokenKind::Comment:
          break;
        case XmlTokenKind::Text:
        case XmlTokenKind::CData: {
          if (!inRoot) {
            if (token.Kind == XmlTokenKind::Text && IsBlankText(View(token.NameOffset, token.NameLength))) break;
            return Fail("text before the zol root element");
          }
          if (m_nodes.size() + m_attributes.size() >= kMaxParts) {
            return Fail("more than " + std::to_string(kMaxParts) + " elements, texts and attributes");
          }
          ZolNode node;
          node.Kind = token.Kind == XmlTokenKind::Text ? ZolNodeKind::Text : ZolNodeKind::CData;
          node.Offset = token.NameOffset;
          node.Length = token.NameLength;
          AddNode(node);
          break;
        }
        case XmlTokenKind::StartTag:
        case XmlTokenKind::EmptyTag: {
          ZolNode element;
          element.Offset = token.NameOffset;
          element.Length = token.NameLength;
          const std::string_view name = Name(element);
          if (!inRoot && name != "zol") return Fail("the root element is " + Quoted(name) + ", not <zol>");
          const bool empty = token.Kind == XmlTokenKind::EmptyTag;
          const DWORD attributesEnd = token.Offset + token.Length - (empty ? 2 : 1);
          if (!ReadAttributes(element, token.NameOffset + token.NameLength, attributesEnd)) return false;
          if (m_nodes.size() + m_attributes.size() >= kMaxParts) {
            return Fail("more than " + std::to_string(kMaxParts) + " elements, texts and attributes");
          }
          DWORD index = 0;
          if (inRoot) {
            index = AddNode(element);
          } else {
            m_nodes.push_back(element);
            if (empty) return true;
          }
          if (!empty && (!inRoot || !IsVoidElement(name))) {
            if (m_open.size() >= kMaxDepth) {
              return Fail("elements nested more than " + std::to_string(kMaxDepth) + " deep");
            }
            m_open.push_back(OpenElement{index, 0});
          }
          break;
        }
        case XmlTokenKind::EndTag: {
          const std::string_view name = View(token.NameOffset, token.NameLength);
          const DWORD tagEnd = token.Offset + token.Length - 1;
          if (!IsBlankText(View(token.NameOffset + token.NameLength, tagEnd - token.NameOffset - token.NameLength))) {
            std::string reason = "bad end tag " + QuotedEnd(name);
            reason += " at offset " + std::to_string(token.Offset);
            return Fail(std::move(reason));
          }
          if (!inRoot) return Fail("end tag " + QuotedEnd(name) + " before the zol root element");
          const std::string_view open = Name(m_nodes[m_open.back().Node]);
          if (name != open) {
            // An end tag of a void element closes nothing: the element was never opened.
            if (IsVoidElement(name)) break;
            return Fail("end tag " + QuotedEnd(name) + " does not match " + Quoted(open));
          }
          m_open.pop_back();
          if (m_open.empty()) return true;
          break;
        }
      }
    }
  });
}

std::string CZolPageTree::AttributeValue(const ZolNode& element, std::string_view name) const {
  return Guarded("CZolPageTree::AttributeValue()", [&]() -> std::string {
    for (DWORD i = 0; i < element.AttributeCount; ++i) {
      const ZolAttribute& attribute = m_attributes[element.FirstAttribute + i];
      if (AttributeName(attribute) == name) {
        const std::string_view raw = AttributeRawValue(attribute);
        return XmlDecode(raw.data(), raw.size());
      }
    }
    return {};
  });
}

bool CZolPageTree::HasAttribute(const ZolNode& element, std::string_view name) const {
  for (DWORD i = 0; i < element.AttributeCount; ++i) {
    if (AttributeName(m_attributes[element.FirstAttribute + i]) == name) return true;
  }
  return false;
}

}  // namespace zolclient
