#include "site/xml/XmlText.h"

#include <gtest/gtest.h>

TEST(XmlText, NamedReferencesDecode) {
  EXPECT_EQ(XmlDecode("&lt;&amp;&gt;&apos;&quot;"), "<&>'\"");
}

TEST(XmlText, NumericReferencesDecodeToUtf8) {
  EXPECT_EQ(XmlDecode("&#65;&#x41;&#xe9;&#8364;&#x10FFFF;"),
            "AA\xC3\xA9\xE2\x82\xAC\xF4\x8F\xBF\xBF");
  EXPECT_EQ(XmlDecode("&#1114111;"), "\xF4\x8F\xBF\xBF") << "seven digits";
}

TEST(XmlText, ReferenceLongerThanSevenCharactersStays) {
  EXPECT_EQ(XmlDecode("&#x0000041;"), "&#x0000041;");
  EXPECT_EQ(XmlDecode("&#00000065;"), "&#00000065;");
  EXPECT_EQ(XmlDecode("&#0000065;"), "A");
}

TEST(XmlText, UnknownAmpersandStaysAsItIs) {
  EXPECT_EQ(XmlDecode("a & b &nbsp; &#; &#x; &#12a; &#0; &#xD800; &#x110000; &"),
            "a & b &nbsp; &#; &#x; &#12a; &#0; &#xD800; &#x110000; &");
}

TEST(XmlText, EscapeInTextAndInAttributes) {
  EXPECT_EQ(XmlEscape("<a & 'b' \"c\">", false), "&lt;a &amp; 'b' \"c\"&gt;");
  EXPECT_EQ(XmlEscape("<a & 'b' \"c\">", true), "&lt;a &amp; &apos;b&apos; &quot;c&quot;&gt;");
  EXPECT_EQ(XmlDecode(XmlEscape("<a & 'b' \"c\">", true)), "<a & 'b' \"c\">");
}

TEST(XmlText, CDataSplitsAtSectionEnd) {
  EXPECT_EQ(XmlCData(""), "<![CDATA[]]>");
  EXPECT_EQ(XmlCData("x]]>y"), "<![CDATA[x]]]]><![CDATA[>y]]>");
}

TEST(XmlText, Utf8OfEveryLength) {
  std::string out;
  AppendUtf8(out, 0x24);
  AppendUtf8(out, 0xA2);
  AppendUtf8(out, 0x20AC);
  AppendUtf8(out, 0x10348);
  EXPECT_EQ(out, "\x24\xC2\xA2\xE2\x82\xAC\xF0\x90\x8D\x88");
}
