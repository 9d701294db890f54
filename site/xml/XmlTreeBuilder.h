// Builds the element index of a document from the scanner's tokens, with a stack of
// the elements still open.
#pragma once

#include <string>
#include <vector>

#include "frame/Types.h"
#include "site/xml/XmlIndex.h"

class CXmlTreeBuilder {
 public:
  // Builds under record 0 of `index`; `used` and `freeList` are the index's record
  // count and free list head, taken and updated.
  CXmlTreeBuilder(const std::string& doc, CXmlIndex& index, DWORD& used, DWORD& freeList);
  virtual ~CXmlTreeBuilder() = default;

  // Links every element of the document; returns the root's index, 0 on failure.
  DWORD Build();

  const std::string& ScannerError() const { return m_scannerError; }
  const std::string& BuilderError() const { return m_builderError; }

 private:
  struct OpenElement {
    DWORD Record;
    DWORD Offset;
    DWORD StartTagLength;
    DWORD NameOffset;
    DWORD NameLength;
  };

  DWORD TakeRecord();
  void LinkAsLastChild(DWORD record, DWORD parent);
  std::string Text(DWORD offset, DWORD length) const { return m_doc.substr(offset, length); }
  DWORD Fail(const char* format, ...);

  const std::string& m_doc;
  CXmlIndex& m_index;
  DWORD& m_used;
  DWORD& m_free;
  std::vector<OpenElement> m_open;
  std::string m_scannerError;
  std::string m_builderError;
};
