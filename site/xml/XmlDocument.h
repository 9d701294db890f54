// The module's own markup reader and editor. It keeps the document as one text and an
// index of its elements, and is navigated by a position (parent, element, child)
// rather than by a tree of objects.
#pragma once

#include <string>

#include "frame/Types.h"
#include "site/xml/XmlIndex.h"

class CXmlDocument {
 public:
  // Parses `text` when one is given.
  explicit CXmlDocument(const char* text = nullptr);
  CXmlDocument(const CXmlDocument&) = delete;
  CXmlDocument& operator=(const CXmlDocument&) = delete;
  virtual ~CXmlDocument() = default;

  // Takes a copy of `text` and builds the index; true when a root element was found.
  // Never throws for bad markup: GetError() tells what was wrong.
  bool Parse(const std::string& text);
  bool Parse(const char* text) { return Parse(std::string(text ? text : "")); }

  // The next sibling named `name` from the current element; on the first call the
  // root. Null, "" and "*" match any element; a leading "/" searches from the root.
  bool FindElement(const char* name = nullptr);
  // The same among the children of the current element (the root if none is current).
  bool FindChildElement(const char* name = nullptr);
  bool IntoElement();
  bool OutOfElement();
  void ResetPosition();

  // The tag name of the node at the position ("#text", "#cdata-section", "#comment"
  // for those nodes); empty when there is none.
  std::string GetTagName() const;
  // The decoded value of the current element's attribute, or "".
  std::string GetAttribute(const char* name) const;
  // The decoded text of the current element: text and CDATA sections, comments and
  // instructions left out. Empty for an element that has child elements.
  std::string GetData() const;
  // Replaces the content of the current element, escaped or as CDATA. False when no
  // element is current or it has child elements.
  bool SetData(const std::string& text, bool asCData);

  const std::string& GetDocument() const { return m_doc; }
  const std::string& GetError() const { return m_error; }

  // Looks into the index, for tests and diagnostics.
  DWORD GetElementCount() const { return m_used - 1; }
  DWORD GetIndexCapacity() const { return m_index.Capacity(); }
  DWORD GetSegmentCount() const { return m_index.SegmentCount(); }
  // The index of the current element and of the found child (0 for none).
  DWORD GetElementIndex() const { return m_element; }
  DWORD GetChildIndex() const { return m_child; }

 private:
  enum NodeType : DWORD { kElementNode = 0, kTextNode = 1, kCDataNode = 2, kCommentNode = 3 };

  // From `start` along the siblings: the first element whose name matches.
  DWORD FindSibling(DWORD start, const char* name) const;
  bool NameMatches(DWORD element, const char* name) const;
  DWORD NameLength(DWORD element) const;
  // Adds `difference` to the offsets of every record behind `element`, and to the
  // lengths of its ancestors.
  void ShiftFollowing(DWORD element, long long difference);
  void ShiftSubtree(DWORD element, long long difference);

  std::string m_doc;
  std::string m_error;
  DWORD m_parent = 0;
  DWORD m_element = 0;
  DWORD m_child = 0;
  DWORD m_free = 0;
  DWORD m_used = 1;
  // The node at the position when it is no element. Every operation of this class
  // stands on elements, so these stay at the element kind.
  DWORD m_nodeType = kElementNode;
  DWORD m_nodeOffset = 0;
  DWORD m_nodeLength = 0;
  CXmlIndex m_index;
};
