#include "site/xml/XmlScanner.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

std::string Kinds(const std::string& doc) {
  CXmlScanner scanner(doc, 0, static_cast<DWORD>(doc.size()));
  std::string out;
  for (XmlToken t = scanner.Next(); t.Kind != XmlTokenKind::End; t = scanner.Next()) {
    switch (t.Kind) {
      case XmlTokenKind::StartTag: out += "S"; break;
      case XmlTokenKind::EmptyTag: out += "E"; break;
      case XmlTokenKind::EndTag: out += "/"; break;
      case XmlTokenKind::Text: out += "t"; break;
      case XmlTokenKind::CData: out += "c"; break;
      case XmlTokenKind::Comment: out += "!"; break;
      case XmlTokenKind::Instruction: out += "?"; break;
      case XmlTokenKind::Doctype: out += "D"; break;
      case XmlTokenKind::End: break;
    }
    out += doc.substr(t.NameOffset, t.NameLength) + "|";
  }
  return out;
}

}  // namespace

TEST(XmlScanner, ReportsEveryKindOfTokenWithItsNameOrInnerText) {
  EXPECT_EQ(Kinds("<?pi x?><!DOCTYPE r><r a='>'>t<![CDATA[c]]><!--m--><e/></r>"),
            "?pi x|DDOCTYPE r|Sr|tt|cc|!m|Ee|/r|");
}

TEST(XmlScanner, TokenOffsetsAndLengthsCoverTheTag) {
  const std::string doc = "ab<x  y='1'/>";
  CXmlScanner scanner(doc, 0, static_cast<DWORD>(doc.size()));
  XmlToken text = scanner.Next();
  EXPECT_EQ(text.Offset, 0u);
  EXPECT_EQ(text.Length, 2u);
  XmlToken tag = scanner.Next();
  EXPECT_EQ(tag.Kind, XmlTokenKind::EmptyTag);
  EXPECT_EQ(tag.Offset, 2u);
  EXPECT_EQ(tag.Length, 11u);
  EXPECT_EQ(scanner.Next().Kind, XmlTokenKind::End);
  EXPECT_EQ(scanner.Error(), "");
}

TEST(XmlScanner, ScansOnlyItsRange) {
  const std::string doc = "<a>x<b/>y</a>";
  CXmlScanner scanner(doc, 3, 9);
  EXPECT_EQ(scanner.Next().Kind, XmlTokenKind::Text);
  EXPECT_EQ(scanner.Next().Kind, XmlTokenKind::EmptyTag);
  EXPECT_EQ(scanner.Next().Kind, XmlTokenKind::Text);
  EXPECT_EQ(scanner.Next().Kind, XmlTokenKind::End);
}

TEST(XmlScanner, StopsForGoodAfterAnError) {
  const std::string doc = "<!-x<a/>";
  CXmlScanner scanner(doc, 0, static_cast<DWORD>(doc.size()));
  EXPECT_EQ(scanner.Next().Kind, XmlTokenKind::End);
  EXPECT_EQ(scanner.Error(), "Incorrect comment tag at offset 3");
  EXPECT_EQ(scanner.Next().Kind, XmlTokenKind::End);
}

TEST(XmlScanner, NameRunsUpToDelimiters) {
  const std::string doc = "abc d";
  EXPECT_EQ(CXmlScanner::NameLength(doc, 0, 5), 3u);
  for (const char c : std::string(" \t\n\r<>=\\/?!")) {
    const std::string named = std::string("ab") + c + "d";
    EXPECT_EQ(CXmlScanner::NameLength(named, 0, 4), 2u) << "delimiter " << int(c);
  }
  EXPECT_EQ(CXmlScanner::NameLength("a[1]", 0, 4), 4u);
}
