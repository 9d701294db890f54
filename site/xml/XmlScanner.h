// The tokenizer of the markup parser: a state machine that walks a range of the
// document and reports its tags and the text, comments, sections and declarations
// between them, each with its byte offsets in the document.
#pragma once

#include <string>

#include "frame/Types.h"

enum class XmlTokenKind {
  End,            // end of the range, or a scan error (see Error())
  StartTag,       // "<name ...>"
  EmptyTag,       // "<name .../>"
  EndTag,         // "</name>"
  Text,           // text between tags
  CData,          // "<![...]]>"
  Comment,        // "<!--...-->"
  Instruction,    // "<?...?>"
  Doctype,        // "<!D...>"
};

struct XmlToken {
  XmlTokenKind Kind = XmlTokenKind::End;
  DWORD Offset = 0;      // the "<" of a tag, or the first byte of a text
  DWORD Length = 0;      // of the whole token
  DWORD NameOffset = 0;  // tags: the name; CData, Comment, Instruction: the inner text
  DWORD NameLength = 0;
};

class CXmlScanner {
 public:
  // Scans `doc` from `begin` to `end` (byte offsets).
  CXmlScanner(const std::string& doc, DWORD begin, DWORD end);
  virtual ~CXmlScanner() = default;

  // The next token; End at the end of the range and, for good, after an error.
  XmlToken Next();

  // The message of the scan error, empty if none.
  const std::string& Error() const { return m_error; }

  // The length of the name token that starts at `offset`: it runs up to white space or
  // any of "<>=\/?!".
  static DWORD NameLength(const std::string& doc, DWORD offset, DWORD end);

  // White space of the markup: " \t\n\r".
  static bool IsSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
  // A character that ends an unquoted token inside a tag.
  static bool IsDelimiter(char c);

 private:
  XmlToken ScanTag();
  XmlToken ScanStartTag(DWORD start);
  XmlToken ScanEndTag(DWORD start);
  // A start or end tag from its "<" up to the closing ">", quoted values skipped.
  XmlToken ScanElementTag(XmlTokenKind kind, DWORD start, DWORD nameOffset, const char* what);
  XmlToken ScanDoctype(DWORD start);
  // Offset behind `closer` searched from `from`, or 0 when it is not there.
  DWORD FindCloser(DWORD from, const char* closer) const;
  // From a quote at `quote`: the offset behind its match, or 0 when there is none.
  DWORD SkipQuoted(DWORD quote) const;
  XmlToken Fail(const char* format, const char* what, DWORD offset);

  const std::string& m_doc;
  DWORD m_pos;
  DWORD m_end;
  std::string m_error;
};
