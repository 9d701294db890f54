#include "site/xml/CodePageText.h"

#include <gtest/gtest.h>

#include <string>

#include "site/xml/XmlText.h"
#include "testing/ModuleFixture.h"

namespace {

// The code points of bytes 0x80 to 0x9F in CP1252; 0 where the code page defines none.
constexpr DWORD kCp1252High[32] = {
    0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0,      0x017D, 0,
    0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178};

DWORD Cp1252Code(int byte) {
  if (byte < 0xA0) return kCp1252High[byte - 0x80] ? kCp1252High[byte - 0x80] : 0xFFFD;
  return static_cast<DWORD>(byte);
}

}  // namespace

TEST(CodePageText, EveryHighByteOfCp1252) {
  for (int byte = 0x80; byte <= 0xFF; ++byte) {
    std::string expected;
    AppendUtf8(expected, Cp1252Code(byte));
    EXPECT_EQ(CodePageToUtf8("CP1252", std::string(1, static_cast<char>(byte))), expected)
        << "byte 0x" << std::hex << byte;
  }
}

TEST(CodePageText, AllHighBytesInOneText) {
  std::string text, expected = "a";
  text += 'a';
  for (int byte = 0x80; byte <= 0xFF; ++byte) {
    text += static_cast<char>(byte);
    AppendUtf8(expected, Cp1252Code(byte));
  }
  text += 'z';
  expected += 'z';
  EXPECT_EQ(CodePageToUtf8("CP1252", text), expected);
}

TEST(CodePageText, KnownBytesAsLiterals) {
  EXPECT_EQ(CodePageToUtf8("CP1252", "\x80"), "\xE2\x82\xAC");
  EXPECT_EQ(CodePageToUtf8("CP1252", "Jos\xE9 M\xFCller"), "Jos\xC3\xA9 M\xC3\xBCller");
  EXPECT_EQ(CodePageToUtf8("CP1252", "plain"), "plain");
  EXPECT_EQ(CodePageToUtf8("CP1252", ""), "");
}

TEST(CodePageText, UndefinedByteGivesReplacementAndGoesOn) {
  EXPECT_EQ(CodePageToUtf8("CP1252", "a\x81" "b"), "a\xEF\xBF\xBD" "b");
}

TEST(CodePageText, LongTextLeavesTheStackBuffer) {
  std::string text, expected;
  for (int i = 0; i < 1000; ++i) {
    text += "\xE9x";
    expected += "\xC3\xA9x";
  }
  EXPECT_EQ(CodePageToUtf8("CP1252", text), expected);
  EXPECT_EQ(CodePageToUtf8("CP1252", std::string(255, '\xE9')).size(), 510u);
  EXPECT_EQ(CodePageToUtf8("CP1252", std::string(256, '\xE9')).size(), 512u);
}

TEST(CodePageText, EmptyOrUnknownCodePageIsReadAsCp1252) {
  EXPECT_EQ(CodePageToUtf8("", "\x80"), "\xE2\x82\xAC");
  EXPECT_EQ(CodePageToUtf8("NO-SUCH-CODE-PAGE", "\x80"), "\xE2\x82\xAC");
}

TEST(CodePageText, LocalTextUsesThePackagesCodePage) {
  {
    PackageScope scope;
    EXPECT_EQ(LocalToUtf8("\xA4"), "\xC2\xA4") << "CP1252 by default";
    scope.Package.CodePage = "ISO-8859-15";
    EXPECT_EQ(LocalToUtf8("\xA4"), "\xE2\x82\xAC");
    scope.Package.CodePage = "CP1251";
    EXPECT_EQ(LocalToUtf8("\xC0"), "\xD0\x90");
  }
  if (GetPackage() == nullptr) {
    EXPECT_EQ(LocalToUtf8("\x80"), "\xE2\x82\xAC");
  }
}

TEST(CodePageText, SurrogatePairsAreCombined) {
  const char16_t pair[] = {u'a', 0xD834, 0xDD1E, u'b'};
  EXPECT_EQ(Utf16ToUtf8(pair, 4), "a\xF0\x9D\x84\x9E" "b");
}

TEST(CodePageText, HighSurrogateAtTheEndEndsTheConversion) {
  const char16_t units[] = {u'a', u'b', 0xD834};
  EXPECT_EQ(Utf16ToUtf8(units, 3), "ab");
}

TEST(CodePageText, LoneSurrogateGivesReplacement) {
  const char16_t units[] = {0xDD1E, u'a', 0xD834, u'b'};
  EXPECT_EQ(Utf16ToUtf8(units, 4), "\xEF\xBF\xBD" "a\xEF\xBF\xBD" "b");
}
