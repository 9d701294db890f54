#include "site/xml/XmlTreeBuilder.h"

#include <cstdarg>
#include <cstdio>
#include <string_view>
#include <vector>

#include "frame/KVTException.h"
#include "site/xml/XmlScanner.h"

CXmlTreeBuilder::CXmlTreeBuilder(const std::string& doc, CXmlIndex& index, DWORD& used,
                                 DWORD& freeList)
    : m_doc(doc), m_index(index), m_used(used), m_free(freeList) {}

DWORD CXmlTreeBuilder::Fail(const char* format, ...) {
  va_list args;
  va_start(args, format);
  va_list copy;
  va_copy(copy, args);
  const int needed = std::vsnprintf(nullptr, 0, format, copy);
  va_end(copy);
  std::vector<char> text(static_cast<std::size_t>(needed > 0 ? needed : 0) + 1);
  std::vsnprintf(text.data(), text.size(), format, args);
  va_end(args);
  m_builderError.assign(text.data());
  return 0;
}

DWORD CXmlTreeBuilder::TakeRecord() {
  if (m_free != 0) {
    const DWORD record = m_free;
    m_free = m_index[record].NextSibling();
    return record;
  }
  if (m_used >= m_index.Capacity()) m_index.Grow();
  return m_used++;
}

void CXmlTreeBuilder::LinkAsLastChild(DWORD record, DWORD parent) {
  XmlElementRecord& element = m_index[record];
  XmlElementRecord& holder = m_index[parent];
  element.Word[4] = parent;
  element.Word[5] = 0;
  element.Word[6] = 0;
  const DWORD depth = parent == 0 ? 0 : (holder.Depth() + 1) & 0xFFFF;
  if (holder.FirstChild() == 0) {
    holder.Word[5] = record;
    element.Word[7] = record;
    element.Word[3] = depth | XmlElementRecord::kFirstChildBit;
  } else {
    XmlElementRecord& first = m_index[holder.FirstChild()];
    const DWORD last = first.PreviousSibling();
    m_index[last].Word[6] = record;
    element.Word[7] = last;
    first.Word[7] = record;
    element.Word[3] = depth;
  }
}

DWORD CXmlTreeBuilder::Build() {
  return Guarded("CXmlTreeBuilder::Build()", [&]() -> DWORD {
    CXmlScanner scanner(m_doc, 0, static_cast<DWORD>(m_doc.size()));
    DWORD root = 0;
    for (;;) {
      const XmlToken token = scanner.Next();
      switch (token.Kind) {
        case XmlTokenKind::StartTag:
        case XmlTokenKind::EmptyTag: {
          const std::string name = Text(token.NameOffset, token.NameLength);
          if (m_open.empty() && root != 0)
            return Fail("Element '%s' at offset %d is sibling to root", name.c_str(),
                        static_cast<int>(token.Offset));
          if (token.Length > XmlElementRecord::kStartTagMask)
            return Fail("Element '%s' at offset %d too long", name.c_str(),
                        static_cast<int>(token.Offset));
          const DWORD parent = m_open.empty() ? 0 : m_open.back().Record;
          const DWORD record = TakeRecord();
          LinkAsLastChild(record, parent);
          XmlElementRecord& element = m_index[record];
          element.Word[0] = token.Offset;
          element.Word[1] = token.Length;
          element.SetTagLengths(token.Length, 0);
          if (m_open.empty()) root = record;
          if (token.Kind == XmlTokenKind::StartTag) {
            if (m_open.size() == m_open.capacity()) m_open.reserve(m_open.capacity() * 2 + 6);
            m_open.push_back(OpenElement{record, token.Offset, token.Length, token.NameOffset,
                                         token.NameLength});
          }
          break;
        }
        case XmlTokenKind::EndTag: {
          const std::string name = Text(token.NameOffset, token.NameLength);
          const int endOffset = static_cast<int>(token.Offset + 1);
          if (m_open.empty())
            return Fail("No start tag for end tag '%s' at offset %d", name.c_str(), endOffset);
          const OpenElement& open = m_open.back();
          const bool matches =
              token.NameLength <= open.NameLength &&
              m_doc.compare(open.NameOffset, token.NameLength, m_doc, token.NameOffset,
                            token.NameLength) == 0 &&
              (token.NameLength == open.NameLength ||
               std::string_view(" =/[").find(m_doc[open.NameOffset + token.NameLength]) !=
                   std::string_view::npos);
          if (!matches)
            return Fail("End tag '%s' at offset %d does not match start tag '%s' at offset %d",
                        name.c_str(), endOffset, Text(open.NameOffset, open.NameLength).c_str(),
                        static_cast<int>(open.Offset));
          if (token.Length > XmlElementRecord::kMaxEndTagLength)
            return Fail("Element '%s' at offset %d too long", name.c_str(), endOffset);
          XmlElementRecord& element = m_index[open.Record];
          element.Word[1] = token.Offset + token.Length - open.Offset;
          element.SetTagLengths(open.StartTagLength, token.Length);
          m_open.pop_back();
          break;
        }
        case XmlTokenKind::End:
          m_scannerError = scanner.Error();
          if (!m_open.empty()) {
            const OpenElement& open = m_open.back();
            return Fail("Element '%s' at offset %d not ended",
                        Text(open.NameOffset, open.NameLength).c_str(),
                        static_cast<int>(open.Offset));
          }
          if (root == 0) return Fail("Root element not found");
          return root;
        default:
          break;  // text, comments and declarations carry no elements
      }
    }
  });
}
