// A received page's markup as a tree of elements, texts and attributes, each pointing
// into the page's text. Built from the module's markup tokenizer; a page that does not
// parse into one `zol` root with properly nested elements has no tree, only a reason.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "frame/Types.h"

namespace zolclient {

enum class ZolNodeKind : BYTE { Element, Text, CData };

struct ZolNode {
  ZolNodeKind Kind = ZolNodeKind::Element;
  // Element: the tag name; Text: the raw text (entities undecoded); CData: the inner text.
  DWORD Offset = 0;
  DWORD Length = 0;
  DWORD FirstAttribute = 0;
  DWORD AttributeCount = 0;
  // Node indices; 0 is none, since node 0 (the root) is nobody's child or sibling.
  DWORD FirstChild = 0;
  DWORD NextSibling = 0;
};

struct ZolAttribute {
  DWORD NameOffset = 0;
  DWORD NameLength = 0;
  // The raw value between its quotes; a name alone has an empty value.
  DWORD ValueOffset = 0;
  DWORD ValueLength = 0;
};

class CZolPageTree {
 public:
  // Elements nested deeper than this make a page not well-formed.
  static constexpr std::size_t kMaxDepth = 256;
  // Nodes and attributes together; more make a page not well-formed.
  static constexpr std::size_t kMaxParts = 2'000'000;

  CZolPageTree() = default;
  CZolPageTree(const CZolPageTree&) = delete;
  CZolPageTree& operator=(const CZolPageTree&) = delete;
  virtual ~CZolPageTree() = default;

  // Parses `text` (which must outlive the tree). Before the root only white space, the
  // XML declaration, a doctype and comments may stand; the root must be `zol`; nothing
  // behind its end is read. The void elements of HTML (meta, link, br, img, ...) may
  // be written without "/>" and their end tags are ignored. False with Error() set when
  // the page is not well-formed.
  bool Parse(const std::string& text);

  // Why the page is not well-formed, in a few words; empty after a good parse.
  const std::string& Error() const { return m_error; }

  // Node 0 is the root; only valid after a good parse.
  const ZolNode& Node(DWORD index) const { return m_nodes[index]; }
  const ZolAttribute& Attribute(DWORD index) const { return m_attributes[index]; }

  std::string_view Name(const ZolNode& node) const { return View(node.Offset, node.Length); }
  std::string_view Content(const ZolNode& node) const { return View(node.Offset, node.Length); }
  std::string_view AttributeName(const ZolAttribute& attribute) const {
    return View(attribute.NameOffset, attribute.NameLength);
  }
  // The value as written, references undecoded.
  std::string_view AttributeRawValue(const ZolAttribute& attribute) const {
    return View(attribute.ValueOffset, attribute.ValueLength);
  }
  // The decoded value of the element's first attribute named exactly `name`; empty when
  // there is none.
  std::string AttributeValue(const ZolNode& element, std::string_view name) const;
  bool HasAttribute(const ZolNode& element, std::string_view name) const;

  // The HTML elements that have no content and no end tag.
  static bool IsVoidElement(std::string_view name);

 private:
  std::string_view View(DWORD offset, DWORD length) const { return std::string_view(*m_text).substr(offset, length); }
  bool Fail(std::string reason);
  // Reads the attributes of the tag between `from` and `end` into the element.
  bool ReadAttributes(ZolNode& element, DWORD from, DWORD end);
  // Adds a node as the last child of the open element on top of the stack.
  DWORD AddNode(const ZolNode& node);

  struct OpenElement {
    DWORD Node;
    DWORD LastChild;
  };

  const std::string* m_text = nullptr;
  std::vector<ZolNode> m_nodes;
  std::vector<ZolAttribute> m_attributes;
  std::vector<OpenElement> m_open;
  std::string m_error;
};

}  // namespace zolclient
